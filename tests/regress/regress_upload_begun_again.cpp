// A peer that began an upload again got the bytes of its first attempt into the body.
#include "upload_peer.h"

namespace coap_rpc_test {
namespace {

class UploadBegunAgain : public UploadServer {};

TEST_F(UploadBegunAgain, HasNothingOfTheFirstAttempt) {
  EXPECT_EQ(Send({0, true, 2}, 'a'), kContinue);
  EXPECT_EQ(Send({1, true, 2}, 'a'), kContinue);
  EXPECT_EQ(Send({0, true, 2}, 'b'), kContinue);
  EXPECT_EQ(Send({1, true, 2}, 'b'), kContinue);
  EXPECT_EQ(Send({2, false, 2}, 'b', 5), Code(2, 1));
  EXPECT_EQ(Body(), std::string(64, 'b') + std::string(64, 'b') + "bbbbb");
}

TEST_F(UploadBegunAgain, InSmallerOrLargerBlocks_HasNothingOfTheFirstAttempt) {
  for (const uint8_t szx : {uint8_t{1}, uint8_t{3}}) {
    app_.requests.clear();
    EXPECT_EQ(Send({0, true, 2}, 'a'), kContinue);
    EXPECT_EQ(Send({1, true, 2}, 'a'), kContinue);
    EXPECT_EQ(Send({0, true, szx}, 'b'), kContinue);
    EXPECT_EQ(Send({1, false, szx}, 'b', 5), Code(2, 1));
    EXPECT_EQ(Body(), std::string(SizeOf(szx), 'b') + "bbbbb");
  }
}

TEST_F(UploadBegunAgain, AfterOneWhoseEndCameEarly_HasNothingOfTheFirstAttempt) {
  EXPECT_EQ(Send({0, true, 2}, 'a'), kContinue);
  EXPECT_EQ(Send({2, false, 2}, 'a', 5), kCodeEmpty);
  EXPECT_EQ(Send({0, true, 2}, 'b'), kContinue);
  EXPECT_EQ(Send({1, true, 2}, 'b'), kContinue);
  EXPECT_TRUE(app_.requests.empty());
  EXPECT_EQ(Send({2, true, 2}, 'b'), kContinue);
  EXPECT_EQ(Send({3, false, 2}, 'b', 1), Code(2, 1));
  EXPECT_EQ(Body(), std::string(3 * 64 + 1, 'b'));
}

TEST_F(UploadBegunAgain, RepeatedBlock0IsNotAnotherUpload) {
  const CoapMessage first = Part({0, true, 2}, 'a');
  EXPECT_EQ(Ask(first).code, kContinue);
  EXPECT_EQ(Send({1, true, 2}, 'b'), kContinue);
  EXPECT_EQ(Ask(first).code, kContinue);
  EXPECT_EQ(Send({2, false, 2}, 'c', 5), Code(2, 1));
  EXPECT_EQ(Body(), std::string(64, 'a') + std::string(64, 'b') + "ccccc");
}

}  // namespace
}  // namespace coap_rpc_test
