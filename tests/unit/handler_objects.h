/* handler_objects.h: an instance with one resource, and messages made by hand for its handlers. */
#ifndef HANDLER_OBJECTS_H
#define HANDLER_OBJECTS_H

#include <coap3/coap.h>

#include <memory>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "test_instance.h"

namespace coap_rpc_test {

struct PduDeleter {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using Pdu = std::unique_ptr<coap_pdu_t, PduDeleter>;

struct OptionText {
  uint16_t number;
  std::string value;

  bool operator==(const OptionText &) const = default;
};

inline std::vector<OptionText> OptionsOf(const Pdu &pdu) {
  std::vector<OptionText> options;
  coap_opt_iterator_t it;
  coap_option_iterator_init(pdu.get(), &it, COAP_OPT_ALL);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    const auto *value = reinterpret_cast<const char *>(coap_opt_value(option));
    options.push_back({it.number, std::string(value, coap_opt_length(option))});
  }
  return options;
}

class HandlerObjects : public testing::Test {
 protected:
  HandlerObjects() : instance_(host_) {
    const CoapRpcUriKey key = KeyOf("a/b", COAP_RPC_CON, 1);
    EXPECT_EQ(COAP_RpcCreateOrUpdateResource(Ctx(), &key), 0u);
    coap_str_const_t path{3, reinterpret_cast<const uint8_t *>("a/b")};
    resource_ = coap_get_resource_from_uri_path(Ctx()->lib->coapCtx, &path);
    coap_address_t peer;
    const CoapRpcIpAddr addr{COAP_RPC_IPV4, {}, {0x7F000001}};
    COAP_RpcSetAddress(&peer, &addr, 9);
    session_ = coap_new_client_session(Ctx()->lib->coapCtx, nullptr, &peer, COAP_PROTO_UDP);
  }
  ~HandlerObjects() override { coap_session_release(session_); }

  CoapRpcCtx *Ctx() const { return instance_.Get(); }

  Pdu NewPdu(coap_pdu_type_t type, uint8_t code) {
    return Pdu(coap_pdu_init(type, static_cast<coap_pdu_code_t>(code), 1, 1000));
  }
  Pdu NewRequest(uint8_t code = 1, const std::string &payload = "") {
    Pdu pdu = NewPdu(COAP_MESSAGE_CON, code);
    coap_add_option(pdu.get(), COAP_OPTION_URI_PATH, 1, reinterpret_cast<const uint8_t *>("a"));
    coap_add_option(pdu.get(), COAP_OPTION_URI_PATH, 1, reinterpret_cast<const uint8_t *>("b"));
    if (!payload.empty()) {
      coap_add_data(pdu.get(), payload.size(), reinterpret_cast<const uint8_t *>(payload.data()));
    }
    return pdu;
  }

  TestHost host_;
  TestInstance instance_;
  coap_resource_t *resource_ = nullptr;
  coap_session_t *session_ = nullptr;
};

}  // namespace coap_rpc_test

#endif /* HANDLER_OBJECTS_H */
