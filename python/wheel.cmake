# wheel.cmake: a wheel has the extension module and the libraries beside it.  A wheel has no symbolic links, so
# each library is one file with the name that others look for.
install(TARGETS coaprpc_native DESTINATION coaprpc COMPONENT python)
set_target_properties(coaprpc_native PROPERTIES INSTALL_RPATH "$ORIGIN")
foreach(library coap_svc_rpc kestrel coap_svc_debug)
  set_target_properties(${library} PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
  install(PROGRAMS $<TARGET_FILE:${library}> DESTINATION coaprpc COMPONENT python
    RENAME $<TARGET_SONAME_FILE_NAME:${library}>)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/package/copyright DESTINATION coaprpc COMPONENT python)
