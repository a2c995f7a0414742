# Run by ctest: each case of refused.cpp fails to compile, and the compiler shows the text that stands
# after its number.  Without a case, and for all settings, it compiles without a warning.
cmake_minimum_required(VERSION 3.25)

set(source ${CMAKE_CURRENT_LIST_DIR}/refused.cpp)
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(flags -I${INCLUDE} -I${PLATFORM} -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  -Werror)

function(compile result text)
  execute_process(COMMAND ${ARGN} ${flags} RESULT_VARIABLE failed ERROR_VARIABLE said
    OUTPUT_QUIET)
  set(${result} ${failed} PARENT_SCOPE)
  set(${text} "${said}" PARENT_SCOPE)
endfunction()

foreach(std c++20 ${NEXT_STD})
  foreach(setting "-fexceptions;-frtti" "-fno-exceptions;-fno-rtti")
    compile(failed said ${CXX} -std=${std} ${setting} -fsyntax-only ${source})
    if(failed)
      message(SEND_ERROR "${std} ${setting}:\n${said}")
    endif()
  endforeach()
endforeach()

# The cases share a compiled header.
file(WRITE ${WORK}/once.hpp "#include \"coap_svc_rpc.hpp\"\n")
compile(failed said ${CXX} -std=c++20 -x c++-header ${WORK}/once.hpp -o ${WORK}/once.hpp.gch)
if(failed)
  message(FATAL_ERROR "${said}")
endif()

file(STRINGS ${source} cases REGEX "CASE == [0-9]+ ")
list(LENGTH cases numCases)
if(numCases LESS 18)
  message(SEND_ERROR "only ${numCases} cases were found")
endif()
foreach(case IN LISTS cases)
  if(NOT case MATCHES "CASE == ([0-9]+)  // (.+)$")
    message(FATAL_ERROR "no case: ${case}")
  endif()
  set(number ${CMAKE_MATCH_1})
  set(expected "${CMAKE_MATCH_2}")
  compile(failed said ${CXX} -std=c++20 -include ${WORK}/once.hpp -DCASE=${number} -fsyntax-only
    ${source})
  string(FIND "${said}" "${expected}" at)
  if(NOT failed OR at EQUAL -1)
    message(SEND_ERROR "case ${number} ended with ${failed}, expected '${expected}':\n${said}")
  endif()
endforeach()
