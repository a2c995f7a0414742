// The check-code query: what the server makes of the one in a registration, compared with a model
// of its own, and the client of the one in a response.  An input is the check code of the server's
// last payload (8 bytes), the code of the response (1 byte) and the query.
#include <coap3/coap.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_response.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "fuzz_host.h"

namespace fuzz {
namespace {

using namespace coap_rpc;

constexpr std::string_view kName = "_ual-checkcode=";

// Model says what the server is to find: 0 for out of date, else the code of its result.
uint32_t Model(std::string_view query, uint64_t etag) {
  if (!query.starts_with(kName)) return Code(kSiteBatchUpdateNoQuery);
  if (etag == 0) return 0;
  const std::string text(query.substr(0, kCheckCodeTextSize - 1));
  const char *number = text.c_str() + kName.size();
  while (isspace(static_cast<unsigned char>(*number)) != 0) ++number;
  if (*number == '\0') return Code(kSiteBatchUpdateUpToDate);
  char *end = nullptr;
  const unsigned long checkCode = strtoul(number, &end, 10);
  return end != number && checkCode == etag ? Code(kSiteBatchUpdateUpToDate) : 0;
}

class Instance {
 public:
  Instance() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
    Check(ctx_ != nullptr, "no instance");
    const CoapRpcUriKey key = KeyOf("o", COAP_RPC_CON, 1);
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = 4;
    ob.tupleKeyCmp = [](const void *a, const void *b) -> int32_t { return memcmp(a, b, 4); };
    const CoapRpcSerVtblReg ser = {};
    const CoapRpcCliVtblReg cli = {};
    COAP_RpcSerRegVtbl(ctx_, &key, &ser, &ob);
    COAP_RpcCliRegVtbl(ctx_, &key, &cli);
    served_ = COAP_RpcSerFindUriVtbl(ctx_->ser, &key);
    called_ = COAP_RpcCliFindUriVtbl(ctx_->cli, &key);
    Check(served_ && called_, "not registered");
  }
  ~Instance() { COAP_RpcUninit(ctx_); }

  void Run(Input &input) {
    const uint64_t etag = static_cast<uint64_t>(input.Long()) << 32 | input.Long();
    const uint8_t code = input.Byte();
    const std::vector<uint8_t> bytes = input.Bytes(2000);
    const std::string query(bytes.begin(), bytes.end());
    served_->etag = etag;
    Check(Serve(query) == Model(query, etag), "the check code was read in another way");
    const std::string own = std::string(kName) + std::to_string(etag);
    Check(etag == 0 || Serve(own) == Code(kSiteBatchUpdateUpToDate), "not its own check code");
    Hear(query, code, etag);
  }

 private:
  uint32_t Serve(const std::string &text) {
    std::vector<uint8_t> bytes(text.begin(), text.end());  // not terminated
    const coap_string_t query{bytes.size(), bytes.data()};
    CoapRpcMsgInfo info = {};
    info.code = COAP_RPC_GET;
    coap_pdu_t *response = coap_pdu_init(COAP_MESSAGE_CON, COAP_RESPONSE_CODE_CONTENT, 1, 1024);
    const uint32_t ret =
        COAP_RpcSerHandleObserveBatchUpdate(ctx_, served_, response, &info, &query);
    coap_delete_pdu(response);
    return ret;
  }

  void Hear(const std::string &query, uint8_t code, uint64_t etag) {
    coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, static_cast<coap_pdu_code_t>(code), 1, 2400);
    uint8_t bytes[8];
    coap_add_option(pdu, COAP_OPTION_ETAG, coap_encode_var_safe8(bytes, sizeof(bytes), etag),
                    bytes);
    coap_add_option(pdu, COAP_OPTION_OBSERVE, 0, nullptr);
    coap_add_option(pdu, COAP_OPTION_URI_QUERY, query.size(),
                    reinterpret_cast<const uint8_t *>(query.data()));
    CoapRpcMsgInfo info = {};
    info.code = code;
    COAP_RpcParseOptions(pdu, &info.opt);
    CoapRpcCliRspInfo rspInfo = COAP_GetRpcCliPubData(&info);
    COAP_RpcCliResponseCheckCode(called_, &info, &rspInfo);
    Check(called_->checkCode == etag, "another check code was kept");
    Check(rspInfo.checkCodeOk == 0 || code == COAP_RESPONSE_CODE_CONTENT, "no content is fine");
    coap_delete_pdu(pdu);
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  CoapRpcSerUriVtbl *served_;
  CoapRpcCliUriVtbl *called_;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static fuzz::Instance instance;
  fuzz::Input input(data, size);
  instance.Run(input);
  return 0;
}
