// What the application says of a request's answer and asks about the request.
#include <algorithm>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_reply.h"

using namespace coap_rpc;

namespace {

constexpr uint32_t kMaxDetail = 31;
constexpr uint32_t kMaxSuccess = 205;

DirectCall *CallOf(const CoapRpcCtx *ctx) {
  return ctx->lib && ctx->lib->direct ? ctx->lib->direct->calling : nullptr;
}

bool IsError(uint32_t code) {
  return (code / 100 == 4 || code / 100 == 5) && code % 100 <= kMaxDetail;
}

bool IsSuccess(uint32_t code) { return code > 200 && code <= kMaxSuccess; }

bool IsHead(uint32_t code, uint32_t format) {
  return (IsSuccess(code) || IsError(code)) && format <= COAP_RPC_DIRECT_NO_FORMAT;
}

ReplyHead HeadOf(uint32_t code, uint32_t format) {
  return {CodeOf(code), static_cast<uint16_t>(format)};
}

// HeadOfCall returns where the head of the current call's answer is kept; null when it has ended.
ReplyHead *HeadOfCall(CoapRpcCtx *ctx) {
  DirectCall *call = CallOf(ctx);
  if (!call) return nullptr;
  if (call->async == 0) return &call->head;
  DirectAsync *async = FindDirectAsync(ctx, call->async);
  return async ? &async->head : nullptr;
}

// OptionsOfCall does so for its options.
ReplyOptions **OptionsOfCall(CoapRpcCtx *ctx) {
  DirectCall *call = CallOf(ctx);
  if (!call) return nullptr;
  if (call->async == 0) return &call->options;
  DirectAsync *async = FindDirectAsync(ctx, call->async);
  return async ? &async->options : nullptr;
}

const coap_opt_t *FindOption(const coap_pdu_t *pdu, coap_option_num_t number) {
  coap_opt_iterator_t it;
  return coap_check_option(pdu, number, &it);
}

uint32_t FormatOf(const coap_pdu_t *pdu, coap_option_num_t number) {
  const coap_opt_t *option = FindOption(pdu, number);
  return option ? coap_decode_var_bytes(coap_opt_value(option), coap_opt_length(option))
                : COAP_RPC_DIRECT_NO_FORMAT;
}

void FillETag(const coap_pdu_t *pdu, CoapRpcSerRequest *out) {
  const coap_opt_t *option = FindOption(pdu, COAP_OPTION_ETAG);
  if (!option) return;
  out->etagLen = std::min<uint32_t>(coap_opt_length(option), sizeof(out->etag));
  memcpy(out->etag, coap_opt_value(option), out->etagLen);
}

// FindOccurrence returns the option of a number that `index` others of it precede; null for none.
const coap_opt_t *FindOccurrence(const coap_pdu_t *pdu, uint32_t number, uint32_t index) {
  coap_opt_iterator_t it;
  coap_option_iterator_init(pdu, &it, COAP_OPT_ALL);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    if (it.number == number && index-- == 0) return option;
  }
  return nullptr;
}

// Value is the part of a query after its name.
struct Value {
  const uint8_t *bytes;
  size_t len;
};

// IsNamed says whether a query option is `name` or `name=value`; the latter leaves the value.
bool IsNamed(const coap_opt_t *option, const char *name, Value *value) {
  const uint8_t *text = coap_opt_value(option);
  const size_t len = coap_opt_length(option);
  const size_t nameLen = strlen(name);
  if (len < nameLen || memcmp(text, name, nameLen) != 0) return false;
  if (len != nameLen && text[nameLen] != '=') return false;
  const size_t at = std::min(len, nameLen + 1);
  *value = {text + at, len - at};
  return true;
}

bool FindQuery(const coap_pdu_t *pdu, const char *name, Value *value) {
  coap_opt_iterator_t it;
  coap_option_iterator_init(pdu, &it, COAP_OPT_ALL);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    if (it.number == COAP_OPTION_URI_QUERY && IsNamed(option, name, value)) return true;
  }
  return false;
}

}  // namespace

uint32_t COAP_RpcSerSetAnswer(CoapRpcCtx *ctx, uint32_t code, uint32_t contentFormat) {
  if (!ctx) return Violated(kSiteSetAnswerNullArg);
  ReplyHead *head = HeadOfCall(ctx);
  if (!head) return Code(kSiteSetAnswerNoRequest);
  if (!IsHead(code, contentFormat)) return Code(kSiteBadAnswer);
  *head = HeadOf(code, contentFormat);
  return 0;
}

