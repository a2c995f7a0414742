/* memory.cpp: what one more of each thing takes, in the instance's pool and in all the heap
 * (libcoap's part included).
 *
 *   --count <n>    how many of each are made (1000)
 *
 * Prints "name pool_bytes heap_bytes" lines, bytes for each. */
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "options.h"
#include "watch.h"
#include "wire_host.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint16_t kPort = 5683;
constexpr uint32_t kMaxSockets = 900;  // below the usual limit of a process, libcoap's included

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

CoapRpcUriKey KeyOf(const std::string &uri, uint32_t observe, uint32_t pktType) {
  CoapRpcUriKey key = {};
  uri.copy(key.uri, sizeof(key.uri) - 1);
  key.observe = observe;
  key.pktType = pktType;
  return key;
}

// Measure is one instance in which things are made.
class Measure {
 public:
  explicit Measure(uint32_t count) : count_(count), host_(Logging::kNone) {
    ctx_ = host_.NewInstance();
    listen_.listenAddr.family = COAP_RPC_IPV4;
    listen_.listenAddr.addr.ipv4 = kServerIpv4;
    listen_.port = kPort;
    RegisterObservable(watched_);
    RegisterObservable(quiet_);
  }

  void Run() {
    Each("registered URI", count_, [&](uint32_t i) {
      const CoapRpcSerVtblReg reg = {};
      COAP_RpcSerRegVtbl(ctx_, &Uri(i), &reg, nullptr);
    });
    Each("URI attached", count_, [&](uint32_t i) { COAP_RpcSerSetUri(ctx_, &Uri(i), &listen_); });
    Each("tuple", count_, [&](uint32_t i) { Update(quiet_, i); });
    RunSessions();
    RunPeers();
    Each("tuple and its pending change", count_, [&](uint32_t i) { Update(watched_, i); });
  }

 private:
  void RegisterObservable(const CoapRpcUriKey &key) {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = kFieldLen;
    ob.tupleKeyCmp = FieldCmp;
    COAP_RpcSerRegVtbl(ctx_, &key, &reg, &ob);
    COAP_RpcSerSetUri(ctx_, &key, &listen_);
  }

  CoapRpcUriKey &Uri(uint32_t i) {
    uri_ = KeyOf("plant/unit/" + std::to_string(100000 + i), 0, COAP_RPC_UNICAST);
    return uri_;
  }

  void Update(const CoapRpcUriKey &key, uint32_t i) {
    COAP_RpcSerObserveDataUpdate(ctx_, &key, KeyOfTuple(i).bytes, kWatchValue);
  }

  // A relation keeps its request until it is ended; to further ports it takes a session as well.
  void RunSessions() {
    CoapRpcCliVtblReg reg = {};
    const CoapRpcUriKey key = KeyOf(kWatchUri, 1, COAP_RPC_DEFAULT);
    COAP_RpcCliRegVtbl(ctx_, &key, &reg);
    const auto observe = [&](uint32_t i, uint16_t port) {
      CoapRpcCliAddr addr = {};
      addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
      addr.srcIp.addr.ipv4 = kServerIpv4;
      addr.dstIp.addr.ipv4 = kAskerIpv4;
      addr.dstPort = port;
      addr.codeType = COAP_RPC_GET;
      CoapRpcCliReqParam param = {};
      param.userData = i;
      COAP_RpcCliObserveReq(ctx_, &key, &param, &addr);
    };
    observe(0, 1000);
    Each("client request", count_, [&](uint32_t i) { observe(1 + i, 1000); });
    Each("client request and session", std::min(count_, kMaxSockets),
         [&](uint32_t i) { observe(1000000 + i, static_cast<uint16_t>(2000 + i)); });
  }

  // Each peer is a socket of ours; the bare libcoap share of a peer is in the heap's figure.
  void RunPeers() {
    const uint32_t num = std::min(count_, kMaxSockets);
    for (uint32_t i = 0; i < num; ++i) sockets_.push_back(Connected());
    Each("peer of the server", num, [&](uint32_t i) { Ask(sockets_[i], false); });
    Each("observer", num, [&](uint32_t i) { Ask(sockets_[i], true); });
  }

  static int Connected() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in server = Ipv4Address(kServerIpv4, kPort);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&server), sizeof(server)) != 0) abort();
    return fd;
  }

  void Ask(int fd, bool isObserving) {
    // NON GET: token 1, Observe 0 or none, Uri-Path.
    std::string request = {'\x51', '\x01', '\0', '\1', '\1'};
    request += isObserving ? "\x60\x56" : "\xB6";
    request += kWatchUri;
    static_cast<void>(!write(fd, request.data(), request.size()));
    COAP_RpcProcIo(ctx_);
  }

  void Each(const char *name, uint32_t num, const std::function<void(uint32_t)> &make) {
    const uint64_t poolBefore = PoolBytes();
    const uint64_t heapBefore = HeapBytes();
    for (uint32_t i = 0; i < num; ++i) make(i);
    printf("%s\t%.0f\t%.0f\n", name, static_cast<double>(PoolBytes() - poolBefore) / num,
           static_cast<double>(HeapBytes() - heapBefore) / num);
  }

  uint64_t PoolBytes() const {
    KestrelMemStat stat = {};
    KestrelMemStatGet(KestrelMem(host_.Get()), &stat);
    return stat.liveBytes;
  }
  static uint64_t HeapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  }

  uint32_t count_;
  WireHost host_;
  CoapRpcCtx *ctx_;
  CoapRpcSerListenAddr listen_ = {};
  const CoapRpcUriKey watched_ = KeyOf(kWatchUri, 1, COAP_RPC_DEFAULT);
  const CoapRpcUriKey quiet_ = KeyOf("quiet", 1, COAP_RPC_DEFAULT);
  CoapRpcUriKey uri_ = {};
  std::vector<int> sockets_;
};

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  Measure measure(options.Number("--count", 1000));
  measure.Run();
  return 0;
}
