# embed.cmake: makes a source of a page: cmake -DFROM=page.html -DTO=page_text.cpp -P embed.cmake
file(READ ${FROM} hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
string(REGEX REPLACE "(.{1,112})" "\\1\n" bytes "${bytes}")
file(WRITE ${TO} "#include <string_view>\nnamespace {\nconstexpr char kBytes[] = {\n${bytes}};\n}\n"
  "namespace exporter {\nextern const std::string_view kPage;\n"
  "const std::string_view kPage(kBytes, sizeof kBytes);\n}\n")
