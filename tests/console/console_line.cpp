/* console_line.cpp: from the words of a shell to a line for the host, and rows of a screen. */
#include <gtest/gtest.h>

#include "client.h"
#include "pager.h"

using console::CommandLine;
using console::RowsOf;

namespace {

std::string Line(const std::vector<std::string> &words) {
  std::string line;
  EXPECT_TRUE(CommandLine(words, line));
  return line;
}

}  // namespace

TEST(CommandLine, QuotesWhereNeeded) {
  EXPECT_EQ(Line({"disp", "server", "uriVtbl"}), "disp server uriVtbl");
  EXPECT_EQ(Line({"disp", "server", "two words", ""}), "disp server \"two words\" \"\"");
  EXPECT_EQ(Line({"disp server uriVtbl"}), "disp server uriVtbl");
  EXPECT_EQ(Line({"disp \"two words\""}), "disp \"two words\"");
}

TEST(CommandLine, RefusesQuotesInsideAWord) {
  std::string line;
  EXPECT_FALSE(CommandLine({"disp", "a\"b"}, line));
}

TEST(RowsOf, CountsWrappedLines) {
  EXPECT_EQ(RowsOf("", 80), 1u);
  EXPECT_EQ(RowsOf(std::string(80, 'x'), 80), 1u);
  EXPECT_EQ(RowsOf(std::string(81, 'x'), 80), 2u);
}
