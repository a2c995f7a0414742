/* console_watch.cpp: what watch takes, and what it marks. */
#include "watch.h"

#include <gtest/gtest.h>

using console::MarkChanges;
using console::ParseWatch;

namespace {

using Texts = std::vector<std::string>;

// Marked gives each line with its mark, changed parts in braces.
Texts Marked(const Texts &before, const Texts &now) {
  Texts marked;
  for (const console::MarkedLine &line : MarkChanges(before, now)) {
    std::string text = line.text;
    for (auto part = line.changed.rbegin(); part != line.changed.rend(); ++part) {
      text.insert(part->second, "}");
      text.insert(part->first, "{");
    }
    marked.push_back(line.mark + text);
  }
  return marked;
}

std::string Refusal(std::string_view line) {
  std::string reason;
  EXPECT_FALSE(ParseWatch(line, reason)) << line;
  return reason;
}

}  // namespace

TEST(ParseWatch, TakesSecondsAndACommand) {
  std::string reason;
  const auto whole = ParseWatch("watch 2 disp server uriVtbl", reason);
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->periodMs, 2000u);
  EXPECT_EQ(whole->command, "disp server uriVtbl");
  const auto part = ParseWatch("  watch   0.5\tdisp", reason);
  ASSERT_TRUE(part);
  EXPECT_EQ(part->periodMs, 500u);
  EXPECT_EQ(part->command, "disp");
}

TEST(ParseWatch, RefusesOtherThings) {
  constexpr char kSeconds[] =
      "watch needs a number of seconds from 0.1 to 86400, and then a command";
  for (const char *line : {"watch", "watch x disp", "watch 0 disp", "watch 0.05 disp",
                           "watch 86401 disp", "watch -1 disp", "watch nan disp", "watch inf disp",
                           "watch 1e1 disp", "watch 2s disp", "watch disp 2"}) {
    EXPECT_EQ(Refusal(line), kSeconds) << line;
  }
  EXPECT_EQ(Refusal("watch 2"), "watch needs a command after the seconds");
  EXPECT_EQ(Refusal("watch 2   "), "watch needs a command after the seconds");
}

TEST(IsWatch, LooksAtTheFirstWord) {
  EXPECT_TRUE(console::IsWatch(" watch"));
  EXPECT_FALSE(console::IsWatch("watches 2 x"));
  EXPECT_FALSE(console::IsWatch(""));
}

TEST(MarkChanges, SameLines_AreNotMarked) {
  EXPECT_EQ(Marked({"n[0]: uri(a)/n(1)", "total 1"}, {"n[0]: uri(a)/n(1)", "total 1"}),
            (Texts{" n[0]: uri(a)/n(1)", " total 1"}));
  EXPECT_EQ(Marked({}, {}), Texts{});
}

TEST(MarkChanges, ChangedValues_AreMarked) {
  EXPECT_EQ(Marked({"n[0]: uri(a)/n(1)/m(5)/k(x)"}, {"n[0]: uri(a)/n(12)/m(5)/k()"}),
            (Texts{"*n[0]: uri(a)/n({12})/m(5)/k({})"}));
}

TEST(MarkChanges, RowsAreKnownByTheirFirstField) {
  EXPECT_EQ(Marked({"n[0]: uri(b)/n(2)"}, {"n[0]: uri(a)/n(1)", "n[1]: uri(b)/n(2)"}),
            (Texts{"+{n[0]: uri(a)/n(1)}", " n[1]: uri(b)/n(2)"}));
}

TEST(MarkChanges, GoneLines_ComeLast) {
  EXPECT_EQ(Marked({"uri(a)/n(1)", "uri(b)/n(2)", "total 2"}, {"uri(b)/n(2)", "total 1"}),
            (Texts{" uri(b)/n(2)", "*{total 1}", "-uri(a)/n(1)"}));
}

TEST(MarkChanges, EqualKeys_AreCounted) {
  EXPECT_EQ(Marked({"uri(a)/t(CON)", "uri(a)/t(NON)"},
                   {"uri(a)/t(CON)", "uri(a)/t(BYTE)", "uri(a)/t(X)"}),
            (Texts{" uri(a)/t(CON)", "*uri(a)/t({BYTE})", "+{uri(a)/t(X)}"}));
}

TEST(MarkChanges, FieldThatComes_IsAChange) {
  EXPECT_EQ(Marked({"uri(a)/n(1)"}, {"uri(a)/n(1)/m(2)"}), (Texts{"*uri(a)/n(1)/m({2})"}));
  EXPECT_EQ(Marked({"uri(a)/n(1)/m(2)"}, {"uri(a)/n(1)"}), (Texts{"*uri(a)/n(1)"}));
}

TEST(MarkChanges, TenThousandLines_AreQuick) {
  Texts before, now;
  for (int i = 0; i < 10000; ++i) {
    before.push_back("uri(" + std::to_string(i) + ")/n(1)");
    now.push_back("uri(" + std::to_string(i) + ")/n(2)");
  }
  const auto lines = MarkChanges(before, now);
  ASSERT_EQ(lines.size(), 10000u);
  EXPECT_EQ(lines[9999].mark, '*');
}
