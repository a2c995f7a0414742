# Removes what cmake --install has installed from the folder BUILD, wherever that was: the files of its
# record, and the folders that are empty then and bear our name.
cmake_minimum_required(VERSION 3.25)

# coap_rpc_remove_folder(<folder>): and those above it, while they are empty and ours.
function(coap_rpc_remove_folder folder)
  # Python's, of modules that were there.
  if(folder MATCHES "/coaprpc$")
    file(REMOVE_RECURSE ${folder}/__pycache__)
  endif()
  file(GLOB left ${folder}/*)
  if(left OR NOT IS_DIRECTORY ${folder} OR NOT folder MATCHES "/([^/]*coap[-_]svc[^/]*|coaprpc)(/|$)")
    return()
  endif()
  file(REMOVE_RECURSE ${folder})
  cmake_path(GET folder PARENT_PATH above)
  coap_rpc_remove_folder(${above})
endfunction()

set(record ${BUILD}/installed_files.txt)
if(NOT EXISTS ${record})
  message(FATAL_ERROR "nothing was installed from ${BUILD}")
endif()
file(STRINGS ${record} files)
foreach(name IN LISTS files)
  file(REMOVE ${name})  # says nothing when it fails
  if(EXISTS ${name} OR IS_SYMLINK ${name})
    message(FATAL_ERROR "cannot remove ${name}: run it as the user who installed it, for example with sudo")
  endif()
endforeach()
foreach(name IN LISTS files)
  cmake_path(GET name PARENT_PATH folder)
  coap_rpc_remove_folder(${folder})
endforeach()
file(REMOVE ${record})
