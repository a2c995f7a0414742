#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_peer.h"

#include <cstring>
#include <utility>

#include "coap_svc/rpc/client/coap_rpc_cli_req_data.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_session.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "libcoap/ext/coap_rpc_lib_end_request.h"
#include "libcoap/ext/coap_rpc_lib_quoted.h"
#include "libcoap/ext/coap_rpc_lib_source.h"

namespace coap_rpc {
namespace {

using SessionPtr = coap_session_t *;

constexpr uint32_t kMaxPort = 65535;
constexpr uint32_t kMulticastIpv4 = 0xE0000000;  // 224.0.0.0 and above are no hosts
constexpr uint8_t kMulticastIpv6 = 0xFF;

int32_t CompareSession(const void *a, const void *b) {
  const auto addrA = reinterpret_cast<uintptr_t>(*static_cast<const SessionPtr *>(a));
  const auto addrB = reinterpret_cast<uintptr_t>(*static_cast<const SessionPtr *>(b));
  return (addrA > addrB) - (addrA < addrB);
}

using PeerTable = COAP_RPC_TABLE(RpcCallPeer, coapSession, SessionPtr, CompareSession);

bool IsZero(const CoapRpcIpAddr &ip) {
  constexpr CoapRpcIpAddr kZero = {};
  return memcmp(&ip.addr, &kZero.addr, sizeof(ip.addr)) == 0;
}

bool IsIpv4(const CoapRpcIpAddr &ip) { return ip.family == COAP_RPC_IPV4; }

bool IsKnownFamily(const CoapRpcIpAddr &ip) { return IsIpv4(ip) || ip.family == COAP_RPC_IPV6; }

bool IsUnicast(const CoapRpcIpAddr &ip) {
  if (IsZero(ip)) return false;
  return IsIpv4(ip) ? ip.addr.ipv4 < kMulticastIpv4 : ip.addr.ipv6[0] != kMulticastIpv6;
}

// Clean clears the bytes that an address does not use.
CoapRpcIpAddr Clean(const CoapRpcIpAddr &ip) {
  CoapRpcIpAddr out = {};
  out.family = ip.family;
  if (IsIpv4(ip)) {
    out.addr.ipv4 = ip.addr.ipv4;
  } else {
    memcpy(out.addr.ipv6, ip.addr.ipv6, sizeof(out.addr.ipv6));
  }
  return out;
}

CoapRpcCliSession *FindOrAddSession(CoapRpcCliData *cli, const CoapRpcCliAddr &addr) {
  const CoapRpcCliSessionKey key = {addr.srcIp, addr.dstIp, addr.dstPort};
  CoapRpcCliSession *session = COAP_RpcCliFindSession(cli, &key);
  return session ? session : COAP_RpcCliAddSession(cli, nullptr, &addr);
}

bool IsThisMachines(const CoapRpcIpAddr &ip) {
  coap_address_t addr;
  COAP_RpcSetAddress(&addr, &ip, 0);
  return CoapRpcLibIsLost(&addr) == 0;
}

// Connect opens the session to libcoap, bound to the source that the call asks for.
uint32_t Connect(CoapRpcCtx *ctx, CoapRpcCliSession *session, bool isBound) {
  CoapRpcCliReqKey key = {};
  key.uri.pktType = isBound ? COAP_RPC_BROADCAST : COAP_RPC_DEFAULT;
  session->coapSession = COAP_RpcCreateCliSession(ctx, &key, &session->key);
  return session->coapSession ? 0 : Code(kSiteCallNoSession);
}

// LeaveUnused lets a session age that nobody uses, or go when it never came to be.
void LeaveUnused(CoapRpcCliData *cli, CoapRpcCliSession *session) {
  if (!session->coapSession) {
    COAP_RpcCliTryDelSession(cli, session);
  } else if (session->holds == 0) {
    COAP_RpcCliInsetAgingList(cli, session);
  }
}

bool SendsFrom(const CoapRpcCliSession &session, const CoapRpcIpAddr &ip) {
  CoapRpcIpAddr local = {};
  COAP_RpcGetLocalAddr(session.coapSession, &local);
  return COAP_RpcAddrCmp(&local, &ip) == 0;
}

// Ready makes a session one that can send from the address that a call asks for.
uint32_t Ready(CoapRpcCtx *ctx, CoapRpcCliSession *session, bool isBound) {
  if (isBound && !IsThisMachines(session->key.srcIp)) return Code(kSiteCallNoSource);
  if (!session->coapSession) return Connect(ctx, session, isBound);
  return !isBound || SendsFrom(*session, session->key.srcIp) ? 0 : Code(kSiteCallOtherSource);
}

RpcCallPeer *NewPeer(CoapRpcCtx *ctx, CoapRpcCalls *calls, CoapRpcCliSession *session) {
  auto peer = NewZeroed<RpcCallPeer>(ctx->param.memHandle);
  if (!peer) return nullptr;
  peer->session = session;
  peer->coapSession = session->coapSession;
  CoapRpcLibQuoteErrors(peer->coapSession);
  LinkInit(peer->queuedList);
  LinkInit(peer->sentList);
  LinkInit(peer->backlogLink);
  (void)PeerTable(calls->peerTree).Insert(peer.get());  // there is none for the session
  ++session->holds;
  return peer.release();
}

uint32_t PeerOf(CoapRpcCtx *ctx, CoapRpcCalls *calls, CoapRpcCliSession *session,
                RpcCallPeer **out) {
  *out = PeerTable(calls->peerTree).Find(&session->coapSession);
  if (!*out) *out = NewPeer(ctx, calls, session);
  return *out ? 0 : Code(kSiteCallNoMemory);
}

void LeaveBacklog(CoapRpcCalls *calls, RpcCallPeer *peer) {
  if (LinkIsAlone(peer->backlogLink) || !LinkIsAlone(peer->queuedList)) return;
  LinkRemove(peer->backlogLink);
  --calls->numBacklog;
}

}  // namespace

bool IsAny(const CoapRpcIpAddr &ip) { return ip.family == 0 || IsZero(ip); }

CoapRpcCliAddr SessionAddrOf(const CoapRpcCallAddr &addr) {
  CoapRpcCliAddr out = {};
  out.srcIp.family = addr.dstIp.family;
  if (!IsAny(addr.srcIp)) out.srcIp = Clean(addr.srcIp);
  out.dstIp = Clean(addr.dstIp);
  out.dstPort = addr.dstPort;
  return out;
}

uint32_t CheckCallAddr(const CoapRpcCallAddr &addr) {
  const bool isFamilyKnown = IsKnownFamily(addr.dstIp) &&
                             (addr.srcIp.family == 0 || addr.srcIp.family == addr.dstIp.family);
  if (!isFamilyKnown || !IsUnicast(Clean(addr.dstIp))) return Code(kSiteCallBadAddr);
  return addr.dstPort != 0 && addr.dstPort <= kMaxPort ? 0 : Code(kSiteCallBadPort);
}

uint32_t OpenCallPeer(CoapRpcCtx *ctx, CoapRpcCalls *calls, const CoapRpcCallAddr &addr,
                      RpcCallPeer **out) {
  const CoapRpcCliAddr sessionAddr = SessionAddrOf(addr);
  CoapRpcCliSession *session = FindOrAddSession(ctx->cli, sessionAddr);
  if (!session) return Code(kSiteCallNoMemory);
  const uint32_t ret = Ready(ctx, session, !IsZero(sessionAddr.srcIp));
  if (ret == 0 && PeerOf(ctx, calls, session, out) == 0) return 0;
  LeaveUnused(ctx->cli, session);
  return ret != 0 ? ret : Code(kSiteCallNoMemory);
}

void ReleaseCallPeer(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCallPeer *peer) {
  if (peer->num != 0) return;
  PeerTable(calls->peerTree).Remove(peer);
  --peer->session->holds;
  COAP_RpcCliInsetAgingList(ctx->cli, peer->session);
  PoolFree(ctx->param.memHandle, peer);
}

RpcCallPeer *FindCallPeer(CoapRpcCtx *ctx, coap_session_t *session) {
  CoapRpcCalls *calls = ctx->lib->calls;
  return calls ? PeerTable(calls->peerTree).Find(&session) : nullptr;
}

void JoinPeer(RpcCall *call, RpcCallPeer *peer) {
  call->peer = peer;
  ++peer->num;
}

void QueueCall(CoapRpcCalls *calls, RpcCall *call) {
  RpcCallPeer *peer = call->peer;
  CallsOfPeer(peer->queuedList).Append(call);
  if (!LinkIsAlone(peer->backlogLink)) return;
  Backlog(calls->backlogList).Append(peer);
  ++calls->numBacklog;
}

void MoveToSent(CoapRpcCalls *calls, RpcCall *call) {
  CallsOfPeer(call->peer->sentList).Append(call);
  LeaveBacklog(calls, call->peer);
}

void TakeOffPeer(CoapRpcCalls *calls, RpcCall *call) {
  LinkRemove(call->peerLink);
  LeaveBacklog(calls, call->peer);
}

void LeavePeer(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCall *call) {
  TakeOffPeer(calls, call);
  CoapRpcLibDropKept(SessionOf(*call), std::exchange(call->kept, nullptr));
  --call->peer->num;
  ReleaseCallPeer(ctx, calls, std::exchange(call->peer, nullptr));
}

RpcCall *FirstOf(RpcCallPeer *peer) {
  return CallsOfPeer(LinkIsAlone(peer->sentList) ? peer->queuedList : peer->sentList).First();
}

bool HasTurn(const RpcCallPeer &peer, bool isNon) {
  if (isNon) return true;
  return LinkIsAlone(peer.queuedList) && CoapRpcLibHasTurn(peer.coapSession) != 0;
}

}  // namespace coap_rpc
