# Run by cmake --install: copies the documents and makes their links lead to what is installed.  A link to
# a header leads to the installed one; a link to what is not installed becomes plain text.
#   SOURCE        root of the checkout
#   DESTINATION   the documents' folder, and TO, the same below DESTDIR
#   DOCDIR, INCLUDEDIR, PLATFORM   folders, relative to the prefix

# coap_rpc_installed_place(<out> <path>): where a path of the checkout is installed; empty if nowhere.
function(coap_rpc_installed_place out path)
  set(place)
  if(path MATCHES "^coap_server/include(/.*)?$")
    set(place ${INCLUDEDIR}${CMAKE_MATCH_1})
  elseif(path MATCHES "^(platform|kestrel_test)/include(/.*)?$")
    set(place ${INCLUDEDIR}/${PLATFORM}${CMAKE_MATCH_2})
  elseif(path MATCHES "^docs/.*\\.(md|svg|png)$|^(README|SECURITY|CHANGELOG)\\.md$"
      OR (path MATCHES "^examples" AND NOT path MATCHES "^examples/(tests|CMakeLists)"))
    set(place ${DOCDIR}/${path})
  endif()
  set(${out} "${place}" PARENT_SCOPE)
endfunction()

# coap_rpc_fix_link(<variable> <link> <folder>): of a text that is in this folder of the checkout.
function(coap_rpc_fix_link variable link folder)
  string(REGEX REPLACE "#.*" "" path "${link}")
  string(REGEX MATCH "#.*" anchor "${link}")
  cmake_path(ABSOLUTE_PATH path BASE_DIRECTORY /top/${folder} NORMALIZE)
  cmake_path(RELATIVE_PATH path BASE_DIRECTORY /top)
  coap_rpc_installed_place(place "${path}")
  if(place)
    cmake_path(ABSOLUTE_PATH place BASE_DIRECTORY /prefix)
    cmake_path(RELATIVE_PATH place BASE_DIRECTORY /prefix/${DOCDIR}/${folder})
    string(REPLACE "](${link})" "](${place}${anchor})" text "${${variable}}")
  else()
    string(REGEX REPLACE "([][+.*()^$?\\\\])" "\\\\\\1" pattern "${link}")
    string(REGEX REPLACE "\\[([^][]*)\\]\\(${pattern}\\)" "\\1" text "${${variable}}")
  endif()
  set(${variable} "${text}" PARENT_SCOPE)
endfunction()

# coap_rpc_fix_links(<variable> <folder>): all links of a text.
function(coap_rpc_fix_links variable folder)
  string(REGEX MATCHALL "\\([^() ;\n]+\\)" links "${${variable}}")
  list(REMOVE_DUPLICATES links)
  foreach(link IN LISTS links)
    string(REGEX REPLACE "^\\((.*)\\)$" "\\1" link "${link}")
    string(FIND "${${variable}}" "](${link})" at)
    if(at GREATER -1 AND NOT link MATCHES "^#|://")
      coap_rpc_fix_link(${variable} "${link}" "${folder}")
    endif()
  endforeach()
  set(${variable} "${${variable}}" PARENT_SCOPE)
endfunction()

# coap_rpc_cut(<head> <tail> <text>): a text before the next fence of a program, and from there on.
function(coap_rpc_cut head tail text)
  string(FIND "${text}" "\n```" at)
  string(SUBSTRING "${text}" 0 ${at} before)
  set(after)
  if(at GREATER -1)
    string(SUBSTRING "${text}" ${at} -1 after)
  endif()
  set(${head} "${before}" PARENT_SCOPE)
  set(${tail} "${after}" PARENT_SCOPE)
endfunction()

# Programs stay as they are: brackets that parentheses follow are lambdas there.
function(coap_rpc_install_document name)
  cmake_path(GET name PARENT_PATH folder)
  file(READ ${SOURCE}/${name} rest)
  set(done)
  while(NOT rest STREQUAL "")
    coap_rpc_cut(prose rest "${rest}")
    coap_rpc_fix_links(prose "${folder}")
    string(REGEX MATCH "^\n```" fence "${rest}")
    string(REGEX REPLACE "^\n```" "" rest "${rest}")
    coap_rpc_cut(program rest "${rest}")
    string(REGEX MATCH "^\n```[^\n]*" end "${rest}")
    string(LENGTH "${end}" length)
    string(SUBSTRING "${rest}" ${length} -1 rest)
    string(APPEND done "${prose}${fence}${program}${end}")
  endwhile()
  file(WRITE ${TO}/${name} "${done}")
endfunction()

file(GLOB_RECURSE documents RELATIVE ${SOURCE} ${SOURCE}/docs/*.md)
foreach(name IN LISTS documents ITEMS README.md SECURITY.md CHANGELOG.md)
  coap_rpc_install_document(${name})
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES ${DESTINATION}/${name})
endforeach()
