// Requests to direct entries that are malformed, or say what no server knows.
#include "direct_server.h"

namespace coap_rpc_test {
namespace {

using DirectMalformed = Direct;

TEST_F(DirectMalformed, UnknownCriticalOption_402) {
  ServeDirect(kModeSync);
  EXPECT_EQ(Ask(Message(kCodePost, "q").Add(2049, {1})).code, Code(4, 2));
  peer_.Send(Message(kCodePost, "q", CoapType::kNon).Add(2049, {1}));
  const std::optional<CoapMessage> reset = Next(peer_);
  ASSERT_TRUE(reset);
  EXPECT_EQ(reset->type, CoapType::kRst);
  EXPECT_TRUE(app_.payloads.empty());
}

// An answer would have the token, and be as malformed as the request.
TEST_F(DirectMalformed, ReservedTokenLengthAndUnknownOption_IsReset) {
  ServeDirect(kModeSync);
  for (uint8_t len = 9; len <= 12; ++len) {
    Bytes request = {static_cast<uint8_t>(0x40 | len), kCodePost, 1, len};
    request.insert(request.end(), len, 'T');
    request.insert(request.end(), {0xd1, 0, 'x'});  // number 13
    peer_.Send(request);
    const std::optional<CoapMessage> reset = Next(peer_);
    ASSERT_TRUE(reset) << +len;
    EXPECT_EQ(reset->type, CoapType::kRst);
  }
}

TEST_F(DirectMalformed, TruncatedAtEveryByte_NoCrash) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  app_.out = "x";
  const Bytes whole = ToBytes(Message(kCodePost, "payload")
                                  .AddUint(kOptContentFormat, 50)
                                  .AddText(kOptUriQuery, "a=1")
                                  .AddBlock(kOptBlock2, {0, false, 2})
                                  .AddBlock(kOptBlock1, {0, false, 2}));
  for (size_t len = 0; len <= whole.size(); ++len) {
    Bytes part(whole.begin(), whole.begin() + static_cast<long>(len));
    if (len > 3) part[3] = static_cast<uint8_t>(len);  // not a repetition
    peer_.Send(part);
    Tick();
  }
  EXPECT_FALSE(app_.payloads.empty());
  EXPECT_EQ(app_.payloads.back(), "payload");
}

}  // namespace
}  // namespace coap_rpc_test
