#include "coap_svc/rpc/client/coap_rpc_cli_disp.h"

#include <cstdarg>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/common/coap_rpc_disp.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"

using namespace coap_rpc;

namespace {

constexpr char kStartIndexAbout[] = "rows before this number are skipped; 0 shows all";

constexpr DispCommand kCommands[] = {
    {"COAP_RpcDispCliVtbl_", COAP_RpcDispCliVtbl_, "disp client uriVtbl", nullptr,
     "the client's registered URIs"},
    {"COAP_RpcDispCliRequest_", COAP_RpcDispCliRequest_, "disp client request", "uniStartIndex",
     "observe relations, and requests that could not be sent", kStartIndexAbout},
    {"COAP_RpcDispCliSession_", COAP_RpcDispCliSession_, "disp client session", "uniStartIndex",
     "sessions, one for each source, destination and port", kStartIndexAbout},
};

struct ClientDump {
  static CoapRpcCliData *DataOf(CoapRpcCtx *ctx) { return ctx->cli; }
};

struct UriVtblDump : ClientDump {
  using Key = CoapRpcUriKey;
  static CoapRpcCliUriVtbl *First(CoapRpcCliData *cli) { return COAP_RpcCliFindFirstUriVtbl(cli); }
  static CoapRpcCliUriVtbl *Next(CoapRpcCliData *cli, const Key &key) {
    return COAP_RpcCliFindNextUriVtbl(cli, &key);
  }
  static const Key &KeyOf(const CoapRpcCliUriVtbl &uriVtbl) { return uriVtbl.key; }
  static char *Text(CoapRpcCliData *, const CoapRpcCliUriVtbl *uriVtbl, char *buf, uint32_t size) {
    return COAP_RpcGetCliUriVtblStr_(uriVtbl, buf, size);
  }
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "client Vtbl[%3d]: %s\n", counter, text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %d client uriVtbl(s) ***\n", counter);
  }
};

struct RequestDump : ClientDump {
  using Key = CoapRpcCliReqKey;
  static CoapRpcCliReqData *First(CoapRpcCliData *cli) { return COAP_RpcCliFindFirstReqData(cli); }
  static CoapRpcCliReqData *Next(CoapRpcCliData *cli, const Key &key) {
    return COAP_RpcCliFindNextReqData(cli, &key);
  }
  static const Key &KeyOf(const CoapRpcCliReqData &req) { return req.key; }
  static char *Text(CoapRpcCliData *cli, const CoapRpcCliReqData *req, char *buf, uint32_t size) {
    return COAP_RpcGetCliReqDataStr_(cli, req, buf, size);
  }
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "client request[%3u]: %s\n", static_cast<uint32_t>(counter), text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %u client request(s) ***\n", static_cast<uint32_t>(counter));
  }
};

struct SessionDump : ClientDump {
  using Key = CoapRpcCliSessionKey;
  static CoapRpcCliSession *First(CoapRpcCliData *cli) { return COAP_RpcCliFindFirstSession(cli); }
  static CoapRpcCliSession *Next(CoapRpcCliData *cli, const Key &key) {
    return COAP_RpcCliFindNextSession(cli, &key);
  }
  static const Key &KeyOf(const CoapRpcCliSession &session) { return session.key; }
  static char *Text(CoapRpcCliData *cli, const CoapRpcCliSession *session, char *buf,
                    uint32_t size) {
    return COAP_RpcGetCliSessionStr_(cli, session, buf, size);
  }
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "client session[%3u]: %s\n", static_cast<uint32_t>(counter), text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %u client session(s) ***\n", static_cast<uint32_t>(counter));
  }
};

const char *TimerText(uint64_t timer) { return timer != 0 ? "Running" : "Idle"; }

// The registration's format has 32 bits, the text function takes eight.
const char *FormatText(uint32_t payloadFormat) {
  return COAP_RpcGetPayloadFormatStr(
      payloadFormat <= UINT8_MAX ? static_cast<uint8_t>(payloadFormat) : uint8_t{0});
}

}  // namespace

// Eight bytes as arguments of "%x".
#define BYTE_ARG(bytes, at) static_cast<uint32_t>((bytes)[at])
#define EIGHT_BYTE_ARGS(bytes)                                                    \
  BYTE_ARG(bytes, 0), BYTE_ARG(bytes, 1), BYTE_ARG(bytes, 2), BYTE_ARG(bytes, 3), \
      BYTE_ARG(bytes, 4), BYTE_ARG(bytes, 5), BYTE_ARG(bytes, 6), BYTE_ARG(bytes, 7)

