/* console_json.cpp: rows as JSON. */
#include "json.h"

#include <gtest/gtest.h>

#include "memory_file.h"

using console::JsonText;

namespace {

std::string Json(const std::vector<std::string> &lines) {
  console_test::MemoryFile out;
  console::FilePrinter printer(out.Get());
  console::JsonLines json(printer);
  for (const std::string &line : lines) EXPECT_TRUE(json.Line(line));
  json.End();
  return out.Text();
}

}  // namespace

TEST(JsonLines, Rows_BecomeObjects) {
  EXPECT_EQ(Json({"server Vtbl[  0]: uri(a/b)/observe(0)", "server Vtbl[  1]: uri(c)/observe(1)",
                  " ***total 2 server uriVtbl(s) ***"}),
            "[\n"
            "  {\"uri\": \"a/b\", \"observe\": \"0\"},\n"
            "  {\"uri\": \"c\", \"observe\": \"1\"}\n"
            "]\n");
}

TEST(JsonLines, NoRows_GiveAnEmptyArray) {
  EXPECT_EQ(Json({}), "[]\n");
  EXPECT_EQ(Json({" ***total 0 server uriVtbl(s) ***"}), "[]\n");
}

TEST(JsonLines, OtherLines_AreKeptAsText) {
  EXPECT_EQ(Json({"TupleInfo: uri:a, cnt:1", "key(1)/val(2)"}),
            "[\n"
            "  {\"text\": \"TupleInfo: uri:a, cnt:1\"},\n"
            "  {\"key\": \"1\", \"val\": \"2\"}\n"
            "]\n");
}

TEST(JsonLines, HostileValues_StayStrings) {
  EXPECT_EQ(Json({"uri(\"}, {\"x\": \x1b\\)"}),
            "[\n  {\"uri\": \"\\\"}, {\\\"x\\\": \\u001b\\\\\"}\n]\n");
}

TEST(JsonLines, TwoCommands_GiveTwoArrays) {
  console_test::MemoryFile out;
  console::FilePrinter printer(out.Get());
  console::JsonLines json(printer);
  json.Line("n(1)");
  json.End();
  json.Line("n(2)");
  json.End();
  EXPECT_EQ(out.Text(), "[\n  {\"n\": \"1\"}\n]\n[\n  {\"n\": \"2\"}\n]\n");
}

TEST(JsonText, IsQuoted) { EXPECT_EQ(JsonText("a\"b"), "\"a\\\"b\""); }
