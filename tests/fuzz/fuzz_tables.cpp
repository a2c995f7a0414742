#include "fuzz_tables.h"

#include <cstring>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "fresh_memory.h"
#include "fuzz_host.h"
#include "fuzz_wire.h"

namespace fuzz {
namespace {

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

CoapRpcSerObVtblReg Observed(const Entry &entry, const ServerApp &app) {
  const bool isJson = entry.format == COAP_RPC_JSON;
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = kFieldLen;
  ob.valLen = entry.valLen;
  ob.tupleKeyCmp = FieldCmp;
  ob.onObserverNum = app.onObserverNum;
  ob.buildUpdate = isJson ? app.buildJson : app.buildIdl;
  ob.buildDelete = isJson ? app.buildJsonDelete : app.buildIdlDelete;
  ob.getFirstTuple = app.getFirst;
  ob.getNextTuple = app.getNext;
  return ob;
}

CoapRpcSerListenAddr ListenAddr(uint8_t number, uint16_t port) {
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr = IpAddr(number);
  addr.port = port;
  return addr;
}

}  // namespace

CoapRpcUriKey KeyOf(const Entry &entry) {
  return KeyOf(entry.uri, entry.msgType, entry.observe, entry.pktType);
}

uint32_t RegisterServer(CoapRpcCtx *ctx, const Entry &entry, const ServerApp &app) {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = entry.format;
  reg.mode = entry.mode;
  reg.userData = app.userData;
  reg.onRequest = app.onRequest;
  reg.onAsyncRequest = app.onAsyncRequest;
  const CoapRpcUriKey key = KeyOf(entry);
  const CoapRpcSerObVtblReg ob = Observed(entry, app);
  return COAP_RpcSerRegVtbl(ctx, &key, &reg, entry.observe != 0 ? &ob : nullptr);
}

uint32_t RegisterClient(CoapRpcCtx *ctx, const Entry &entry, const ClientApp &app) {
  CoapRpcCliVtblReg reg = {};
  reg.payloadFormat = entry.format;
  reg.userData = app.userData;
  reg.buildReq = app.buildReq;
  reg.onResponse = app.onResponse;
  reg.onDisconnect = app.onDisconnect;
  const CoapRpcUriKey key = KeyOf(entry);
  return COAP_RpcCliRegVtbl(ctx, &key, &reg);
}

uint32_t AttachAt(CoapRpcCtx *ctx, const Entry &entry, uint8_t number, uint16_t port) {
  const CoapRpcSerListenAddr addr = ListenAddr(number, port);
  const CoapRpcUriKey key = KeyOf(entry);
  return COAP_RpcSerSetUri(ctx, &key, &addr);
}

uint32_t ReopenAt(CoapRpcCtx *ctx, uint8_t number, uint16_t port) {
  const CoapRpcSerListenAddr addr = ListenAddr(number, port);
  return COAP_RpcSerReopen(ctx, &addr);
}

uint32_t Detach(CoapRpcCtx *ctx, const Entry &entry) {
  const CoapRpcUriKey key = KeyOf(entry);
  return COAP_RpcSerUnsetUri(ctx, &key);
}

void CheckRequest(const uint8_t *payload, uint32_t len) {
  Check(payload[len] == 0, "a request is not terminated");
  coap_rpc_test::CheckWritten(payload, len);
}

void CheckResponse(const uint8_t *payload, uint32_t len) {
  Check(payload ? payload[len] == 0 : len == 0, "a response is not terminated");
  if (payload) coap_rpc_test::CheckWritten(payload, len);
}

CoapRpcCliAddr CallAddr(uint8_t from, uint8_t to, uint32_t code) {
  CoapRpcCliAddr addr = {};
  addr.srcIp = IpAddr(from);
  addr.dstIp = IpAddr(to);
  addr.dstPort = kCoapPort;
  addr.codeType = code;
  return addr;
}

}  // namespace fuzz
