/* console_help.cpp: what an operator is told who asks. */
#include "help.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using Texts = std::vector<std::string>;

const std::vector<console::HostCommand> kCommands = {
    {"one", "disp list", {}, "all there is", {}},
    {"one", "disp row", {"uniRow", "pcUri"}, "one row", {"its number", ""}},
    {"two", "disp list", {}, "the same of another object", {}},
    {"two", "old", {"pcName"}, "", {}},
    {"two", "evil", {}, "\x1b[31mred", {}}};

bool Has(const Texts &lines, const std::string &line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

}  // namespace

TEST(HelpOn, Words_ListTheCommandsThatBeginSo) {
  EXPECT_EQ(console::HelpOn("di", kCommands),
            (Texts{"  disp list                             all there is",
                   "  disp row <uniRow> <pcUri>             one row"}));
}

TEST(HelpOn, OneCommand_HasItsParametersExplained) {
  EXPECT_EQ(console::HelpOn("d r", kCommands),
            (Texts{"  disp row <uniRow> <pcUri>             one row",
                   "    <uniRow>                            its number", "    <pcUri>"}));
}

TEST(HelpOn, CommandWithoutHelp_IsStillListed) {
  EXPECT_EQ(console::HelpOn("old", kCommands), (Texts{"  old <pcName>", "    <pcName>"}));
}

TEST(HelpOn, HostileHelp_IsEscaped) {
  EXPECT_EQ(console::HelpOn("evil", kCommands),
            Texts{"  evil                                  \\x1b[31mred"});
}

TEST(HelpOn, Nothing_BeginsSo) {
  EXPECT_EQ(console::HelpOn("nothing", kCommands), Texts{});
  EXPECT_EQ(console::HelpOn("disp row 3", kCommands), Texts{});
  EXPECT_EQ(console::HelpOn("x", {}), Texts{});
}

TEST(HelpOn, WatchedCommand_IsHelpedAsAlone) {
  EXPECT_EQ(console::HelpOn("watch 0.5 d r ", kCommands), console::HelpOn("d r", kCommands));
  EXPECT_TRUE(Has(console::HelpOn("watch 1 ", kCommands),
                  "  disp list                             all there is"));
  EXPECT_EQ(console::HelpOn("watch 1", kCommands), Texts{});
}

TEST(HelpOn, Bar_ListsTheFilters) {
  const Texts lines = console::HelpOn("disp list | ", kCommands);
  EXPECT_EQ(lines.size(), 4u);
  EXPECT_TRUE(Has(lines, "  | sort COLUMN                         rows in the order of a column"));
}

TEST(HelpOn, OwnCommands_AreToldToo) {
  EXPECT_EQ(console::HelpOn("qu", kCommands),
            Texts{"  quit                                  leave"});
}

TEST(HelpOnAll, ListsAll) {
  const Texts lines = console::HelpOnAll(kCommands);
  EXPECT_TRUE(Has(lines, "  disp list                             all there is"));
  EXPECT_TRUE(Has(lines, "  old <pcName>"));
  EXPECT_TRUE(Has(lines, "  | count                               the number of lines"));
}
