/* test_support_coap_message.cpp: well-formed CoAP datagrams, byte by byte. */
#include <gtest/gtest.h>

#include <sstream>

#include "coap_message.h"

namespace coap_rpc_test {
namespace {

// RoundTrip encodes and decodes a message.
CoapMessage RoundTrip(const CoapMessage &message) {
  CoapMessage read;
  EXPECT_EQ(Parse(ToBytes(message), &read), "");
  return read;
}

TEST(SupportCoapMessage, Empty_IsFourBytes) {
  EXPECT_EQ(ToBytes(Request(CoapType::kCon, kCodeEmpty, 0x1234)), Bytes({0x40, 0x00, 0x12, 0x34}));
  EXPECT_EQ(ToBytes(AckOf(Request(CoapType::kCon, kCodeGet, 0xABCD, {1}))),
            Bytes({0x60, 0x00, 0xAB, 0xCD}));
  EXPECT_EQ(ToBytes(RstOf(Request(CoapType::kNon, Code(2, 5), 7))),
            Bytes({0x70, 0x00, 0x00, 0x07}));
}

TEST(SupportCoapMessage, Request_TokenOptionsPayload) {
  const CoapMessage message = Request(CoapType::kNon, kCodePost, 1, {0xAA, 0xBB})
                                  .AddPath("a/bc")
                                  .AddUint(kOptContentFormat, 50)
                                  .PayloadText("{}");
  EXPECT_EQ(ToBytes(message), Bytes({0x52, 0x02, 0x00, 0x01, 0xAA, 0xBB, 0xB1, 'a', 0x02, 'b', 'c',
                                     0x11, 50, 0xFF, '{', '}'}));
}

TEST(SupportCoapMessage, Options_AnyOrder_AreSortedAndStable) {
  const CoapMessage message = Request(CoapType::kCon, kCodeGet, 1)
                                  .AddText(kOptUriPath, "x")
                                  .AddUint(kOptObserve, 0)
                                  .AddText(kOptUriPath, "y");
  EXPECT_EQ(ToBytes(message), Bytes({0x40, 0x01, 0x00, 0x01, 0x60, 0x51, 'x', 0x01, 'y'}));
  EXPECT_EQ(RoundTrip(message).Path(), "x/y");
}

TEST(SupportCoapMessage, Delta_ExtendedForms) {
  const auto bytesOf = [](uint16_t number) {
    const Bytes all = ToBytes(Request(CoapType::kCon, kCodeGet, 1).Add(number));
    return Bytes(all.begin() + 4, all.end());
  };
  EXPECT_EQ(bytesOf(12), Bytes({0xC0}));
  EXPECT_EQ(bytesOf(13), Bytes({0xD0, 0}));
  EXPECT_EQ(bytesOf(268), Bytes({0xD0, 255}));
  EXPECT_EQ(bytesOf(269), Bytes({0xE0, 0, 0}));
  EXPECT_EQ(bytesOf(65535), Bytes({0xE0, 0xFE, 0xF2}));
}

TEST(SupportCoapMessage, Length_ExtendedForms_ComeBack) {
  for (const size_t len : {0u, 1u, 12u, 13u, 14u, 268u, 269u, 270u, 1034u}) {
    const CoapMessage message =
        Request(CoapType::kCon, kCodeGet, 1).Add(kOptUriQuery, Bytes(len, 'q')).PayloadText("p");
    EXPECT_EQ(RoundTrip(message), message) << len;
  }
}

TEST(SupportCoapMessage, Uint_IsAsShortAsPossible) {
  const auto valueOf = [](uint32_t number) {
    return CoapMessage().AddUint(kOptMaxAge, number).options[0].value;
  };
  EXPECT_EQ(valueOf(0), Bytes());
  EXPECT_EQ(valueOf(255), Bytes({0xFF}));
  EXPECT_EQ(valueOf(256), Bytes({0x01, 0x00}));
  EXPECT_EQ(valueOf(0x10000), Bytes({0x01, 0x00, 0x00}));
  EXPECT_EQ(valueOf(0xFFFFFFFF), Bytes({0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(SupportCoapMessage, Uint_ComesBack) {
  const CoapMessage message = CoapMessage().AddUint(kOptObserve, 0x123456).Add(kOptSize1, Bytes(5));
  EXPECT_EQ(message.Uint(kOptObserve), 0x123456u);
  EXPECT_EQ(message.Uint(kOptSize1), std::nullopt);
  EXPECT_EQ(message.Uint(kOptSize2), std::nullopt);
}

TEST(SupportCoapMessage, Block_ComesBack) {
  const CoapMessage message = CoapMessage().AddBlock(kOptBlock2, {3, true, 6}).AddBlock(27, {});
  EXPECT_EQ(message.options[0].value, Bytes({0x3E}));
  EXPECT_EQ(message.Block(kOptBlock2), (CoapBlock{3, true, 6}));
  EXPECT_EQ(message.Block(kOptBlock1), (CoapBlock{0, false, 0}));
  EXPECT_EQ(message.Block(kOptEtag), std::nullopt);
  EXPECT_EQ(CoapMessage().AddUint(kOptBlock1, 0x1000000).Block(kOptBlock1), std::nullopt);
}

TEST(SupportCoapMessage, RawOptions_FollowAsTheyAre) {
  CoapMessage message = Request(CoapType::kCon, kCodeGet, 1).AddText(kOptUriPath, "a");
  message.rawOptions = {0x01, 'b'};
  EXPECT_EQ(RoundTrip(message).Path(), "a/b");
}

TEST(SupportCoapMessage, Path_OddForms) {
  EXPECT_EQ(CoapMessage().AddPath("a").Values(kOptUriPath).size(), 1u);
  EXPECT_EQ(CoapMessage().AddPath("a//b").Values(kOptUriPath).size(), 3u);
  EXPECT_EQ(CoapMessage().AddPath("").Values(kOptUriPath).size(), 1u);
  EXPECT_EQ(CoapMessage().Path(), "");
}

TEST(SupportCoapMessage, Print_IsReadable) {
  std::ostringstream text;
  text
      << Request(CoapType::kAck, Code(2, 5), 7, {0x0A}).AddText(kOptUriPath, "a").PayloadText("{}");
  EXPECT_EQ(text.str(), "ACK 2.05 id 7 token [0a] 11=\"a\" payload \"{}\"");
  EXPECT_EQ(CodeText(Code(5, 3)), "5.03");
  EXPECT_EQ(HexText({0x00, 0xFF}), "00 ff");
}

}  // namespace
}  // namespace coap_rpc_test
