# The files of an installation, by component: library, host (needed to run a program), dev, tools, python
# and doc.  packages.cmake makes a package from each.
#
#   coap_rpc_install(<library>... COMPONENT <component> HEADERS <folder>
#                    [HEADERS_TO <folder below include>])
#     installs the libraries and every *.h below the folder, with its structure.
#     Files that are only needed to build against the libraries belong to dev.
#     The libraries' own include folders have to be given as $<BUILD_INTERFACE:...>.
#     The libraries become imported targets coap_svc_rpc::<name> of the CMake package.
#
# The root calls coap_rpc_install_package() after all folders; it writes the CMake package files and
# pkg-config files, and the list of what is inside the library (SBOM).  The former do not mention libcoap
# and Jansson, which are internal: a program that publishes JSON links Jansson itself.  The reference host
# (kestrel, coap_svc_debug) has its own pkg-config file, because a program may use another host; a test uses
# kestrel-test.

include(CMakePackageConfigHelpers)
include(sbom)

# The component of an install() that names none: programs and their manual pages.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME tools)

# The target installed builds what cmake --install needs, and no tests and examples.
#   coap_rpc_builds_installed(<target>...)   these are installed
add_custom_target(installed)
function(coap_rpc_builds_installed)
  add_dependencies(installed ${ARGN})
endfunction()

# The folder of the host's headers, below ours.
set(COAP_RPC_PLATFORM_HEADERS coap_svc/platform)

function(coap_rpc_install)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "COMPONENT;HEADERS;HEADERS_TO" "")
  install(TARGETS ${arg_UNPARSED_ARGUMENTS} EXPORT coap_svc_rpcTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      COMPONENT ${arg_COMPONENT} NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${arg_COMPONENT}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
      ${CMAKE_INSTALL_INCLUDEDIR}/${COAP_RPC_PLATFORM_HEADERS})
  coap_rpc_builds_installed(${arg_UNPARSED_ARGUMENTS})
  # The libraries find each other in their own folder.
  set_target_properties(${arg_UNPARSED_ARGUMENTS} PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(DIRECTORY ${arg_HEADERS}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${arg_HEADERS_TO}
    COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
endfunction()

function(coap_rpc_install_pkgconfig name)
  # Relative to the .pc file, so that the installation can be moved.
  set(pcDir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
  set(PC_PREFIX ${CMAKE_INSTALL_PREFIX})
  cmake_path(RELATIVE_PATH PC_PREFIX BASE_DIRECTORY ${pcDir})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT dev)
endfunction()

function(coap_rpc_install_package)
  set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/coap_svc_rpc)
  install(EXPORT coap_svc_rpcTargets NAMESPACE coap_svc_rpc:: DESTINATION ${packageDir}
    COMPONENT dev)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/coap_svc_rpcConfig.cmake.in
    ${PROJECT_BINARY_DIR}/coap_svc_rpcConfig.cmake INSTALL_DESTINATION ${packageDir})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/coap_svc_rpcConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/coap_svc_rpcConfig.cmake
    ${PROJECT_BINARY_DIR}/coap_svc_rpcConfigVersion.cmake DESTINATION ${packageDir}
    COMPONENT dev)

  coap_rpc_install_pkgconfig(coap_svc_rpc)
  coap_rpc_install_pkgconfig(kestrel)
  coap_rpc_install_pkgconfig(kestrel-test)

  # Beside the library, under the name of its package, so that two major versions can be installed.
  set(sbom ${PROJECT_BINARY_DIR}/coap_svc_rpc.spdx.json)
  coap_rpc_write_sbom(${sbom})
  install(FILES ${sbom} COMPONENT library
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libcoap-svc-rpc${PROJECT_VERSION_MAJOR})
endfunction()

# The target uninstall removes what cmake --install has installed from this build folder, also below several
# prefixes: each installation adds its files to a record.  CMake's own manifest is of the last one, and
# without DESTDIR.
function(coap_rpc_add_uninstall)
  install(CODE "
    foreach(name IN LISTS CMAKE_INSTALL_MANIFEST_FILES)
      set(name \"\$ENV{DESTDIR}\${name}\")
      cmake_path(ABSOLUTE_PATH name BASE_DIRECTORY \"\${CMAKE_CURRENT_BINARY_DIR}\")
      file(APPEND ${PROJECT_BINARY_DIR}/installed_files.txt \"\${name}\\n\")
    endforeach()" ALL_COMPONENTS)
  add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -D BUILD=${PROJECT_BINARY_DIR}
    -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake VERBATIM)
endfunction()

# The documents, and the reference if it has been built (target reference).
function(coap_rpc_install_documents)
  add_custom_target(reference COMMAND ${PROJECT_SOURCE_DIR}/scripts/make-reference VERBATIM)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/coap_svc_rpc.7
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT dev)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc
    FILES_MATCHING PATTERN "*.svg" PATTERN "*.png" PATTERN man EXCLUDE)
  install(CODE "
    set(SOURCE ${PROJECT_SOURCE_DIR})
    set(DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\")
    set(TO \"\$ENV{DESTDIR}\${DESTINATION}\")
    set(DOCDIR ${CMAKE_INSTALL_DOCDIR})
    set(INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
    set(PLATFORM ${COAP_RPC_PLATFORM_HEADERS})
    include(${PROJECT_SOURCE_DIR}/cmake/install_documents.cmake)" COMPONENT doc)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT doc FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp" PATTERN "*.h"
    PATTERN tests EXCLUDE)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/reference/html/
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/reference COMPONENT doc OPTIONAL)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/reference/man3
    DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT dev OPTIONAL)
endfunction()
