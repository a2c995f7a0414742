# Run by ctest: programs that find the installation as a CMake package.
cmake_minimum_required(VERSION 3.25)

set(source ${CMAKE_CURRENT_LIST_DIR}/consumer)
set(build ${WORK}/find_package)
file(REMOVE_RECURSE ${build})

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text ERROR_VARIABLE text RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "${text}")
  endif()
endfunction()

run(${CMAKE_COMMAND} -S ${source} -B ${build} -G Ninja -DCMAKE_PREFIX_PATH=${WORK}/prefix
  -DCMAKE_C_COMPILER=${CC} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=${BUILD_TYPE})
run(${CMAKE_COMMAND} --build ${build})
run(${build}/consumer_c)
run(${build}/consumer_cpp)
run(${build}/consumer_hpp)
run(${build}/consumer_test)
run(${build}/consumer_test_c)
