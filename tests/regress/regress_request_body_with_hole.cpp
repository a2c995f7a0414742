// Bodies that came in blocks of two sizes, or with a Size1 that was too large, were given to the
// application with bytes in them that nobody had sent: what was in memory before.
#include "upload_peer.h"

namespace coap_rpc_test {
namespace {

class RequestBodyWithHole : public UploadServer {
 protected:
  // ExpectEnded expects that nothing of the transfer is left: a last block waits for others.
  void ExpectEnded() {
    EXPECT_TRUE(app_.requests.empty());
    EXPECT_EQ(Send({1, false, 6}, 'z'), kCodeEmpty);
    EXPECT_TRUE(app_.requests.empty());
  }
};

TEST_F(RequestBodyWithHole, Size1DoesNotLengthenIt) {
  for (const uint32_t num : {0u, 1u}) {
    CoapMessage part = Part({num, num == 0, 6}, 'x', num == 0 ? 1024 : 10);
    Ask(part.AddUint(kOptSize1, 2000));
  }
  EXPECT_EQ(Body(), std::string(1034, 'x'));
}

TEST_F(RequestBodyWithHole, Size1DoesNotShortenIt) {
  for (const uint32_t num : {0u, 1u}) {
    Ask(Part({num, num == 0, 6}, 'x').AddUint(kOptSize1, 10));
  }
  EXPECT_EQ(Body(), std::string(2048, 'x'));
}

TEST_F(RequestBodyWithHole, BlocksGetLarger_Gets408) {
  EXPECT_EQ(Send({0, true, 0}, 'x'), kContinue);
  EXPECT_EQ(Send({1, false, 6}, 'x'), kIncomplete);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, LaterBlockGetsLarger_Gets408) {
  EXPECT_EQ(Send({0, true, 4}, 'x'), kContinue);
  EXPECT_EQ(Send({1, true, 4}, 'x'), kContinue);
  EXPECT_EQ(Send({1, true, 5}, 'x'), kIncomplete);
  ExpectEnded();
}

// Blocks after a smaller one are counted in its size.
TEST_F(RequestBodyWithHole, BlocksGetSmaller_IsWhole) {
  EXPECT_EQ(Send({0, true, 6}, 'a'), kContinue);
  EXPECT_EQ(Send({4, true, 4}, 'b'), kContinue);
  EXPECT_EQ(Send({10, true, 3}, 'c'), kContinue);
  EXPECT_EQ(Send({11, false, 3}, 'd', 5), Code(2, 1));
  const std::string body = std::string(1024, 'a') + std::string(256, 'b') + std::string(128, 'c');
  EXPECT_EQ(Body(), body + "ddddd");
}

TEST_F(RequestBodyWithHole, BlocksGetSmallerWithoutBeingRecounted_IsNotWhole) {
  EXPECT_EQ(Send({0, true, 6}, 'a'), kContinue);
  EXPECT_EQ(Send({1, true, 4}, 'b'), kContinue);
  EXPECT_EQ(Send({2, false, 4}, 'c'), kIncomplete);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, SmallerBlockAfterAGap_WaitsForTheRest) {
  EXPECT_EQ(Send({0, true, 6}, 'a'), kContinue);
  EXPECT_EQ(Send({5, false, 4}, 'c', 7), kCodeEmpty);
  EXPECT_TRUE(app_.requests.empty());
  EXPECT_EQ(Send({4, true, 4}, 'b'), kContinue);
  EXPECT_EQ(Body(), std::string(1024, 'a') + std::string(256, 'b') + "ccccccc");
}

TEST_F(RequestBodyWithHole, LargerBlockRepeatedAfterASmallerOne_IsWhole) {
  const CoapMessage first = Part({0, true, 6}, 'a');
  EXPECT_EQ(Ask(first).code, kContinue);
  EXPECT_EQ(Send({4, true, 4}, 'b'), kContinue);
  EXPECT_EQ(Ask(first).code, kContinue);
  EXPECT_EQ(Send({5, false, 4}, 'c'), Code(2, 1));
  EXPECT_EQ(Body(), std::string(1024, 'a') + std::string(256, 'b') + std::string(256, 'c'));
}

TEST_F(RequestBodyWithHole, InAnyOrder_IsWhole) {
  const std::vector<std::vector<uint32_t>> orders = {{3, 2, 1, 0}, {1, 3, 0, 2}, {2, 0, 3, 1}};
  for (const std::vector<uint32_t> &order : orders) {
    app_.requests.clear();
    for (const uint32_t num : order) {
      Send({num, num != 3, 2}, static_cast<char>('a' + num), num == 3 ? 9 : 64);
      while (peer_.Receive(Pump(), 2)) {
      }
    }
    EXPECT_EQ(Body(),
              std::string(64, 'a') + std::string(64, 'b') + std::string(64, 'c') + "ddddddddd");
  }
}

TEST_F(RequestBodyWithHole, BlockAfterTheLastOne_Gets408) {
  EXPECT_EQ(Send({2, false, 6}, 'x', 10), kCodeEmpty);
  EXPECT_EQ(Send({3, true, 6}, 'x'), kIncomplete);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, BlockThatReachesBeyondTheLastOne_Gets408) {
  EXPECT_EQ(Send({2, false, 6}, 'x', 10), kCodeEmpty);
  EXPECT_EQ(Send({2, true, 6}, 'x'), kIncomplete);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, LastBlockBeforeOthers_Gets408) {
  EXPECT_EQ(Send({0, true, 6}, 'x'), kContinue);
  EXPECT_EQ(Send({3, true, 6}, 'x'), kContinue);
  EXPECT_EQ(Send({2, false, 6}, 'x'), kIncomplete);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, LastBlockInsideAnother_Gets408) {
  EXPECT_EQ(Send({1, true, 6}, 'x'), kContinue);
  EXPECT_EQ(Send({1, false, 6}, 'x', 10), kIncomplete);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, LastBlockOfTwoLengths_Gets408) {
  for (const size_t len : {9u, 11u, 0u}) {
    SCOPED_TRACE(len);
    EXPECT_EQ(Send({2, false, 6}, 'x', 10), kCodeEmpty);
    EXPECT_EQ(Send({2, false, 6}, 'x', len), kIncomplete);
    ExpectEnded();
    EXPECT_EQ(Send({1, false, 6}, 'x', 1), kIncomplete);  // ends that one as well
  }
}

TEST_F(RequestBodyWithHole, TwoLastBlocks_Gets408) {
  EXPECT_EQ(Send({2, false, 6}, 'x'), kCodeEmpty);
  EXPECT_EQ(Send({3, false, 6}, 'x'), kIncomplete);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, LastBlockIsEmpty_IsWhole) {
  EXPECT_EQ(Send({0, true, 2}, 'x'), kContinue);
  EXPECT_EQ(Send({1, true, 2}, 'y'), kContinue);
  EXPECT_EQ(Send({2, false, 2}, 'z', 0), Code(2, 1));
  EXPECT_EQ(Body(), std::string(64, 'x') + std::string(64, 'y'));
}

TEST_F(RequestBodyWithHole, EmptyLastBlockAfterAGap_WaitsForTheRest) {
  EXPECT_EQ(Send({0, true, 2}, 'x'), kContinue);
  EXPECT_EQ(Send({2, false, 2}, 'z', 0), kCodeEmpty);
  EXPECT_TRUE(app_.requests.empty());
  EXPECT_EQ(Send({1, true, 2}, 'y'), kContinue);
  EXPECT_EQ(Body(), std::string(64, 'x') + std::string(64, 'y'));
}

TEST_F(RequestBodyWithHole, BlockOfAnotherLengthThanItShouldHave_Gets400) {
  for (const size_t len : {0u, 1u, 63u, 65u, 1024u}) {
    SCOPED_TRACE(len);
    EXPECT_EQ(Send({0, true, 2}, 'x'), kContinue);
    EXPECT_EQ(Send({1, true, 2}, 'x', len), kBadRequest);
    ExpectEnded();
    EXPECT_EQ(Send({1, true, 2}, 'x', len), kBadRequest);  // ends that one as well
  }
  EXPECT_EQ(Send({0, true, 2}, 'x'), kContinue);
  EXPECT_EQ(Send({1, false, 2}, 'x', 65), kBadRequest);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, TooManyGaps_Gets408) {
  for (const uint32_t num : {1u, 3u, 5u}) EXPECT_EQ(Send({num, true, 0}, 'x'), kContinue);
  EXPECT_EQ(Send({7, true, 0}, 'x'), kIncomplete);
  ExpectEnded();
}

TEST_F(RequestBodyWithHole, GapsAreFilledFromBothSides_IsWhole) {
  for (const uint32_t num : {1u, 3u, 5u, 4u, 2u, 7u, 6u}) {
    EXPECT_EQ(Send({num, true, 0}, static_cast<char>('a' + num)), kContinue) << num;
  }
  EXPECT_EQ(Send({8, false, 0}, 'i'), kCodeEmpty);
  Send({0, true, 0}, 'a');
  std::string body;
  for (char filler = 'a'; filler <= 'i'; ++filler) body += std::string(16, filler);
  EXPECT_EQ(Body(), body);
}

}  // namespace
}  // namespace coap_rpc_test
