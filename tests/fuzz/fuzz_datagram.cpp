// Bytes from the network into a server with every kind of registration, through the real receive
// path: socket, libcoap, look-up, handlers, application callbacks.  The input is cut into datagrams
// by length prefixes (two bytes, big-endian), so that a run can hold block transfers, observe
// relations and retransmissions.
#include <arpa/inet.h>
#include <jansson.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr int kMaxDatagrams = 32;
constexpr uint16_t kFieldLen = 4;

int32_t OnRequest(uint64_t, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len, uint8_t *out,
                  uint32_t outSize) {
  // The first byte says what the application answers: every value is one.
  if (payload[0] == 'n') return -static_cast<int32_t>(len);
  const uint32_t numBytes = len * 40;
  if (numBytes > outSize) return INT32_MAX;
  memset(out, 'x', numBytes);
  return static_cast<int32_t>(numBytes);
}

CoapRpcCtx *g_ctx;

uint32_t OnAsyncRequest(uint64_t, uint8_t *payload, uint32_t len, void *async) {
  if (payload[0] == 'a') COAP_RpcSerAbortAsyncResponse(g_ctx, async);
  if (payload[0] != 'l') COAP_RpcSerSendAsyncResponse(g_ctx, async, payload, len);
  return 0;
}

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

uint32_t BuildJson(uint64_t, uint8_t *tuple, uint8_t *, void *out) {
  json_object_set_new(static_cast<json_t *>(out), "k", json_integer(tuple[0]));
  return tuple[0] == 3;
}
uint32_t BuildJsonDelete(uint64_t userData, uint8_t *tuple, void *out) {
  return BuildJson(userData, tuple, nullptr, out);
}

uint32_t GetFirst(uint64_t, void *, void *key, void *) {
  memset(key, 9, kFieldLen);
  return 0;
}
uint32_t GetNext(uint64_t, void *, const void *, void *, void *) { return 1; }

// Server is an instance with entries of all modes, types and formats on one port.
class Server {
 public:
  Server() : ctx_(host_) {
    g_ctx = ctx_;
    addr_.listenAddr.family = COAP_RPC_IPV4;
    addr_.listenAddr.addr.ipv4 = kLoopback;
    addr_.port = 0;
    COAP_RpcSetLibLogLevel(ctx_, 0);
    BindPort();
    uint32_t number = 0;
    for (uint32_t pktType = 0; pktType < 3; ++pktType) {
      for (uint32_t msgType = 0; msgType < 2; ++msgType) {
        for (uint8_t mode = 0; mode < 3; ++mode, ++number) Serve(number, msgType, pktType, mode);
      }
    }
    ServeObservable("o", COAP_RPC_CON, COAP_RPC_JSON);
    ServeObservable("p", COAP_RPC_NON, COAP_RPC_JSON);
    Connect();
  }
  ~Server() { close(peer_); }

  void Feed(const uint8_t *data, size_t size) {
    for (int i = 0; i < kMaxDatagrams && size >= 2; ++i) {
      const size_t wanted = static_cast<size_t>(data[0]) << 8 | data[1];
      const size_t len = wanted < size - 2 ? wanted : size - 2;
      if (send(peer_, data + 2, len, 0) >= 0) COAP_RpcProcIo(ctx_);
      data += 2 + len;
      size -= 2 + len;
      Change(i);
    }
    host_.AdvanceMs(1100);
    COAP_RpcProcIo(ctx_);
  }

 private:
  void BindPort() {
    const int probe = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr = Address(0);
    socklen_t len = sizeof(addr);
    if (bind(probe, reinterpret_cast<sockaddr *>(&addr), len) != 0 ||
        getsockname(probe, reinterpret_cast<sockaddr *>(&addr), &len) != 0) {
      abort();
    }
    close(probe);
    addr_.port = ntohs(addr.sin_port);
  }

  static sockaddr_in Address(uint16_t port) {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(kLoopback);
    return addr;
  }

  void Connect() {
    peer_ = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    const sockaddr_in addr = Address(addr_.port);
    if (connect(peer_, reinterpret_cast<const sockaddr *>(&addr), sizeof(addr)) != 0) abort();
  }

  void Attach(const CoapRpcUriKey &key, const CoapRpcSerVtblReg &reg,
              const CoapRpcSerObVtblReg *obReg) {
    if (COAP_RpcSerRegVtbl(ctx_, &key, &reg, obReg) != 0) abort();
    if (COAP_RpcSerSetUri(ctx_, &key, &addr_) != 0) abort();
  }

  void Serve(uint32_t number, uint32_t msgType, uint32_t pktType, uint8_t mode) {
    const char uri[] = {static_cast<char>('a' + number % 3), '\0'};
    CoapRpcSerVtblReg reg = {};
    reg.mode = mode;
    reg.onRequest = OnRequest;
    reg.onAsyncRequest = OnAsyncRequest;
    Attach(KeyOf(uri, msgType, 0, pktType), reg, nullptr);
  }

  void ServeObservable(const char *uri, uint32_t msgType, uint8_t format) {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = format;
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = kFieldLen;
    ob.tupleKeyCmp = FieldCmp;
    ob.buildUpdate = BuildJson;
    ob.buildDelete = BuildJsonDelete;
    ob.getFirstTuple = GetFirst;
    ob.getNextTuple = GetNext;
    Attach(KeyOf(uri, msgType, 1, 0), reg, &ob);
  }

  // Change lets the observable data move between datagrams.
  void Change(int step) {
    const uint8_t bytes[kFieldLen] = {static_cast<uint8_t>(step % 5)};
    for (const char *uri : {"o", "p"}) {
      const CoapRpcUriKey key = KeyOf(uri, uri[0] == 'p' ? COAP_RPC_NON : COAP_RPC_CON, 1, 0);
      if (step % 3 == 2) {
        COAP_RpcSerObserveDataDel(ctx_, &key, bytes);
      } else {
        COAP_RpcSerObserveDataUpdate(ctx_, &key, bytes, bytes);
      }
    }
  }

  TestHost host_;
  TestInstance ctx_;
  CoapRpcSerListenAddr addr_ = {};
  int peer_ = -1;
};

}  // namespace
}  // namespace coap_rpc_test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  coap_rpc_test::Server server;
  server.Feed(data, size);
  return 0;
}
