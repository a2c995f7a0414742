// An upload whose blocks came in for longer than 93 s was given up, and answered 4.08, while one
// whose last block was repeated was kept while the repetitions lasted.
#include "upload_peer.h"

namespace coap_rpc_test {
namespace {

class SlowUpload : public UploadServer {
 protected:
  // HasWaited says whether the upload is still there: a block 1 is then its second one.
  bool HasWaited(uint64_t seconds) {
    EXPECT_EQ(Send({0, true, 0}, 'x'), kContinue);
    host_.AdvanceMs(seconds * 1000);
    return Send({1, false, 0}, 'y') == Code(2, 1);
  }
};

TEST_F(SlowUpload, IsTakenHoweverLongItTakes) {
  constexpr uint32_t kNumBlocks = 20;
  for (uint32_t num = 0; num < kNumBlocks; ++num) {
    const bool isLast = num + 1 == kNumBlocks;
    EXPECT_EQ(Send({num, !isLast, 0}, 'x'), isLast ? Code(2, 1) : kContinue) << num;
    host_.AdvanceMs(10'000);
  }
  EXPECT_EQ(Body(), std::string(16 * kNumBlocks, 'x'));
}

// MAX_TRANSMIT_WAIT of RFC 7252, with four retransmissions.
TEST_F(SlowUpload, IsGivenUpAfter93SecondsOfSilence) {
  EXPECT_TRUE(HasWaited(91));
  EXPECT_FALSE(HasWaited(95));
}

TEST_F(SlowUpload, RepeatedBlockDoesNotProlongIt) {
  const CoapMessage first = Part({0, true, 0}, 'x');
  EXPECT_EQ(Ask(first).code, kContinue);
  for (int i = 0; i < 9; ++i) {
    host_.AdvanceMs(10'000);
    EXPECT_EQ(Ask(first).code, kContinue);
  }
  host_.AdvanceMs(5'000);
  EXPECT_EQ(Send({1, false, 0}, 'y'), kCodeEmpty);
  EXPECT_TRUE(app_.requests.empty());
}

// It is told so after 10 s.
TEST_F(SlowUpload, RepeatedLastBlockDoesNotProlongIt) {
  const CoapMessage last = Part({1, false, 0}, 'y');
  EXPECT_EQ(Ask(last).code, kCodeEmpty);
  for (int i = 0; i < 2; ++i) {
    host_.AdvanceMs(4'000);
    EXPECT_EQ(Ask(last).code, kCodeEmpty);
  }
  host_.AdvanceMs(2'500);
  const std::optional<CoapMessage> end = peer_.ReceiveNow();
  ASSERT_TRUE(end);
  EXPECT_EQ(end->code, kIncomplete);
}

// Those on the list after an upload whose last block is in have their own time.
TEST_F(SlowUpload, OtherUploadsOfThePeerKeepTheirTime) {
  App other;
  Serve(KeyOf("b", COAP_RPC_CON, 0, COAP_RPC_UNICAST), RegOf(&other, 0));
  const auto send = [this](const CoapBlock &block) {
    return Ask(Post(CoapType::kCon, "b", std::string(16, 'b')).AddBlock(kOptBlock1, block)).code;
  };
  EXPECT_EQ(send({0, true, 0}), kContinue);
  EXPECT_EQ(Send({1, false, 0}, 'y'), kCodeEmpty);
  host_.AdvanceMs(20'000);
  while (peer_.ReceiveNow()) {
  }
  EXPECT_EQ(send({1, false, 0}), Code(2, 1));
  ASSERT_EQ(other.requests.size(), 1u);
}

// The bound on uploads gives up the one that has been silent longest, not the one that began first.
TEST_F(SlowUpload, BeginsFirstAndGoesOn_IsNotTheOneGivenUp) {
  constexpr size_t kMost = 64;
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (size_t i = 0; i < kMost; ++i) {
    peers.push_back(std::make_unique<RawPeer>());
    peers.back()->SetRemote(Address());
    EXPECT_EQ(Ask(*peers.back(), Part({0, true, 0}, 'x')).code, kContinue);
  }
  EXPECT_EQ(Ask(*peers[0], Part({1, true, 0}, 'x')).code, kContinue);
  EXPECT_EQ(Send({0, true, 0}, 'y'), kContinue);  // one too many
  Tick();
  EXPECT_EQ(Ask(*peers[1], Part({1, false, 0}, 'x')).code, kCodeEmpty);
  EXPECT_EQ(Ask(*peers[0], Part({2, false, 0}, 'x')).code, Code(2, 1));
}

// Repeated, it brings nothing new.
TEST_F(SlowUpload, EndsWithAnEmptyBlock_IsGivenUp) {
  const CoapMessage end = Part({5, false, 2}, 'x', 0);
  ExpectEmptyAck(Ask(end), end);
  host_.AdvanceMs(8'000);
  ExpectEmptyAck(Ask(end), end);
  host_.AdvanceMs(2'500);
  const std::optional<CoapMessage> answer = peer_.ReceiveNow();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->code, kIncomplete);
}

}  // namespace
}  // namespace coap_rpc_test
