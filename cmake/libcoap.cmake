# Builds libcoap as a static library of our own build: target coap-3, alias libcoap::coap-3.
# The source is found, in this order, by the cache variable LIBCOAP_SOURCE, by the environment
# variable of that name (each a folder or a tarball) and in the cache folder that scripts/setup
# fills.

function(coap_rpc_find_libcoap out)
  # The environment counts when a build folder is configured by hand; it is remembered for the times
  # when the build configures itself.
  if(DEFINED ENV{LIBCOAP_SOURCE})
    set(COAP_RPC_LIBCOAP_ENV "$ENV{LIBCOAP_SOURCE}" CACHE INTERNAL "environment's LIBCOAP_SOURCE")
  endif()
  set(found "$CACHE{LIBCOAP_SOURCE}")
  if(NOT found)
    set(found "$CACHE{COAP_RPC_LIBCOAP_ENV}")
  endif()
  if(NOT found)
    execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/setup --where
      OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  endif()
  cmake_path(ABSOLUTE_PATH found BASE_DIRECTORY ${PROJECT_SOURCE_DIR} NORMALIZE)
  if(NOT EXISTS ${found} OR (IS_DIRECTORY ${found} AND NOT EXISTS ${found}/CMakeLists.txt))
    message(FATAL_ERROR "No libcoap source in ${found}: run scripts/setup")
  endif()
  message(STATUS "libcoap source: ${found}")
  set(${out} ${found} PARENT_SCOPE)
endfunction()

# Faults of this release that peers can reach and that have no patch of the distribution's.  A source of
# another origin may have them mended: a patch that does not apply is only reported then.
function(coap_rpc_patch_libcoap copy)
  foreach(patch ${COAP_RPC_LIBCOAP_PATCHES})
    execute_process(COMMAND patch --batch --forward --silent --strip=1 --input=${patch}
      WORKING_DIRECTORY ${copy} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
      message(WARNING "${patch} does not apply to this libcoap source: ${output}")
    endif()
  endforeach()
endfunction()

# Configuring libcoap writes into its source folder, so the build works on a copy.  The copy is made
# anew when the source is another one or has changed.
function(coap_rpc_copy_libcoap source copy)
  file(TIMESTAMP ${source} stamp "%s")
  set(origin "${source} ${stamp}")
  foreach(patch ${COAP_RPC_LIBCOAP_PATCHES})
    file(SHA256 ${patch} sum)
    string(APPEND origin " ${sum}")
  endforeach()
  set(originFile ${copy}.origin)
  if(EXISTS ${originFile})
    file(READ ${originFile} last)
    if(last STREQUAL origin)
      return()
    endif()
  endif()
  file(REMOVE_RECURSE ${copy} ${originFile})
  if(IS_DIRECTORY ${source})
    file(COPY ${source}/ DESTINATION ${copy} PATTERN .git EXCLUDE)
  else()
    file(ARCHIVE_EXTRACT INPUT ${source} DESTINATION ${copy}.unpacked)
    file(GLOB top ${copy}.unpacked/*)
    if(NOT EXISTS ${top}/CMakeLists.txt)
      message(FATAL_ERROR "${source} does not hold one folder with the libcoap source")
    endif()
    file(RENAME ${top} ${copy})
    file(REMOVE_RECURSE ${copy}.unpacked)
  endif()
  # Younger than what was built of an earlier copy, whatever the age of the source.
  file(GLOB_RECURSE files ${copy}/*.[ch])
  file(TOUCH ${files})
  coap_rpc_patch_libcoap(${copy})
  file(WRITE ${originFile} "${origin}")
endfunction()

# libcoap reads its options as plain variables here, because CMP0077 is NEW for it as well; nothing
# of this reaches the cache or the rest of the build.
function(coap_rpc_add_libcoap copy binary)
  set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
  set(CMAKE_POLICY_DEFAULT_CMP0126 NEW)
  set(CMAKE_MESSAGE_LOG_LEVEL WARNING)

  set(BUILD_SHARED_LIBS OFF)
  # UDP only, so no crypto library either.
  foreach(name ENABLE_DTLS ENABLE_TCP ENABLE_WS ENABLE_OSCORE ENABLE_AF_UNIX ENABLE_PROXY_CODE)
    set(${name} OFF)
  endforeach()
  # The lock of this release is wrong once an event handler is registered; we use one thread.
  set(ENABLE_THREAD_SAFE OFF)
  set(ENABLE_THREAD_RECURSIVE_LOCK_CHECK OFF)
  foreach(name ENABLE_SMALL_STACK ENABLE_EXAMPLES ENABLE_TESTS ENABLE_DOCS WARNING_TO_ERROR)
    set(${name} OFF)
  endforeach()
  # Q-Block is not used on the wire, but makes the release delay of large bodies adjustable.
  foreach(name ENABLE_CLIENT_MODE ENABLE_SERVER_MODE ENABLE_ASYNC ENABLE_IPV4 ENABLE_IPV6
      ENABLE_Q_BLOCK WITH_EPOLL WITH_OBSERVE_PERSIST)
    set(${name} ON)
  endforeach()
  set(MAX_LOGGING_LEVEL 8)

  # libcoap asks git for a version text and puts it into everyone's compiler flags.  It would get
  # the state of our repository, and each commit would mean a full build: let it find no repository.
  set(gitDir "$ENV{GIT_DIR}")
  set(ENV{GIT_DIR} ${copy}/no-repository)
  add_subdirectory(${copy} ${binary} EXCLUDE_FROM_ALL SYSTEM)
  if(gitDir)
    set(ENV{GIT_DIR} ${gitDir})
  else()
    unset(ENV{GIT_DIR})
  endif()

  # -w because the warnings of a foreign source are not ours to mend.  NDEBUG comes with the Release
  # configuration; the other configurations keep libcoap's assertions.
  set_target_properties(coap-3 PROPERTIES POSITION_INDEPENDENT_CODE ON EXPORT_COMPILE_COMMANDS OFF)
  target_compile_options(coap-3 PRIVATE -fno-omit-frame-pointer -w)
  # Observers of one resource; forged addresses could register without end.
  target_compile_definitions(coap-3 PRIVATE COAP_RESOURCE_MAX_SUBSCRIBER=1000)
  set(keepToken ${PROJECT_SOURCE_DIR}/cmake/libcoap_keep_token.h)
  set_source_files_properties(${copy}/src/coap_session.c TARGET_DIRECTORY coap-3 PROPERTIES
    COMPILE_OPTIONS "-include;${keepToken}" OBJECT_DEPENDS ${keepToken})
endfunction()

file(GLOB COAP_RPC_LIBCOAP_PATCHES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/patches/*.patch)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${COAP_RPC_LIBCOAP_PATCHES})
coap_rpc_find_libcoap(source)
set(COAP_RPC_LIBCOAP_DIR ${PROJECT_BINARY_DIR}/libcoap-src)
coap_rpc_copy_libcoap(${source} ${COAP_RPC_LIBCOAP_DIR})
coap_rpc_add_libcoap(${COAP_RPC_LIBCOAP_DIR} ${PROJECT_BINARY_DIR}/libcoap)
