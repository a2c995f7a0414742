/* console_filter.cpp: what stands after a bar. */
#include "filter.h"

#include <gtest/gtest.h>

using console::FilterSpec;
using console::ParseFilters;

namespace {

using Texts = std::vector<std::string>;

const Texts kTable = {"row[  0]: uri(b)/n(10)/state(ok)", "row[  1]: uri(a)/n(9)",
                      "row[  2]: uri(c)/n(100)", " ***total 3 row(s) ***"};

struct Result {
  Texts lines;
  std::string problem;
};

Result Filtered(const std::string &filters, const Texts &lines) {
  std::string reason;
  const auto parsed = ParseFilters("command " + filters, reason);
  EXPECT_TRUE(parsed) << reason;
  if (!parsed) return {};
  EXPECT_EQ(parsed->command, "command");
  console::KeptLines kept;
  console::Filters chain(parsed->filters, kept);
  for (const std::string &line : lines) {
    if (!chain.First().Line(line)) break;
  }
  chain.First().End();
  return {kept.Take(), chain.Problem()};
}

Texts Lines(const std::string &filters) {
  const Result result = Filtered(filters, kTable);
  EXPECT_EQ(result.problem, "");
  return result.lines;
}

}  // namespace

TEST(Filters, None_PassAll) { EXPECT_EQ(Lines(""), kTable); }

TEST(Filters, Include_KeepsLinesWithTheText) {
  EXPECT_EQ(Lines("| include uri(a)"), Texts{kTable[1]});
  EXPECT_EQ(Lines("| include \"/n(10)/\""), Texts{kTable[0]});
  EXPECT_EQ(Lines("| include nothing"), Texts{});
}

TEST(Filters, Sort_OrdersRowsAndKeepsTheTotalLast) {
  EXPECT_EQ(Lines("| sort uri"), (Texts{kTable[1], kTable[0], kTable[2], kTable[3]}));
  EXPECT_EQ(Lines("| sort n"), (Texts{kTable[1], kTable[0], kTable[2], kTable[3]}));
  EXPECT_EQ(Lines("| sort URI"), (Texts{kTable[1], kTable[0], kTable[2], kTable[3]}));
  EXPECT_EQ(Lines("| sort state"), kTable);
}

// What reads as a number without being one has no place among numbers.
TEST(Filters, Sort_NamesLikeNanAreTexts) {
  const Texts rows = {"n(3)", "n(nan)", "n(1)", "n(inf)", "n(2)"};
  EXPECT_EQ(Filtered("| sort n", rows).lines, (Texts{"n(1)", "n(2)", "n(3)", "n(inf)", "n(nan)"}));
}

TEST(Filters, Columns_AreChosenInOrder) {
  EXPECT_EQ(Lines("| columns n,uri"),
            (Texts{"n(10)/uri(b)", "n(9)/uri(a)", "n(100)/uri(c)", kTable[3]}));
  EXPECT_EQ(Lines("| columns state, n"), (Texts{"state(ok)/n(10)", "n(9)", "n(100)", kTable[3]}));
}

TEST(Filters, Count_LeavesTheTotalOut) {
  EXPECT_EQ(Lines("| count"), Texts{"3"});
  EXPECT_EQ(Lines("| include uri(a) | count"), Texts{"1"});
  EXPECT_EQ(Filtered("| count", {}).lines, Texts{"0"});
}

TEST(Filters, Chain_PassesFromOneToTheNext) {
  EXPECT_EQ(Lines("| include row[ | sort n | columns uri"), (Texts{"uri(a)", "uri(b)", "uri(c)"}));
}

TEST(Filters, UnknownColumn_IsAProblem) {
  EXPECT_EQ(Filtered("| sort nothing", kTable).problem, "no column \"nothing\"");
  EXPECT_EQ(Filtered("| columns uri,nothing", kTable).problem, "no column \"nothing\"");
  EXPECT_EQ(Filtered("| sort nothing", {"text"}).problem, "");
  EXPECT_EQ(Filtered("| columns nothing | count", kTable).problem, "no column \"nothing\"");
}

TEST(ParseFilters, BarInAWord_IsNoFilter) {
  std::string reason;
  EXPECT_EQ(ParseFilters("demo a|b", reason)->command, "demo a|b");
  EXPECT_EQ(ParseFilters("demo \"a | b\"", reason)->command, "demo \"a | b\"");
  EXPECT_TRUE(ParseFilters("demo \"a | b\"", reason)->filters.empty());
}

TEST(ParseFilters, Nonsense_IsRefused) {
  for (const char *line :
       {"demo |", "demo | nothing", "demo | include", "demo | sort", "demo | sort a b",
        "demo | columns", "demo | columns ,", "demo | count 1", "demo | c", "demo | count |"}) {
    std::string reason;
    EXPECT_FALSE(ParseFilters(line, reason)) << line;
    EXPECT_TRUE(reason.starts_with("after a bar comes ")) << reason;
  }
  std::string reason;
  EXPECT_FALSE(ParseFilters("| count", reason));
  EXPECT_EQ(reason, "there is no command before the bar");
}

TEST(ParseFilters, Filters_MayBeAbbreviated) {
  std::string reason;
  const auto parsed = ParseFilters("demo | i x | s y | col z | cou", reason);
  ASSERT_TRUE(parsed) << reason;
  ASSERT_EQ(parsed->filters.size(), 4u);
  EXPECT_EQ(parsed->filters[2].kind, FilterSpec::Kind::kColumns);
  EXPECT_EQ(parsed->filters[3].kind, FilterSpec::Kind::kCount);
}
