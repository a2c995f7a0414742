#include "netfault_apps.h"

#include <jansson.h>

#include <cstring>
#include <utility>

#include "kst_tmr.h"
#include "net_observer.h"

namespace netfault {
namespace {

int32_t CompareNames(const void *a, const void *b) { return memcmp(a, b, sizeof(NetName)); }

NetName NameAt(const void *bytes) {
  NetName name;
  memcpy(name.data(), bytes, sizeof(name));
  return name;
}

void WriteJson(const NetIdl &element, json_t *object) {
  const auto set = [&](const char *name, uint64_t number) {
    json_object_set_new(object, name, json_integer(static_cast<json_int_t>(number)));
  };
  json_object_set_new(object, "name", json_string(element.name.data()));
  if (!(element.kind & NetIdl::kIsThere)) {
    json_object_set_new(object, "gone", json_true());
    return;
  }
  set("rxBytes", element.counters.rxBytes);
  set("rxPackets", element.counters.rxPackets);
  set("txBytes", element.counters.txBytes);
  set("txPackets", element.counters.txPackets);
  if (element.kind & NetIdl::kIsFirst) json_object_set_new(object, "first", json_true());
}

uint32_t Give(const NetTable &table, NetTable::const_iterator it, void *key, void *val) {
  if (it == table.end()) return 1;
  memcpy(key, it->first.data(), sizeof(NetName));
  memcpy(val, &it->second, sizeof(NetCounters));
  return 0;
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

bool PublisherApp::Serve(CoapRpcCtx *ctx, const CoapRpcIpAddr &addr) {
  ctx_ = ctx;
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = isIdl_ ? COAP_RPC_BYTE : COAP_RPC_JSON;
  reg.userData = reinterpret_cast<uint64_t>(this);
  CoapRpcSerObVtblReg obReg = {};
  obReg.keyLen = sizeof(NetName);
  obReg.valLen = sizeof(NetCounters);
  obReg.tupleKeyCmp = CompareNames;
  obReg.buildUpdate = BuildUpdate;
  obReg.buildDelete = BuildDelete;
  obReg.getFirstTuple = First;
  obReg.getNextTuple = Next;
  const CoapRpcUriKey key = TableKey();
  if (COAP_RpcSerRegVtbl(ctx_, &key, &reg, &obReg) != 0 || !Attach(addr)) return false;
  for (const auto &[name, counters] : table_) {
    COAP_RpcSerObserveDataUpdate(ctx_, &key, name.data(), &counters);
  }
  return true;
}

bool PublisherApp::Attach(const CoapRpcIpAddr &addr) {
  const CoapRpcUriKey key = TableKey();
  CoapRpcSerListenAddr listen = {};
  listen.listenAddr = addr;
  listen.port = kCoapPort;
  return ctx_ && COAP_RpcSerSetUri(ctx_, &key, &listen) == 0;
}

void PublisherApp::Detach() {
  const CoapRpcUriKey key = TableKey();
  if (ctx_) COAP_RpcSerUnsetUri(ctx_, &key);
}

void PublisherApp::Set(const NetName &name, const NetCounters &counters) {
  const CoapRpcUriKey key = TableKey();
  table_[name] = counters;
  ++numChanges_;
  if (ctx_) COAP_RpcSerObserveDataUpdate(ctx_, &key, name.data(), &counters);
}

void PublisherApp::Erase(const NetName &name) {
  const CoapRpcUriKey key = TableKey();
  table_.erase(name);
  ++numChanges_;
  if (ctx_) COAP_RpcSerObserveDataDel(ctx_, &key, name.data());
}

uint32_t PublisherApp::Write(const NetIdl &element, void *out) const {
  if (isIdl_) {
    auto *buf = static_cast<CoapRpcSerIdlMsgBuf *>(out);
    buf->len = static_cast<uint32_t>(element.Write(buf->buf));
  } else {
    WriteJson(element, static_cast<json_t *>(out));
  }
  return 0;
}

uint32_t PublisherApp::BuildUpdate(uint64_t self, uint8_t *key, uint8_t *val, void *out) {
  NetIdl element;
  element.kind = NetIdl::kIsThere;
  if (std::exchange(Of(self).isFullSet_, false)) element.kind |= NetIdl::kIsFirst;
  element.name = NameAt(key);
  memcpy(&element.counters, val, sizeof(element.counters));  // not aligned
  return Of(self).Write(element, out);
}

uint32_t PublisherApp::BuildDelete(uint64_t self, uint8_t *key, void *out) {
  NetIdl element;
  element.name = NameAt(key);
  return Of(self).Write(element, out);
}

uint32_t PublisherApp::First(uint64_t self, void *, void *key, void *val) {
  Of(self).isFullSet_ = Of(self).isMarked_;
  return Give(Of(self).table_, Of(self).table_.begin(), key, val);
}

uint32_t PublisherApp::Next(uint64_t self, void *, const void *last, void *key, void *val) {
  return Give(Of(self).table_, Of(self).table_.upper_bound(NameAt(last)), key, val);
}

std::unique_ptr<MirrorApp> MakeMirror(const Policy &policy, const MirrorSetup &setup) {
  if (policy.kind == Policy::kExample) return std::make_unique<ExampleMirror>(policy, setup);
  return std::make_unique<AskingMirror>(policy, setup);
}

}  // namespace netfault
