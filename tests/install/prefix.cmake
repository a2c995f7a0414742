# Run by ctest: creates ${WORK}/prefix, and looks for files that do not belong there.  It is installed
# elsewhere and then moved, because an installation must be relocatable.
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/before
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${WORK}/before ${WORK}/prefix)

file(GLOB_RECURSE files RELATIVE ${WORK}/prefix ${WORK}/prefix/*)
foreach(header coap_rpc coap_rpc_call coap_rpc_cli coap_rpc_direct coap_rpc_ext coap_rpc_ser coap_rpc_test
    coap_rpc_types)
  if(NOT "${INCLUDEDIR}/coap_svc/rpc/${header}.h" IN_LIST files)
    message(SEND_ERROR "${header}.h is missing: ${files}")
  endif()
endforeach()
foreach(header coap_svc_rpc coap_svc/rpc/cpp/node)
  if(NOT "${INCLUDEDIR}/${header}.hpp" IN_LIST files)
    message(SEND_ERROR "${header}.hpp is missing: ${files}")
  endif()
endforeach()
foreach(name IN LISTS files)
  if(name STREQUAL "${LIBDIR}/libkestrel-test.a")
    set(hasTestHost ON)
  elseif(name MATCHES "coap-3|coap3|libcoap\\.|\\.a$")
    message(SEND_ERROR "not ours to install: ${name}")
  elseif(name MATCHES "\\.(cmake|pc)$")
    file(READ ${WORK}/prefix/${name} text)
    if(text MATCHES "coap-3|jansson|${BUILD}|${WORK}")
      message(SEND_ERROR "${name} names '${CMAKE_MATCH_0}'")
    endif()
  endif()
endforeach()

# What is built is built by the target installed, for those who build nothing else.
execute_process(COMMAND ninja -C ${BUILD} -t query installed OUTPUT_VARIABLE inputs
  COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^/\n]+\n" inputs "${inputs}")
foreach(name IN LISTS files)
  cmake_path(GET name FILENAME file)
  if(name MATCHES "\\.(a|so)$|^bin/" AND NOT "${file}\n" IN_LIST inputs)
    message(SEND_ERROR "the target installed does not build ${name}")
  endif()
endforeach()
if(NOT hasTestHost)
  message(SEND_ERROR "libkestrel-test.a is missing: ${files}")
endif()
