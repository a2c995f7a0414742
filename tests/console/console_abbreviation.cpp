/* console_abbreviation.cpp: what the beginnings of words stand for. */
#include "abbreviation.h"

#include <gtest/gtest.h>

#include "own_commands.h"

using console::Expand;
using console::Expansion;

namespace {

using Texts = std::vector<std::string>;

const Texts kCommands = {"disp client request",      "disp server",
                         "disp server resource",     "disp server tupleChgList",
                         "disp server tupleSetTree", "disp server uriVtbl"};

std::string Line(std::string_view line) {
  const Expansion expansion = Expand(line, kCommands);
  EXPECT_EQ(expansion.choices, Texts{}) << line;
  return expansion.line;
}

Texts Choices(std::string_view line) {
  const Expansion expansion = Expand(line, kCommands);
  EXPECT_EQ(expansion.line, "") << line;
  return expansion.choices;
}

}  // namespace

TEST(Expand, BeginningsOfWords_StandForACommand) {
  EXPECT_EQ(Line("d s u"), "disp server uriVtbl");
  EXPECT_EQ(Line("  d\ts   res "), "disp server resource");
  EXPECT_EQ(Line("disp server uriVtbl"), "disp server uriVtbl");
}

TEST(Expand, Parameters_StayAsTheyAre) {
  EXPECT_EQ(Line("d c r 0"), "disp client request 0");
  EXPECT_EQ(Line("d s tupleS \"two  words\" x"), "disp server tupleSetTree \"two  words\" x");
}

TEST(Expand, LongestCommand_IsMeant) {
  EXPECT_EQ(Line("d s"), "disp server");
  EXPECT_EQ(Line("d s x"), "disp server x");
}

TEST(Expand, SeveralMeanings_AreTold) {
  EXPECT_EQ(Choices("d s t x"), (Texts{"disp server tupleChgList", "disp server tupleSetTree"}));
}

TEST(Expand, WholeWord_IsPreferred) {
  const Expansion expansion = Expand("show a b", {"show a b", "show all b"});
  EXPECT_EQ(expansion.line, "show a b");
}

TEST(Expand, SameCommandOfTwoObjects_IsOne) {
  EXPECT_EQ(Expand("d h", {"demo hello", "demo hello"}).line, "demo hello");
}

TEST(Expand, Nothing_StandsForNothing) {
  EXPECT_EQ(Line(""), "");
  EXPECT_EQ(Line("x"), "");
  EXPECT_EQ(Line("d"), "");
  EXPECT_EQ(Line(std::string(100000, 'd')), "");
  EXPECT_EQ(Expand("d", {}).line, "");
}

TEST(ExpandOwn, OnlyWhenTheHostHasNoSuchCommand) {
  EXPECT_TRUE(console::MayBeOwn("w 2 d s u"));
  EXPECT_FALSE(console::MayBeOwn("watch 2 d s u"));
  EXPECT_FALSE(console::MayBeOwn("o"));  // object or objects
  EXPECT_FALSE(console::MayBeOwn(""));
  EXPECT_EQ(console::ExpandOwn("w 2  d s u", {}), "watch 2  d s u");
  EXPECT_EQ(console::ExpandOwn("w", {{"demo", "walk", {}}}), "w");
}
