#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_session.h"

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_source.h"

namespace {

using namespace coap_rpc;

// A session bound to its source address sends from whatever port is free.
constexpr uint16_t kAnyPort = 0;

// RFC 7252 section 5.3.1 asks for 32 random bits at least; block transfers count in the low 48.
constexpr size_t kFirstTokenSize = 5;
constexpr uint8_t kHighestBit = 0x80;

// Ipv4Of is what logs show of an address: 0 for one of IPv6.
uint32_t Ipv4Of(const CoapRpcIpAddr &addr) {
  return addr.family == COAP_RPC_IPV4 ? addr.addr.ipv4 : 0;
}

bool IsKnownFamily(const CoapRpcIpAddr &addr) {
  return addr.family == COAP_RPC_IPV4 || addr.family == COAP_RPC_IPV6;
}

coap_session_t *OpenSession(CoapRpcCtx *ctx, bool isBroadcast, const CoapRpcCliSessionKey *addr) {
  coap_address_t dst;
  coap_address_t src;
  const auto port = static_cast<uint16_t>(addr->dstPort);
  if (COAP_RpcSetAddress(&dst, &addr->dstIp, port) != 0) return nullptr;
  if (COAP_RpcSetAddress(&src, &addr->srcIp, kAnyPort) != 0) return nullptr;
  uint32_t protocol = 0;
  COAP_RpcSetPort(&protocol, port);
  if (isBroadcast) {
    COAP_RPC_DEBUG(ctx, "try create broadcast session.");
  } else {
    COAP_RPC_DEBUG(ctx, "try create unicast session.");
  }
  return coap_new_client_session(ctx->lib->coapCtx, isBroadcast ? &src : nullptr, &dst,
                                 static_cast<coap_proto_t>(protocol));
}

// StartTokens lets a session's tokens count from a random number: a client that starts again and
// gets the port of its former life must not have the tokens of it.
void StartTokens(coap_session_t *session) {
  uint8_t first[kFirstTokenSize] = {};
  coap_prng(first, sizeof(first));
  first[0] |= kHighestBit;  // no zeros in front, which libcoap leaves out
  coap_session_init_token(session, sizeof(first), first);
}

}  // namespace

coap_session_t *COAP_RpcCreateCliSession(CoapRpcCtx *ctx, const CoapRpcCliReqKey *key,
                                         const CoapRpcCliSessionKey *addr) {
  if (!ctx->lib || !ctx->lib->coapCtx) return nullptr;
  if (!IsKnownFamily(addr->srcIp) || !IsKnownFamily(addr->dstIp)) return nullptr;
  const bool isBroadcast = key->uri.pktType == COAP_RPC_BROADCAST;
  coap_session_t *session = OpenSession(ctx, isBroadcast, addr);
  if (!session) return nullptr;
  coap_session_set_max_retransmit(session, kClientMaxRetransmit);
  StartTokens(session);
  if (!isBroadcast) CoapRpcLibFollowSource(session);
  if (ctx->lib->nstart != 0) coap_session_set_nstart(session, ctx->lib->nstart);
  coap_session_set_app_data(session, ctx);
  CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);  // the next turn sets the timer for its pings
  COAP_RPC_DEBUG(ctx, "[CoapRpc]add session success, src:0x%x, dst:0x%x, port:%u.\n",
                 Ipv4Of(addr->srcIp), Ipv4Of(addr->dstIp), addr->dstPort);
  return session;
}

void COAP_RpcDeleteCliSession(CoapRpcCtx *ctx, CoapRpcCliSession *session) {
  if (!session || !session->coapSession) return;
  const CoapRpcCliSessionKey &key = session->key;
  coap_session_set_app_data(session->coapSession, nullptr);
  coap_session_release(session->coapSession);
  session->coapSession = nullptr;
  COAP_RPC_DEBUG(ctx, "[CoapRpc]del session success, src:0x%x, dst:0x%x, port:%u.\n",
                 Ipv4Of(key.srcIp), Ipv4Of(key.dstIp), key.dstPort);
}
