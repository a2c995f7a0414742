#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_check_code.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"

namespace coap_rpc {
namespace {

constexpr char kPrefix[] = "_ual-checkcode=";
constexpr size_t kPrefixLen = sizeof(kPrefix) - 1;
constexpr std::string_view kName(kPrefix, kPrefixLen - 1);

// HasName says whether the first of queries that are joined by "&" has the check code's name.
bool HasName(std::string_view query) {
  if (!query.starts_with(kName)) return false;
  query.remove_prefix(kName.size());
  return query.empty() || query.front() == '=' || query.front() == '&';
}

}  // namespace

void AddCheckCodeQuery(coap_pdu_t *pdu, uint64_t checkCode) {
  char query[kCheckCodeTextSize] = "";
  const int len = snprintf_truncated_s(query, sizeof(query), "%s%lu", kPrefix,
                                       static_cast<unsigned long>(checkCode));
  if (len < 1) return;
  coap_add_option(pdu, COAP_OPTION_URI_QUERY, static_cast<size_t>(len),
                  reinterpret_cast<uint8_t *>(query));
}

bool IsCheckCodeQuery(const coap_string_t *query) {
  return query && query->length >= kPrefixLen && memcmp(query->s, kPrefix, kPrefixLen) == 0;
}

bool IsUpToDate(const coap_string_t &query, uint64_t etag) {
  if (etag == 0) return false;
  char text[kCheckCodeTextSize] = {};
  memcpy_s(text, sizeof(text) - 1, query.s, std::min(query.length, sizeof(text) - 1));
  unsigned long checkCode = 0;
  const int numParsed = sscanf_s(text + kPrefixLen, "%lu", &checkCode);
  return numParsed < 0 || checkCode == etag;
}

bool HasCheckCodeQuery(const CoapRpcMsgOptions &opt) {
  if ((opt.optMask & COAP_RPC_OPT_QUERY) == 0) return false;
  const char *query = opt.query;
  while (!HasName(query)) {
    query = strchr(query, '&');
    if (!query) return false;
    ++query;
  }
  return true;
}

}  // namespace coap_rpc
