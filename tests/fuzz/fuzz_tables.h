/* fuzz_tables.h: what targets that serve or call share: URIs, the records that register their
 * callbacks, and the addresses at which they are served and called. */
#ifndef FUZZ_TABLES_H
#define FUZZ_TABLES_H

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ser.h"

namespace fuzz {

inline constexpr uint16_t kFieldLen = 4;  // of a tuple's key, and of its value

// Entry is one URI, of a server or of a client.
struct Entry {
  const char *uri;
  uint32_t msgType;
  uint32_t observe;
  uint32_t pktType;
  uint8_t mode = 0;
  uint8_t format = COAP_RPC_JSON;
  uint16_t valLen = 0;
};

CoapRpcUriKey KeyOf(const Entry &entry);

// ServerApp and ClientApp are an application's callbacks, for all of its entries.  Those that build
// are taken by an entry's format.
struct ServerApp {
  uint64_t userData = 0;
  CoapRpcSerOnRequest onRequest = nullptr;
  CoapRpcSerOnAsyncRequest onAsyncRequest = nullptr;
  CoapRpcOnObserverNum onObserverNum = nullptr;
  CoapRpcBuildUpdate buildJson = nullptr;
  CoapRpcBuildDelete buildJsonDelete = nullptr;
  CoapRpcBuildUpdate buildIdl = nullptr;
  CoapRpcBuildDelete buildIdlDelete = nullptr;
  CoapRpcGetFirstTuple getFirst = nullptr;
  CoapRpcGetNextTuple getNext = nullptr;
};

struct ClientApp {
  uint64_t userData = 0;
  CoapRpcCliBuildReq buildReq = nullptr;
  CoapRpcCliOnResponse onResponse = nullptr;
  CoapRpcCliOnDisconnect onDisconnect = nullptr;
};

// These return what the library does.  Addresses are by their numbers (fuzz_wire.h).
uint32_t RegisterServer(CoapRpcCtx *ctx, const Entry &entry, const ServerApp &app);
uint32_t RegisterClient(CoapRpcCtx *ctx, const Entry &entry, const ClientApp &app);
uint32_t AttachAt(CoapRpcCtx *ctx, const Entry &entry, uint8_t number, uint16_t port);
uint32_t Detach(CoapRpcCtx *ctx, const Entry &entry);
uint32_t ReopenAt(CoapRpcCtx *ctx, uint8_t number, uint16_t port);

// CheckRequest and CheckResponse look at what a callback was given: terminated, and each byte
// written by somebody.
void CheckRequest(const uint8_t *payload, uint32_t len);
void CheckResponse(const uint8_t *payload, uint32_t len);

// CallAddr is the address of a call to the CoAP port of a peer.
CoapRpcCliAddr CallAddr(uint8_t from, uint8_t to, uint32_t code);

inline constexpr decltype(&COAP_RpcCliConReq) kCalls[] = {
    COAP_RpcCliConReq,           COAP_RpcCliNonReq,          COAP_RpcCliObserveReq,
    COAP_RpcCliObserveReqVerify, COAP_RpcCliObserveReqBatch, COAP_RpcCliObserveUnReq};

}  // namespace fuzz

#endif /* FUZZ_TABLES_H */
