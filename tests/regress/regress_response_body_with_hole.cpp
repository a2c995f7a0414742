// A response that came in blocks of two sizes was delivered with bytes in it that nobody had sent,
// and a block of one that did not come to its end as the whole of it.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class ResponseBodyWithHole : public WireClient {
 protected:
  ResponseBodyWithHole() {
    COAP_RpcRefreshTaskTimer(Ctx());
    Register(key_, &app_);
    Register(relation_, &app_);
  }

  CoapMessage Part(const CoapMessage &request, const CoapBlock &block, char filler,
                   std::optional<size_t> len = {}) {
    CoapMessage part = AnswerOf(request).AddBlock(kOptBlock2, block);
    return part.PayloadText(std::string(len.value_or(size_t{16} << block.szx), filler));
  }

  // Reply answers the next request of the client with a block, and returns that request.
  CoapMessage Reply(const CoapBlock &block, char filler, std::optional<size_t> len = {}) {
    const CoapMessage request = Next();
    peer_.Send(Part(request, block, filler, len));
    return request;
  }

  // ExpectFailure expects that the application hears that the transfer failed, once.
  void ExpectFailure(uint32_t code = 408) {
    Ticks(11);
    ASSERT_EQ(app_.responses.size(), 1u);
    EXPECT_EQ(app_.responses[0].info.rspCode, code);
  }

  void ExpectBody(const std::string &body) {
    Ticks(11);
    ASSERT_EQ(app_.responses.size(), 1u);
    EXPECT_EQ(app_.responses[0].info.rspCode, 205u);
    EXPECT_EQ(app_.responses[0].payload, body);
  }

  // NotifyInTwoBlocks sends a notification, which has to arrive.
  void NotifyInTwoBlocks(const Bytes &token) {
    CoapMessage next = Separate(CoapType::kCon, 0x4242, token, "r");
    next.AddUint(kOptObserve, 3).AddBlock(kOptBlock2, {0, true, 2});
    peer_.Send(next.PayloadText(std::string(64, 'd')));
    CoapMessage later = Next();
    for (int i = 0; i < 3 && later.code == kCodeEmpty; ++i) later = Next();
    peer_.Send(Part(later, {1, false, 2}, 'e', 3));
    ExpectBody(std::string(64, 'd') + "eee");
  }

  const CoapRpcUriKey key_ = KeyOf("a");
  const CoapRpcUriKey relation_ = KeyOf("r", COAP_RPC_CON, 1);
  App app_;
};

TEST_F(ResponseBodyWithHole, BlocksGetLarger_Fails) {
  Call(key_);
  Reply({0, true, 0}, 'x');
  Reply({1, false, 6}, 'x');
  ExpectFailure();
}

TEST_F(ResponseBodyWithHole, LaterBlockGetsLarger_Fails) {
  Call(key_);
  Reply({0, true, 2}, 'a');
  Reply({1, true, 2}, 'b');
  Reply({1, false, 3}, 'c');
  ExpectFailure();
}

TEST_F(ResponseBodyWithHole, BlocksGetSmaller_IsWhole) {
  Call(key_);
  Reply({0, true, 6}, 'a');
  EXPECT_EQ(Reply({4, true, 4}, 'b').Block(kOptBlock2), (CoapBlock{1, false, 6}));
  EXPECT_EQ(Reply({5, false, 4}, 'c', 7).Block(kOptBlock2), (CoapBlock{5, false, 4}));
  ExpectBody(std::string(1024, 'a') + std::string(256, 'b') + std::string(7, 'c'));
}

TEST_F(ResponseBodyWithHole, BlocksGetSmallerWithoutBeingRecounted_Fails) {
  Call(key_);
  Reply({0, true, 6}, 'a');
  Reply({1, true, 4}, 'b');
  Ticks(15);
  EXPECT_TRUE(app_.responses.empty());
}

