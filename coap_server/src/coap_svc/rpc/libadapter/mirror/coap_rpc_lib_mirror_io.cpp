#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_io.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_session.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_page.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_timer.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_pdu.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_peer.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_source.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kContent = 205;
constexpr uint32_t kIncomplete = 408;
constexpr uint32_t kUnavailable = 503;
constexpr uint32_t kSuccessEnd = 300;

// A page has one tuple of any length, or is one message.
constexpr uint64_t kLongestPage = COAP_RPC_SYNC_MAX_TUPLE + COAP_RPC_SYNC_MAX_PAGE;

// The longest: all arguments, with numbers of 20 digits.
constexpr size_t kQuerySize = sizeof("_sync=1&id=&since=&until=&full=1") + 16 + 2 * 20;

coap_bin_const_t TokenBytes(const uint64_t &token) {
  return {sizeof(token), reinterpret_cast<const uint8_t *>(&token)};
}

void WriteQuery(const MirrorAsk &ask, char *out) {
  const bool isHead = ask.act == MirrorAct::kRegister || ask.isHello;
  const char *const end = out + kQuerySize;
  out += snprintf(out, kQuerySize, "_sync=1");
  if (isHead) return;
  out += snprintf(out, static_cast<size_t>(end - out), "&id=%016" PRIx64 "&since=%" PRIu64,
                  ask.replid, ask.since);
  if (ask.until != UINT64_MAX) {
    out += snprintf(out, static_cast<size_t>(end - out), "&until=%" PRIu64, ask.until);
  }
  if (ask.isFull) snprintf(out, static_cast<size_t>(end - out), "&full=1");
}

// IsComing says whether the answer to a question is coming in in blocks, which libcoap asks for.
bool IsComing(const CoapRpcMirror *mirror, const MirrorAsk &ask) {
  const coap_bin_const_t token = TokenBytes(ask.token);
  return ask.isRepeated && CoapRpcLibIsReceiving(mirror->session, &token, kMirrorBlockIdleMs) != 0;
}

// IsCutOff says whether a question has no answer because the address that it was sent from has gone
// from this host.  IPv6 goes on sending from it.
bool IsCutOff(const CoapRpcMirror *mirror, const MirrorAsk &ask) {
  return ask.isRepeated && CoapRpcLibIsLost(coap_session_get_addr_local(mirror->session)) != 0;
}

// Send asks a question.  What does not go out is repeated as if it had been lost.
void Send(const CoapRpcMirror *mirror, const MirrorAsk &ask) {
  char query[kQuerySize];
  WriteQuery(ask, query);
  CoapRpcCall call = {};
  call.method = COAP_RPC_GET;
  call.isNon = 1;
  call.path = mirror->key.uri;
  call.query = query;
  coap_pdu_t *pdu = nullptr;
  const bool isObserve = ask.act == MirrorAct::kRegister;
  if (BuildCall(mirror->session, call, TokenBytes(ask.token), isObserve, &pdu) != 0) return;
  coap_pdu_set_mid(pdu, coap_new_message_id(mirror->session));
  coap_send(mirror->session, pdu);
}

coap_session_t *NewSession(const CoapRpcMirror *mirror) {
  const CoapRpcCliAddr addr = SessionAddrOf(mirror->addr);
  const CoapRpcCliSessionKey key = {addr.srcIp, addr.dstIp, addr.dstPort};
  CoapRpcCliReqKey reqKey = {};
  reqKey.uri.pktType = IsAny(mirror->addr.srcIp) ? COAP_RPC_DEFAULT : COAP_RPC_BROADCAST;
  coap_session_t *session = COAP_RpcCreateCliSession(mirror->ctx, &reqKey, &key);
  if (!session) return nullptr;
  // Base requests are not to know it: responses without a mirror are nobody's.
  coap_session_set_app_data(session, nullptr);
  CoapRpcLibAskForRoom(session);
  return session;
}

void OpenSocket(CoapRpcMirror *mirror, uint64_t nowMs) {
  CoapRpcMirrors *mirrors = mirror->ctx->lib->mirrors;
  coap_session_t *session = NewSession(mirror);
  ReleaseMirrorSession(SetMirrorSession(mirrors, mirror, session));
  if (!session) MirrorLoseSocket(mirror->core, nowMs);
}

void Do(CoapRpcMirror *mirror, const MirrorAsk &ask, uint64_t nowMs) {
  if (ask.act == MirrorAct::kOpen) {
    OpenSocket(mirror, nowMs);
  } else if (ask.act == MirrorAct::kPing) {
    coap_session_send_ping(mirror->session);
  } else if (IsComing(mirror, ask)) {
    MirrorTakePart(mirror->core, nowMs);
  } else if (IsCutOff(mirror, ask)) {
    MirrorMove(mirror->core, nowMs);
  } else {
    Send(mirror, ask);
  }
}

