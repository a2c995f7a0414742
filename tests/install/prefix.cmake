# Run by ctest: creates ${WORK}/prefix, and looks for files that do not belong there.  It is installed
# elsewhere and then moved, because an installation must be relocatable.
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/before
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${WORK}/before ${WORK}/prefix)

file(GLOB_RECURSE files RELATIVE ${WORK}/prefix ${WORK}/prefix/*)
if(NOT "${INCLUDEDIR}/coap_svc/rpc/coap_rpc.h" IN_LIST files)
  message(SEND_ERROR "coap_rpc.h is missing: ${files}")
endif()
foreach(name IN LISTS files)
  if(name MATCHES "coap-3|coap3|libcoap\\.|\\.a$")
    message(SEND_ERROR "not ours to install: ${name}")
  elseif(name MATCHES "\\.(cmake|pc)$")
    file(READ ${WORK}/prefix/${name} text)
    if(text MATCHES "coap-3|jansson|${BUILD}|${WORK}")
      message(SEND_ERROR "${name} names '${CMAKE_MATCH_0}'")
    endif()
  endif()
endforeach()
