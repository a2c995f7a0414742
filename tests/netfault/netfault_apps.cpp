#include "netfault_apps.h"

#include <cstring>

#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "kst_tmr.h"
#include "net_observer.h"

namespace netfault {
namespace {

// A publisher that is started again goes on counting its full sets.
constexpr uint32_t kFirstSet = 1;

// HasCurrentCode compares the check codes of both sides.
bool HasCurrentCode(const MirrorSetup &setup) {
  const CoapRpcUriKey key = TableKey();
  const CoapRpcCtx *publisher = setup.publisher();
  const auto *own = COAP_RpcCliFindUriVtbl(setup.ctx->cli, &key);
  return publisher && own && own->checkCode == COAP_RpcSerFindUriVtbl(publisher->ser, &key)->etag;
}

// AskingMirror observes, and asks for the state of the table every so often.
class AskingMirror : public MirrorApp {
 public:
  AskingMirror(const Policy &policy, const MirrorSetup &setup) : policy_(policy), setup_(setup) {}

  bool Start() override {
    const CoapRpcUriKey key = TableKey();
    CoapRpcCliVtblReg reg = {};
    reg.payloadFormat = setup_.isIdl ? COAP_RPC_BYTE : COAP_RPC_JSON;
    reg.userData = reinterpret_cast<uint64_t>(this);
    reg.onResponse = OnResponse;
    reg.onDisconnect = OnDisconnect;
    if (COAP_RpcCliRegVtbl(setup_.ctx, &key, &reg) != 0) return false;
    if (COAP_RpcCliObserveReq(setup_.ctx, &key, &param_, &setup_.peer) != 0) return false;
    return policy_.kind == Policy::kNone ||
           KST_TmrStartLoop(setup_.tmr, Ask, 1000 * policy_.seconds, this) != 0;
  }
  const NetTable &Table() const override { return mirror_.Table(); }
  MirrorNews News() const override { return news_; }
  bool IsSure() const override { return HasCurrentCode(setup_); }

 private:
  static AskingMirror &Of(uint64_t self) { return *reinterpret_cast<AskingMirror *>(self); }
  static uint32_t OnResponse(uint64_t self, uint64_t, uint8_t *payload, uint32_t len,
                             const CoapRpcCliRspInfo *info) {
    Of(self).Take({reinterpret_cast<const char *>(payload), len}, *info);
    return 0;
  }
  static void OnDisconnect(uint64_t self, const CoapRpcIpAddr *) {
    ++Of(self).news_.numDisconnects;
  }
  static uint32_t Ask(void *param) {
    auto *self = static_cast<AskingMirror *>(param);
    const CoapRpcUriKey key = TableKey();
    const auto ask = self->policy_.kind == Policy::kBatch ? COAP_RpcCliObserveReqBatch
                                                          : COAP_RpcCliObserveReqVerify;
    return ask(self->setup_.ctx, &key, &self->param_, &self->setup_.peer);
  }

  void Take(std::string_view document, const CoapRpcCliRspInfo &info) {
    news_.numUpToDate += info.checkCodeOk;
    news_.numErrors += info.rspCode >= 400;
    if (document.empty() || info.rspCode >= 400) return;
    const bool isGood = setup_.isIdl ? mirror_.ApplyIdl(document) : mirror_.ApplyJson(document);
    ++(isGood ? news_.numDocuments : news_.numRefused);
  }

  const Policy policy_;
  const MirrorSetup setup_;
  const CoapRpcCliReqParam param_ = {};
  NetMirror mirror_;
  MirrorNews news_;
};

// HandMirror is an application's own.
class HandMirror : public MirrorApp, private NetObserver {
 public:
  HandMirror(const Policy &policy, const MirrorSetup &setup)
      : NetObserver(
            {setup.ctx, setup.tmr, TableKey(), setup.peer, setup.isIdl, false, policy.seconds}),
        setup_(setup) {}

  bool Start() override { return NetObserver::Start(); }
  const NetTable &Table() const override { return Mirror().Table(); }
  bool IsSure() const override { return HasCurrentCode(setup_); }
  MirrorNews News() const override {
    MirrorNews news;
    news.numDocuments = NumDocuments();
    news.numRefused = NumRefused();
    news.numDisconnects = numLost_;
    return news;
  }

 private:
  void OnLost() override { ++numLost_; }

