/* console_escape.cpp: hostile text on a terminal. */
#include "escape.h"

#include <gtest/gtest.h>

using console::Cut;
using console::Escaped;
using console::EscapedForJson;
using console::NumColumns;

TEST(Escaped, Plain_StaysAsItIs) {
  EXPECT_EQ("", Escaped(""));
  EXPECT_EQ("uri(a/b)/n(1) %s \\ \"", Escaped("uri(a/b)/n(1) %s \\ \""));
  EXPECT_EQ("Grüße, 世界, 🙂", Escaped("Grüße, 世界, 🙂"));
}

TEST(Escaped, Controls_AreShown) {
  EXPECT_EQ("\\x1b[2J", Escaped("\x1b[2J"));
  EXPECT_EQ("a\\x00b", Escaped(std::string_view("a\0b", 3)));
  EXPECT_EQ("\\x09\\x0d\\x0a\\x7f", Escaped("\t\r\n\x7f"));
  EXPECT_EQ("\\xc2\\x9b31m", Escaped("\xc2\x9b"
                                     "31m"));
  EXPECT_EQ("\\xe2\\x80\\xae", Escaped("\xe2\x80\xae"));
  EXPECT_EQ("\\xe2\\x81\\xa6", Escaped("\xe2\x81\xa6"));
}

TEST(Escaped, BadUtf8_IsShownByteByByte) {
  EXPECT_EQ("\\xff", Escaped("\xff"));
  EXPECT_EQ("\\xc3", Escaped("\xc3"));
  EXPECT_EQ("\\xc3(", Escaped("\xc3("));
  EXPECT_EQ("\\xc0\\xaf", Escaped("\xc0\xaf"));
  EXPECT_EQ("\\xe0\\x80\\xaf", Escaped("\xe0\x80\xaf"));
  EXPECT_EQ("\\xed\\xa0\\x80", Escaped("\xed\xa0\x80"));
  EXPECT_EQ("\\xf4\\x90\\x80\\x80", Escaped("\xf4\x90\x80\x80"));
  EXPECT_EQ("\\xe4\\xb8", Escaped("\xe4\xb8"));
  EXPECT_EQ("\\x80", Escaped("\x80"));
}

TEST(EscapedForJson, IsTheInsideOfAString) {
  EXPECT_EQ("a\\\"b\\\\c", EscapedForJson("a\"b\\c"));
  EXPECT_EQ("\\u0000\\u001b\\u000a\\u007f", EscapedForJson(std::string_view("\0\x1b\n\x7f", 4)));
  EXPECT_EQ("\\u009b\\u202e", EscapedForJson("\xc2\x9b\xe2\x80\xae"));
  EXPECT_EQ("\\\\xff\\\\xc3", EscapedForJson("\xff\xc3"));
  EXPECT_EQ("Grüße", EscapedForJson("Grüße"));
}

TEST(Columns, CountCharacters) {
  EXPECT_EQ(0u, NumColumns(""));
  EXPECT_EQ(5u, NumColumns("Grüße"));
}

TEST(Cut, KeepsTheBeginning) {
  EXPECT_EQ("Grüße", Cut("Grüße", 5));
  EXPECT_EQ("Grü~", Cut("Grüße", 4));
  EXPECT_EQ("Gr~", Cut("Grüße", 3));
  EXPECT_EQ("~", Cut("Grüße", 1));
}
