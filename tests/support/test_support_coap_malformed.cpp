/* test_support_coap_malformed.cpp: datagrams that are no CoAP messages are told apart. */
#include <gtest/gtest.h>

#include "coap_malformed.h"

namespace coap_rpc_test {
namespace {

// ErrorOf parses a datagram and returns what is wrong with it.
std::string ErrorOf(const Bytes &datagram) {
  CoapMessage message;
  return Parse(datagram, &message);
}

CoapMessage Good() {
  return Request(CoapType::kCon, kCodeGet, 1, {1, 2, 3, 4}).AddPath("a/b").PayloadText("text");
}

TEST(SupportCoapMalformed, Good_IsGood) { EXPECT_EQ(ErrorOf(ToBytes(Good())), ""); }

TEST(SupportCoapMalformed, Version_MustBe1) {
  EXPECT_EQ(ErrorOf(WithVersion(Good(), 1)), "");
  for (const uint8_t version : Bytes({0, 2, 3})) {
    EXPECT_EQ(ErrorOf(WithVersion(Good(), version)), "version is not 1");
  }
}

TEST(SupportCoapMalformed, TokenLen_Above8_IsReserved) {
  for (uint8_t len = 9; len <= 15; ++len) {
    EXPECT_EQ(WithTokenLen(Good(), len)[0], 0x40 + len);
    EXPECT_EQ(ErrorOf(WithTokenLen(Good(), len)), "token length is reserved");
  }
}

TEST(SupportCoapMalformed, Token_CutOff) {
  EXPECT_EQ(ErrorOf(Truncated(Good(), 7)), "token is cut off");
}

TEST(SupportCoapMalformed, ReservedNibbles) {
  EXPECT_EQ(ErrorOf(WithReservedDelta(Good())), "option delta is reserved");
  EXPECT_EQ(ErrorOf(WithReservedLen(Good())), "option length is reserved");
}

TEST(SupportCoapMalformed, CutOptions) {
  EXPECT_EQ(ErrorOf(WithCutExtension(Good())), "option delta is cut off");
  for (uint8_t len = 1; len <= 12; ++len) {
    EXPECT_EQ(ErrorOf(WithCutValue(Good(), len)), "option value is cut off") << int{len};
  }
  EXPECT_EQ(ErrorOf({0x40, 1, 0, 1, 0x0D}), "option length is cut off");
}

TEST(SupportCoapMalformed, HugeNumber) {
  EXPECT_EQ(ErrorOf(WithHugeNumber(Good())), "option number is above 65535");
}

TEST(SupportCoapMalformed, BareMarker) {
  EXPECT_EQ(ErrorOf(WithBareMarker(Good())), "payload marker without payload");
}

TEST(SupportCoapMalformed, EmptyMessage_WithMore) {
  const CoapMessage empty = Request(CoapType::kCon, kCodeEmpty, 1);
  EXPECT_EQ(ErrorOf(ToBytes(empty)), "");
  EXPECT_EQ(ErrorOf(WithTokenLen(empty, 1)), "empty message with more than a header");
  EXPECT_EQ(ErrorOf({0x40, 0, 0, 1, 0x00}), "empty message with more than a header");
}

TEST(SupportCoapMalformed, ShorterThanTheHeader) {
  for (size_t len = 0; len < 4; ++len) {
    EXPECT_EQ(ErrorOf(Truncated(Good(), len)), "shorter than the header");
  }
}

// Whatever the bytes are, reading them ends without touching anything outside.
TEST(SupportCoapMalformed, EveryPrefix_IsReadSafely) {
  const CoapMessage message = Request(CoapType::kCon, kCodeGet, 1, {1, 2})
                                  .Add(kOptUriPath, Bytes(300, 'a'))
                                  .Add(2000, Bytes(20, 'b'));
  const size_t whole = ToBytes(message).size();
  size_t numGood = 0;
  for (size_t len = 0; len <= whole; ++len) {
    if (ErrorOf(Truncated(message, len)).empty()) ++numGood;
  }
  EXPECT_EQ(numGood, 3u);  // after the token, after each option
}

}  // namespace
}  // namespace coap_rpc_test
