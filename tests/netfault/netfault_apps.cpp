#include "netfault_apps.h"

#include <cstring>

#include "kst_tmr.h"
#include "net_observer.h"

namespace netfault {
namespace {

// A publisher that is started again goes on counting its full sets.
constexpr uint32_t kFirstSet = 1;

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
  const NetMirror &Mirror() const override { return mirror_; }
  MirrorNews News() const override { return news_; }

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

// ExampleMirror is the example's.
class ExampleMirror : public MirrorApp, private NetObserver {
 public:
  ExampleMirror(const Policy &policy, const MirrorSetup &setup)
      : NetObserver(
            {setup.ctx, setup.tmr, TableKey(), setup.peer, setup.isIdl, false, policy.seconds}) {}

  bool Start() override { return NetObserver::Start(); }
  const NetMirror &Mirror() const override { return NetObserver::Mirror(); }
  MirrorNews News() const override {
    MirrorNews news;
    news.numDocuments = NumDocuments();
    news.numRefused = NumRefused();
    news.numDisconnects = numLost_;
    return news;
  }

 private:
  void OnLost() override { ++numLost_; }

  uint32_t numLost_ = 0;
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

PublisherApp::PublisherApp(bool isIdl)
    : NetPublisher(TableKey(), isIdl ? COAP_RPC_BYTE : COAP_RPC_JSON, kFirstSet) {}

bool PublisherApp::Serve(CoapRpcCtx *ctx, const CoapRpcIpAddr &addr) {
  return Register(ctx) && Attach(addr);
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
  if (policy.kind == Policy::kExample) return std::make_unique<ExampleMirror>(policy, setup);
  return std::make_unique<AskingMirror>(policy, setup);
}

}  // namespace netfault
