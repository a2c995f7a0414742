# Debian packages, one for each component: cpack -G DEB, or scripts/package, which also builds their
# contents.
#   library   libcoap-svc-rpc1        tools   coap-svc-rpc-tools
#   host      libkestrel1             exporter   coap-svc-rpc-exporter
#   dev       libcoap-svc-rpc-dev     python     python3-coaprpc
#   doc       libcoap-svc-rpc-doc
# package_files.cmake adds the files that Debian requires in a package only.

# The maintainer of a package: from Debian's variables, otherwise from git.  Empty if neither knows one;
# package_files.cmake then stops.
function(coap_rpc_maintainer out)
  set(name "$ENV{DEBFULLNAME}")
  set(mail "$ENV{DEBEMAIL}")
  foreach(item name mail)
    if(NOT ${item})
      string(REPLACE mail email key ${item})
      execute_process(COMMAND git config user.${key} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE ${item} OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    endif()
  endforeach()
  set(${out} "" PARENT_SCOPE)
  if(name AND mail)
    set(${out} "${name} <${mail}>" PARENT_SCOPE)
  endif()
endfunction()

# coap_rpc_add_deb(<component> <package> <section> <short description> <long description>
#                  [DEPENDS|RECOMMENDS|SUGGESTS <package relations>]...)
macro(coap_rpc_add_deb component package section short long)
  cmake_parse_arguments(arg "" "DEPENDS;RECOMMENDS;SUGGESTS" "" ${ARGN})
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${arg_DEPENDS}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_RECOMMENDS "${arg_RECOMMENDS}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_SUGGESTS "${arg_SUGGESTS}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${short}\n${long}")
endmacro()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME coap-svc-rpc)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
coap_rpc_maintainer(CPACK_PACKAGE_CONTACT)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
# The text after the first rule is about parts that are not compiled in.
get_target_property(libcoapDir coap-3 SOURCE_DIR)
file(READ ${libcoapDir}/LICENSE LIBCOAP_LICENSE)
string(REGEX REPLACE "\n=====.*" "" LIBCOAP_LICENSE "${LIBCOAP_LICENSE}")
set(CPACK_COAP_RPC_COPYRIGHT ${PROJECT_BINARY_DIR}/package/copyright)
configure_file(${PROJECT_SOURCE_DIR}/cmake/copyright.in ${CPACK_COAP_RPC_COPYRIGHT} @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_files.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${CPACK_PACKAGE_NAME})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_COMPONENTS_ALL)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The trigger runs ldconfig.  cpack would add scripts that run it again unless others are named; it omits
# named scripts that do not exist.
set(triggers ${PROJECT_BINARY_DIR}/package/triggers)
file(CONFIGURE OUTPUT ${triggers} CONTENT "activate-noawait ldconfig\n")
foreach(component LIBRARY HOST)
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${triggers} no-file/postinst no-file/postrm)
endforeach()
foreach(component LIBRARY HOST TOOLS EXPORTER)
  set(CPACK_DEBIAN_${component}_PACKAGE_SHLIBDEPS ON)
endforeach()
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)

set(major ${PROJECT_VERSION_MAJOR})
coap_rpc_add_deb(library libcoap-svc-rpc${major} libs
  "RPC service over CoAP - shared library"
  "A library that an application embeds: its processes register URIs in tables,
call each other over UDP by CoAP, and keep each other's state in step through
Observe.  It needs a host, which gives it memory, timers, log and display
commands: the application itself, or libkestrel${major}."
  SUGGESTS libkestrel${major})
coap_rpc_add_deb(host libkestrel${major} libs
  "RPC service over CoAP - reference host"
  "A host for the RPC service that an application can use as it is: memory pools,
timers, log and display commands on one event loop.")
coap_rpc_add_deb(dev libcoap-svc-rpc-dev libdevel
  "RPC service over CoAP - development files"
  "Headers of the RPC service and of its hosts, for C and C++, files for
pkg-config and CMake, a host under test control, and manual pages."
  DEPENDS "libcoap-svc-rpc${major} ${version}, libkestrel${major} ${version}, libexpected-dev"
  RECOMMENDS libjansson-dev  # for programs that publish JSON
  SUGGESTS libcoap-svc-rpc-doc)
if(TARGET kestrel-console)
  coap_rpc_add_deb(tools coap-svc-rpc-tools net
    "RPC service over CoAP - operator's console"
    "kestrel-console connects to a running host and shows the tables of its RPC
service.")
endif()
if(TARGET kestrel-exporter)
  coap_rpc_add_deb(exporter coap-svc-rpc-exporter net
    "RPC service over CoAP - metrics and live page"
    "kestrel-exporter connects to running hosts as the operator's console does and
shows the tables of their RPC services over HTTP: as OpenMetrics, as JSON, and
on a page that follows them.")
endif()
if(TARGET coaprpc_native)
  coap_rpc_add_deb(python python3-coaprpc python
    "RPC service over CoAP - Python package"
    "Serve, call and observe by CoAP, and keep exact copies of tables, from asyncio.
With a small CoAP client for the shell: python3 -m coaprpc."
    DEPENDS "python3 (>= 3.11), python3-cffi-backend, libcoap-svc-rpc${major} ${version}, libkestrel${major} ${version}, libc6 (>= 2.34)")
  # Python's own scripts compile the modules, and remove what was compiled.
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/python/debian/postinst
    ${PROJECT_SOURCE_DIR}/python/debian/prerm)
endif()
coap_rpc_add_deb(doc libcoap-svc-rpc-doc doc
  "RPC service over CoAP - documentation"
  "Reference of the headers, descriptions of the library and of its base
interface, symptoms with their causes, limits, measured figures, and example
programs to copy from.")

include(CPack)
