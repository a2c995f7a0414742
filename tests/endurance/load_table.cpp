#include "load_table.h"

namespace coap_rpc_test {
namespace {

constexpr char kDigestKey[] = "#sum";
constexpr uint32_t kObserveSource = 16;  // relations have a session apart from calls

std::string FourDigits(uint32_t number) { return std::to_string(10'000 + number).substr(1); }

// A change that was queued when the last observer left may be of a tuple that was removed since.
template <bool kIsJson>
uint32_t BuildUpdate(uint64_t userData, uint8_t *tuple, uint8_t *val, void *element) {
  const bool isThere = ObserveApp::Of(userData).data.count(ObserveApp::Text(tuple)) != 0;
  return isThere ? ObserveApp::BuildUpdate<kIsJson>(userData, tuple, val, element)
                 : ObserveApp::BuildDelete<kIsJson>(userData, tuple, element);
}

}  // namespace

std::string DigestOf(const Tuples &tuples) {
  uint32_t hash = 2166136261u;
  for (const auto &[key, val] : tuples) {
    if (key == kDigestKey) continue;
    for (const char c : key + "=" + val + ";") {
      hash = (hash ^ static_cast<uint8_t>(c)) * 16777619u;
    }
  }
  return FourDigits((hash ^ hash >> 16) % 10'000);
}

void PublishedTable::Start() {
  app_.padding = kind_.padding;
  const CoapRpcUriKey key = KeyOf(kind_.uri, kind_.msgType, 1);
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = kind_.isJson ? COAP_RPC_JSON : COAP_RPC_BYTE;
  reg.userData = reinterpret_cast<uint64_t>(static_cast<App *>(&app_));
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = ob.valLen = 4;
  ob.tupleKeyCmp = ObserveApp::KeyCmp;
  ob.buildUpdate = kind_.isJson ? BuildUpdate<true> : BuildUpdate<false>;
  ob.buildDelete = kind_.isJson ? ObserveApp::BuildDelete<true> : ObserveApp::BuildDelete<false>;
  ob.getFirstTuple = ObserveApp::First;
  ob.getNextTuple = ObserveApp::Next;
  EXPECT_EQ(COAP_RpcSerRegVtbl(node_.ctx, &key, &reg, &ob), 0u);
}

void PublishedTable::Attach() { node_.Attach(KeyOf(kind_.uri, kind_.msgType, 1)); }

void PublishedTable::Detach() { node_.Detach(KeyOf(kind_.uri, kind_.msgType, 1)); }

void PublishedTable::Put(const std::string &key, const std::string &val) {
  app_.data[key] = val;
  const CoapRpcUriKey uri = KeyOf(kind_.uri, kind_.msgType, 1);
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(node_.ctx, &uri, key.data(), val.data()), 0u);
}

void PublishedTable::Erase(const std::string &key) {
  if (app_.data.erase(key) == 0) return;
  const CoapRpcUriKey uri = KeyOf(kind_.uri, kind_.msgType, 1);
  COAP_RpcSerObserveDataDel(node_.ctx, &uri, key.data());
}

void PublishedTable::PutDigest() {
  Put(kDigestKey, DigestOf(app_.data));
  ++numChanges_;
}

void PublishedTable::Set(const std::string &key, const std::string &val) {
  Put(key, val);
  PutDigest();
}

void PublishedTable::Change(uint32_t num) {
  for (uint32_t i = 0; i < num; ++i) {
    const std::string key = FourDigits(node_.Below(kind_.numKeys));
    if (node_.Below(4) == 0) {
      Erase(key);
    } else {
      Put(key, FourDigits(node_.Below(10'000)));
    }
  }
  PutDigest();
}

void PublishedTable::Reset() {
  for (uint32_t i = 0; i < kind_.numKeys; ++i) Put(FourDigits(i), FourDigits(i));
  PutDigest();
}

void MirroredTable::Start() {
  CoapRpcCliVtblReg reg = {};
  reg.userData = reinterpret_cast<uint64_t>(this);
  reg.onResponse = OnPayload;
  const CoapRpcUriKey key = Key();
  EXPECT_EQ(COAP_RpcCliRegVtbl(node_.ctx, &key, &reg), 0u);
  BeginAgain();
}

void MirroredTable::Observe(Side::Request *how) {
  EXPECT_EQ(node_.Call(how, Key(), COAP_RPC_GET, "", kObserveSource), 0u);
}

void MirroredTable::Leave() { Observe(COAP_RpcCliObserveUnReq); }

void MirroredTable::BeginAgain() {
  Leave();
  mirror_.tuples.clear();
  differsSinceMs_ = node_.nowMs + 1;
  nextRenewMs_ = node_.nowMs + patience_.renewMs;
  Observe(COAP_RpcCliObserveReq);
}

void MirroredTable::Renew() {
  const uint32_t which = node_.Below(10);
  if (which == 0) {
    ++counts_.cancels;
    BeginAgain();
    return;
  }
  RenewBy(which < 3 ? COAP_RpcCliObserveReqBatch : COAP_RpcCliObserveReqVerify);
}

void MirroredTable::RenewBy(Side::Request *how) {
  ++counts_.renewals;
  nextRenewMs_ = node_.nowMs + patience_.renewMs;
  Observe(how);
}

void MirroredTable::Verify() { RenewBy(COAP_RpcCliObserveReqVerify); }

void MirroredTable::Step(bool isQuiet) {
  if (differsSinceMs_ != 0 && node_.nowMs >= differsSinceMs_ + patience_.doubtMs) {
    ++counts_.rebuilt;
    BeginAgain();
  } else if (node_.nowMs >= nextRenewMs_) {
    isQuiet ? RenewBy(patience_.renewAtRest) : Renew();
  }
}

void MirroredTable::NoteDigest() {
  const auto stated = mirror_.tuples.find(kDigestKey);
  const bool isEqual = stated != mirror_.tuples.end() && stated->second == DigestOf(mirror_.tuples);
  if (isEqual) {
    differsSinceMs_ = 0;
  } else if (differsSinceMs_ == 0) {
    differsSinceMs_ = node_.nowMs;
  }
}

uint32_t MirroredTable::OnPayload(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                                  const CoapRpcCliRspInfo *) {
  auto &self = *reinterpret_cast<MirroredTable *>(userData);
  const std::string text(payload, payload + len);
  if (self.kind_.isJson) {
    self.mirror_.TakeJson(text);
  } else {
    self.mirror_.TakeIdl(text);
  }
  ++self.counts_.payloads;
  self.counts_.bytes += len;
  self.NoteDigest();
  return 0;
}

}  // namespace coap_rpc_test
