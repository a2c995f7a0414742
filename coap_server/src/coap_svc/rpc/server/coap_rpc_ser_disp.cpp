#include "coap_svc/rpc/server/coap_rpc_ser_disp.h"

#include "coap_svc/rpc/common/coap_rpc_disp.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

using namespace coap_rpc;

namespace {

constexpr char kUriAbout[] = "path of an observable URI, as \"disp server uriVtbl\" shows it";

constexpr DispCommand kCommands[] = {
    {"COAP_RpcDispSerVtbl_", COAP_RpcDispSerVtbl_, "disp server uriVtbl", nullptr,
     "the server's registered URIs"},
    {"COAP_RpcDispTupleSetTree_", COAP_RpcDispTupleSetTree_, "disp server tupleSetTree", "pcUri",
     "the tuples that an observable URI holds", kUriAbout},
    {"COAP_RpcDispTupleChgList_", COAP_RpcDispTupleChgList_, "disp server tupleChgList", "pcUri",
     "the unpublished changes of an observable URI", kUriAbout},
    {"COAP_RpcDispSerResource_", COAP_RpcDispSerResource_, "disp server resource", nullptr,
     "served paths"},
    {"COAP_RpcDispSerListen_", COAP_RpcDispSerListen_, "disp server listen", nullptr,
     "served local addresses and ports"},
};

struct ServerDump {
  static CoapRpcSerData *DataOf(CoapRpcCtx *ctx) { return ctx->ser; }
};

struct UriVtblDump : ServerDump {
  using Key = CoapRpcUriKey;
  static CoapRpcSerUriVtbl *First(CoapRpcSerData *ser) { return COAP_RpcSerFindFirstUriVtbl(ser); }
  static CoapRpcSerUriVtbl *Next(CoapRpcSerData *ser, const Key &key) {
    return COAP_RpcSerFindNextUriVtbl(ser, &key);
  }
  static const Key &KeyOf(const CoapRpcSerUriVtbl &entry) { return entry.key; }
  static char *Text(CoapRpcSerData *, const CoapRpcSerUriVtbl *entry, char *buf, uint32_t size) {
    return COAP_RpcGetSerUriVtblStr_(entry, buf, size);
  }
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "server Vtbl[%3d]: %s\n", counter, text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %d server uriVtbl(s) ***\n", counter);
  }
};

struct ResourceDump : ServerDump {
  using Key = char[COAP_RPC_URI_SIZE];
  static CoapRpcSerUriRes *First(CoapRpcSerData *ser) { return COAP_RpcSerFindFirstUriRes(ser); }
  static CoapRpcSerUriRes *Next(CoapRpcSerData *ser, const Key &uri) {
    return COAP_RpcSerFindNextUriRes(ser, uri);
  }
  static const Key &KeyOf(const CoapRpcSerUriRes &res) { return res.uri; }
  static char *Text(CoapRpcSerData *, const CoapRpcSerUriRes *res, char *buf, uint32_t size) {
    return COAP_RpcGetSerUriResStr_(res, buf, size);
  }
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "server resource[%3d]: %s\n", counter, text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %d server resource(s) ***\n", counter);
  }
};

struct ListenDump : ServerDump {
  using Key = CoapRpcSerListenAddr;
  static CoapRpcSerListen *First(CoapRpcSerData *ser) { return COAP_RpcSerFindFirstListen(ser); }
  static CoapRpcSerListen *Next(CoapRpcSerData *ser, const Key &addr) {
    return COAP_RpcSerFindNextListen(ser, &addr);
  }
  static const Key &KeyOf(const CoapRpcSerListen &listen) { return listen.key; }
  static char *Text(CoapRpcSerData *, const CoapRpcSerListen *listen, char *buf, uint32_t size) {
    return COAP_RpcGetSerListenStr_(listen, buf, size);
  }
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "server listen[%3d]: %s\n", counter, text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %d server listen(s) ***\n", counter);
  }
};

// ListenText is what an entry says about the listen that it is attached to, if it is.
struct ListenText {
  explicit ListenText(const CoapRpcSerListen *listen) {
    if (!listen) return;
    state = "hasListen";
    addr = COAP_RpcIpAddrGetStr(&listen->key.listenAddr, addrBuf, sizeof(addrBuf));
    port = listen->key.port;
  }
  ListenText(const ListenText &) = delete;
  ListenText &operator=(const ListenText &) = delete;

