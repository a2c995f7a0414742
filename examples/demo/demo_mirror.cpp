#include "demo_mirror.h"

Mirror::Mirror(Node &node, const char *uri, uint8_t payloadFormat)
    : node_(node),
      uri_(uri),
      payloadFormat_(payloadFormat),
      key_(ExampleKey(uri, 1, COAP_RPC_DEFAULT)),
      peer_(node.Peer(EXAMPLE_PORT, COAP_RPC_GET)) {}

bool Mirror::Start() {
  CoapRpcCliVtblReg reg = {};
  reg.payloadFormat = payloadFormat_;
  reg.userData = reinterpret_cast<uint64_t>(this);
  reg.onResponse = OnDocument;
  reg.onDisconnect = OnDisconnect;
  return COAP_RpcCliRegVtbl(node_.Ctx(), &key_, &reg) == 0;
}

void Mirror::Observe() { COAP_RpcCliObserveReq(node_.Ctx(), &key_, &param_, &peer_); }

void Mirror::Verify() { COAP_RpcCliObserveReqVerify(node_.Ctx(), &key_, &param_, &peer_); }

void Mirror::Leave() { COAP_RpcCliObserveUnReq(node_.Ctx(), &key_, &param_, &peer_); }

void Mirror::BeginAgain() {
  copy_.rows.clear();
  Leave();
  Observe();
}

uint32_t Mirror::OnDocument(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                            const CoapRpcCliRspInfo *) {
  if (len == 0) return 0;
  Mirror &self = Of(userData);
  const std::string_view document(reinterpret_cast<const char *>(payload), len);
  const auto apply = self.payloadFormat_ == COAP_RPC_JSON ? ApplyJson : ApplyIdl;
  const int numRows = apply(document, self.copy_);
  if (numRows < 0) {
    ++self.numRefused_;
    return 0;
  }
  ++self.numDocuments_;
  self.numRows_ += static_cast<uint64_t>(numRows);
  self.numBytes_ += len;
  return 0;
}

void Mirror::OnDisconnect(uint64_t userData, const CoapRpcIpAddr *) {
  ++Of(userData).numDisconnects_;
}