  const MirrorSetup setup_;
  uint32_t numLost_ = 0;
};

// LibraryMirror is the library's, and ends with its instance.  The table is made of its callbacks
// alone.
class LibraryMirror : public MirrorApp {
 public:
  LibraryMirror(const Policy &policy, const MirrorSetup &setup) : policy_(policy), setup_(setup) {}

  bool Start() override {
    const CoapRpcUriKey key = TableKey();
    CoapRpcCallAddr addr = {};
    addr.dstIp = setup_.peer.dstIp;
    addr.dstPort = setup_.peer.dstPort;
    CoapRpcMirrorParam param = {};
    param.keyLen = sizeof(NetName);
    param.valLen = sizeof(NetCounters);
    param.heartbeatMs = 1000 * policy_.seconds;
    param.userData = reinterpret_cast<uint64_t>(this);
    param.onAdded = OnAdded;
    param.onChanged = OnChanged;
    param.onRemoved = OnRemoved;
    param.onState = OnState;
    CoapRpcMirror *mirror = nullptr;
    return COAP_RpcMirrorOpen(setup_.ctx, &key, &addr, &param, &mirror) == 0;
  }
  const NetTable &Table() const override { return table_; }
  MirrorNews News() const override { return news_; }
  bool IsSure() const override { return isSynced_; }

 private:
  static LibraryMirror &Of(uint64_t self) { return *reinterpret_cast<LibraryMirror *>(self); }

  static NetName NameAt(const void *key) {
    NetName name;
    memcpy(name.data(), key, sizeof(name));
    return name;
  }

  static void OnAdded(uint64_t self, const void *key, const void *val) {
    memcpy(&Of(self).table_[NameAt(key)], val, sizeof(NetCounters));
    ++Of(self).news_.numDocuments;
  }
  static void OnChanged(uint64_t self, const void *key, const void *, const void *val) {
    OnAdded(self, key, val);
  }
  static void OnRemoved(uint64_t self, const void *key, const void *) {
    Of(self).table_.erase(NameAt(key));
    ++Of(self).news_.numDocuments;
  }
  static void OnState(uint64_t self, uint32_t state, uint32_t code) {
    Of(self).isSynced_ = state == COAP_RPC_MIRROR_SYNCED;
    if (code == 0) return;
    MirrorNews &news = Of(self).news_;
    ++(state == COAP_RPC_MIRROR_STALE ? news.numDisconnects : news.numErrors);
  }

  const Policy policy_;
  const MirrorSetup setup_;
  NetTable table_;
  MirrorNews news_;
  bool isSynced_ = false;
};

}  // namespace

CoapRpcUriKey TableKey() {
  CoapRpcUriKey key = {};
  strncpy(key.uri, "net/table", sizeof(key.uri) - 1);
  key.msgType = COAP_RPC_CON;
  key.observe = 1;
  key.pktType = COAP_RPC_DEFAULT;
  return key;
}

PublisherApp::PublisherApp(bool isIdl, bool hasVersions)
    : NetPublisher(TableKey(), isIdl ? COAP_RPC_BYTE : COAP_RPC_JSON, kFirstSet),
      hasVersions_(hasVersions) {}

bool PublisherApp::Serve(CoapRpcCtx *ctx, const CoapRpcIpAddr &addr) {
  if (!Register(ctx)) return false;
  if (hasVersions_ && COAP_RpcSerSetUriSync(ctx, &Key(), nullptr) != 0) return false;
  return Attach(addr);
}

bool PublisherApp::Attach(const CoapRpcIpAddr &addr) {
  CoapRpcSerListenAddr listen = {};
  listen.listenAddr = addr;
  listen.port = kCoapPort;
  return Ctx() && COAP_RpcSerSetUri(Ctx(), &Key(), &listen) == 0;
}

void PublisherApp::Detach() {
  if (Ctx()) COAP_RpcSerUnsetUri(Ctx(), &Key());
}

std::unique_ptr<MirrorApp> MakeMirror(const Policy &policy, const MirrorSetup &setup) {
  if (policy.kind == Policy::kMirror) return std::make_unique<LibraryMirror>(policy, setup);
  if (policy.kind == Policy::kHand) return std::make_unique<HandMirror>(policy, setup);
  return std::make_unique<AskingMirror>(policy, setup);
}

}  // namespace netfault
