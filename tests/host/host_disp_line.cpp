/* host_disp_line.cpp: words and numbers of command lines. */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "disp/disp_line.h"

using Words = std::vector<std::string>;

namespace {

Words Split(std::string_view line) {
  std::string reason;
  const auto words = kestrel::SplitDispLine(line, reason);
  EXPECT_TRUE(words.has_value()) << reason;
  return words.value_or(Words{});
}

std::string ReasonFor(std::string_view line) {
  std::string reason;
  EXPECT_FALSE(kestrel::SplitDispLine(line, reason).has_value());
  return reason;
}

}  // namespace

TEST(HostDispLine, SplitsAtBlanksAndTabs) {
  EXPECT_EQ(Split("  disp\tserver   listen "), (Words{"disp", "server", "listen"}));
  EXPECT_EQ(Split(""), Words{});
  EXPECT_EQ(Split(" \t "), Words{});
}

TEST(HostDispLine, LineEnd_IsIgnored) {
  EXPECT_EQ(Split("a\n"), Words{"a"});
  EXPECT_EQ(Split("a\r\n"), Words{"a"});
  EXPECT_EQ(Split("a\r"), Words{"a"});
}

TEST(HostDispLine, Quotes_KeepBlanksTogether) {
  EXPECT_EQ(Split("a \"b c\" \"\""), (Words{"a", "b c", ""}));
  EXPECT_EQ(Split("a\"b"), (Words{"a\"b"}));
  EXPECT_EQ(ReasonFor("a \"b c"), "a double quote is not closed");
  EXPECT_EQ(ReasonFor("\""), "a double quote is not closed");
}

TEST(HostDispLine, ControlCharacters_AreRefused) {
  EXPECT_EQ(ReasonFor("a\nb"), "the command line has control characters");
  EXPECT_EQ(ReasonFor("a \x1b[2J"), "the command line has control characters");
  EXPECT_EQ(ReasonFor("a\x7f"), "the command line has control characters");
  EXPECT_EQ(ReasonFor(std::string_view("a\0b", 3)), "the command line has control characters");
}

TEST(HostDispLine, Length_IsLimited) {
  EXPECT_EQ(Split(std::string(4096, 'x') + "\r\n").size(), 1u);
  EXPECT_EQ(ReasonFor(std::string(4097, 'x')), "the command line is longer than 4096 bytes");
  EXPECT_EQ(ReasonFor(std::string(1 << 20, ' ')), "the command line is longer than 4096 bytes");
}

TEST(HostDispLine, Numbers) {
  EXPECT_EQ(kestrel::ParseDispNumber("0"), 0u);
  EXPECT_EQ(kestrel::ParseDispNumber("4294967295"), 4294967295u);
  EXPECT_EQ(kestrel::ParseDispNumber("007"), 7u);
  for (const char *bad :
       {"", "4294967296", "-1", "+1", " 1", "1 ", "0x10", "1a", "99999999999999"}) {
    EXPECT_FALSE(kestrel::ParseDispNumber(bad).has_value()) << bad;
  }
}

TEST(HostDispLine, QuotedForReply_IsShortAndHarmless) {
  EXPECT_EQ(kestrel::QuoteForReply("a\x1b"
                                   "b"),
            "\"a?b\"");
  EXPECT_EQ(kestrel::QuoteForReply(std::string(65, 'x')), "\"" + std::string(64, 'x') + "...\"");
}
