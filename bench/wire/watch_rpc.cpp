/* watch_rpc.cpp: tuples published and observed through the library.
 *
 *   --role server   has an empty table on 127.0.0.1; 200 ms after somebody has begun to observe it,
 *                   fills it and says when: "updated_ns"
 *   --role client   observes it, says when the last tuple has come, "last_ns", and ends
 *   --tuples <n>    (1)
 *   --format json|idl
 *   --filled yes    the server's table is full from the start
 *   --again yes     the server refills a full table ten times per second */
#include <jansson.h>

#include <cstdio>

#include "clock.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "kst_tmr.h"
#include "options.h"
#include "watch.h"
#include "wire_host.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint32_t kDelayMs = 200;
constexpr uint32_t kAgainMs = 100;

CoapRpcUriKey WatchKey() {
  CoapRpcUriKey key = {};
  snprintf(key.uri, sizeof(key.uri), "%s", kWatchUri);
  key.observe = 1;
  return key;
}

// Publisher is the serving side.
class Publisher {
 public:
  Publisher(WireHost &host, const Options &options)
      : host_(host),
        ctx_(host.NewInstance()),
        numTuples_(options.Number("--tuples", 1)),
        isIdl_(options.Is("--format", "idl")) {
    Serve();
    if (options.Is("--again", "yes")) {
      KST_TmrStartLoop(KestrelTmr(host_.Get()), Again, kAgainMs, this);
    }
    if (options.Is("--filled", "yes")) {
      UpdateAll();
      isDone_ = true;
    }
  }

 private:
  static Publisher &Of(uint64_t userData) { return *reinterpret_cast<Publisher *>(userData); }

  void Serve() {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = isIdl_ ? COAP_RPC_BYTE : COAP_RPC_JSON;
    reg.userData = reinterpret_cast<uint64_t>(this);
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = kFieldLen;
    ob.tupleKeyCmp = [](const void *a, const void *b) -> int32_t {
      return memcmp(a, b, kFieldLen);
    };
    ob.onObserverNum = OnObserverNum;
    ob.buildUpdate = isIdl_ ? BuildIdl : BuildJson;
    ob.buildDelete = [](uint64_t, uint8_t *, void *) { return 0u; };
    ob.getFirstTuple = GetFirst;
    ob.getNextTuple = GetNext;
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = kServerIpv4;
    addr.port = kWatchPort;
    if (COAP_RpcSerRegVtbl(ctx_, &key_, &reg, &ob) != 0) abort();
    if (COAP_RpcSerSetUri(ctx_, &key_, &addr) != 0) abort();
  }

  static uint32_t BuildJson(uint64_t, uint8_t *tuple, uint8_t *val, void *out) {
    auto *element = static_cast<json_t *>(out);
    json_object_set_new(element, "key", json_string(reinterpret_cast<char *>(tuple)));
    json_object_set_new(element, "val", json_string(reinterpret_cast<char *>(val)));
    return 0;
  }
  static uint32_t BuildIdl(uint64_t, uint8_t *tuple, uint8_t *val, void *out) {
    auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(out);
    memcpy(msg->buf, tuple, kFieldLen);
    memcpy(msg->buf + kFieldLen, val, kFieldLen);
    msg->len = 2 * kFieldLen;
    return 0;
  }

  // The cursor of the walk over the application's tuples is the index of the next one.
  static uint32_t GetFirst(uint64_t self, void *cursor, void *key, void *val) {
    return GetNext(self, cursor, nullptr, key, val);
  }
  static uint32_t GetNext(uint64_t self, void *cursor, const void *, void *key, void *val) {
    uint32_t next = 0;
    memcpy(&next, cursor, sizeof(next));
    if (next >= Of(self).numTuples_) return 1;
    memcpy(key, KeyOfTuple(next).bytes, kFieldLen);
    memcpy(val, kWatchValue, kFieldLen);
    ++next;
    memcpy(cursor, &next, sizeof(next));
    return 0;
  }

  static void OnObserverNum(uint64_t userData, uint32_t num) {
    Publisher &self = Of(userData);
    if (num == 0 || self.isDone_ || self.timer_ != 0) return;
    self.timer_ = KST_TmrStartLoop(KestrelTmr(self.host_.Get()), Publish, kDelayMs, &self);
  }

  static uint32_t Publish(void *param) {
    auto *self = static_cast<Publisher *>(param);
    KST_TmrStop(KestrelTmr(self->host_.Get()), self->timer_);
    self->isDone_ = true;
    const uint64_t fromNs = NowNs();
    self->UpdateAll();
    printf("updated_ns %llu\nqueue_us %.1f\n", static_cast<unsigned long long>(fromNs),
           static_cast<double>(NowNs() - fromNs) / 1000);
    fflush(stdout);
    return 0;
  }

  static uint32_t Again(void *param) {
    static_cast<Publisher *>(param)->UpdateAll();
    return 0;
  }

  void UpdateAll() {
    for (uint32_t i = 0; i < numTuples_; ++i) {
      COAP_RpcSerObserveDataUpdate(ctx_, &key_, KeyOfTuple(i).bytes, kWatchValue);
    }
  }

  WireHost &host_;
  CoapRpcCtx *ctx_;
  const CoapRpcUriKey key_ = WatchKey();
  uint32_t numTuples_;
  bool isIdl_;
  bool isDone_ = false;
  uint64_t timer_ = 0;
};

// Watcher is the observing side.
class Watcher {
 public:
  Watcher(WireHost &host, const Options &options)
      : host_(host),
        ctx_(host.NewInstance()),
        numTuples_(options.Number("--tuples", 1)),
        isIdl_(options.Is("--format", "idl")) {}

  void Observe() {
    CoapRpcCliVtblReg reg = {};
    reg.payloadFormat = isIdl_ ? COAP_RPC_BYTE : COAP_RPC_JSON;
    reg.userData = reinterpret_cast<uint64_t>(this);
    reg.onResponse = OnNotification;
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = kAskerIpv4;
    addr.dstIp.addr.ipv4 = kServerIpv4;
    addr.dstPort = kWatchPort;
    addr.codeType = COAP_RPC_GET;
    const CoapRpcCliReqParam param = {};
    const CoapRpcUriKey key = WatchKey();
    if (COAP_RpcCliRegVtbl(ctx_, &key, &reg) != 0) abort();
    if (COAP_RpcCliObserveReq(ctx_, &key, &param, &addr) != 0) abort();
  }

 private:
  static uint32_t OnNotification(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                                 const CoapRpcCliRspInfo *) {
    auto *self = reinterpret_cast<Watcher *>(userData);
    self->numSeen_ += CountTuples(payload, len, self->isIdl_);
    if (self->numSeen_ < self->numTuples_) return 0;
    printf("last_ns %llu\n", static_cast<unsigned long long>(NowNs()));
    self->host_.Stop();
    return 0;
  }

  WireHost &host_;
  CoapRpcCtx *ctx_;
  uint32_t numTuples_;
  bool isIdl_;
  uint32_t numSeen_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  WireHost host(Logging::kNone);
  if (options.Is("--role", "client")) {
    Watcher watcher(host, options);
    watcher.Observe();
    host.Run();
  } else {
    const Publisher publisher(host, options);
    host.Run();
  }
  return 0;
}
