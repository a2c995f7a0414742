# Run by ctest: programs that find the installation through pkg-config.
cmake_minimum_required(VERSION 3.25)

set(source ${CMAKE_CURRENT_LIST_DIR}/consumer)
set(build ${WORK}/pkg_config)
file(MAKE_DIRECTORY ${build})
set(ENV{PKG_CONFIG_PATH} ${WORK}/prefix/${LIBDIR}/pkgconfig)
set(ENV{LD_LIBRARY_PATH} ${WORK}/prefix/${LIBDIR})

execute_process(COMMAND pkg-config --cflags --libs coap_svc_rpc kestrel OUTPUT_VARIABLE flags
  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${flags}")
set(warnings -Wall -Wextra -Wpedantic -Werror)
execute_process(COMMAND ${CC} -std=c11 ${warnings} ${source}/consumer.c -o ${build}/consumer_c
  ${flags} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CXX} -std=c++17 ${warnings} ${source}/consumer.cpp
  -o ${build}/consumer_cpp ${flags} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CXX} -std=c++20 ${warnings} ${source}/consumer_hpp.cpp
  -o ${build}/consumer_hpp ${flags} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND pkg-config --cflags --libs coap_svc_rpc kestrel-test OUTPUT_VARIABLE flags
  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(COMMAND ${CC} -std=c11 ${warnings} ${source}/consumer_test.c -o ${build}/consumer_test
  ${flags} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${build}/consumer_test COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${build}/consumer_c COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${build}/consumer_cpp COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${build}/consumer_hpp COMMAND_ERROR_IS_FATAL ANY)
