# coap_rpc_write_sbom(<file>): what is inside libcoap_svc_rpc.so, in SPDX 2.3: this library, the private copy
# of libcoap with the fixes and patches that it has, and the libraries that it is linked with.
# SOURCE_DATE_EPOCH sets the time.

# coap_rpc_json(<variable> <path>... <value>): sets one text of the document.
function(coap_rpc_json variable)
  list(POP_BACK ARGN value)
  string(JSON document SET "${${variable}}" ${ARGN} "\"${value}\"")
  set(${variable} "${document}" PARENT_SCOPE)
endfunction()

# coap_rpc_json_append(<variable> <array> <object>)
function(coap_rpc_json_append variable array object)
  string(JSON length LENGTH "${${variable}}" ${array})
  string(JSON document SET "${${variable}}" ${array} ${length} "${object}")
  set(${variable} "${document}" PARENT_SCOPE)
endfunction()

# coap_rpc_sbom_package(<variable> <id> <name> <version> <licence> <origin> <comment>)
function(coap_rpc_sbom_package variable id name version licence origin comment)
  set(package "{\"filesAnalyzed\": false, \"copyrightText\": \"NOASSERTION\",
    \"licenseConcluded\": \"NOASSERTION\"}")
  coap_rpc_json(package SPDXID "SPDXRef-${id}")
  coap_rpc_json(package name "${name}")
  if(version)
    coap_rpc_json(package versionInfo "${version}")
  endif()
  coap_rpc_json(package licenseDeclared "${licence}")
  coap_rpc_json(package downloadLocation "${origin}")
  if(comment)
    coap_rpc_json(package sourceInfo "${comment}")
  endif()
  coap_rpc_json_append(${variable} packages "${package}")
  set(${variable} "${${variable}}" PARENT_SCOPE)
endfunction()

function(coap_rpc_sbom_relation variable from type to)
  coap_rpc_json_append(${variable} relationships "{\"spdxElementId\": \"SPDXRef-${from}\",
    \"relationshipType\": \"${type}\", \"relatedSpdxElement\": \"SPDXRef-${to}\"}")
  set(${variable} "${${variable}}" PARENT_SCOPE)
endfunction()

function(coap_rpc_sbom_patch variable patch)
  cmake_path(GET patch FILENAME name)
  string(REGEX REPLACE "\\.patch$" "" id "${name}")
  file(SHA1 ${patch} sha1)
  file(SHA256 ${patch} sha256)
  coap_rpc_json_append(${variable} files "{\"SPDXID\": \"SPDXRef-Patch-${id}\",
    \"fileName\": \"./third_party/libcoap/patches/${name}\", \"fileTypes\": [\"SOURCE\"],
    \"licenseConcluded\": \"NOASSERTION\", \"copyrightText\": \"NOASSERTION\",
    \"checksums\": [{\"algorithm\": \"SHA1\", \"checksumValue\": \"${sha1}\"},
                    {\"algorithm\": \"SHA256\", \"checksumValue\": \"${sha256}\"}]}")
  coap_rpc_sbom_relation(${variable} Patch-${id} PATCH_FOR libcoap)
  set(${variable} "${${variable}}" PARENT_SCOPE)
endfunction()

# What source.sh pins: the release, and the fixes on top of it.
function(coap_rpc_libcoap_origin version fixes)
  file(STRINGS ${PROJECT_SOURCE_DIR}/third_party/libcoap/source.sh lines)
  list(FILTER lines INCLUDE REGEX "LIBCOAP_VERSION=|CVE-")
  string(REGEX MATCH "LIBCOAP_VERSION=([0-9.]+)" line "${lines}")
  set(${version} ${CMAKE_MATCH_1} PARENT_SCOPE)
  string(REGEX MATCHALL "CVE-[0-9]+-[0-9]+" found "${lines}")
  list(JOIN found ", " found)
  set(${fixes} "${found}" PARENT_SCOPE)
endfunction()

function(coap_rpc_write_sbom file)
  coap_rpc_libcoap_origin(version fixes)
  file(GLOB patches ${PROJECT_SOURCE_DIR}/third_party/libcoap/patches/*.patch)
  list(LENGTH patches numPatches)
  string(TIMESTAMP now "%Y-%m-%dT%H:%M:%SZ" UTC)
  set(sbom "{\"spdxVersion\": \"SPDX-2.3\", \"dataLicense\": \"CC0-1.0\",
    \"SPDXID\": \"SPDXRef-DOCUMENT\", \"creationInfo\": {\"creators\": [\"Tool: cmake\"]},
    \"packages\": [], \"files\": [], \"relationships\": []}")
  coap_rpc_json(sbom creationInfo created "${now}")
  coap_rpc_json(sbom name "${PROJECT_NAME}-${PROJECT_VERSION}")
  coap_rpc_sbom_package(sbom library ${PROJECT_NAME} ${PROJECT_VERSION} NOASSERTION NOASSERTION "")
  coap_rpc_sbom_package(sbom libcoap libcoap ${version} BSD-2-Clause
    "https://github.com/obgm/libcoap/archive/refs/tags/v${version}.tar.gz"
    "with the fixes ${fixes} and ${numPatches} patches, see files")
  coap_rpc_sbom_relation(sbom DOCUMENT DESCRIBES library)
  coap_rpc_sbom_relation(sbom library CONTAINS libcoap)
  foreach(dependency jansson:JANSSON:MIT libcbor:CBOR:MIT libxxhash:XXHASH:BSD-2-Clause
      safeclib:SAFEC:MIT)
    string(REPLACE ":" ";" dependency ${dependency})
    list(GET dependency 0 name)
    list(GET dependency 1 prefix)
    list(GET dependency 2 licence)
    coap_rpc_sbom_package(sbom ${name} ${name} "${${prefix}_VERSION}" ${licence} NOASSERTION "")
    coap_rpc_sbom_relation(sbom library DYNAMIC_LINK ${name})
  endforeach()
  foreach(patch IN LISTS patches)
    coap_rpc_sbom_patch(sbom ${patch})
  endforeach()
  string(SHA256 sum "${sbom}")
  coap_rpc_json(sbom documentNamespace
    "https://spdx.org/spdxdocs/${PROJECT_NAME}-${PROJECT_VERSION}-${sum}")
  file(WRITE ${file} "${sbom}\n")
endfunction()
