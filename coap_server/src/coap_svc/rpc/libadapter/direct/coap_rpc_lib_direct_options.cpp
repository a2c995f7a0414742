#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_options.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "libcoap/ext/coap_rpc_lib_answer.h"

namespace coap_rpc {
namespace {

// Rule is what an answer may have of an option (RFC 7252, section 5.10).
struct Rule {
  uint16_t number;
  uint8_t minLen;
  uint8_t maxLen;
  bool isRepeatable;
};

constexpr Rule kRules[] = {
    {COAP_OPTION_ETAG, 1, 8, false},
    {COAP_OPTION_LOCATION_PATH, 0, 255, true},
    {COAP_OPTION_MAXAGE, 0, 4, false},
    {COAP_OPTION_LOCATION_QUERY, 0, 255, true},
};

bool Has(const ReplyOptions &options, uint32_t number) {
  const uint16_t *end = options.numbers + options.num;
  return std::find(options.numbers, end, number) != end;
}

// IsDots says whether a value is "." or "..", which a path would resolve.
bool IsDots(const ReplyOption &option) {
  return (option.len == 1 || option.len == 2) && memcmp(option.value, "..", option.len) == 0;
}

bool IsAllowed(const ReplyOptions *options, const ReplyOption &option) {
  const Rule *rule = std::find_if(std::begin(kRules), std::end(kRules),
                                  [&](const Rule &each) { return each.number == option.number; });
  if (rule == std::end(kRules)) return false;
  if (option.len < rule->minLen || option.len > rule->maxLen) return false;
  if (option.number == COAP_OPTION_LOCATION_PATH && IsDots(option)) return false;
  return rule->isRepeatable || !options || !Has(*options, option.number);
}

bool HasRoom(const ReplyOptions *options, uint32_t len) {
  return !options ||
         (options->num < kMaxAnswerOptions && options->numBytes + len <= kMaxAnswerOptionBytes);
}

void Append(ReplyOptions *options, const ReplyOption &option) {
  options->numbers[options->num] = static_cast<uint16_t>(option.number);
  options->lens[options->num] = static_cast<uint8_t>(option.len);
  if (option.len != 0) memcpy(options->bytes + options->numBytes, option.value, option.len);
  ++options->num;
  options->numBytes += option.len;
}

}  // namespace

uint32_t AddReplyOption(CoapRpcCtx *ctx, ReplyOptions *&options, const ReplyOption &option) {
  if (!IsAllowed(options, option)) return Code(kSiteAddOptionBad);
  if (!HasRoom(options, option.len)) return Code(kSiteAddOptionTooMany);
  if (!options) options = NewZeroed<ReplyOptions>(ctx->param.memHandle).release();
  if (!options) return Code(kSiteAddOptionNoMemory);
  Append(options, option);
  return 0;
}

bool WriteReplyOptions(const ReplyOptions *options, coap_pdu_t *response) {
  if (!options) return true;
  const uint8_t *value = options->bytes;
  for (uint32_t i = 0; i < options->num; ++i) {
    const uint8_t len = options->lens[i];
    if (coap_add_option(response, options->numbers[i], len, value) == 0) return false;
    value += len;
  }
  return true;
}

void EraseReplyOptions(const ReplyOptions *options, coap_pdu_t *response) {
  if (!options) return;
  for (uint32_t i = 0; i < options->num; ++i) {
    CoapRpcLibRemoveOptions(response, options->numbers[i]);
  }
}

void FreeReplyOptions(CoapRpcCtx *ctx, ReplyOptions *&options) {
  PoolFree(ctx->param.memHandle, options);
  options = nullptr;
}

}  // namespace coap_rpc
