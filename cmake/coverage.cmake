# Target coverage of the preset coverage: runs every test, reports which lines and branches of our
# own sources they executed, and fails if that is too little or a failure site was not reached.
#
# Counts are those of the object files of the library, the host and the console.  Branches that the
# compiler adds for exceptions, and branches on lines without source, are excluded: no test can choose
# between them.
if(NOT COAP_RPC_COVERAGE)
  return()
endif()

set(COAP_RPC_COVERAGE_LINES 95 CACHE STRING "per cent of lines that the tests have to execute")
set(COAP_RPC_COVERAGE_BRANCHES 90 CACHE STRING "per cent of branches that they have to take")

find_program(GCOVR gcovr)
mark_as_advanced(GCOVR)
if(NOT GCOVR)
  set(GCOVR gcovr-is-missing-run-scripts/coverage)
endif()

# coap_rpc_targets_below(<out> <folder>): all targets of the folder and its subfolders.
function(coap_rpc_targets_below out folder)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  get_property(subfolders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(subfolder ${subfolders})
    coap_rpc_targets_below(below ${subfolder})
    list(APPEND targets ${below})
  endforeach()
  set(${out} ${targets} PARENT_SCOPE)
endfunction()

set(COAP_RPC_COVERAGE_TARGETS)
foreach(folder coap_server platform tools examples tests)
  coap_rpc_targets_below(targets ${PROJECT_SOURCE_DIR}/${folder})
  list(APPEND COAP_RPC_COVERAGE_TARGETS ${targets})
endforeach()

# coap_rpc_report(<out> <title> <folder>...): the command that reports on these folders.
function(coap_rpc_report out title)
  set(command ${GCOVR} --root ${PROJECT_SOURCE_DIR} --exclude-throw-branches
    --exclude-unreachable-branches --fail-under-line ${COAP_RPC_COVERAGE_LINES}
    --fail-under-branch ${COAP_RPC_COVERAGE_BRANCHES} --print-summary
    --html-details ${PROJECT_BINARY_DIR}/coverage_${title}/index.html
    --json ${PROJECT_BINARY_DIR}/coverage_${title}.json)
  foreach(folder ${ARGN})
    list(APPEND command --filter ${PROJECT_SOURCE_DIR}/${folder}/)
  endforeach()
  foreach(folder coap_server third_party platform tools)
    list(APPEND command ${PROJECT_BINARY_DIR}/${folder})
  endforeach()
  set(${out} ${command} PARENT_SCOPE)
endfunction()

set(library coap_server/src third_party/libcoap/ext)
coap_rpc_report(libraryReport library ${library})
coap_rpc_report(wholeReport all ${library} platform/src tools)

# Tests wait more than they compute.  Counting slows down a few that depend on the clock.
include(ProcessorCount)
ProcessorCount(numProcessors)
math(EXPR numParallel "2 * ${numProcessors} + 1")

add_custom_target(coverage
  COMMAND ${CMAKE_COMMAND} -DBINARY_DIR=${PROJECT_BINARY_DIR}
    -P ${PROJECT_SOURCE_DIR}/cmake/coverage_reset.cmake
  COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${PROJECT_BINARY_DIR} --output-on-failure
    --parallel ${numParallel} --repeat until-pass:3 --no-tests=error
  COMMAND ${CMAKE_COMMAND} -E echo "library:"
  COMMAND ${libraryReport}
  COMMAND ${CMAKE_COMMAND} -E echo "library, host and tools:"
  COMMAND ${wholeReport}
  COMMAND check_reached_sites ${PROJECT_SOURCE_DIR}/tests/interface/unreachable_sites.txt
    ${PROJECT_BINARY_DIR}/reached_sites.txt
  USES_TERMINAL VERBATIM)
add_dependencies(coverage ${COAP_RPC_COVERAGE_TARGETS})
