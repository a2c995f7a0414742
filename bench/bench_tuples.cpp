/* bench_tuples.cpp: tuples and pending changes of one observed URI, on the reference host.
 *
 *   Publish   update N new tuples: set and change list grow from empty
 *   Merge     update them again while their changes are pending
 *   Drain     take the pending changes off the list, as a payload builder does
 *
 * Keys and values have 16 bytes.  "tuple_extra" and "chg_extra" are the bytes that a tuple and a
 * pending change take from the pool besides key and value, including the index of the list. */
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "kestrel.h"
#include "kestrel_param.h"

namespace {

constexpr uint32_t kFieldLen = 16;

using Field = char[kFieldLen];

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

// Publisher is an instance with one URI that somebody observes.
class Publisher {
 public:
  explicit Publisher(uint32_t numTuples) : keys_(numTuples) {
    KestrelParam hostParam = {};
    hostParam.logSinks = KESTREL_SINK_NONE;
    host_ = KestrelNew(&hostParam, nullptr, 0);
    const CoapRpcInitParam param = coap_rpc_test::ParamOn(host_, "bench");
    ctx_ = COAP_RpcInit(&param);
    Register();
    for (uint32_t i = 0; i < numTuples; ++i) memcpy(keys_[i].bytes, &i, sizeof(i));
  }
  ~Publisher() {
    COAP_RpcUninit(ctx_);
    KestrelDelete(host_);
  }
  Publisher(const Publisher &) = delete;
  Publisher &operator=(const Publisher &) = delete;

  void UpdateAll() {
    const Field val = "value of a tupl";
    for (const Key &tupleKey : keys_) {
      benchmark::DoNotOptimize(COAP_RpcSerObserveDataUpdate(ctx_, &key_, tupleKey.bytes, val));
    }
  }

  void Drain() {
    CoapRpcLink &head = Entry()->tupleChgList;
    while (head.next != &head) {
      COAP_RpcSerDelTupleChgData(ctx_, reinterpret_cast<CoapRpcTupleChg *>(head.next));
    }
  }

  void DropTuples() { COAP_RpcSerDelAllUriTuple(ctx_, Entry()); }

  uint64_t LiveBytes() const {
    KestrelMemStat stat = {};
    KestrelMemStatGet(KestrelMem(host_), &stat);
    return stat.liveBytes;
  }

 private:
  struct Key {
    Field bytes = "key:interface/0";
  };

  void Register() {
    strcpy(key_.uri, "interfaces");
    key_.observe = 1;
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = kFieldLen;
    ob.valLen = kFieldLen;
    ob.tupleKeyCmp = FieldCmp;
    COAP_RpcSerRegVtbl(ctx_, &key_, &reg, &ob);
    Entry()->observerNum = 1;
  }

  CoapRpcSerUriVtbl *Entry() { return COAP_RpcSerFindUriVtbl(ctx_->ser, &key_); }

  Kestrel *host_;
  CoapRpcCtx *ctx_;
  CoapRpcUriKey key_ = {};
  std::vector<Key> keys_;
};

uint32_t NumTuples(const benchmark::State &state) { return static_cast<uint32_t>(state.range(0)); }

double ExtraBytes(uint64_t before, uint64_t after, uint32_t numTuples) {
  return static_cast<double>(after - before) / numTuples - 2 * kFieldLen;
}

void Publish(benchmark::State &state) {
  Publisher publisher(NumTuples(state));
  const uint64_t none = publisher.LiveBytes();
  for (auto _ : state) {
    publisher.UpdateAll();
    state.PauseTiming();
    const uint64_t both = publisher.LiveBytes();
    publisher.DropTuples();
    const uint64_t chgs = publisher.LiveBytes();
    publisher.Drain();
    state.counters["tuple_extra"] = ExtraBytes(chgs, both, NumTuples(state));
    state.counters["chg_extra"] = ExtraBytes(none, chgs, NumTuples(state));
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * NumTuples(state));
}

void Merge(benchmark::State &state) {
  Publisher publisher(NumTuples(state));
  publisher.UpdateAll();
  for (auto _ : state) publisher.UpdateAll();
  state.SetItemsProcessed(state.iterations() * NumTuples(state));
}

void Drain(benchmark::State &state) {
  Publisher publisher(NumTuples(state));
  for (auto _ : state) {
    state.PauseTiming();
    publisher.UpdateAll();
    state.ResumeTiming();
    publisher.Drain();
  }
  state.SetItemsProcessed(state.iterations() * NumTuples(state));
}

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->ArgName("Tuples")->Arg(1)->Arg(100)->Arg(10'000)->Arg(50'000);
}

BENCHMARK(Publish)->Apply(Sizes);
BENCHMARK(Merge)->Apply(Sizes);
BENCHMARK(Drain)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
