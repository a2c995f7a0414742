#include "coap_svc/rpc/client/coap_rpc_cli_end.h"

#include <algorithm>
#include <utility>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"

namespace coap_rpc {
namespace {

using OpenList = COAP_RPC_LIST(OpenReq, link);

PoolPtr<OpenReq> Own(CoapRpcCliData *cli, OpenReq *req) {
  if (req) {
    LinkRemove(req->link);
    --cli->ends->num;
  }
  return PoolPtr<OpenReq>(req, PoolDeleter{cli->owner->param.memHandle});
}

CoapRpcRequestEnd EndOf(const CoapRpcCliSession &session, const CoapRpcCliReqData &req) {
  CoapRpcRequestEnd end = {};
  end.key = req.key.uri;
  end.userData = req.key.param.userData;
  memcpy(end.reqKeyRsv, req.key.param.reqKeyRsv, sizeof(end.reqKeyRsv));
  end.peer = session.key.dstIp;
  end.peerPort = session.key.dstPort;
  end.num = 1;
  return end;
}

PoolPtr<OpenReq> NewOpen(CoapRpcCtx *ctx, const CoapRpcCliSession &session,
                         const CoapRpcCliReqData &req) {
  auto open = NewZeroed<OpenReq>(ctx->param.memHandle);
  if (!open) return open;
  LinkInit(open->link);
  open->session = session.coapSession;
  open->mid = req.mid;
  open->tokenLen = req.tokenLen;
  memcpy(open->token, req.token, sizeof(open->token));
  open->since = ctx->cli->ends->tick;
  open->end = EndOf(session, req);
  return open;
}

bool HasToken(const OpenReq &open, const Sign &sign) {
  return sign.tokenLen != 0 && open.tokenLen == sign.tokenLen &&
         memcmp(open.token, sign.token, sign.tokenLen) == 0;
}

// FitsPath is for responses whose token says nothing.
bool FitsPath(const OpenReq &open, const char *path) {
  if (open.tokenLen != 0 || open.end.key.observe != 0) return false;
  return *path == '\0' || strncmp(open.end.key.uri, path, sizeof(open.end.key.uri)) == 0;
}

template <typename Match>
OpenReq *FindOf(const CoapRpcCliData *cli, const coap_session_t *session, Match match) {
  return OpenList(cli->ends->openList).FindIf([&](const OpenReq &open) {
    return open.session == session && match(open);
  });
}

bool IsUnderWay(const CoapRpcCtx *ctx, const OpenReq &open) {
  return ctx->libExt && ctx->libExt->isUnderWay(open.session, open.mid) != 0;
}

void MarkEnded(CoapRpcCliEnds *ends, OpenReq *open, uint32_t reason) {
  open->end.reason = reason;
  open->session = nullptr;
  OpenList(ends->endedList).Append(open);
}

bool IsOverdue(const CoapRpcCliEnds &ends, const OpenReq &open) {
  return ends.tick - open.since > kExchangeLifetimeMs / kAgingPeriodMs;
}

// EndOverdue ends what was not answered in time.  libcoap still waits for some: their time begins
// again.
void EndOverdue(CoapRpcCtx *ctx) {
  CoapRpcCliEnds *ends = ctx->cli->ends;
  OpenList list(ends->openList);
  while (OpenReq *oldest = list.First()) {
    if (!IsOverdue(*ends, *oldest)) return;
    if (IsUnderWay(ctx, *oldest)) {
      oldest->since = ends->tick;
      list.Append(oldest);
    } else {
      MarkEnded(ends, oldest, COAP_RPC_END_TIMEOUT);
    }
  }
}

void TellUnfollowed(CoapRpcCtx *ctx) {
  CoapRpcCliEnds *ends = ctx->cli->ends;
  if (!ends || ends->numUnfollowed == 0) return;
  CoapRpcRequestEnd end = {};
  end.reason = COAP_RPC_END_UNKNOWN;
  end.num = std::exchange(ends->numUnfollowed, 0);
  ends->onEnd(ends->userData, &end);
}

// TellEnded tells what has ended so far; what ends inside the callbacks is told by the next tick.
void TellEnded(CoapRpcCtx *ctx) {
  CoapRpcCliData *cli = ctx->cli;
  for (uint32_t left = cli->ends->num; left != 0 && cli->ends; --left) {
    OpenReq *ended = OpenList(cli->ends->endedList).First();
    if (!ended) return;
    TellEnd(ctx, Own(cli, ended), ended->end.reason);
  }
}

bool IsSendingOf(const OpenReq &open, const CoapRpcCliReqData &req) {
  const CoapRpcCliReqParam &param = req.key.param;
  return memcmp(&open.end.key, &req.key.uri, sizeof(open.end.key)) == 0 &&
         open.end.userData == param.userData &&
         memcmp(open.end.reqKeyRsv, param.reqKeyRsv, sizeof(open.end.reqKeyRsv)) == 0;
}

template <typename Match>
void FreeIf(CoapRpcCliData *cli, Match match) {
  for (CoapRpcLink *head : {&cli->ends->openList, &cli->ends->endedList}) {
    OpenList(*head).ForEach([&](OpenReq *open) {
      if (match(*open)) Own(cli, open);
    });
  }
}

uint32_t Listen(CoapRpcCtx *ctx, CoapRpcOnRequestEnd onEnd, uint64_t userData) {
  CoapRpcCliData *cli = ctx->cli;
  if (!cli->ends) cli->ends = NewZeroed<CoapRpcCliEnds>(ctx->param.memHandle).release();
  if (!cli->ends) return Code(kSiteSetOnRequestEndNoMemory);
  cli->ends->onEnd = onEnd;
  cli->ends->userData = userData;
  return 0;
}

}  // namespace

void FollowRequest(CoapRpcCtx *ctx, const CoapRpcCliSession *session,
                   const CoapRpcCliReqData *req) {
  CoapRpcCliEnds *ends = ctx->cli->ends;
  if (!ends || req->isDropped || req->key.uri.msgType != COAP_RPC_CON) return;
  const bool hasRoom = ends->num < kMaxOpenRequests;
  if (!hasRoom) ++ctx->counts.refused[COAP_RPC_LIMIT_FOLLOWED];
  auto open = hasRoom ? NewOpen(ctx, *session, *req) : nullptr;
  if (!open) {
    ++ends->numUnfollowed;
    return;
  }
  OpenList(ends->openList).Append(open.release());
  ++ends->num;
}

OpenReq *FindOpen(const CoapRpcCliData *cli, const Sign &sign) {
  if (!cli->ends) return nullptr;
  OpenReq *found =
      FindOf(cli, sign.session, [&](const OpenReq &open) { return open.mid == sign.mid; });
  if (!found) {
    found = FindOf(cli, sign.session, [&](const OpenReq &open) { return HasToken(open, sign); });
  }
  if (found || !sign.path) return found;
  return FindOf(cli, sign.session, [&](const OpenReq &open) { return FitsPath(open, sign.path); });
}

PoolPtr<OpenReq> TakeOpen(CoapRpcCliData *cli, const Sign &sign) {
  return Own(cli, FindOpen(cli, sign));
}

void TellEnd(CoapRpcCtx *ctx, PoolPtr<OpenReq> req, uint32_t reason, uint32_t rspCode) {
  if (!req) return;
  CoapRpcRequestEnd end = req->end;
  end.reason = reason;
  end.rspCode = rspCode;
  req.reset();
  const CoapRpcCliEnds *ends = ctx->cli ? ctx->cli->ends : nullptr;
  if (ends) ends->onEnd(ends->userData, &end);
}

void ForgetOpen(CoapRpcCliData *cli, const CoapRpcCliReqData &req) {
  if (!cli->ends) return;
  FreeIf(cli, [&](const OpenReq &open) { return IsSendingOf(open, req); });
}

void FreeEnds(CoapRpcCliData *cli) {
  if (!cli->ends) return;
  FreeIf(cli, [](const OpenReq &) { return true; });
  PoolFree(cli->owner->param.memHandle, std::exchange(cli->ends, nullptr));
}

void CloseOpen(CoapRpcCliData *cli, const coap_session_t *session) {
  if (!cli->ends) return;
  OpenList(cli->ends->openList).ForEach([=](OpenReq *open) {
    if (open->session == session) MarkEnded(cli->ends, open, COAP_RPC_END_CLOSED);
  });
}

void TickEnds(CoapRpcCtx *ctx) {
  if (!ctx->cli->ends) return;
  ++ctx->cli->ends->tick;
  EndOverdue(ctx);
  TellEnded(ctx);
  TellUnfollowed(ctx);
}

}  // namespace coap_rpc

using namespace coap_rpc;

uint32_t COAP_RpcSetOnRequestEnd(CoapRpcCtx *ctx, CoapRpcOnRequestEnd onEnd, uint64_t userData) {
  if (!ctx || !ctx->cli) return Violated(kSiteSetOnRequestEndNullArg);
  if (onEnd) return Listen(ctx, onEnd, userData);
  FreeEnds(ctx->cli);
  return 0;
}
