# Run by ctest: the target uninstall removes all of an installation, and nothing of anybody else.
cmake_minimum_required(VERSION 3.25)

set(prefix ${WORK}/uninstalled)
file(REMOVE_RECURSE ${prefix})
file(WRITE ${prefix}/${INCLUDEDIR}/other.h "")
file(WRITE ${prefix}/share/doc/coap_svc_rpc/notes.txt "")
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} --target uninstall
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

file(GLOB_RECURSE left RELATIVE ${prefix} LIST_DIRECTORIES true ${prefix}/*)
list(FILTER left INCLUDE REGEX "coap[-_]svc|kestrel|other\\.h")
set(expected ${INCLUDEDIR}/other.h share/doc/coap_svc_rpc share/doc/coap_svc_rpc/notes.txt)
if(NOT left STREQUAL expected)
  message(SEND_ERROR "left: ${left}\nexpected: ${expected}")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -D BUILD=${WORK}/nothing
  -P ${CMAKE_CURRENT_LIST_DIR}/../../cmake/uninstall.cmake RESULT_VARIABLE failed ERROR_VARIABLE text)
if(NOT failed OR NOT text MATCHES "nothing was installed")
  message(SEND_ERROR "uninstall without an installation: ${text}")
endif()
