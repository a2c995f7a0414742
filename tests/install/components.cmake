# Run by ctest: each file of an installation belongs to one component, and each component's package has
# its expected files.
cmake_minimum_required(VERSION 3.25)

include(${BUILD}/CPackConfig.cmake)
set(expected "library=libcoap-svc-rpc1;host=libkestrel1;dev=libcoap-svc-rpc-dev"
  "tools=coap-svc-rpc-tools;exporter=coap-svc-rpc-exporter;python=python3-coaprpc;doc=libcoap-svc-rpc-doc")
set(packages)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  list(APPEND packages ${component}=${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
endforeach()
if(NOT packages STREQUAL expected)
  message(SEND_ERROR "packages: ${packages}\nexpected: ${expected}")
endif()

# The files of each component are in the variable of its name, and all of them in `parts`.
file(REMOVE_RECURSE ${WORK}/components)
set(parts)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(prefix ${WORK}/components/${component})
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
    --component ${component} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE ${component} RELATIVE ${prefix} ${prefix}/*)
  list(APPEND parts ${${component}})
endforeach()

function(expect component pattern)
  foreach(name IN LISTS ${component})
    if(NOT name MATCHES "${pattern}")
      message(SEND_ERROR "${component}: ${name} does not belong there")
    endif()
  endforeach()
  if(NOT ${component})
    message(SEND_ERROR "${component}: empty")
  endif()
endfunction()

expect(library
  "^${LIBDIR}/libcoap_svc_rpc\\.so\\.1(\\.[0-9.]+)?$|/libcoap-svc-rpc1/coap_svc_rpc\\.spdx\\.json$")
expect(host "^${LIBDIR}/lib(kestrel|coap_svc_debug)\\.so\\.1(\\.[0-9.]+)?$")
expect(dev "^${INCLUDEDIR}/|^${LIBDIR}/(cmake|pkgconfig)/|^${LIBDIR}/lib([a-z_]+\\.so|kestrel-test\\.a)$|/coap_svc_rpc\\.7$|/man3/")
expect(tools "^bin/kestrel-console$|/kestrel-console\\.1$")
expect(python "^lib/python3/dist-packages/coaprpc/[a-z_.0-9]+$")
expect(exporter "^bin/kestrel-exporter$|/kestrel-exporter\\.1$")
expect(doc "^share/doc/")

file(GLOB_RECURSE whole RELATIVE ${WORK}/prefix ${WORK}/prefix/*)
list(SORT whole)
list(SORT parts)
if(NOT whole STREQUAL parts)
  message(SEND_ERROR "installed: ${whole}\nin components: ${parts}")
endif()
