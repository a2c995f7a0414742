# Run by ctest: checks the symbols of the finished library.
#   LIBRARY  the shared library     READELF, COMPILER  tools     WORK  a folder to write to
cmake_minimum_required(VERSION 3.25)

function(run_readelf option out)
  execute_process(COMMAND ${READELF} -W ${option} ${LIBRARY} OUTPUT_VARIABLE text
    COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE ";" " " text "${text}")
  string(REPLACE "\n" ";" lines "${text}")
  set(${out} "${lines}" PARENT_SCOPE)
endfunction()

# Every function of libcoap is exported with a non-default version of ours; its data is not.
run_readelf(--dyn-syms lines)
set(numNames 0)
foreach(line IN LISTS lines)
  if(line MATCHES " (coap_[a-z0-9_]+[^ ]*)")
    set(symbol ${CMAKE_MATCH_1})
    if(NOT symbol MATCHES "^coap_[a-z0-9_]+@COAP_SVC_RPC_LIBCOAP$")
      message(SEND_ERROR "not private: ${symbol}")
    endif()
    if(NOT line MATCHES " FUNC ")
      message(SEND_ERROR "no function: ${line}")
    endif()
    math(EXPR numNames "${numNames} + 1")
  elseif(line MATCHES " ([^ ]+)@COAP_SVC_RPC_1.0" AND
      NOT CMAKE_MATCH_1 MATCHES "^(COAP_|Coap_|CoapRpc|CORP_|g_CoapRpc)")
    message(SEND_ERROR "exported by mistake: ${line}")
  endif()
endforeach()
if(numNames LESS 100)
  message(SEND_ERROR "only ${numNames} libcoap names in the dynamic symbol table")
endif()
# A function that libcoap does not export.
list(FILTER lines INCLUDE REGEX " coap_endpoint_get_session@")
if(NOT lines)
  message(SEND_ERROR "libcoap's internal functions have no names")
endif()

# Nothing of libcoap is looked up at run time, so another libcoap's functions cannot be found.
run_readelf(--relocs lines)
foreach(line IN LISTS lines)
  if(line MATCHES " coap_")
    message(SEND_ERROR "bound at run time: ${line}")
  endif()
endforeach()

# The host is not a dependency: a program provides it.
run_readelf(--dynamic lines)
foreach(line IN LISTS lines)
  if(line MATCHES "NEEDED.*(kestrel|coap_svc_debug|libcoap-3)")
    message(SEND_ERROR "unwanted dependency: ${line}")
  endif()
endforeach()

# A host may lack the optional functions.
run_readelf(--dyn-syms lines)
if(NOT lines MATCHES " WEAK [^;]* UND CSVC_DBG_Takes")
  message(SEND_ERROR "CSVC_DBG_Takes is not referred to weakly")
endif()

# It starts no thread and no process: it does not import the functions for that.
set(starters pthread_create thrd_create clone clone3 fork vfork posix_spawn posix_spawnp popen system
  timer_create mq_notify getaddrinfo_a aio_read aio_write lio_listio)
run_readelf(--dyn-syms lines)
foreach(line IN LISTS lines)
  if(line MATCHES " UND ([^@ ]+)")
    set(name ${CMAKE_MATCH_1})
    if(name IN_LIST starters OR name MATCHES "^_ZNSt6thread")
      message(SEND_ERROR "starts a thread or a process: ${name}")
    endif()
  endif()
endforeach()

# A program that calls libcoap but links only our library must not get ours.
file(WRITE ${WORK}/only_ours.c "void coap_startup(void);\nint main(void) { coap_startup(); }\n")
execute_process(COMMAND ${COMPILER} ${WORK}/only_ours.c ${LIBRARY} -o ${WORK}/only_ours
    -Wl,--unresolved-symbols=ignore-in-shared-libs
  RESULT_VARIABLE failed OUTPUT_QUIET ERROR_VARIABLE text)
if(NOT failed OR NOT text MATCHES "undefined [^\n]*coap_startup")
  message(SEND_ERROR "an application's libcoap calls are caught: ${text}")
endif()
