// Who was told that the session of a relation had a problem, and looked at the request's token,
// read memory that was freed.
#include <arpa/inet.h>
#include <coap3/coap.h>
#include <gtest/gtest.h>

#include "raw_peer.h"

namespace coap_rpc_test {
namespace {

Bytes g_token;

void TakeToken(coap_session_t *, const coap_pdu_t *sent, coap_nack_reason_t, coap_mid_t) {
  if (!sent) return;
  const coap_bin_const_t token = coap_pdu_get_token(sent);
  g_token.assign(token.s, token.s + token.length);
}

coap_address_t AddressOf(const RawPeer &peer) {
  coap_address_t address;
  coap_address_init(&address);
  address.size = sizeof(address.addr.sin);
  address.addr.sin.sin_family = AF_INET;
  address.addr.sin.sin_port = htons(peer.Local().port);
  inet_pton(AF_INET, peer.Local().host.c_str(), &address.addr.sin.sin_addr);
  return address;
}

TEST(TokenOfRequestCopy, IsTheRequests) {
  const Bytes token = {1, 2, 3, 4};
  coap_startup();
  coap_set_log_level(COAP_LOG_ERR);
  coap_context_t *context = coap_new_context(nullptr);
  coap_context_set_block_mode(context, COAP_BLOCK_USE_LIBCOAP | COAP_BLOCK_SINGLE_BODY);
  coap_register_nack_handler(context, TakeToken);
  const auto work = [context] { coap_io_process(context, COAP_IO_NO_WAIT); };
  coap_session_t *session = nullptr;
  {
    RawPeer peer({"127.0.0.1", 0});
    const coap_address_t address = AddressOf(peer);
    session = coap_new_client_session(context, nullptr, &address, COAP_PROTO_UDP);
    coap_pdu_t *request = coap_new_pdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, session);
    coap_add_token(request, token.size(), token.data());
    coap_add_option(request, COAP_OPTION_OBSERVE, 0, nullptr);
    coap_add_option(request, COAP_OPTION_URI_PATH, 1, reinterpret_cast<const uint8_t *>("a"));
    coap_send(session, request);
    const std::optional<CoapMessage> received = peer.ReceiveMessage(work);
    ASSERT_TRUE(received);
    peer.Send(Request(CoapType::kAck, Code(2, 5), received->messageId, received->token)
                  .AddUint(kOptObserve, 1));
    work();
  }
  // The peer is gone: its machine says so.
  for (int i = 0; i < 100 && g_token.empty(); ++i) {
    coap_send(session, coap_new_pdu(COAP_MESSAGE_NON, COAP_RESPONSE_CODE_CONTENT, session));
    coap_io_process(context, 10);
  }
  EXPECT_EQ(g_token, token);
  coap_session_release(session);
  coap_free_context(context);
  coap_cleanup();
}

}  // namespace
}  // namespace coap_rpc_test
