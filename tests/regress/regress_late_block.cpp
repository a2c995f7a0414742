// The block that completed an upload after its last one was acknowledged under a number that the
// peer had not used, and the answer was an acknowledgement of this block with the token of the last
// one.
#include "upload_peer.h"

namespace coap_rpc_test {
namespace {

class LateBlock : public UploadServer {};

TEST_F(LateBlock, IsAcknowledged_AnswerIsAMessageOfItsOwn) {
  CoapMessage last = Part({1, false, 2}, 'y', 5);
  last.token = {1, 2, 3};
  ExpectEmptyAck(Ask(last), last);
  const CoapMessage late = Part({0, true, 2}, 'x');
  const CoapMessage ack = Ask(late);
  EXPECT_EQ(ack.type, CoapType::kAck);
  EXPECT_EQ(ack.messageId, late.messageId);
  EXPECT_EQ(ack.token, late.token);
  EXPECT_EQ(ack.code, kContinue);
  EXPECT_EQ(ack.Block(kOptBlock1), (CoapBlock{0, true, 2}));
  const std::optional<CoapMessage> answer = Next(peer_);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->type, CoapType::kNon);
  EXPECT_EQ(answer->code, Code(2, 1));
  EXPECT_EQ(answer->token, last.token);
  EXPECT_EQ(Body(), std::string(64, 'x') + "yyyyy");
  host_.AdvanceMs(10'000);
  EXPECT_FALSE(peer_.ReceiveNow());
}

// A handler that answers later left an empty confirmable message with a token, which is malformed.
TEST_F(LateBlock, AnsweredLater_NothingIsSentMeanwhile) {
  Serve(KeyOf("b"), RegOf(&app_, 1));
  const auto part = [this](const CoapBlock &block) {
    return Get(CoapType::kCon, "b", std::string(16, 'x')).AddBlock(kOptBlock1, block);
  };
  EXPECT_EQ(Ask(part({1, false, 0})).code, kCodeEmpty);
  EXPECT_EQ(Ask(part({0, true, 0})).code, kContinue);
  ASSERT_EQ(app_.handles.size(), 1u);
  ExpectSilence(peer_);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), app_.handles[0]), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
