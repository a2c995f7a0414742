/* console_row.cpp: lines of name(value) are taken apart. */
#include "row.h"

#include <gtest/gtest.h>

using console::IsTotal;
using console::ParseRow;

namespace {

// Shown gives "name=value" for each field, "no row" for a line that is not one.
std::vector<std::string> Shown(std::string_view line) {
  const auto row = ParseRow(line);
  if (!row) return {"no row"};
  std::vector<std::string> fields;
  for (const console::Field &field : *row) fields.push_back(field.name + "=" + field.value);
  return fields;
}

using Texts = std::vector<std::string>;

}  // namespace

TEST(ParseRow, LabelIsLeftOut) {
  EXPECT_EQ(Shown("server Vtbl[  0]: uri(a/b)/msgType(CON)/observe(0)"),
            (Texts{"uri=a/b", "msgType=CON", "observe=0"}));
  EXPECT_EQ(Shown("key(1)/val(10)"), (Texts{"key=1", "val=10"}));
  EXPECT_EQ(Shown("uri(x)"), (Texts{"uri=x"}));
}

TEST(ParseRow, ValueAt_PointsIntoTheLine) {
  const std::string line = "t[1]: uri(a/b)/n(42)";
  const auto row = ParseRow(line);
  ASSERT_TRUE(row);
  EXPECT_EQ(line.substr((*row)[0].valueAt, 3), "a/b");
  EXPECT_EQ(line.substr((*row)[1].valueAt, 2), "42");
}

TEST(ParseRow, ValuesMayHoldAnything) {
  EXPECT_EQ(Shown("uri()/n()"), (Texts{"uri=", "n="}));
  EXPECT_EQ(Shown("uri(a(b)/c)/n(1)"), (Texts{"uri=a(b)/c", "n=1"}));
  EXPECT_EQ(Shown("uri(a)/)/n(1)"), (Texts{"uri=a)/", "n=1"}));
  EXPECT_EQ(Shown("uri(a)/9()/n(1)"), (Texts{"uri=a)/9(", "n=1"}));
  EXPECT_EQ(Shown("uri((((/n())))"), (Texts{"uri=(((/n()))"}));
  EXPECT_EQ(Shown("listen(hasListen-::1:5683)"), (Texts{"listen=hasListen-::1:5683"}));
  EXPECT_EQ(Shown("uri(x]: y)"), (Texts{"uri=x]: y"}));
}

TEST(ParseRow, NameThatComesTwice_IsNoRow) {
  EXPECT_EQ(Shown("uri(x)/msgType(CON)/observe(0))/msgType(NON)"), Texts{"no row"});
}

TEST(ParseRow, OtherLines_AreNoRows) {
  for (const char *line :
       {"", " ", "hello", "uri", "uri(", "uri(x", "uri(x).", "(x)", "9(x)", "uri(x)/", "uri(x)/n",
        "uri(x)/n(", " ***total 3 server uriVtbl(s) ***", "No oberver tupleSetTree for uri(x).",
        "TupleInfo: uri:x, cnt:3", "[  0]: ", "label[0]: text"}) {
    EXPECT_EQ(Shown(line), Texts{"no row"}) << line;
  }
}

TEST(ParseRow, LongLines_AreTaken) {
  const std::string value(1 << 20, '(');
  EXPECT_EQ(Shown("uri(" + value + ")/n(1)"), (Texts{"uri=" + value, "n=1"}));
}

TEST(ParseRow, ManyFields_AreNoRow) {
  std::string line = "n0(0)";
  for (int i = 1; i < 256; ++i) line += "/n" + std::to_string(i) + "(0)";
  EXPECT_EQ(Shown(line).size(), 256u);
  EXPECT_EQ(Shown(line + "/n256(0)"), Texts{"no row"});
}

TEST(IsTotal, KnowsTheClosingLine) {
  EXPECT_TRUE(IsTotal(" ***total 0 client request(s) ***"));
  EXPECT_FALSE(IsTotal("***total 0 client request(s) ***"));
  EXPECT_FALSE(IsTotal(" ***total 0"));
}
