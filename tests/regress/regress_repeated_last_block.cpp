// The last block of an upload whose answer was lost began another upload when it was repeated, and
// the peer was told 4.08 of a call that was done.
#include <map>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "libcoap_memory.h"
#include "upload_peer.h"

namespace coap_rpc_test {
namespace {

class RepeatedLastBlock : public UploadServer {
 protected:
  // Upload sends a body of two blocks; returns the last one.
  CoapMessage Upload(char filler = 'x') {
    EXPECT_EQ(Send({0, true, 2}, filler), kContinue);
    const CoapMessage last = Part({1, false, 2}, filler, 10);
    answer_ = Ask(last);
    return last;
  }

  // ExpectAnswered expects the answer that was given, and no work for the application.
  void ExpectAnswered(const CoapMessage &last) {
    const size_t num = app_.requests.size();
    EXPECT_EQ(Ask(last), answer_);
    EXPECT_EQ(app_.requests.size(), num);
  }

  CoapMessage answer_;
};

TEST_F(RepeatedLastBlock, GetsTheAnswer) {
  app_.result = 4;
  const CoapMessage last = Upload();
  EXPECT_FALSE(answer_.payload.empty());
  for (int i = 0; i < 3; ++i) ExpectAnswered(last);
  host_.AdvanceMs(15'000);
  EXPECT_FALSE(peer_.ReceiveNow());
  EXPECT_EQ(app_.requests.size(), 1u);
}

TEST_F(RepeatedLastBlock, AnswerWithoutPayload) {
  const CoapMessage last = Upload();
  EXPECT_EQ(answer_.code, Code(2, 1));
  EXPECT_TRUE(answer_.payload.empty());
  ExpectAnswered(last);
}

TEST_F(RepeatedLastBlock, AnswerIsAnError) {
  app_.result = -1;
  const CoapMessage last = Upload();
  ExpectAnswered(last);
}

// The rest of the answer is asked for as ever.
TEST_F(RepeatedLastBlock, AnswerComesInBlocks) {
  app_.result = 3000;
  const CoapMessage last = Upload();
  EXPECT_EQ(answer_.Block(kOptBlock2), (CoapBlock{0, true, 6}));
  ExpectAnswered(last);
  for (const uint32_t num : {1u, 2u}) {
    CoapMessage next = Post(CoapType::kCon, "a").AddBlock(kOptBlock2, {num, false, 6});
    const CoapMessage block = Ask(next);
    EXPECT_EQ(block.Block(kOptBlock2), (CoapBlock{num, num == 1, 6}));
    EXPECT_FALSE(block.payload.empty());
  }
  ExpectAnswered(last);
}

// Some clients go on to send the last Block1, without payload, as they ask for the rest.
TEST_F(RepeatedLastBlock, AnswerComesInBlocks_AskedForWithTheLastBlock1) {
  app_.result = 3000;
  Upload();
  for (const uint32_t num : {1u, 2u}) {
    CoapMessage next = Part({1, false, 2}, 'x', 0).AddBlock(kOptBlock2, {num, false, 6});
    EXPECT_EQ(Ask(next).Block(kOptBlock2), (CoapBlock{num, num == 1, 6}));
  }
  EXPECT_EQ(app_.requests.size(), 1u);
}

TEST_F(RepeatedLastBlock, Asynchronous_GetsAnEmptyAcknowledgement) {
  Serve(KeyOf("b"), RegOf(&app_, 1));
  CoapMessage part = Get(CoapType::kCon, "b", std::string(64, 'x'));
  EXPECT_EQ(Ask(part.AddBlock(kOptBlock1, {0, true, 2})).code, kContinue);
  CoapMessage last = Get(CoapType::kCon, "b", "y").AddBlock(kOptBlock1, {1, false, 2});
  ExpectEmptyAck(Ask(last), last);
  ASSERT_EQ(app_.handles.size(), 1u);
  ExpectEmptyAck(Ask(last), last);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), app_.handles[0]), 0u);
  host_.AdvanceMs(3'000);
  while (peer_.ReceiveNow()) {
  }
  ExpectEmptyAck(Ask(last), last);
  EXPECT_EQ(app_.handles.size(), 1u);
  host_.AdvanceMs(15'000);
  while (const std::optional<CoapMessage> late = peer_.ReceiveNow()) {
    EXPECT_NE(late->code, kIncomplete);
  }
}

TEST_F(RepeatedLastBlock, NotConfirmable_BeginsNothing) {
  Serve(KeyOf("a", COAP_RPC_NON, 0, COAP_RPC_UNICAST), RegOf(&app_, 0));
  EXPECT_EQ(Send({0, true, 2}, 'x'), kContinue);
  CoapMessage last = Part({1, false, 2}, 'x', 10);
  last.type = CoapType::kNon;
  peer_.Send(last);
  host_.AdvanceMs(1'000);
  while (peer_.ReceiveNow()) {
  }
  ASSERT_EQ(app_.requests.size(), 1u);
  peer_.Send(last);
  host_.AdvanceMs(15'000);
  EXPECT_FALSE(peer_.ReceiveNow());
  EXPECT_EQ(app_.requests.size(), 1u);
}

TEST_F(RepeatedLastBlock, CameBeforeOthers_GetsItsEmptyAcknowledgement) {
  const CoapMessage last = Part({1, false, 2}, 'y', 10);
  ExpectEmptyAck(Ask(last), last);
  Send({0, true, 2}, 'x');
  ASSERT_TRUE(Next(peer_));
  ExpectEmptyAck(Ask(last), last);
  EXPECT_EQ(app_.requests.size(), 1u);
}

TEST_F(RepeatedLastBlock, AfterTheExchangesLifetime_IsAnother) {
  const CoapMessage last = Upload();
  host_.AdvanceMs(240'000);
  ExpectAnswered(last);
  host_.AdvanceMs(10'000);
  ExpectEmptyAck(Ask(last), last);
}

// Message ID, token and block option have to be the same.
TEST_F(RepeatedLastBlock, OtherMessages_AreNotAnswered) {
  const CoapMessage last = Upload();
  CoapMessage other = last;
  ++other.messageId;
  ExpectEmptyAck(Ask(other), other);
  other = last;
  other.token = {0xAC};
  EXPECT_EQ(Ask(other).payload, Bytes());
  other = Post(CoapType::kCon, "a", "plain");
  other.messageId = last.messageId;
  other.token = last.token;
  for (size_t num = 2; num <= 3; ++num) {
    EXPECT_EQ(Ask(other).code, Code(2, 1));
    EXPECT_EQ(app_.requests.size(), num);
  }
}

TEST_F(RepeatedLastBlock, OtherPeersAreNotAnswered) {
  const CoapMessage last = Upload();
  RawPeer other;
  other.SetRemote(Address());
  ExpectEmptyAck(Ask(other, last), last);
}

// One that starts to count from the same number again: it has sent the whole body.
TEST_F(RepeatedLastBlock, PeerThatWasStartedAgain_IsServed) {
  const uint16_t mid = mid_;
  Upload('x');
  mid_ = mid;
  Upload('y');
  ASSERT_EQ(app_.requests.size(), 2u);
  EXPECT_EQ(app_.requests[1].payload, std::string(74, 'y'));
}

// One that the network delivers late is not the end of the next upload.
TEST_F(RepeatedLastBlock, WhileTheNextIsOnItsWay_GetsItsAnswer) {
  const CoapMessage last = Upload('x');
  EXPECT_EQ(Send({0, true, 2}, 'y'), kContinue);
  ExpectAnswered(last);
  EXPECT_EQ(Send({1, false, 2}, 'y', 10), Code(2, 1));
  ASSERT_EQ(app_.requests.size(), 2u);
  EXPECT_EQ(app_.requests[1].payload, std::string(74, 'y'));
}

TEST_F(RepeatedLastBlock, LatestAnswerIsKept_OneForEachPeer) {
  const CoapMessage first = Upload('x');
  const int64_t numLive = NumLibcoapLive();
  for (int i = 0; i < 5; ++i) {
    const CoapMessage last = Upload('y');
    ExpectAnswered(last);
    EXPECT_EQ(NumLibcoapLive(), numLive);
  }
  ExpectEmptyAck(Ask(first), first);
}

TEST_F(RepeatedLastBlock, WithoutMemory_UploadIsAnsweredAllTheSame) {
  for (const coap_memory_tag_t tag : {COAP_PDU, COAP_PDU_BUF}) {
    int num = 0;
    EXPECT_EQ(Send({0, true, 2}, 'x'), kContinue);
    const CoapMessage last = Part({1, false, 2}, 'x', 10);
    {
      // The second one after the answer's own.
      NoMemory noMemory([&](const Need &need) { return need.tag == tag && ++num == 3; });
      EXPECT_EQ(Ask(last).code, Code(2, 1));
      EXPECT_EQ(noMemory.NumRefused(), 1);
    }
    ExpectEmptyAck(Ask(last), last);
    host_.AdvanceMs(15'000);
    while (peer_.ReceiveNow()) {
    }
  }
}

}  // namespace
}  // namespace coap_rpc_test
