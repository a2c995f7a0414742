#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_traffic.h"

#include <iterator>

#include "coap_svc/rpc/common/coap_rpc_probe.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "libcoap/ext/coap_rpc_lib_traffic.h"

namespace coap_rpc {
namespace {

constexpr unsigned kRequestClass = 0;
constexpr unsigned kSuccess = 2;
constexpr unsigned kClientError = 4;
constexpr unsigned kServerError = 5;

void CountEmpty(CoapRpcTraffic &traffic, coap_pdu_type_t type) {
  if (type == COAP_MESSAGE_ACK) {
    ++traffic.emptyAcks;
  } else if (type == COAP_MESSAGE_RST) {
    ++traffic.resets;
  } else {
    ++traffic.pings;
  }
}

void CountRequest(CoapRpcTraffic &traffic, unsigned method) {
  ++traffic.requests[method < std::size(traffic.requests) ? method : 0];
}

void CountResponse(CoapRpcTraffic &traffic, unsigned codeClass) {
  const bool isKnown =
      codeClass == kSuccess || codeClass == kClientError || codeClass == kServerError;
  ++traffic.responses[isKnown ? codeClass : 0];
}

void CountCode(CoapRpcTraffic &traffic, const coap_pdu_t *pdu) {
  const auto code = static_cast<unsigned>(coap_pdu_get_code(pdu));
  if (code == COAP_EMPTY_CODE) {
    CountEmpty(traffic, coap_pdu_get_type(pdu));
  } else if (code >> 5 == kRequestClass) {
    CountRequest(traffic, code);
  } else {
    CountResponse(traffic, code >> 5);
  }
}

uint32_t NackOf(coap_nack_reason_t reason) {
  switch (reason) {
    case COAP_NACK_TOO_MANY_RETRIES:
      return COAP_RPC_NACK_TIMEOUT;
    case COAP_NACK_NOT_DELIVERABLE:
      return COAP_RPC_NACK_UNDELIVERABLE;
    case COAP_NACK_RST:
      return COAP_RPC_NACK_RESET;
    case COAP_NACK_ICMP_ISSUE:
      return COAP_RPC_NACK_UNREACHABLE;
    case COAP_NACK_BAD_RESPONSE:
      return COAP_RPC_NACK_BAD_RESPONSE;
    default:
      return COAP_RPC_NACK_OTHER;
  }
}

// IsOfNoMessage: a session that closes is told of with its first message or none, and then each of
// its messages as it leaves the queue.
bool IsOfNoMessage(const coap_session_t *session, coap_nack_reason_t reason, coap_mid_t mid) {
  CoapRpcLibSending sending;
  if (reason != COAP_NACK_NOT_DELIVERABLE) return false;
  return mid == 0 || CoapRpcLibFindSending(session, mid, &sending) != 0;
}

}  // namespace

void CountMessage(coap_context_t *coapCtx, const coap_pdu_t *pdu, size_t len, int isOut) {
  auto *ctx = static_cast<CoapRpcCtx *>(coap_context_get_app_data(coapCtx));
  CoapRpcTraffic &traffic = isOut != 0 ? ctx->counts.out : ctx->counts.in;
  ++traffic.messages;
  traffic.bytes += len;
  CountCode(traffic, pdu);
  if (isOut != 0) {
    COAP_RPC_PROBE4(message__out, ctx, coap_pdu_get_code(pdu), coap_pdu_get_mid(pdu), len);
  } else {
    COAP_RPC_PROBE4(message__in, ctx, coap_pdu_get_code(pdu), coap_pdu_get_mid(pdu), len);
  }
}

void CountNack(const coap_session_t *session, coap_nack_reason_t reason, coap_mid_t mid) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  if (!ctx || IsOfNoMessage(session, reason, mid)) return;
  ++ctx->counts.nacks[NackOf(reason)];
}

void CountEvent(const coap_session_t *session, coap_event_t event) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  if (!ctx) return;
  if (event == COAP_EVENT_MSG_RETRANSMITTED) ++ctx->counts.resends;
  if (event == COAP_EVENT_BAD_PACKET) ++ctx->counts.badMessages;
  if (event == COAP_EVENT_SERVER_SESSION_NEW) ++ctx->counts.peers;
  if (event == COAP_EVENT_SERVER_SESSION_DEL) --ctx->counts.peers;
}

}  // namespace coap_rpc
