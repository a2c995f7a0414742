# Run by ctest: the target uninstall removes all of the installations, wherever they are, and nothing of
# anybody else.
cmake_minimum_required(VERSION 3.25)

# What other tests have installed is theirs to remove.
set(record ${BUILD}/installed_files.txt)
file(RENAME ${record} ${WORK}/record RESULT ignored)

set(prefix ${WORK}/uninstalled)
set(staged ${WORK}/staged)
set(modules lib/python3/dist-packages/coaprpc)
file(REMOVE_RECURSE ${prefix} ${staged})
file(WRITE ${prefix}/${INCLUDEDIR}/other.h "")
file(WRITE ${prefix}/share/doc/coap_svc_rpc/notes.txt "")
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E env DESTDIR=${staged} ${CMAKE_COMMAND} --install ${BUILD}
  --prefix /usr --component dev OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
if(NOT EXISTS ${staged}/usr/${INCLUDEDIR}/coap_svc_rpc.hpp)
  message(SEND_ERROR "nothing was installed below DESTDIR")
endif()
# As Python leaves it.
if(EXISTS ${prefix}/${modules})
  file(WRITE ${prefix}/${modules}/__pycache__/_node.cpython-311.pyc "")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} --target uninstall
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

file(GLOB_RECURSE left RELATIVE ${WORK} LIST_DIRECTORIES true ${prefix}/* ${staged}/*)
list(FILTER left INCLUDE REGEX "coap[-_]svc|coaprpc|kestrel|\\.[a-z]+$")
set(expected uninstalled/${INCLUDEDIR}/other.h uninstalled/share/doc/coap_svc_rpc
  uninstalled/share/doc/coap_svc_rpc/notes.txt)
if(NOT left STREQUAL expected)
  message(SEND_ERROR "left: ${left}\nexpected: ${expected}")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} --target uninstall RESULT_VARIABLE failed
  OUTPUT_VARIABLE text ERROR_VARIABLE text)
if(NOT failed OR NOT text MATCHES "nothing was installed")
  message(SEND_ERROR "uninstall without an installation: ${text}")
endif()
file(RENAME ${WORK}/record ${record} RESULT ignored)

# What cannot be removed, here because it is a folder, is told, and stays in the record.
set(other ${WORK}/unremovable)
file(WRITE ${other}/folder/file "")
file(WRITE ${other}/installed_files.txt "${other}/folder\n")
execute_process(COMMAND ${CMAKE_COMMAND} -D BUILD=${other}
  -P ${CMAKE_CURRENT_LIST_DIR}/../../cmake/uninstall.cmake RESULT_VARIABLE failed ERROR_VARIABLE text)
if(NOT failed OR NOT text MATCHES "cannot remove" OR NOT EXISTS ${other}/installed_files.txt)
  message(SEND_ERROR "what cannot be removed: ${text}")
endif()
