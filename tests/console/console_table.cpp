/* console_table.cpp: rows as aligned columns. */
#include "table.h"

#include <gtest/gtest.h>

#include "escape.h"
#include "memory_file.h"

namespace {

using Texts = std::vector<std::string>;

Texts Render(const Texts &lines, size_t width) {
  console::Table table;
  for (const std::string &line : lines) table.Add(console::ParseRow(line).value());
  return table.Render(width);
}

size_t Widest(const Texts &lines) {
  size_t widest = 0;
  for (const std::string &line : lines) widest = std::max(widest, console::NumColumns(line));
  return widest;
}

}  // namespace

TEST(Table, Columns_AreAligned) {
  EXPECT_EQ(Render({"uri(a)/observe(0)", "uri(long/er)/observe(1)"}, 0),
            (Texts{"uri      observe", "a        0", "long/er  1"}));
  EXPECT_EQ(Render({"uri(Grüße)/n(1)", "uri(x)/n(2)"}, 0),
            (Texts{"uri    n", "Grüße  1", "x      2"}));
  EXPECT_EQ(Render({}, 0), Texts{});
}

TEST(Table, RowsMayHaveOtherFields) {
  EXPECT_EQ(Render({"uri(x)/a(1)", "uri(y)/b(2)"}, 0), (Texts{"uri  a  b", "x    1", "y       2"}));
}

TEST(Table, LongValues_AreCutToTheWidth) {
  const std::string uri(64, 'u');
  EXPECT_EQ(Render({"uri(" + uri + ")/n(1)"}, 29),
            (Texts{"uri                         n", "uuuuuuuuuuuuuuuuuuuuuuuuu~  1"}));
}

TEST(Table, TooManyColumns_MakeSeveralTables) {
  const Texts lines = {"uri(x)/first(aaaaaaaaaa)/second(b)/third(cccccccccccc)",
                       "uri(y)/first(a)/second(bb)"};
  EXPECT_EQ(Render(lines, 24),
            (Texts{"uri  first       second", "x    aaaaaaaaaa  b", "y    a           bb", "",
                   "uri  third", "x    cccccccccccc"}));
}

TEST(Table, NoLineIsWiderThanTheTerminal) {
  Texts lines;
  for (int i = 0; i < 20; ++i) {
    std::string line = "uri(" + std::string(static_cast<size_t>(i) * 3, 'u') + ")";
    for (int n = 0; n < 12; ++n) {
      line += "/column" + std::to_string(n) + "(" + std::string(static_cast<size_t>(n), 'v') + ")";
    }
    lines.push_back(line);
  }
  EXPECT_LE(Widest(Render(lines, 80)), 80u);
  EXPECT_LE(Widest(Render(lines, 40)), 40u);
  EXPECT_GT(Widest(Render(lines, 0)), 80u);
}

TEST(Table, ControlCharacters_AreShown) {
  EXPECT_EQ(Render({"uri(\x1b[31m)/n(1)"}, 0), (Texts{"uri       n", "\\x1b[31m  1"}));
}

TEST(TableLines, OtherLines_StandWhereTheyCame) {
  console_test::MemoryFile out;
  console::FilePrinter printer(out.Get());
  console::TableLines table(printer, 0);
  table.Line("TupleInfo: uri:a, cnt:2");
  table.Line("key(1)/val(10)");
  table.Line("key(200)/val(2)");
  table.Line(" ***total 2 tuple(s) ***");
  table.End();
  EXPECT_EQ(out.Text(),
            "TupleInfo: uri:a, cnt:2\n"
            "key  val\n"
            "1    10\n"
            "200  2\n"
            " ***total 2 tuple(s) ***\n");
}
