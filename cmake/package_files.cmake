# Run by cpack on the staged components before it makes packages: adds copyright and change log to each,
# and compresses manual pages.  SOURCE_DATE_EPOCH sets the time.
cmake_minimum_required(VERSION 3.25)

if(NOT CPACK_PACKAGE_CONTACT MATCHES "^.+ <[^@ ]+@[^@ ]+\\.[^@ ]+>$")
  message(FATAL_ERROR "\"${CPACK_PACKAGE_CONTACT}\" is no maintainer: set DEBFULLNAME and DEBEMAIL, or git's "
    "user.name and user.email, and configure again")
endif()

string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(changelog "${CPACK_PACKAGE_NAME} (${version}) unstable; urgency=medium

  * Release ${CPACK_PACKAGE_VERSION}; its changes are in changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(staged ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component})
  set(share ${staged}${CPACK_PACKAGING_INSTALL_PREFIX}/share)
  set(documents ${share}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  file(WRITE ${documents}/changelog.Debian "${changelog}")
  file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md ${documents}/changelog)
  file(COPY_FILE ${CPACK_COAP_RPC_COPYRIGHT} ${documents}/copyright)
  file(CHMOD ${documents}/changelog.Debian ${documents}/changelog ${documents}/copyright
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(GLOB manuals ${share}/man/man*/*.[0-9])
  execute_process(COMMAND gzip -9 -n ${documents}/changelog.Debian
    ${documents}/changelog ${manuals}
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
