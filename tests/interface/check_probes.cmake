# The shared library has the probes that docs/counters.md names, and no others, if it was built with them.
file(READ ${SOURCE_DIR}/docs/counters.md document)
string(REGEX MATCHALL "\n\\| `[a-z_]+`(, `[a-z_]+`)? \\|" rows "${document}")
string(REGEX MATCHALL "[a-z]+(__[a-z]+)?`" wanted "${rows}")
list(TRANSFORM wanted REPLACE "`" "")
list(SORT wanted)

execute_process(COMMAND ${READELF} -n ${LIBRARY} OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "Provider: coap_svc_rpc[ \t\r\n]+Name: [a-z_]+" lines "${notes}")
list(TRANSFORM lines REPLACE "^.*Name: " "")
list(REMOVE_DUPLICATES lines)
list(SORT lines)

if(HAS_PROBES AND NOT lines STREQUAL wanted)
  message(FATAL_ERROR "probes are [${lines}], docs/counters.md names [${wanted}]")
endif()
if(NOT HAS_PROBES AND lines)
  message(FATAL_ERROR "probes without <sys/sdt.h>: [${lines}]")
endif()
