/* bench_notify.cpp: from an update to the payload owned by libcoap, compared with Jansson alone.
 *
 *   Queue     update N tuples that one observer watches: set and pending changes
 *   Handover  the tick that finds them pending, until the JSON payload has been handed over
 *   Jansson   build and print the same document without the library
 *
 * The observer is a UDP socket that registered by NON and fetches no block but the first. */
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <jansson.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "kestrel.h"
#include "kestrel_param.h"

namespace {

constexpr uint32_t kFieldLen = 16;
constexpr uint32_t kLoopback = 0x7F000001;

struct Key {
  char bytes[kFieldLen];
};

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

void FillElement(json_t *element, const char *key, const char *val) {
  json_object_set_new(element, "key", json_string(key));
  json_object_set_new(element, "val", json_string(val));
}

uint32_t BuildUpdate(uint64_t, uint8_t *tuple, uint8_t *val, void *out) {
  FillElement(static_cast<json_t *>(out), reinterpret_cast<char *>(tuple),
              reinterpret_cast<char *>(val));
  return 0;
}

uint32_t BuildDelete(uint64_t, uint8_t *, void *) { return 0; }

std::vector<Key> MakeKeys(uint32_t numTuples) {
  std::vector<Key> keys(numTuples);
  for (uint32_t i = 0; i < numTuples; ++i) snprintf(keys[i].bytes, kFieldLen, "key%08u", i);
  return keys;
}

uint16_t FreePort(int fd) {
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(kLoopback);
  socklen_t len = sizeof(addr);
  if (bind(fd, reinterpret_cast<sockaddr *>(&addr), len) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len) != 0) {
    abort();
  }
  return ntohs(addr.sin_port);
}

// Publisher is an instance with one URI and one observer.
class Publisher {
 public:
  explicit Publisher(uint32_t numTuples) : keys_(MakeKeys(numTuples)) {
    KestrelParam hostParam = {};
    hostParam.logSinks = KESTREL_SINK_NONE;
    host_ = KestrelNew(&hostParam, nullptr, 0);
    const CoapRpcInitParam param = coap_rpc_test::ParamOn(host_, "bench");
    ctx_ = COAP_RpcInit(&param);
    COAP_RpcSetLibLogLevel(ctx_, 4);
    Serve();
    Observe();
  }
  ~Publisher() {
    close(observer_);
    COAP_RpcUninit(ctx_);
    KestrelDelete(host_);
  }
  Publisher(const Publisher &) = delete;
  Publisher &operator=(const Publisher &) = delete;

  void UpdateAll() {
    for (const Key &key : keys_) {
      COAP_RpcSerObserveDataUpdate(ctx_, &key_, key.bytes, "value of a tupl");
    }
  }

  // HandOver runs until nothing is pending.
  void HandOver() {
    COAP_RpcSerUriUpdateHandle(entry_);
    while (entry_->tupleChgList.next != &entry_->tupleChgList) COAP_RpcProcIo(ctx_);
  }

  void DropChanges() {
    CoapRpcLink &head = entry_->tupleChgList;
    while (head.next != &head) {
      COAP_RpcSerDelTupleChgData(ctx_, reinterpret_cast<CoapRpcTupleChg *>(head.next));
    }
  }

 private:
  void Serve() {
    strcpy(key_.uri, "tuples");
    key_.msgType = COAP_RPC_NON;
    key_.observe = 1;
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = kFieldLen;
    ob.tupleKeyCmp = FieldCmp;
    ob.buildUpdate = BuildUpdate;
    ob.buildDelete = BuildDelete;
    COAP_RpcSerRegVtbl(ctx_, &key_, &reg, &ob);
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = kLoopback;
    const int probe = socket(AF_INET, SOCK_DGRAM, 0);
    port_ = addr.port = FreePort(probe);
    close(probe);
    if (COAP_RpcSerSetUri(ctx_, &key_, &addr) != 0) abort();
    entry_ = COAP_RpcSerFindUriVtbl(ctx_->ser, &key_);
  }

  void Observe() {
    // NON GET, token 1, Observe 0, Uri-Path "tuples".
    const uint8_t request[] = {0x51, 1, 0, 1, 1, 0x60, 0x56, 't', 'u', 'p', 'l', 'e', 's'};
    observer_ = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_port = htons(port_);
    server.sin_addr.s_addr = htonl(kLoopback);
    if (connect(observer_, reinterpret_cast<sockaddr *>(&server), sizeof(server)) != 0 ||
        write(observer_, request, sizeof(request)) < 0) {
      abort();
    }
    while (entry_->observerNum == 0) COAP_RpcProcIo(ctx_);
  }

  Kestrel *host_;
  CoapRpcCtx *ctx_;
  CoapRpcUriKey key_ = {};
  CoapRpcSerUriVtbl *entry_ = nullptr;
  std::vector<Key> keys_;
  int observer_ = -1;
  uint16_t port_ = 0;
};

uint32_t NumTuples(const benchmark::State &state) { return static_cast<uint32_t>(state.range(0)); }

void Queue(benchmark::State &state) {
  Publisher publisher(NumTuples(state));
  for (auto _ : state) {
    publisher.UpdateAll();
    state.PauseTiming();
    publisher.DropChanges();
    state.ResumeTiming();
  }
}

// A new observer each time: libcoap holds a notification back while the one before is being
// fetched.
void Handover(benchmark::State &state) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      Publisher publisher(NumTuples(state));
      publisher.UpdateAll();
      state.ResumeTiming();
      publisher.HandOver();
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
}

void Jansson(benchmark::State &state) {
  const std::vector<Key> keys = MakeKeys(NumTuples(state));
  for (auto _ : state) {
    json_t *root = json_object();
    json_t *array = json_array();
    json_object_set_new(root, "data", array);
    for (const Key &key : keys) {
      json_t *element = json_object();
      FillElement(element, key.bytes, "value of a tupl");
      json_array_append_new(array, element);
    }
    char *text = json_dumps(root, JSON_COMPACT);
    benchmark::DoNotOptimize(text);
    free(text);
    json_decref(root);
  }
}

BENCHMARK(Queue)->Arg(1)->Arg(100)->Arg(10000)->Arg(50000)->Unit(benchmark::kMicrosecond);
BENCHMARK(Handover)->Arg(1)->Arg(100)->Arg(10000)->Arg(50000)->Unit(benchmark::kMicrosecond);
BENCHMARK(Jansson)->Arg(1)->Arg(100)->Arg(10000)->Arg(50000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
