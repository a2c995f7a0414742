// A block of the size that is reserved over UDP was taken for a whole request or response.
#include "upload_peer.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kReserved = 7, kMore = 8;

class ReservedBlockSize : public UploadServer {};

TEST_F(ReservedBlockSize, RequestGets400) {
  for (const uint16_t option : {kOptBlock1, kOptBlock2}) {
    for (const Bytes &value : {Bytes{kReserved}, {kReserved | kMore}, {0x1F}, {0x12, 0x3F}}) {
      SCOPED_TRACE(option);
      const CoapMessage request =
          Post(CoapType::kCon, "a", std::string(20, 'x')).Add(option, value);
      const CoapMessage answer = Ask(request);
      EXPECT_EQ(answer.code, kBadRequest);
      EXPECT_EQ(answer.token, request.token);
      EXPECT_EQ(answer.messageId, request.messageId);
    }
  }
  EXPECT_TRUE(app_.requests.empty());
}

TEST_F(ReservedBlockSize, NonRequestGets400) {
  const CoapMessage request = Post(CoapType::kNon, "a", "x").Add(kOptBlock1, {kReserved});
  EXPECT_EQ(Ask(request).code, kBadRequest);
  EXPECT_TRUE(app_.requests.empty());
}

TEST_F(ReservedBlockSize, UnknownPathGets400) {
  EXPECT_EQ(Ask(Get(CoapType::kCon, "none").Add(kOptBlock2, {kReserved})).code, kBadRequest);
}

TEST_F(ReservedBlockSize, InAnUpload_Gets400) {
  EXPECT_EQ(Send({0, true, 6}, 'x'), kContinue);
  const CoapMessage request = Post(CoapType::kCon, "a", "x").Add(kOptBlock1, {0x17});
  EXPECT_EQ(Ask(request).code, kBadRequest);
  EXPECT_TRUE(app_.requests.empty());
  EXPECT_EQ(Send({1, false, 6}, 'y', 3), Code(2, 1));
  EXPECT_EQ(Body(), std::string(1024, 'x') + "yyy");
}

}  // namespace
}  // namespace coap_rpc_test
