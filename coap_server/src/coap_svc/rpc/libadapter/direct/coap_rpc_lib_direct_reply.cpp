#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_reply.h"

#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_own.h"
#include "libcoap/ext/coap_rpc_lib_answer.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

// A message keeps room for options that libcoap may add.
constexpr size_t kSpareRoom = 64;

// ReplyBody is the head of a body, the payload is behind it.
struct ReplyBody {
  CoapRpcLink link;
  CoapRpcCtx *ctx;
  coap_session_t *session;  // outlives the transfer
  size_t len;

  uint8_t *Data() { return reinterpret_cast<uint8_t *>(this + 1); }
};

using Bodies = COAP_RPC_LIST(ReplyBody, link);

bool IsInBlocks(const Exchange &exchange, size_t len) {
  coap_opt_iterator_t it;
  return len > kMaxAnswerInOneMessage || CoapRpcLibFits(exchange.response, len + kSpareRoom) == 0 ||
         coap_check_option(exchange.request, COAP_OPTION_BLOCK2, &it);
}

bool AddFormat(coap_pdu_t *response, uint16_t format) {
  uint8_t bytes[sizeof(format)];
  if (format == COAP_RPC_DIRECT_NO_FORMAT) return true;
  const uint32_t len = coap_encode_var_safe(bytes, sizeof(bytes), format);
  return coap_add_option(response, COAP_OPTION_CONTENT_FORMAT, len, bytes) != 0;
}

bool AddWhole(coap_pdu_t *response, uint16_t format, const uint8_t *data, size_t len) {
  return AddFormat(response, format) && coap_add_data(response, len, data) != 0;
}

// ---- bodies ----

void ReleaseBody(coap_session_t *, void *ptr) {
  auto *body = static_cast<ReplyBody *>(ptr);
  CoapRpcDirect *direct = body->ctx->lib->direct;
  LinkRemove(body->link);
  --direct->numBodies;
  direct->numBodyBytes -= body->len;
  PoolFree(body->ctx->param.memHandle, body);
}

// LimitBodies makes room for one more of `len` bytes.
void LimitBodies(CoapRpcDirect *direct, size_t len) {
  while (ReplyBody *oldest = Bodies(direct->bodyList).First()) {
    const bool hasRoom =
        direct->numBodies < kMaxBodies && direct->numBodyBytes + len <= kMaxBodyBytes;
    if (hasRoom) return;
    ++oldest->ctx->counts.refused[COAP_RPC_LIMIT_DIRECT_BODIES];
    CoapRpcLibEndBlocks(oldest->session, oldest);
  }
}

ReplyBody *NewBody(const Exchange &exchange, const uint8_t *data, size_t len) {
  CoapRpcDirect *direct = exchange.ctx->lib->direct;
  LimitBodies(direct, len);
  ReplyBody *body = NewZeroed<ReplyBody>(exchange.ctx->param.memHandle, len).release();
  if (!body) return nullptr;
  body->ctx = exchange.ctx;
  body->session = exchange.session;
  body->len = len;
  memcpy(body->Data(), data, len);
  Bodies(direct->bodyList).Append(body);
  ++direct->numBodies;
  direct->numBodyBytes += len;
  return body;
}

// AddBody: libcoap sets a code of its own when the request's Block2 option does not fit the
// payload.
bool AddBody(const Exchange &exchange, uint16_t format, const uint8_t *data, size_t len) {
  ReplyBody *body = NewBody(exchange, data, len);
  if (!body) {
    ReplyCode(exchange, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
    return false;
  }
  const CoapString query(coap_get_query(exchange.request));
  return coap_add_data_large_response(exchange.resource, exchange.session, exchange.request,
                                      exchange.response, query.get(), format, -1, 0, len,
                                      body->Data(), ReleaseBody, body) != 0;
}

// AddPayload returns false when the response has become an error.
bool AddPayload(const Exchange &exchange, uint16_t format, const uint8_t *data, size_t len) {
  if (len == 0) return true;
  if (IsInBlocks(exchange, len)) return AddBody(exchange, format, data, len);
  if (AddWhole(exchange.response, format, data, len)) return true;
  ReplyCode(exchange, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  return false;
}

bool AddOptions(const Exchange &exchange, const ReplyOptions *options) {
  if (WriteReplyOptions(options, exchange.response)) return true;
  ReplyCode(exchange, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  return false;
}

}  // namespace

ReplyHead DefaultHead(const coap_pdu_t *request) {
  const coap_pdu_code_t method = coap_pdu_get_code(request);
  const bool isRead = method == COAP_REQUEST_CODE_GET || method == COAP_REQUEST_CODE_FETCH;
  return {CodeOf(isRead ? 205 : 204), COAP_RPC_DIRECT_NO_FORMAT};
}

void Reply(const Exchange &exchange, const ReplyHead &head, const ReplyOptions *options,
           const uint8_t *data, size_t len) {
  ReplyCode(exchange, static_cast<coap_pdu_code_t>(head.code));
  const bool isFilled =
      AddOptions(exchange, options) && AddPayload(exchange, head.format, data, len);
  if (!isFilled) EraseReplyOptions(options, exchange.response);
  // Last, so that it is not part of the later blocks.
  CoapRpcLibAcknowledgeBody(exchange.response, exchange.request);
}

void ReplyCode(const Exchange &exchange, coap_pdu_code_t code) {
  coap_pdu_set_code(exchange.response, code);
}

}  // namespace coap_rpc