uint32_t COAP_RpcSerSetAsyncAnswer(CoapRpcCtx *ctx, void *handle, uint32_t code,
                                   uint32_t contentFormat) {
  if (!ctx || !handle) return Code(kSiteSetAsyncAnswerNullArg);
  DirectAsync *async = FindDirectAsync(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return Code(kSiteAsyncNotPending);
  if (!IsHead(code, contentFormat)) return Code(kSiteBadAnswer);
  async->head = HeadOf(code, contentFormat);
  return 0;
}

uint32_t COAP_RpcSerAddAnswerOption(CoapRpcCtx *ctx, uint32_t number, const void *value,
                                    uint32_t len) {
  if (!ctx || (!value && len != 0)) return Violated(kSiteAddOptionNullArg);
  ReplyOptions **options = OptionsOfCall(ctx);
  if (!options) return Code(kSiteSetAnswerNoRequest);
  return AddReplyOption(ctx, *options, {number, static_cast<const uint8_t *>(value), len});
}

uint32_t COAP_RpcSerAddAsyncAnswerOption(CoapRpcCtx *ctx, void *handle, uint32_t number,
                                         const void *value, uint32_t len) {
  if (!ctx || !handle || (!value && len != 0)) return Code(kSiteAddAsyncOptionNullArg);
  DirectAsync *async = FindDirectAsync(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return Code(kSiteAsyncNotPending);
  return AddReplyOption(ctx, async->options, {number, static_cast<const uint8_t *>(value), len});
}

uint32_t COAP_RpcSerFailAsync(CoapRpcCtx *ctx, void *handle, uint32_t code, const char *text) {
  if (!ctx || !handle) return Code(kSiteFailAsyncNullArg);
  DirectAsync *async = FindDirectAsync(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return Code(kSiteAsyncNotPending);
  return IsError(code) ? FailDirect(async, code, text) : Code(kSiteFailAsyncBadCode);
}

uint32_t COAP_RpcSerGetRequest(CoapRpcCtx *ctx, CoapRpcSerRequest *out) {
  if (!ctx || !out) return Violated(kSiteGetRequestNullArg);
  const DirectCall *call = CallOf(ctx);
  if (!call) return Code(kSiteGetRequestNoRequest);
  const coap_pdu_t *request = call->exchange.request;
  *out = {};
  out->method = coap_pdu_get_code(request);
  out->isConfirmable = coap_pdu_get_type(request) == COAP_MESSAGE_CON ? 1 : 0;
  out->contentFormat = FormatOf(request, COAP_OPTION_CONTENT_FORMAT);
  out->accept = FormatOf(request, COAP_OPTION_ACCEPT);
  out->peerPort =
      coap_address_get_port(COAP_RpcGetRemoteAddr(call->exchange.session, &out->peerAddr));
  FillETag(request, out);
  return 0;
}

uint32_t COAP_RpcSerGetQuery(CoapRpcCtx *ctx, const char *name, char *out, uint32_t size) {
  if (!ctx || !name || !out) return Violated(kSiteGetQueryNullArg);
  const DirectCall *call = CallOf(ctx);
  if (!call) return Code(kSiteGetRequestNoRequest);
  Value value = {};
  if (!FindQuery(call->exchange.request, name, &value)) return Code(kSiteGetQueryNotFound);
  if (value.len >= size) return Code(kSiteGetQueryTooLong);
  if (value.len != 0) memcpy(out, value.bytes, value.len);
  out[value.len] = '\0';
  return 0;
}

uint32_t COAP_RpcSerGetOption(CoapRpcCtx *ctx, uint32_t number, uint32_t index, void *out,
                              uint32_t size, uint32_t *len) {
  if (!ctx || (!out && size != 0) || !len) return Violated(kSiteGetOptionNullArg);
  const DirectCall *call = CallOf(ctx);
  if (!call) return Code(kSiteGetRequestNoRequest);
  const coap_opt_t *option = FindOccurrence(call->exchange.request, number, index);
  if (!option) return Code(kSiteGetOptionNotFound);
  *len = coap_opt_length(option);
  if (*len > size) return Code(kSiteGetOptionTooLong);
  if (*len != 0) memcpy(out, coap_opt_value(option), *len);
  return 0;
}
