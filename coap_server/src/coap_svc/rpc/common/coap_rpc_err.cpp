#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace {

struct Meaning {
  uint32_t code;
  const char *text;
};

#define COAP_RPC_SITE_MEANING(name, path, code, assertLine, meaning) {code, meaning},
constexpr Meaning kMeanings[] = {COAP_RPC_SITES(COAP_RPC_SITE_MEANING)};
#undef COAP_RPC_SITE_MEANING

}  // namespace

const char *COAP_RpcErrStr(uint32_t code) {
  if (code == 0) return "success";
  for (const Meaning &meaning : kMeanings) {
    if (meaning.code != 0 && coap_rpc::kCodeBase + meaning.code == code) return meaning.text;
  }
  return "unknown code";
}
