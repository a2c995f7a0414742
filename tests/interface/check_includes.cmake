# Direction of includes: libcoap and Jansson only from libadapter; server and client know neither each
# other nor init nor libadapter; common knows none of them; the host is called only through its
# contract headers; nothing outside platform/ knows the reference host's sources.
set(rpc ${SOURCE_DIR}/coap_server/src/coap_svc/rpc)

# coap_rpc_forbid(<regex> <folder> <what>): no #include below the folder may match.
function(coap_rpc_forbid pattern folder what)
  file(GLOB_RECURSE files ${folder}/*.h ${folder}/*.cpp ${folder}/*.c)
  if(NOT files)
    message(SEND_ERROR "nothing to check in ${folder}")
  endif()
  foreach(file ${files})
    file(STRINGS ${file} lines REGEX "^[ ]*#[ ]*include.*${pattern}")
    if(lines)
      message(SEND_ERROR "${file}: ${what}: ${lines}")
    endif()
  endforeach()
endfunction()

foreach(folder common init server client)
  coap_rpc_forbid("<coap3|<jansson" ${rpc}/${folder} "only libadapter includes libcoap or Jansson")
endforeach()
coap_rpc_forbid("coap_svc/rpc/(init|client|libadapter)/" ${rpc}/server "server includes only common")
coap_rpc_forbid("coap_svc/rpc/(init|server|libadapter)/" ${rpc}/client "client includes only common")
coap_rpc_forbid("coap_svc/rpc/init/" ${rpc}/libadapter "libadapter does not include init")
coap_rpc_forbid("coap_svc/rpc/(init|server|client|libadapter)/" ${rpc}/common "common includes no side")
coap_rpc_forbid("coap_svc/rpc/(common|init|server|client|libadapter)/"
  ${SOURCE_DIR}/coap_server/include "public headers include only public ones")
coap_rpc_forbid("kestrel|spdlog|uv\\.h" ${rpc} "the library knows only the host's contract")
coap_rpc_forbid("coap_svc/|coap3|jansson" ${SOURCE_DIR}/platform "the host does not know the library")
