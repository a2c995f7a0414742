# Direction of includes: libcoap and Jansson only from libadapter; libcoap's internal headers only from
# what is compiled into libcoap, which knows nothing of the library but how its lists are linked; server
# and client know neither each other nor init nor libadapter; common knows none of them; the rooms of
# libadapter know neither each other, but for those named below, nor what is on top of them; the host is called only
# through its contract headers; nothing outside platform/ knows the reference host's sources.
set(rpc ${SOURCE_DIR}/coap_server/src/coap_svc/rpc)
set(ext ${SOURCE_DIR}/third_party/libcoap/ext)

# coap_rpc_forbid(<regex> <folder> <what> [<regex>]): no #include below the folder may match, unless it
# matches the last one.
function(coap_rpc_forbid pattern folder what)
  file(GLOB_RECURSE files ${folder}/*.h ${folder}/*.cpp ${folder}/*.c)
  if(NOT files)
    message(SEND_ERROR "nothing to check in ${folder}")
  endif()
  foreach(file ${files})
    file(STRINGS ${file} lines REGEX "^[ ]*#[ ]*include.*${pattern}")
    if(ARGN)
      list(FILTER lines EXCLUDE REGEX "${ARGN}")
    endif()
    if(lines)
      message(SEND_ERROR "${file}: ${what}: ${lines}")
    endif()
  endforeach()
endfunction()

foreach(folder common init server client)
  coap_rpc_forbid("[<\"](coap3|jansson|cbor|libcoap/)" ${rpc}/${folder}
    "only libadapter includes libcoap, Jansson or libcbor")
endforeach()
coap_rpc_forbid("coap3/.*internal" ${rpc} "only third_party/libcoap/ext includes internal headers")
coap_rpc_forbid("coap_svc/|jansson" ${ext} "what is compiled into libcoap knows only types and links"
  "rpc/(coap_rpc_types|common/coap_rpc_link)\\.h")
coap_rpc_forbid("coap_svc/rpc/(init|client|libadapter)/" ${rpc}/server "server includes only common")
coap_rpc_forbid("coap_svc/rpc/(init|server|libadapter)/" ${rpc}/client "client includes only common")
coap_rpc_forbid("coap_svc/rpc/init/" ${rpc}/libadapter "libadapter does not include init")
# Besides message: calls use the sessions of call; publish asks sync whose an observer is; serve hands
# direct what the application answers to its handles; mirrors build their messages as calls do, on
# sessions made as those of call are; stats reads the records of all of them, and nobody's but the front
# door's and the context's business is what it counts.
set(message_of_call message)
set(message_of_direct message)
set(message_of_mirror message call rpc_call)
set(message_of_publish message sync)
set(message_of_rpc_call message call)
set(message_of_serve message direct)
set(message_of_stats message direct mirror rpc_call serve)
set(message_of_sync message)
foreach(room call direct log message mirror publish rpc_call serve stats sync)
  set(others call direct log message mirror publish rpc_call serve stats sync)
  list(REMOVE_ITEM others ${room} ${message_of_${room}})
  list(JOIN others "|" others)
  coap_rpc_forbid("libadapter/((${others})/|coap_rpc_lib_(ctx|ext|handler|io|parts)\\.h)"
    ${rpc}/libadapter/${room} "rooms of libadapter include only its record and message")
endforeach()
coap_rpc_forbid("coap_svc/rpc/(init|server|client|libadapter)/" ${rpc}/common "common includes no side")
coap_rpc_forbid("coap_svc/rpc/(common|init|server|client|libadapter)/"
  ${SOURCE_DIR}/coap_server/include "public headers include only public ones")
coap_rpc_forbid("kestrel|spdlog|uv\\.h" ${rpc} "the library knows only the host's contract")
coap_rpc_forbid("coap_svc/|coap3|jansson" ${SOURCE_DIR}/platform "the host does not know the library")
coap_rpc_forbid("coap_svc/rpc/(common|init|server|client|libadapter)/|coap3|jansson|gtest" ${SOURCE_DIR}/kestrel_test
  "the host for tests knows what applications know")
