# Configures libcoap from a folder and from a tarball, and with one more patch, good or bad: a patch that
# does not apply is an error.
cmake_minimum_required(VERSION 3.25)

set(patches ${WORK}/tree/third_party/libcoap/patches)
file(REMOVE_RECURSE ${WORK})
file(COPY ${TOP}/cmake ${TOP}/third_party DESTINATION ${WORK}/tree)
file(WRITE ${WORK}/tree/CMakeLists.txt "
cmake_minimum_required(VERSION 3.25)
project(patched_libcoap LANGUAGES C CXX)
list(APPEND CMAKE_MODULE_PATH \${PROJECT_SOURCE_DIR}/cmake)
include(options)
add_subdirectory(third_party/libcoap)
")

# configure(<out>): leaves the status in <out> and all texts in `text`.
function(configure out)
  execute_process(COMMAND ${CMAKE_COMMAND} -G ${GENERATOR} -S ${WORK}/tree -B ${WORK}/build
      -D CMAKE_C_COMPILER=${CC} -D CMAKE_CXX_COMPILER=${CXX} -D LIBCOAP_SOURCE=${LIBCOAP_SOURCE}
    RESULT_VARIABLE status OUTPUT_VARIABLE text ERROR_VARIABLE text)
  set(${out} ${status} PARENT_SCOPE)
  set(text "${text}" PARENT_SCOPE)
endfunction()

# expect_good(<what>)
function(expect_good what)
  configure(status)
  if(NOT status EQUAL 0)
    message(SEND_ERROR "${what}: refused:\n${text}")
  endif()
endfunction()

# expect_bad(<what>): twice, as the second time must not go on with what the first one left.
function(expect_bad what)
  foreach(time first second)
    configure(status)
    if(status EQUAL 0)
      message(SEND_ERROR "${what}: accepted, ${time} time")
    elseif(NOT text MATCHES "9002-tried.patch[^a-z]+does[^a-z]+not[^a-z]+apply")
      message(SEND_ERROR "${what}: refused for another reason:\n${text}")
    endif()
  endforeach()
endfunction()

# try_patch(<line> <before> <old> <after>): the next patch changes a line that stands between others.
function(try_patch line before old after)
  file(WRITE ${patches}/9002-tried.patch "Changes a line.

--- a/probe.txt
+++ b/probe.txt
@@ -${line},3 +${line},3 @@
 ${before}
-${old}
+new
 ${after}
")
endfunction()

file(WRITE ${patches}/9001-probe.patch "Makes the file that is patched here.

--- /dev/null
+++ b/probe.txt
@@ -0,0 +1,5 @@
+one
+two
+three
+four
+five
")
expect_good("as it is")
try_patch(2 two three four)
expect_good("lines where they are said to be")
try_patch(1 two three four)
expect_good("lines that have moved")
file(READ ${WORK}/build/libcoap-src/probe.txt probe)
if(NOT probe STREQUAL "one\ntwo\nnew\nfour\nfive\n")
  message(SEND_ERROR "the patch was not applied:\n${probe}")
endif()
if(IS_DIRECTORY ${LIBCOAP_SOURCE})
  cmake_path(GET LIBCOAP_SOURCE PARENT_PATH parent)
  cmake_path(GET LIBCOAP_SOURCE FILENAME name)
  execute_process(COMMAND ${CMAKE_COMMAND} -E tar czf ${WORK}/libcoap.tar.gz ${name}
    WORKING_DIRECTORY ${parent} COMMAND_ERROR_IS_FATAL ANY)
  set(LIBCOAP_SOURCE ${WORK}/libcoap.tar.gz)
  expect_good("a tarball")
endif()
try_patch(2 two other four)
expect_bad("a line that is not there")
try_patch(2 two three other)
expect_bad("a neighbour that is not there")
file(COPY_FILE ${patches}/9001-probe.patch ${patches}/9002-tried.patch)
expect_bad("a patch that was applied before")
file(WRITE ${patches}/9002-tried.patch "No patch.\n")
expect_bad("a file without a patch")
