/* server_fixture.h: the tables of the server side on a TestHost, with its display commands and an
 * adapter that succeeds without doing anything. */
#ifndef SERVER_FIXTURE_H
#define SERVER_FIXTURE_H

#include <cstring>
#include <string>

#include "coap_svc/rpc/server/coap_rpc_ser_attach.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_disp.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "test_instance.h"

namespace coap_rpc_test {

inline CoapRpcSerListenAddr Ipv4Listen(uint32_t ipv4, uint16_t port) {
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = ipv4;
  addr.port = port;
  return addr;
}

inline CoapRpcSerListenAddr Ipv6Listen(const char *bytes, uint16_t port) {
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV6;
  memcpy(addr.listenAddr.addr.ipv6, bytes, sizeof(addr.listenAddr.addr.ipv6));
  addr.port = port;
  return addr;
}

// EntryKind is what a registration says besides its uri.
struct EntryKind {
  uint32_t msgType = COAP_RPC_CON;
  uint32_t observe = 0;
  uint32_t pktType = COAP_RPC_DEFAULT;
  uint8_t payloadFormat = COAP_RPC_JSON;
};

class ServerFixture {
 public:
  ServerFixture() {
    ctx.param.memHandle = host.Mem();
    ctx.param.tmrHandle = host.Tmr();
    ctx.param.dispHandle = host.Disp();
    ctx.log = host.Log();
    ctx.nameStr = name;
    ctx.ser = &ser;
    ser.owner = &ctx;
    ser.createEndPoint = [](CoapRpcCtx *made, const CoapRpcSerListenAddr *) {
      return reinterpret_cast<coap_endpoint_t *>(made);  // any address: nobody looks inside
    };
    ser.deleteEndPoint = [](CoapRpcCtx *, CoapRpcSerListen *) {};
    ser.createOrUpdateResource = [](CoapRpcCtx *, const CoapRpcUriKey *) { return 0u; };
    ser.deleteResource = [](CoapRpcCtx *, const char *) {};
    KST_DispRegObj(host.Disp(), name, &ctx);
    COAP_RpcSerVtblInit(&ser);
    COAP_RpcSerResourceInit(&ser);
    COAP_RpcSerConnInit(&ser);
    COAP_RpcSerUriInit(&ser);
    COAP_RpcSerDispInit(&ser);
    ob.keyLen = 4;
    ob.valLen = 4;
    ob.tupleKeyCmp = [](const void *a, const void *b) { return memcmp(a, b, 4); };
  }
  ServerFixture(const ServerFixture &) = delete;
  ServerFixture &operator=(const ServerFixture &) = delete;
  ~ServerFixture() {
    COAP_RpcSerDispUninit(&ser);
    COAP_RpcSerUriUninit(&ser);
    COAP_RpcSerConnUninit(&ser);
    COAP_RpcSerResourceUninit(&ser);
    KST_DispUnregObj(host.Disp(), name);
    EXPECT_TRUE(host.Pool().Violations().empty());
  }

  CoapRpcSerUriVtbl *Add(const CoapRpcUriKey &key, uint8_t payloadFormat = COAP_RPC_JSON,
                         const CoapRpcSerObVtblReg *obReg = nullptr) {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = payloadFormat;
    CoapRpcSerUriVtbl *entry = COAP_RpcSerAddUriVtbl(&ser, &key, &reg, obReg);
    EXPECT_NE(entry, nullptr);
    return entry;
  }

  CoapRpcSerUriVtbl *Add(const std::string &uri, EntryKind kind = {},
                         const CoapRpcSerObVtblReg *obReg = nullptr) {
    return Add(KeyOf(uri.c_str(), kind.msgType, kind.observe, kind.pktType), kind.payloadFormat,
               obReg);
  }

  // AddObservable registers a uri that publishes tuples laid out as `ob` says.
  CoapRpcSerUriVtbl *AddObservable(const std::string &uri) { return Add(uri, {.observe = 1}, &ob); }

  void Attach(CoapRpcSerUriVtbl *entry, const CoapRpcSerListenAddr &addr) {
    EXPECT_EQ(COAP_RpcSerCreatListen(&ctx, &entry->key, &addr), 0u);
  }

  TestHost host;
  CoapRpcCtx ctx = {};
  CoapRpcSerData ser = {};
  CoapRpcSerObVtblReg ob = {};
  char name[5] = "inst";
};

}  // namespace coap_rpc_test

#endif /* SERVER_FIXTURE_H */
