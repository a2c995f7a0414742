#include "coap_svc/rpc/client/coap_rpc_cli_session.h"

#include "coap_svc/rpc/client/coap_rpc_cli_end.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "kst_tmr.h"

namespace {

using namespace coap_rpc;

using SessionTable = COAP_RPC_TABLE(CoapRpcCliSession, key, CoapRpcCliSessionKey,
                                    COAP_RpcSessionCmp_);
using AgingList = COAP_RPC_LIST(CoapRpcCliSession, agingLink);

// SessionText is a session's key as logs show it.
class SessionText {
 public:
  explicit SessionText(const CoapRpcCliSessionKey &key) {
    COAP_RpcCliGetSessionStr_(&key, text_, sizeof text_);
  }
  const char *c_str() const { return text_; }

 private:
  char text_[kSessionTextSize] = "";
};

bool HasRequests(const CoapRpcCliSession &session) { return !LinkIsAlone(session.uriDataList); }

void LeaveAgingList(CoapRpcCliSession *session) {
  LinkRemove(session->agingLink);
  session->agingTick = kAgingTicks;
}

void FreeSession(CoapRpcCliData *cli, CoapRpcCliSession *session) {
  LeaveAgingList(session);
  SessionTable(cli->sessionTree).Remove(session);
  CloseOpen(cli, session->coapSession);
  if (cli->deleteCliSession) cli->deleteCliSession(cli->owner, session);
  PoolFree(cli->owner->param.memHandle, session);
}

// CanFreeNow says whether nothing works with the session: no send, and not libcoap's I/O, which
// has collected the sessions that it will serve next before it calls back.
bool CanFreeNow(const CoapRpcCliData *cli, const CoapRpcCliSession &session) {
  return session.holds == 0 && cli->owner->ioDepth == 0;
}

// AgeSession leaves a session alone that is being worked with: a callback let time go by.
void AgeSession(CoapRpcCliData *cli, CoapRpcCliSession *session) {
  if (!CanFreeNow(cli, *session)) return;
  if (session->agingTick != 0 && --session->agingTick != 0) return;
  COAP_RPC_DEBUG(cli->owner, "[CoapRpc]aging session success, %s.\n",
                 SessionText(session->key).c_str());
  if (!HasRequests(*session)) FreeSession(cli, session);
}

}  // namespace

uint32_t COAP_RpcCliSessionInit(void *record) {
  auto *cli = static_cast<CoapRpcCliData *>(record);
  SessionTable(cli->sessionTree).Init();
  LinkInit(cli->agingList);
  return COAP_RpcCliTryStartAgingSessionTimer(cli);
}

uint32_t COAP_RpcCliSessionUninit(void *record) {
  auto *cli = static_cast<CoapRpcCliData *>(record);
  if (!cli) return 0;
  SessionTable table(cli->sessionTree);
  for (CoapRpcCliSession *session = table.First(), *next; session; session = next) {
    next = table.Next(session);
    if (HasRequests(*session)) {
      Assert(kSiteCliSessionHasRequests);
    } else {
      FreeSession(cli, session);
    }
  }
  COAP_RpcCliTryStopAgingSessionTimer(cli);
  return 0;
}

int32_t COAP_RpcSessionCmp_(const void *a, const void *b) {
  const auto *keyA = static_cast<const CoapRpcCliSessionKey *>(a);
  const auto *keyB = static_cast<const CoapRpcCliSessionKey *>(b);
  if (const int32_t order = COAP_RpcAddrCmp(&keyA->srcIp, &keyB->srcIp)) return order;
  if (const int32_t order = COAP_RpcAddrCmp(&keyA->dstIp, &keyB->dstIp)) return order;
  if (keyA->dstPort == keyB->dstPort) return 0;
  return keyA->dstPort < keyB->dstPort ? -1 : 1;
}

CoapRpcCliSession *COAP_RpcCliFindSession(CoapRpcCliData *cli, const CoapRpcCliSessionKey *key) {
  return SessionTable(cli->sessionTree).Find(key);
}

CoapRpcCliSession *COAP_RpcCliFindFirstSession(CoapRpcCliData *cli) {
  return SessionTable(cli->sessionTree).First();
}

CoapRpcCliSession *COAP_RpcCliFindNextSession(CoapRpcCliData *cli,
                                              const CoapRpcCliSessionKey *key) {
  return SessionTable(cli->sessionTree).After(key);
}

CoapRpcCliSession *COAP_RpcCliAddSession(CoapRpcCliData *cli, const CoapRpcUriKey *,
                                         const CoapRpcCliAddr *addr) {
  auto session = NewZeroed<CoapRpcCliSession>(cli->owner->param.memHandle);
  if (!session) return nullptr;
  session->key = {addr->srcIp, addr->dstIp, addr->dstPort};
  LinkInit(session->agingLink);
  LinkInit(session->uriDataList);
  session->agingTick = kAgingTicks;
  if (!SessionTable(cli->sessionTree).Insert(session.get())) return nullptr;
  COAP_RPC_DEBUG(cli->owner, "[CoapRpc]cli create session success, %s.\n",
                 SessionText(session->key).c_str());
  return session.release();
}

void COAP_RpcCliTryDelSession(CoapRpcCliData *cli, CoapRpcCliSession *session) {
  if (!session || HasRequests(*session)) return;
  if (CanFreeNow(cli, *session)) {
    FreeSession(cli, session);
  } else {
    COAP_RpcCliInsetAgingList(cli, session);
    session->agingTick = 1;
  }
}

void COAP_RpcCliInsetAgingList(CoapRpcCliData *cli, CoapRpcCliSession *session) {
  if (!session || HasRequests(*session)) return;
  LeaveAgingList(session);
  AgingList(cli->agingList).Append(session);
}

void COAP_RpcCliRemoveAgingList(CoapRpcCliData *, CoapRpcCliSession *session) {
  if (session) LeaveAgingList(session);
}

uint32_t COAP_RpcCliAgingSessionTimeOut(void *root) {
  CoapRpcCliData *cli = static_cast<CoapRpcCtx *>(root)->cli;
  if (!cli) return 0;
  AgingList(cli->agingList).ForEach([=](CoapRpcCliSession *session) { AgeSession(cli, session); });
  TickEnds(cli->owner);
  return 0;
}

uint32_t COAP_RpcCliTryStartAgingSessionTimer(CoapRpcCliData *cli) {
  if (cli->agingTimer != 0) return 0;
  cli->agingTimer = KST_TmrStartLoop(cli->owner->param.tmrHandle, COAP_RpcCliAgingSessionTimeOut,
                                     kAgingPeriodMs, cli->owner);
  return cli->agingTimer != 0 ? 0 : Code(kSiteStartAgingTimerFailed);
}

void COAP_RpcCliTryStopAgingSessionTimer(CoapRpcCliData *cli) {
  if (cli->agingTimer == 0 || !AgingList(cli->agingList).IsEmpty()) return;
  KST_TmrStop(cli->owner->param.tmrHandle, cli->agingTimer);
  cli->agingTimer = 0;
}

char *COAP_RpcCliGetSessionStr_(const CoapRpcCliSessionKey *key, char *buf, uint32_t size) {
  char src[kIpTextSize] = "";
  char dst[kIpTextSize] = "";
  snprintf_truncated_s(buf, size, "src:%s, dst:%s, port:%u",
                       COAP_RpcIpAddrGetStr(&key->srcIp, src, sizeof src),
                       COAP_RpcIpAddrGetStr(&key->dstIp, dst, sizeof dst), key->dstPort);
  return buf;
}
