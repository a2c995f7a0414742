# docs/error_codes.md is what the printer makes of the list of failure sites.
execute_process(COMMAND ${PRINTER} OUTPUT_VARIABLE wanted COMMAND_ERROR_IS_FATAL ANY)
file(READ ${SOURCE_DIR}/docs/error_codes.md found)
if(NOT found STREQUAL wanted)
  message(FATAL_ERROR "docs/error_codes.md is stale: run scripts/make-docs")
endif()
