// Two datagrams, blocks of a request for an observable URI, made libcoap read the Observe option of
// a message that it had moved: memory that was freed, or another value.
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

const Bytes kLongToken = {1, 2, 3, 4, 5, 6, 7, 8};

class ObserveInMovedRequest : public ObserveServer {
 protected:
  ObserveInMovedRequest() { ServeObs(COAP_RPC_NON); }

  // Block is part of a request with an Observe option, unless it has no value.
  CoapMessage Block(const Bytes &token, const CoapBlock &block, size_t len,
                    std::optional<uint32_t> observe) {
    CoapMessage part = Request(CoapType::kCon, kCodeGet, ++mid_, token).AddPath("obs");
    if (observe) part.AddUint(kOptObserve, *observe);
    return part.AddBlock(kOptBlock1, block).PayloadText(std::string(len, 'x'));
  }

  // Answer waits for the answer to the whole request, which is a message of its own when blocks
  // came out of order.
  CoapMessage Answer(RawPeer &peer, const CoapMessage &request) {
    CoapMessage answer = Ask(peer, request);
    if (answer.code != Code(2, 31)) return answer;
    const std::optional<CoapMessage> next = Next(peer);
    EXPECT_TRUE(next);
    return next.value_or(CoapMessage());
  }

  // ExpectObserver expects a notification with the token; with a new value, as the first observer
  // served takes the changes.
  void ExpectObserver(RawPeer &peer, const Bytes &token) {
    Update("k001", std::to_string(1000 + numUpdates_++));
    const std::optional<CoapMessage> message = Next(peer);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->token, token);
    Ask(peer, Observe(CoapType::kCon, token, "", 1));
  }

  uint32_t NumObservers() { return app_.observerNums.empty() ? 0 : app_.observerNums.back(); }

  int numUpdates_ = 0;
};

// With a body of any size that brings the message about its allocation, of 256 bytes and more.
TEST_F(ObserveInMovedRequest, LongTokenFirst_IsObserver) {
  for (uint8_t szx = 0; szx <= 6; ++szx) {
    for (size_t padding = 0; padding <= 16; ++padding) {
      SCOPED_TRACE(std::to_string(szx) + " " + std::to_string(padding));
      RawPeer peer;
      peer.SetRemote(Address());
      const std::string query(1 + padding, 'q');
      CoapMessage last = Block(kLongToken, {1, false, szx}, 1, 0);
      EXPECT_EQ(Ask(peer, last.AddText(kOptUriQuery, query)).code, kCodeEmpty);
      CoapMessage first = Block({}, {0, true, szx}, size_t{16} << szx, 0);
      const CoapMessage answer = Answer(peer, first.AddText(kOptUriQuery, query));
      EXPECT_EQ(answer.token, kLongToken);
      EXPECT_TRUE(answer.Has(kOptObserve));
      ExpectObserver(peer, kLongToken);
    }
  }
}

TEST_F(ObserveInMovedRequest, ShortTokenFirst_IsObserver) {
  EXPECT_EQ(Ask(Block({}, {0, true, 5}, 512, 0)).code, Code(2, 31));
  const CoapMessage answer = Answer(peer_, Block(kLongToken, {1, false, 5}, 100, 0));
  EXPECT_EQ(answer.token, kLongToken);
  EXPECT_TRUE(answer.Has(kOptObserve));
  ExpectObserver(peer_, kLongToken);
}

TEST_F(ObserveInMovedRequest, LongTokenFirst_ShortTokenIsLeftOver) {
  EXPECT_EQ(Ask(Block({}, {1, false, 5}, 100, 0)).code, kCodeEmpty);
  const CoapMessage answer = Answer(peer_, Block(kLongToken, {0, true, 5}, 512, 0));
  EXPECT_TRUE(answer.token.empty());
  EXPECT_TRUE(answer.Has(kOptObserve));
  ExpectObserver(peer_, {});
}

// The request's value is that of its first block, or else of the one that completes it.
struct Values {
  std::optional<uint32_t> first, last;
  bool isObserver;
};

TEST_F(ObserveInMovedRequest, FirstValueCounts) {
  const Values kValues[] = {{0, {}, true}, {{}, 0, true},  {0, 1, true},
                            {1, 0, false}, {1, {}, false}, {{}, {}, false}};
  Bytes token = {9};
  for (const Values &values : kValues) {
    SCOPED_TRACE(&values - kValues);
    ++token[0];
    EXPECT_EQ(Ask(Block(token, {0, true, 5}, 512, values.first)).code, Code(2, 31));
    const CoapMessage answer = Answer(peer_, Block(token, {1, false, 5}, 100, values.last));
    EXPECT_EQ(answer.Has(kOptObserve), values.isObserver);
    if (values.isObserver) ExpectObserver(peer_, token);
  }
}

TEST_F(ObserveInMovedRequest, ValueInEachBlockCancels) {
  Register(peer_, CoapType::kCon, kLongToken);
  EXPECT_EQ(Ask(Block(kLongToken, {1, false, 5}, 100, 1)).code, kCodeEmpty);
  EXPECT_FALSE(Answer(peer_, Block({}, {0, true, 5}, 512, 1)).Has(kOptObserve));
  Update("k001", "v001");
  ExpectSilence(peer_);
}

}  // namespace
}  // namespace coap_rpc_test
