// A block of a request that found no memory for its bytes was never given back; one that found none
// for its number, which takes more room from the sixteenth on, went out under the number of the
// first.
#include "libcoap_memory.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kSzx512 = 5;
constexpr uint32_t kFirstLongNum = 16;

bool IsGrowingMessage(const Need &need) { return need.tag == COAP_PDU_BUF && need.isGrowth; }

class NextBlockWithoutMemory : public WireClient {
 protected:
  NextBlockWithoutMemory() { COAP_RpcRefreshTaskTimer(Ctx()); }

  // AskForMore acknowledges a block and asks for the next one.
  void AskForMore(const CoapMessage &block) {
    const std::optional<CoapBlock> option = block.Block(kOptBlock1);
    ASSERT_TRUE(option);
    CoapMessage answer = Request(CoapType::kAck, Code(2, 31), block.messageId, block.token);
    peer_.Send(answer.AddBlock(kOptBlock1, *option));
  }

  coap_session_t *OpenSession() {
    coap_address_t dst;
    coap_address_init(&dst);
    dst.size = sizeof(dst.addr.sin);
    dst.addr.sin.sin_family = AF_INET;
    dst.addr.sin.sin_port = htons(peer_.Local().port);
    dst.addr.sin.sin_addr.s_addr = htonl(kPeerIp);
    return coap_new_client_session(Ctx()->lib->coapCtx, nullptr, &dst, COAP_PROTO_UDP);
  }

  // SendWithLongQuery sends a body block-wise, with options that no message has room for at first.
  void SendWithLongQuery(coap_session_t *session) {
    const uint8_t token = 7;
    const Bytes query(255, 'q');
    coap_pdu_t *pdu = coap_new_pdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_POST, session);
    coap_add_token(pdu, 1, &token);
    coap_add_option(pdu, COAP_OPTION_URI_QUERY, query.size(), query.data());
    EXPECT_NE(
        coap_add_data_large_request(session, pdu, body_.size(), body_.data(), nullptr, nullptr), 0);
    EXPECT_NE(coap_send(session, pdu), COAP_INVALID_MID);
  }

  const Bytes body_ = Bytes(20 * 512, 'b');
  App app_;
};

TEST_F(NextBlockWithoutMemory, NoMemoryForItsBytes_NothingIsLeft) {
  const CoapRpcUriKey key = KeyOf("a");
  app_.out.assign(3000, 'x');
  Register(key, &app_);
  ASSERT_EQ(Call(key, 1, COAP_RPC_POST), 0U);
  AskForMore(Next());
  {
    NoMemory noMemory(IsGrowingMessage);
    EXPECT_TRUE(IsSilent());
    EXPECT_EQ(noMemory.NumRefused(), 1);
  }
  instance_->Stop();
  EXPECT_EQ(NumLibcoapLive(), 0);
}

TEST_F(NextBlockWithoutMemory, NoMemoryForItsNumber_IsNotSent) {
  coap_session_t *session = OpenSession();
  ASSERT_NE(session, nullptr);
  SendWithLongQuery(session);
  for (uint32_t num = 0; num + 1 < kFirstLongNum; ++num) {
    const CoapMessage block = Next();
    ASSERT_EQ(block.Block(kOptBlock1), (CoapBlock{num, true, kSzx512}));
    AskForMore(block);
  }
  AskForMore(Next());
  {
    // The first growth is for the options.
    NoMemory noMemory([numGrown = 0](const Need &need) mutable {
      return IsGrowingMessage(need) && ++numGrown == 2;
    });
    EXPECT_TRUE(IsSilent()) << peer_.LogText();
    EXPECT_EQ(noMemory.NumRefused(), 1);
  }
  coap_session_release(session);
}

}  // namespace
}  // namespace coap_rpc_test
