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
  EXPECT_EQ((Words{"disp", "server", "listen"}), Split("  disp\tserver   listen "));
  EXPECT_EQ(Words{}, Split(""));
  EXPECT_EQ(Words{}, Split(" \t "));
}

TEST(HostDispLine, LineEnd_IsIgnored) {
  EXPECT_EQ(Words{"a"}, Split("a\n"));
  EXPECT_EQ(Words{"a"}, Split("a\r\n"));
  EXPECT_EQ(Words{"a"}, Split("a\r"));
}

TEST(HostDispLine, Quotes_KeepBlanksTogether) {
  EXPECT_EQ((Words{"a", "b c", ""}), Split("a \"b c\" \"\""));
  EXPECT_EQ((Words{"a\"b"}), Split("a\"b"));
  EXPECT_EQ("a double quote is not closed", ReasonFor("a \"b c"));
  EXPECT_EQ("a double quote is not closed", ReasonFor("\""));
}

TEST(HostDispLine, ControlCharacters_AreRefused) {
  EXPECT_EQ("the command line has control characters", ReasonFor("a\nb"));
  EXPECT_EQ("the command line has control characters", ReasonFor("a \x1b[2J"));
  EXPECT_EQ("the command line has control characters", ReasonFor("a\x7f"));
  EXPECT_EQ("the command line has control characters", ReasonFor(std::string_view("a\0b", 3)));
}

TEST(HostDispLine, Length_IsLimited) {
  EXPECT_EQ(1u, Split(std::string(4096, 'x') + "\r\n").size());
  EXPECT_EQ("the command line is longer than 4096 bytes", ReasonFor(std::string(4097, 'x')));
  EXPECT_EQ("the command line is longer than 4096 bytes", ReasonFor(std::string(1 << 20, ' ')));
}

TEST(HostDispLine, Numbers) {
  EXPECT_EQ(0u, kestrel::ParseDispNumber("0"));
  EXPECT_EQ(4294967295u, kestrel::ParseDispNumber("4294967295"));
  EXPECT_EQ(7u, kestrel::ParseDispNumber("007"));
  for (const char *bad :
       {"", "4294967296", "-1", "+1", " 1", "1 ", "0x10", "1a", "99999999999999"}) {
    EXPECT_FALSE(kestrel::ParseDispNumber(bad).has_value()) << bad;
  }
}

TEST(HostDispLine, QuotedForReply_IsShortAndHarmless) {
  EXPECT_EQ("\"a?b\"", kestrel::QuoteForReply("a\x1b"
                                              "b"));
  EXPECT_EQ("\"" + std::string(64, 'x') + "...\"", kestrel::QuoteForReply(std::string(65, 'x')));
}
