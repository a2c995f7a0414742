# Options of the build, and the two interface targets that carry our compiler flags:
#   coap_rpc_warnings   the warnings, errors unless COAP_RPC_WERROR is off
#   coap_rpc_cxx        the language rules of the library
# All our targets link both PRIVATE.  Sanitizers and coverage apply to all compiled code, libcoap
# included.

option(COAP_RPC_WERROR "treat warnings as errors" ON)
option(COAP_RPC_COVERAGE "count executed lines" OFF)
option(COAP_RPC_FUZZ "build for libFuzzer (clang only)" OFF)
option(COAP_RPC_LTO "optimise across files when linking (gcc)" OFF)
set(COAP_RPC_PROFILE "" CACHE STRING
  "train: count in COAP_RPC_PROFILE_DIR what runs; use: optimise by these counts (gcc)")
set(COAP_RPC_PROFILE_DIR ${PROJECT_SOURCE_DIR}/build/profile CACHE PATH "counts of COAP_RPC_PROFILE")
set(COAP_RPC_SANITIZE "" CACHE STRING "sanitizers, for example address,undefined")

# Forged addresses could register without end; each observer takes a session as well.
set(COAP_RPC_MAX_OBSERVERS 1000 CACHE STRING "observers of one URI, at most")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

find_program(CCACHE_PROGRAM ccache)
mark_as_advanced(CCACHE_PROGRAM)
foreach(language C CXX)
  if(CCACHE_PROGRAM AND NOT DEFINED CMAKE_${language}_COMPILER_LAUNCHER)
    set(CMAKE_${language}_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  endif()
endforeach()

add_library(coap_rpc_warnings INTERFACE)
target_compile_options(coap_rpc_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2
  # Records that end in an array have __extension__, which silences only gcc.
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-c99-extensions>
  # gcc 12 takes "text" + std::string for a copy onto itself.
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>
  # clang 19 says it of gcc 12's own <algorithm>.
  $<$<BOOL:${COAP_RPC_WERROR}>:-Werror> -Wno-error=deprecated-declarations)

# Frame pointers are kept because the log handler walks them to find its caller.
add_library(coap_rpc_cxx INTERFACE)
target_compile_options(coap_rpc_cxx INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions> $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>
  -fvisibility=hidden -fno-omit-frame-pointer)
set_target_properties(coap_rpc_cxx PROPERTIES INTERFACE_POSITION_INDEPENDENT_CODE ON)

# Across languages gcc 12 takes a packed record of C and the same of C++ for two types that cannot be
# at one address, and drops stores to it: hence no-strict-aliasing.
#
# Object files hold machine code as well, because tests link them without this optimisation: it would
# take ten seconds of each of the many programs.
if(COAP_RPC_LTO)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    message(FATAL_ERROR "COAP_RPC_LTO needs gcc")
  endif()
  foreach(language C CXX)
    set(CMAKE_${language}_COMPILE_OPTIONS_IPO -flto=auto -ffat-lto-objects -fno-strict-aliasing)
  endforeach()
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()

# coap_rpc_skip_lto(): the calling folder is compiled and linked without it.
macro(coap_rpc_skip_lto)
  if(COAP_RPC_LTO)
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION OFF)
    add_link_options(-fno-lto)
  endif()
endmacro()

# The counts of an object file are found by its path in the build folder.  Code that the training did
# not run is optimised as without counts.
if(COAP_RPC_PROFILE STREQUAL "train")
  add_compile_options(-fprofile-generate=${COAP_RPC_PROFILE_DIR}
    -fprofile-prefix-path=${PROJECT_BINARY_DIR})
  add_link_options(-fprofile-generate)
elseif(COAP_RPC_PROFILE STREQUAL "use" AND EXISTS ${COAP_RPC_PROFILE_DIR})
  # A program that exits inside a callback leaves counts that do not add up, which is an error otherwise.
  add_compile_options(-fprofile-use=${COAP_RPC_PROFILE_DIR}
    -fprofile-prefix-path=${PROJECT_BINARY_DIR} -fprofile-partial-training -fprofile-correction
    -Wno-missing-profile -Wno-coverage-mismatch)
elseif(COAP_RPC_PROFILE STREQUAL "use")
  message(STATUS "no counts in ${COAP_RPC_PROFILE_DIR}: scripts/bench --train makes them")
endif()

if(COAP_RPC_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "COAP_RPC_FUZZ needs clang (preset asan asks for it by name)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

# coap_rpc_hide_from_fuzzer(): the fuzzer ignores the coverage of the calling folder.
macro(coap_rpc_hide_from_fuzzer)
  if(COAP_RPC_FUZZ)
    add_compile_options(-fno-sanitize=fuzzer-no-link)
  endif()
endmacro()

# coap_rpc_allow_foreign_writes(): libraries without the memory sanitizer may write into local variables of
# the calling folder's code.
macro(coap_rpc_allow_foreign_writes)
  if(COAP_RPC_SANITIZE STREQUAL "memory")
    add_compile_options("SHELL:-mllvm -msan-poison-stack=0")
  endif()
endmacro()

if(COAP_RPC_SANITIZE)
  # The vptr check needs RTTI, which is off.
  add_compile_options(-fsanitize=${COAP_RPC_SANITIZE} -fno-sanitize=vptr
    -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${COAP_RPC_SANITIZE} -fno-sanitize=vptr)
  if(COAP_RPC_SANITIZE STREQUAL "memory")
    add_compile_options(-fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/msan_ignore.txt)
  endif()
  # The checks of our C++ libraries call functions that have to be in the program, even in C.
  add_link_options(
    "$<$<LINK_LANG_AND_ID:C,Clang>:SHELL:-fsanitize-link-c++-runtime -lstdc++>")
endif()
if(COAP_RPC_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