uint32_t FailureOf(const CoapRpcCallRsp &rsp) {
  if (rsp.code < kSuccessEnd) return Code(kSiteMirrorNoPage);
  return Code(rsp.code == kUnavailable ? kSiteMirrorRestarts : kSiteMirrorErrorCode);
}

bool IsCbor(const CoapRpcCallRsp &rsp) {
  return rsp.code == kContent && (rsp.has & COAP_RPC_CALL_HAS_FORMAT) != 0 &&
         rsp.contentFormat == COAP_MEDIATYPE_APPLICATION_CBOR;
}

void TakePayload(CoapRpcMirror *mirror, uint64_t token, const CoapRpcCallRsp &rsp) {
  const uint64_t nowMs = MirrorNowMs();
  MirrorPage page;
  const uint32_t code = ReadMirrorPage(rsp.payload, rsp.payloadLen, mirror->core.param, page);
  if (code == 0) {
    MirrorTakePage(mirror->core, token, page, nowMs);
  } else {
    MirrorTakeFailure(mirror->core, token, code, nowMs);
  }
}

// IsTorn says whether a response is libcoap's word for blocks that do not fit together.
bool IsTorn(const CoapRpcMirror *mirror, const CoapRpcCallRsp &rsp) {
  return rsp.code == kIncomplete && mirror->core.numBlocks != 0;
}

// Take hands a message to its mirror.  A page in blocks that do not fit together is as good as
// lost.
void Take(CoapRpcMirror *mirror, uint64_t token, const CoapRpcCallRsp &rsp) {
  if (IsCbor(rsp) && rsp.payload) {
    TakePayload(mirror, token, rsp);
  } else if (rsp.code == kContent && !rsp.payload) {
    MirrorTakeNothing(mirror->core, token, MirrorNowMs());
  } else if (!IsTorn(mirror, rsp)) {
    MirrorTakeFailure(mirror->core, token, FailureOf(rsp), MirrorNowMs());
  }
}

// EndTaking lets the end of the turn send what the mirror asks by now.
void EndTaking(CoapRpcMirror *mirror) {
  --mirror->depth;
  if (!mirror->core.isClosed) DirtyMirrors(mirror->ctx->lib->mirrors->dirtyList).Append(mirror);
}

CoapRpcMirror *MirrorOf(coap_session_t *session) {
  const CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  CoapRpcMirrors *mirrors = ctx && ctx->lib ? ctx->lib->mirrors : nullptr;
  return mirrors ? FindMirror(mirrors, session) : nullptr;
}

}  // namespace

bool TakeMirrorMessage(coap_session_t *session, const coap_pdu_t *received) {
  CoapRpcMirror *mirror = MirrorOf(session);
  if (!mirror) return false;
  if (mirror->depth != 0) return true;  // its callback runs the I/O: as good as lost
  CoapRpcCallRsp rsp = {};
  ReadAnswer(received, &rsp);
  ++mirror->depth;
  Take(mirror, IdOf(coap_pdu_get_token(received)), rsp);
  EndTaking(mirror);
  return true;
}

bool DropMirrorBlock(coap_session_t *session, const coap_pdu_t *received, int *order) {
  coap_block_t block;
  if (coap_get_block(received, COAP_OPTION_BLOCK2, &block) == 0) return false;
  CoapRpcMirror *mirror = MirrorOf(session);
  if (!mirror) return false;
  *order = kCoapRpcLibOld;
  const uint64_t offset = uint64_t{block.num} << (block.szx + 4);
  if (offset >= kLongestPage || mirror->depth != 0) return true;
  ++mirror->depth;
  const bool isWanted = MirrorTakeBlock(mirror->core, MirrorNowMs());
  EndTaking(mirror);
  return !isWanted;
}

// Of what a mirror sends, libcoap keeps nothing but pings: no other message is there for a reset.
bool TakeMirrorNack(coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason) {
  CoapRpcMirror *mirror = MirrorOf(session);
  if (mirror && sent && reason == COAP_NACK_RST) MirrorTakePong(mirror->core);
  return mirror != nullptr;
}

void PumpMirror(CoapRpcMirror *mirror, uint64_t nowMs) {
  CoapRpcMirrors *mirrors = mirror->ctx->lib->mirrors;
  ++mirror->depth;
  for (MirrorAsk ask = MirrorNext(mirror->core, nowMs); ask.act != MirrorAct::kNone;
       ask = MirrorNext(mirror->core, nowMs)) {
    Do(mirror, ask, nowMs);
  }
  --mirror->depth;
  if (mirror->core.isClosed) return;
  SetMirrorDue(mirrors, mirror, std::max(MirrorDueMs(mirror->core), nowMs + 1));
  SetMirrorTimer(mirror->ctx);
}

void ReleaseMirrorSession(coap_session_t *session) {
  if (session) coap_session_release(session);
}

}  // namespace coap_rpc
