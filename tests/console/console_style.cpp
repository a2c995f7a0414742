/* console_style.cpp: what is painted, and rounds of watch in each format. */
#include "style.h"

#include <gtest/gtest.h>

#include "escape.h"
#include "round_view.h"

using console::Format;
using console::MarkChanges;
using console::Paint;
using console::PaintedLine;
using console::Palette;

namespace {

using Texts = std::vector<std::string>;

const Palette kColor(Palette::Kind::kColor);
const Palette kMono(Palette::Kind::kMono);

}  // namespace

TEST(Palette, Kinds) {
  EXPECT_EQ(Palette().Painted("x", Paint::kChanged), "x");
  EXPECT_EQ(kMono.Painted("x", Paint::kChanged), "\x1b[7mx\x1b[0m");
  EXPECT_EQ(kMono.Painted("x", Paint::kFailed), "x");
  EXPECT_EQ(kColor.Painted("x", Paint::kChanged), "\x1b[1;33mx\x1b[0m");
  EXPECT_EQ(kColor.Painted("x", Paint::kFailed), "\x1b[1;31mx\x1b[0m");
  EXPECT_EQ(kColor.Painted("", Paint::kFailed), "");
}

TEST(IsFailure, KnowsValuesThatFailed) {
  for (const auto &[name, value] : {std::pair{"endPointIsNull", "1"},
                                    {"Tout", "12"},
                                    {"resndLstEmpty", "0"},
                                    {"failed", "3"},
                                    {"timeouts", "1"},
                                    {"nackReset", "20"}}) {
    EXPECT_TRUE(console::IsFailure({name, value, 0})) << name;
  }
  for (const auto &[name, value] : {std::pair{"endPointIsNull", "0"},
                                    {"Tout", "0"},
                                    {"resndLstEmpty", "1"},
                                    {"failed", "00"},
                                    {"failed", ""},
                                    {"failed", "x1"},
                                    {"uri", "1"}}) {
    EXPECT_FALSE(console::IsFailure({name, value, 0})) << name;
  }
}

TEST(PaintedLine, FailedAndChangedValues) {
  EXPECT_EQ(PaintedLine("port(1)/endPointIsNull(1)", {}, kColor),
            "port(1)/endPointIsNull(\x1b[1;31m1\x1b[0m)");
  EXPECT_EQ(PaintedLine("Tout(3)/n(1)", {{10, 11}}, kColor),
            "Tout(\x1b[1;31m3\x1b[0m)/n(\x1b[1;33m1\x1b[0m)");
  EXPECT_EQ(PaintedLine("a\x1b", {{0, 2}}, Palette()), "a\\x1b");
}

TEST(NumColumns, Style_TakesNone) {
  EXPECT_EQ(console::NumColumns(kColor.Painted("four", Paint::kFailed)), 4u);
}

TEST(RenderRound, Tables_HaveMarksAndPaintedCells) {
  const auto lines =
      MarkChanges({"r[0]: uri(a)/n(1)", "r[1]: uri(b)/n(1)"}, {"r[0]: uri(a)/n(22)", "text 1"});
  EXPECT_EQ(console::RenderRound(lines, {Format::kTable, 0, Palette()}),
            (Texts{"  uri  n", "* a    22", "+ text 1", "  uri  n", "- b    1"}));
  EXPECT_EQ(console::RenderRound(lines, {Format::kTable, 0, kColor})[1],
            "* a    \x1b[1;33m22\x1b[0m");
}

TEST(RenderRound, Tables_AreNotWiderThanTheScreen) {
  const auto lines = console::Unmarked({"uri(" + std::string(60, 'u') + ")/n(1)"});
  for (const std::string &line : console::RenderRound(lines, {Format::kTable, 30, kColor})) {
    EXPECT_LE(console::NumColumns(line), 30u) << line;
  }
}

TEST(RoundAsJson, IsOneObject) {
  const auto lines =
      MarkChanges({"n(1)/m(1)", "gone(\")"}, {"n(1)/m(2)", "new", " ***total 1 x ***"});
  EXPECT_EQ(console::RoundAsJson({"12:00:00", "demo \"x\""}, lines),
            "{\"time\": \"12:00:00\", \"command\": \"demo \\\"x\\\"\", \"rows\": ["
            "{\"change\": \"changed\", \"row\": {\"n\": \"1\", \"m\": \"2\"}}, "
            "{\"change\": \"new\", \"row\": {\"text\": \"new\"}}, "
            "{\"change\": \"removed\", \"row\": {\"gone\": \"\\\"\"}}]}");
}
