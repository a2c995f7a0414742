// The options of a message as libcoap parses them: description, path, query and check code.
#include <coap3/coap.h>

#include <cstring>

#include "coap_svc/rpc/libadapter/coap_rpc_lib_msg.h"
#include "test_host.h"

namespace {

// Lengths that a path buffer may have; the library itself uses 64.
constexpr uint32_t kBufSizes[] = {0, 1, 63, 64, 255};

void Describe(const coap_pdu_t *pdu) {
  CoapRpcMsgOptions opt = {};
  COAP_RpcParseOptions(pdu, &opt);
  if (strnlen(opt.query, sizeof(opt.query)) == sizeof(opt.query)) __builtin_trap();
  uint32_t value = 0;
  COAP_RpcGetObserveOption(pdu, &value);
  COAP_RpcGetMsgType(pdu, &value);
  COAP_RpcGetCodeType(pdu, &value);
  for (const uint32_t size : kBufSizes) {
    char buf[256];
    memset(buf, 0x5A, sizeof(buf));
    COAP_RpcGetUriStr(pdu, buf, size);
    if (buf[size] != 0x5A) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static coap_rpc_test::TestHost host;
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, size + 16);
  if (!pdu) return 0;
  if (coap_pdu_parse(COAP_PROTO_UDP, data, size, pdu) != 0) Describe(pdu);
  coap_delete_pdu(pdu);
  return 0;
}
