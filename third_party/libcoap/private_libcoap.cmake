# coap_rpc_private_libcoap(<shared library>): links libcoap into our shared library, so that
#   - its functions keep their names in the dynamic symbol table, those too that libcoap itself does
#     not export: backtrace_symbols() and dladdr() find them, which the log handler relies on;
#   - another libcoap may live in the same process or stand in the same link line, in any order.
#
# Four things work together:
#   - libcoap's names have a version of their own, COAP_SVC_RPC_LIBCOAP, so a program that was
#     linked with another libcoap (whose version is VER_3) never gets ours when it is loaded;
#   - they are marked hidden, which makes the version a non-default one (`name@VERSION` instead of
#     `name@@VERSION`): the linker then does not resolve a program's plain `coap_...` with them.
#     GNU ld has no way to ask for this short of editing libcoap's sources, so a small tool,
#     elf_hide_version, sets the bits in the finished file;
#   - the version comes second in the script.  The loader lets a reference without version bind to
#     the first version of a library even when it is hidden, but never to a later one;
#   - -Bsymbolic-functions binds our own calls inside the library, so that they cannot reach another
#     libcoap.  The -functions form leaves our exported data alone, which a program may have copied
#     into itself; libcoap's data is local, by name, so that it need not be bound.
# Static functions of libcoap have no names here.

if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  message(FATAL_ERROR "elf_hide_version runs during the build: set CMAKE_CROSSCOMPILING_EMULATOR")
endif()

function(coap_rpc_private_libcoap target)
  set(data coap_error coap_layers_coap coap_started coap_uri_scheme)
  list(JOIN data ";\n    " COAP_RPC_LIBCOAP_DATA)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/coap_svc_rpc.map.in ${script} @ONLY)

  if(NOT TARGET elf_hide_version)
    add_executable(elf_hide_version ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/elf_hide_version.c)
    target_link_libraries(elf_hide_version PRIVATE coap_rpc_warnings)
  endif()
  add_dependencies(${target} elf_hide_version)

  target_link_libraries(${target} PRIVATE libcoap::coap-3)
  target_link_options(${target} PRIVATE
    -Wl,--version-script=${script} -Wl,-Bsymbolic-functions)
  set_property(TARGET ${target} APPEND PROPERTY
    LINK_DEPENDS ${script} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/elf_hide_version.c)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND elf_hide_version $<TARGET_FILE:${target}> COAP_SVC_RPC_LIBCOAP VERBATIM)
endfunction()
