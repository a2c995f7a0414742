# Run by ctest: packages are not made without a maintainer who can be written to.
cmake_minimum_required(VERSION 3.25)

set(script ${CMAKE_CURRENT_LIST_DIR}/../../cmake/package_files.cmake)
foreach(contact "" "A B" "A B <root@localhost>" "<a@b.org>")
  execute_process(COMMAND ${CMAKE_COMMAND} "-DCPACK_PACKAGE_CONTACT=${contact}" -P ${script}
    RESULT_VARIABLE failed ERROR_VARIABLE text OUTPUT_QUIET)
  if(NOT failed OR NOT text MATCHES "is no maintainer: set DEBFULLNAME")
    message(SEND_ERROR "\"${contact}\" is accepted: ${text}")
  endif()
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} "-DCPACK_PACKAGE_CONTACT=A B <a@b.org>" -P ${script}
  COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