TEST_F(ResponseBodyWithHole, LastBlockAfterAGap_Fails) {
  Call(key_);
  Reply({0, true, 6}, 'a');
  Reply({2, false, 6}, 'c');
  ExpectFailure();
}

TEST_F(ResponseBodyWithHole, BlocksWithAGap_Fails) {
  Call(key_);
  Reply({0, true, 6}, 'a');
  Reply({2, true, 6}, 'c');
  Reply({3, false, 6}, 'd');
  ExpectFailure();
}

TEST_F(ResponseBodyWithHole, LastBlockBeforeOthers_Fails) {
  Call(key_);
  Reply({0, true, 6}, 'a');
  Reply({3, true, 6}, 'd');
  Reply({1, false, 6}, 'b', 10);
  ExpectFailure();
}

TEST_F(ResponseBodyWithHole, BeginsInTheMiddle_Fails) {
  for (const bool more : {true, false}) {
    SCOPED_TRACE(more);
    app_.responses.clear();
    Call(key_, more ? 1 : 2);
    Reply({1, more, 6}, 'b');
    ExpectFailure();
  }
}

TEST_F(ResponseBodyWithHole, LastBlockIsEmpty_IsWhole) {
  Call(key_);
  Reply({0, true, 2}, 'a');
  Reply({1, true, 2}, 'b');
  Reply({2, false, 2}, 'c', 0);
  ExpectBody(std::string(64, 'a') + std::string(64, 'b'));
}

TEST_F(ResponseBodyWithHole, BlockOfAnotherLengthThanItShouldHave_Fails) {
  uint64_t userData = 0;
  for (const bool more : {true, false}) {
    for (const size_t len : {1u, 63u, 65u, 1024u}) {
      if (!more && len < 64) continue;
      SCOPED_TRACE(len);
      app_.responses.clear();
      Call(key_, ++userData);
      Reply({0, true, 2}, 'a');
      Reply({1, more, 2}, 'b', len);
      ExpectFailure(402);
    }
  }
}

TEST_F(ResponseBodyWithHole, OtherContentFormat_Fails) {
  Call(key_);
  Reply({0, true, 2}, 'a');
  peer_.Send(Part(Next(), {1, false, 2}, 'b').AddUint(kOptContentFormat, 50));
  ExpectFailure();
}

TEST_F(ResponseBodyWithHole, WithoutTheEtag_Fails) {
  Call(key_);
  peer_.Send(Part(Next(), {0, true, 2}, 'a').Add(kOptEtag, {7}));
  Reply({1, false, 2}, 'b');
  ExpectFailure();
}

// The relation goes on.
TEST_F(ResponseBodyWithHole, InARelation_NextNotificationIsWhole) {
  Observe(relation_);
  const CoapMessage request = Next();
  peer_.Send(Part(request, {0, true, 2}, 'a').AddUint(kOptObserve, 2));
  Reply({2, false, 2}, 'c');
  ExpectFailure();
  app_.responses.clear();
  NotifyInTwoBlocks(request.token);
}

// A block that comes again, late, begins nothing.
TEST_F(ResponseBodyWithHole, InARelation_LateRepetitionIsIgnored) {
  Observe(relation_);
  const CoapMessage request = Next();
  peer_.Send(Part(request, {0, true, 2}, 'a').AddUint(kOptObserve, 2));
  const CoapMessage second = Reply({1, false, 2}, 'b', 3);
  ExpectBody(std::string(64, 'a') + "bbb");
  app_.responses.clear();
  CoapMessage late = Separate(CoapType::kNon, 0x4141, second.token, "r");
  late.AddBlock(kOptBlock2, {1, false, 2}).PayloadText("bbb");
  peer_.Send(late);
  Ticks(11);
  EXPECT_TRUE(app_.responses.empty());
  NotifyInTwoBlocks(request.token);
}

}  // namespace
}  // namespace coap_rpc_test