  char addrBuf[kAddrTextSize] = {};
  const char *state = "notListen";
  const char *addr = "";
  uint32_t port = 0;
};

void PutPlainText(const CoapRpcSerUriVtbl *entry, const ListenText &listen, char *buf,
                  uint32_t size) {
  const CoapRpcUriKey &key = entry->key;
  snprintf_truncated_s(
      buf, size, "uri(%s)/msgType(%s)/observe(%u)/pktType(%s)/payloadFormat(%s)/listen(%s-%s:%u)",
      UriText(key.uri).c_str(), COAP_RpcGetMsgTypeStr(key.msgType), key.observe,
      COAP_RpcGetPktTypeStr(key.pktType), COAP_RpcGetPayloadFormatStr(entry->reg.payloadFormat),
      listen.state, listen.addr, listen.port);
}

// The idle word is "Idel" here and "Idle" on the client side; operators' scripts know both.
void PutObserveText(const CoapRpcSerUriVtbl *entry, const ListenText &listen, char *buf,
                    uint32_t size) {
  const CoapRpcUriKey &key = entry->key;
  snprintf_truncated_s(
      buf, size,
      "uri(%s)/msgType(%s)/observe(%u)/pktType(%s)/payloadFormat(%s)/tupleChgListEmpty(%u)/"
      "tupleSetEmpty(%u)/UpdateTimer(%s)/observerNum(%u)/isSendingLargeBlock(%u)/listen(%s-%s:%u)",
      UriText(key.uri).c_str(), COAP_RpcGetMsgTypeStr(key.msgType), key.observe,
      COAP_RpcGetPktTypeStr(key.pktType), COAP_RpcGetPayloadFormatStr(entry->reg.payloadFormat),
      static_cast<uint32_t>(LinkIsAlone(entry->tupleChgList)),
      static_cast<uint32_t>(entry->tupleSetTree.root == nullptr),
      entry->updateTimer != 0 ? "Running" : "Idel", entry->observerNum, entry->isSendingLargeBlock,
      listen.state, listen.addr, listen.port);
}

}  // namespace

uint32_t COAP_RpcSerDispInit(void *data) {
  auto *ser = static_cast<CoapRpcSerData *>(data);
  COAP_RPC_DEBUG(ser->owner, "[CoapRpc]\n");
  for (const DispCommand &row : kCommands) RegisterCommand(ser->owner, row);
  return 0;
}

uint32_t COAP_RpcSerDispUninit(void *ser) { return LowWord(ser); }

uint32_t COAP_RpcDispSerVtbl_(void *ctx, ...) { return DumpNextRecord<UriVtblDump>(ctx); }

uint32_t COAP_RpcDispSerResource_(void *ctx, ...) { return DumpNextRecord<ResourceDump>(ctx); }

uint32_t COAP_RpcDispSerListen_(void *ctx, ...) { return DumpNextRecord<ListenDump>(ctx); }

char *COAP_RpcGetSerUriVtblStr_(const CoapRpcSerUriVtbl *entry, char *buf, uint32_t size) {
  const ListenText listen(entry->listen);
  if (entry->obVtbl) {
    PutObserveText(entry, listen, buf, size);
  } else {
    PutPlainText(entry, listen, buf, size);
  }
  return buf;
}

char *COAP_RpcGetSerUriResStr_(const CoapRpcSerUriRes *res, char *buf, uint32_t size) {
  snprintf_truncated_s(buf, size, "uri(%s)/uriDataListIsEmpty(%u)", UriText(res->uri).c_str(),
                       static_cast<uint32_t>(LinkIsAlone(res->uriDataList)));
  return buf;
}

char *COAP_RpcGetSerListenStr_(const CoapRpcSerListen *listen, char *buf, uint32_t size) {
  char addr[kAddrTextSize] = {};
  snprintf_truncated_s(
      buf, size, "listenAddr(%s)/port(%u)/endPointIsNull(%u)/uriDataListIsEmpty(%u)",
      COAP_RpcIpAddrGetStr(&listen->key.listenAddr, addr, sizeof(addr)),
      static_cast<uint32_t>(listen->key.port), static_cast<uint32_t>(listen->endPoint == nullptr),
      static_cast<uint32_t>(LinkIsAlone(listen->uriDataList)));
  return buf;
}
