/* lib_msg_fixture.h: messages, addresses and sessions for tests of the message functions. */
#ifndef LIB_MSG_FIXTURE_H
#define LIB_MSG_FIXTURE_H

#include <arpa/inet.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "coap_message.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "raw_peer.h"
#include "test_host.h"

namespace coap_rpc_test {

inline constexpr size_t kPduSize = 200000;

struct PduDeleter {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using Pdu = std::unique_ptr<coap_pdu_t, PduDeleter>;

inline Pdu NewPdu(coap_pdu_type_t type = COAP_MESSAGE_CON,
                  coap_pdu_code_t code = COAP_REQUEST_CODE_GET) {
  return Pdu(coap_pdu_init(type, code, 1, kPduSize));
}

inline void Add(const Pdu &pdu, uint16_t number, const std::string &value) {
  ASSERT_NE(coap_add_option(pdu.get(), number, value.size(),
                            reinterpret_cast<const uint8_t *>(value.data())),
            0u);
}

// PduOf makes the PDU that libcoap makes of a received message.
inline Pdu PduOf(const CoapMessage &message) {
  Pdu pdu = NewPdu();
  const Bytes bytes = ToBytes(message);
  EXPECT_NE(coap_pdu_parse(COAP_PROTO_UDP, bytes.data(), bytes.size(), pdu.get()), 0);
  return pdu;
}

inline CoapRpcIpAddr Ipv4(uint32_t ipv4) {
  CoapRpcIpAddr addr = {};
  addr.family = 1;
  addr.addr.ipv4 = ipv4;
  return addr;
}

inline CoapRpcIpAddr Ipv6(const char *text) {
  CoapRpcIpAddr addr = {};
  addr.family = 2;
  inet_pton(AF_INET6, text, addr.addr.ipv6);
  return addr;
}

// LibMsg has an instance without libcoap context, and libcoap sessions of its own.
class LibMsg : public testing::Test {
 protected:
  LibMsg() {
    ctx_.log = host_.Log();
    ctx_.param.memHandle = host_.Mem();
    ctx_.param.dbgHandle = host_.Dbg();
    coap_startup();
    coap_set_log_level(COAP_LOG_EMERG);
    coapCtx_ = coap_new_context(nullptr);
  }
  ~LibMsg() override {
    coap_free_context(coapCtx_);
    coap_cleanup();
  }

  coap_session_t *SessionTo(const char *text) {
    coap_address_t address;
    coap_address_init(&address);
    if (strchr(text, ':')) {
      address.addr.sin6.sin6_family = AF_INET6;
      address.addr.sin6.sin6_port = htons(9);
      inet_pton(AF_INET6, text, &address.addr.sin6.sin6_addr);
    } else {
      address.addr.sin.sin_family = AF_INET;
      address.addr.sin.sin_port = htons(9);
      inet_pton(AF_INET, text, &address.addr.sin.sin_addr);
    }
    return coap_new_client_session(coapCtx_, nullptr, &address, COAP_PROTO_UDP);
  }

  TestHost host_;
  CoapRpcCtx ctx_ = {};
  coap_context_t *coapCtx_;
};

}  // namespace coap_rpc_test

#endif /* LIB_MSG_FIXTURE_H */
