// The two formatters that cut.
#include "coap_svc/rpc/common/coap_rpc_safe.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(SnprintfTruncated, Fits_GivesTheLength) {
  char buf[8];
  EXPECT_EQ(snprintf_truncated_s(buf, sizeof(buf), "%s", "seven77"), 7);
  EXPECT_STREQ(buf, "seven77");
}

TEST(SnprintfTruncated, DoesNotFit_GivesWhatWasStored) {
  char buf[8];
  EXPECT_EQ(snprintf_truncated_s(buf, sizeof(buf), "%s", "eight888"), 7);
  EXPECT_STREQ(buf, "eight88");
}

TEST(SnprintfTruncated, EmptyText_GivesZero) {
  char buf[8] = "before";
  EXPECT_EQ(snprintf_truncated_s(buf, sizeof(buf), "%s", ""), 0);
  EXPECT_STREQ(buf, "");
}

TEST(SnprintfTruncated, OneByte_HoldsTheTerminator) {
  char buf[1] = {'x'};
  EXPECT_EQ(snprintf_truncated_s(buf, sizeof(buf), "%s", "text"), 0);
  EXPECT_EQ(buf[0], '\0');
}

TEST(SnprintfTruncated, LongerThanTheBoundsCheckedLibraryTakes) {
  std::string buf(65471, 'x');
  const std::string text(70000, 'y');
  EXPECT_EQ(snprintf_truncated_s(buf.data(), buf.size(), "%s", text.c_str()), 65470);
  EXPECT_EQ(buf.back(), '\0');
}

TEST(SnprintfTruncated, BadArguments_GiveMinusOne) {
  char buf[8] = "before";
  EXPECT_EQ(snprintf_truncated_s(nullptr, 8, "%s", "x"), -1);
  EXPECT_EQ(snprintf_truncated_s(buf, 0, "%s", "x"), -1);
  EXPECT_STREQ(buf, "before");
  // Through a pointer: compilers look into a format.
  int (*const format)(char *, size_t, const char *, va_list) = vsnprintf_truncated_s;
  va_list none = {};
  EXPECT_EQ(format(buf, sizeof(buf), nullptr, none), -1);
  EXPECT_STREQ(buf, "");
}

}  // namespace