uint32_t COAP_RpcCliDispInit(void *data) {
  auto *cli = static_cast<CoapRpcCliData *>(data);
  COAP_RPC_DEBUG(cli->owner, "[CoapRpc]\n");
  for (const DispCommand &row : kCommands) RegisterCommand(cli->owner, row);
  return 0;
}

uint32_t COAP_RpcCliDispUninit(void *cli) { return LowWord(cli); }

uint32_t COAP_RpcDispCliVtbl_(void *ctx, ...) { return DumpNextRecord<UriVtblDump>(ctx); }

uint32_t COAP_RpcDispCliRequest_(void *ctx, ...) {
  va_list args;
  va_start(args, ctx);
  const uint32_t uniStartIndex = va_arg(args, uint32_t);
  va_end(args);
  return DumpNextRecord<RequestDump>(ctx, uniStartIndex);
}

uint32_t COAP_RpcDispCliSession_(void *ctx, ...) {
  va_list args;
  va_start(args, ctx);
  const uint32_t uniStartIndex = va_arg(args, uint32_t);
  va_end(args);
  return DumpNextRecord<SessionDump>(ctx, uniStartIndex);
}

char *COAP_RpcGetCliUriVtblStr_(const CoapRpcCliUriVtbl *uriVtbl, char *buf, uint32_t size) {
  const CoapRpcUriKey &key = uriVtbl->key;
  snprintf_truncated_s(buf, size, "uri(%s)/msgType(%s)/observe(%u)/pktType(%s)/payloadFormat(%s)",
                       UriText(key.uri).c_str(), COAP_RpcGetMsgTypeStr(key.msgType), key.observe,
                       COAP_RpcGetPktTypeStr(key.pktType), FormatText(uriVtbl->reg.payloadFormat));
  return buf;
}

// Bytes are printed without leading zeros, deliberately.
char *COAP_RpcGetCliReqDataStr_(const CoapRpcCliData *cli, const CoapRpcCliReqData *req, char *buf,
                                uint32_t size) {
  const CoapRpcUriKey &key = req->key.uri;
  const uint8_t *rsv = req->key.param.reqKeyRsv;
  snprintf_truncated_s(
      buf, size,
      "uri(%s)/msgType(%s)/observe(%u)/pktType(%s)/mid(%d)/reSnd(%u)/Tout(%u)/"
      "reqKeyRsv(%x%x%x%x%x%x%x%x%x%x%x%x%x%x%x%x)/codeType(%s)/resendTimer(%s)/"
      "resndLstEmpty(%u)/token(%x%x%x%x%x%x%x%x)",
      UriText(key.uri).c_str(), COAP_RpcGetMsgTypeStr(key.msgType), key.observe,
      COAP_RpcGetPktTypeStr(key.pktType), req->mid, req->reSnd, req->Tout, EIGHT_BYTE_ARGS(rsv),
      EIGHT_BYTE_ARGS(rsv + 8), COAP_RpcGetCodeTypeStr(req->codeType), TimerText(cli->resendTimer),
      static_cast<uint32_t>(LinkIsAlone(cli->resendList)), EIGHT_BYTE_ARGS(req->token));
  return buf;
}

char *COAP_RpcGetCliSessionStr_(const CoapRpcCliData *cli, const CoapRpcCliSession *session,
                                char *buf, uint32_t size) {
  char src[kAddrTextSize] = {};
  char dst[kAddrTextSize] = {};
  const CoapRpcCliSessionKey &key = session->key;
  snprintf_truncated_s(
      buf, size,
      "srcIp(%s)/dstIp(%s)/dstPort(%u)/coapSessionIsNull(%u)/uriDataListIsEmpty(%u)/agingTick(%u)/"
      "agingTimer(%s)/ConMsgStatistic(%u)/NonMsgStatistic(%u)",
      COAP_RpcIpAddrGetStr(&key.srcIp, src, sizeof(src)),
      COAP_RpcIpAddrGetStr(&key.dstIp, dst, sizeof(dst)), key.dstPort,
      static_cast<uint32_t>(session->coapSession == nullptr),
      static_cast<uint32_t>(LinkIsAlone(session->uriDataList)), session->agingTick,
      TimerText(cli->agingTimer), session->msgStatistic[COAP_RPC_CON],
      session->msgStatistic[COAP_RPC_NON]);
  return buf;
}
