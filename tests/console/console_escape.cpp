/* console_escape.cpp: hostile text on a terminal. */
#include "escape.h"

#include <gtest/gtest.h>

#include <clocale>

using console::Cut;
using console::Escaped;
using console::EscapedForJson;
using console::NumColumns;

TEST(Escaped, Plain_StaysAsItIs) {
  EXPECT_EQ(Escaped(""), "");
  EXPECT_EQ(Escaped("uri(a/b)/n(1) %s \\ \""), "uri(a/b)/n(1) %s \\ \"");
  EXPECT_EQ(Escaped("Grüße, 世界, 🙂"), "Grüße, 世界, 🙂");
}

TEST(Escaped, Controls_AreShown) {
  EXPECT_EQ(Escaped("\x1b[2J"), "\\x1b[2J");
  EXPECT_EQ(Escaped(std::string_view("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(Escaped("\t\r\n\x7f"), "\\x09\\x0d\\x0a\\x7f");
  EXPECT_EQ(Escaped("\xc2\x9b"
                    "31m"),
            "\\xc2\\x9b31m");
  EXPECT_EQ(Escaped("\xe2\x80\xae"), "\\xe2\\x80\\xae");
  EXPECT_EQ(Escaped("\xe2\x81\xa6"), "\\xe2\\x81\\xa6");
  EXPECT_EQ(Escaped("\xe2\x80\x8b"), "\\xe2\\x80\\x8b");  // takes no column
  EXPECT_EQ(Escaped("\xef\xbb\xbf"), "\\xef\\xbb\\xbf");
  EXPECT_EQ(Escaped("\xd8\x9c"), "\\xd8\\x9c");
}

TEST(Escaped, BadUtf8_IsShownByteByByte) {
  EXPECT_EQ(Escaped("\xff"), "\\xff");
  EXPECT_EQ(Escaped("\xc3"), "\\xc3");
  EXPECT_EQ(Escaped("\xc3("), "\\xc3(");
  EXPECT_EQ(Escaped("\xc0\xaf"), "\\xc0\\xaf");
  EXPECT_EQ(Escaped("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");
  EXPECT_EQ(Escaped("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(Escaped("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(Escaped("\xe4\xb8"), "\\xe4\\xb8");
  EXPECT_EQ(Escaped("\x80"), "\\x80");
}

TEST(EscapedForJson, IsTheInsideOfAString) {
  EXPECT_EQ(EscapedForJson("a\"b\\c"), "a\\\"b\\\\c");
  EXPECT_EQ(EscapedForJson(std::string_view("\0\x1b\n\x7f", 4)), "\\u0000\\u001b\\u000a\\u007f");
  EXPECT_EQ(EscapedForJson("\xc2\x9b\xe2\x80\xae"), "\\u009b\\u202e");
  EXPECT_EQ(EscapedForJson("\xff\xc3"), "\\\\xff\\\\xc3");
  EXPECT_EQ(EscapedForJson("Grüße"), "Grüße");
}

TEST(Columns, CountCharacters) {
  EXPECT_EQ(NumColumns(""), 0u);
  EXPECT_EQ(NumColumns("Grüße"), 5u);
}

TEST(Columns, OfATerminal) {
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  EXPECT_EQ(NumColumns("世界"), 4u);
  EXPECT_EQ(NumColumns("e\xcc\x81"), 1u);
  EXPECT_EQ(Cut("世界", 4), "世界");
  EXPECT_EQ(Cut("世界", 3), "世~");
  EXPECT_EQ(Cut("世界", 2), "~");
  setlocale(LC_CTYPE, "C");
}

TEST(Cut, KeepsTheBeginning) {
  EXPECT_EQ(Cut("Grüße", 5), "Grüße");
  EXPECT_EQ(Cut("Grüße", 4), "Grü~");
  EXPECT_EQ(Cut("Grüße", 3), "Gr~");
  EXPECT_EQ(Cut("Grüße", 1), "~");
}
