// A block of a request body that found no memory stayed noted as received.  The sender started
// again, and the application got a body with bytes in the place of the first blocks that nobody had
// sent.
#include "libcoap_memory.h"
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

constexpr size_t kBlockSize = 1024;

// Of a length that no other text has.
const Bytes kToken = {1, 2, 3, 4, 5, 6, 7};

class UploadWithoutMemory : public WireServer {
 protected:
  UploadWithoutMemory() { Serve(KeyOf("a", COAP_RPC_CON, 0, COAP_RPC_UNICAST), RegOf(&app_, 0)); }

  uint8_t Send(uint32_t num, bool isMore, char filler) {
    CoapMessage part = Post(CoapType::kCon, "a", std::string(kBlockSize, filler));
    part.token = kToken;
    return Ask(part.AddBlock(kOptBlock1, {num, isMore, 6})).code;
  }

  App app_;
};

TEST_F(UploadWithoutMemory, BegunAgain_ArrivesWhole) {
  EXPECT_EQ(Send(0, true, 'a'), Code(2, 31));
  {
    NoMemory noMemory([](const Need &need) { return need.tag == COAP_STRING && need.isGrowth; });
    EXPECT_EQ(Send(1, true, 'a'), Code(5, 0));
    EXPECT_EQ(noMemory.NumRefused(), 1);
  }
  EXPECT_EQ(Send(0, true, 'b'), Code(2, 31));
  EXPECT_EQ(Send(1, true, 'b'), Code(2, 31));
  Send(2, false, 'b');
  ASSERT_EQ(app_.requests.size(), 1u);
  EXPECT_EQ(app_.requests[0].payload, std::string(3 * kBlockSize, 'b'));
}

// As blocks after it come, it stays incomplete: the first block went with the memory.
TEST_F(UploadWithoutMemory, GoneOnWith_IsNotWhole) {
  EXPECT_EQ(Send(0, true, 'a'), Code(2, 31));
  {
    NoMemory noMemory([](const Need &need) { return need.tag == COAP_STRING && need.isGrowth; });
    EXPECT_EQ(Send(1, true, 'a'), Code(5, 0));
    EXPECT_EQ(noMemory.NumRefused(), 1);
  }
  EXPECT_EQ(Send(1, true, 'a'), Code(2, 31));
  EXPECT_EQ(Send(2, false, 'a'), kCodeEmpty);
  EXPECT_TRUE(app_.requests.empty());
}

// The token of a last block that came first was read through null when the others were in.
TEST_F(UploadWithoutMemory, NoneForTheTokenOfTheLastBlock_IsNotWhole) {
  {
    NoMemory noToken([](const Need &need) {
      return need.tag == COAP_STRING && need.size == sizeof(coap_string_t) + kToken.size() + 1;
    });
    EXPECT_EQ(Send(1, false, 'a'), kCodeEmpty);
    EXPECT_EQ(noToken.NumRefused(), 1);
  }
  EXPECT_EQ(Send(0, true, 'a'), Code(2, 31));
  EXPECT_TRUE(app_.requests.empty());
}

}  // namespace
}  // namespace coap_rpc_test
