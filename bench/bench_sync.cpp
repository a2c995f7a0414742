/* bench_sync.cpp: versions of one URI's tuples, on the reference host, beside the same without.
 *
 *   Update   change N tuples in random order, nobody observes; Versions 0 or 1
 *   Page     collect and write a page of 1024 bytes from anywhere in the set
 *   Round    the page of a round of 50 changes
 *
 * Keys and values have 16 bytes.  "tuple_extra" is what a tuple takes from the pool besides. */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_page.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "kestrel.h"
#include "kestrel_param.h"

namespace {

constexpr uint32_t kFieldLen = 16;
constexpr uint32_t kRoundChanges = 25;

struct Field {
  char bytes[kFieldLen] = {};
};

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

// Publisher is an instance with one URI of N tuples.
class Publisher {
 public:
  Publisher(uint32_t numTuples, bool hasVersions) : keys_(numTuples) {
    KestrelParam hostParam = {};
    hostParam.logSinks = KESTREL_SINK_NONE;
    host_ = KestrelNew(&hostParam, nullptr, 0);
    const CoapRpcInitParam param = coap_rpc_test::ParamOn(host_, "bench");
    ctx_ = COAP_RpcInit(&param);
    Register();
    if (hasVersions) COAP_RpcSerSetUriSync(ctx_, &key_, nullptr);
    for (uint32_t i = 0; i < numTuples; ++i) memcpy(keys_[i].bytes, &i, sizeof(i));
    Shuffle();
    const uint64_t before = LiveBytes();
    UpdateAll();
    extraBytes_ = static_cast<double>(LiveBytes() - before) / numTuples - 2 * kFieldLen;
  }
  ~Publisher() {
    COAP_RpcUninit(ctx_);
    KestrelDelete(host_);
  }
  Publisher(const Publisher &) = delete;
  Publisher &operator=(const Publisher &) = delete;

  // Shuffle gives the keys another order.
  void Shuffle() { std::shuffle(keys_.begin(), keys_.end(), random_); }

  // Each time with other values.
  void UpdateAll() { UpdateSome(static_cast<uint32_t>(keys_.size())); }
  void UpdateSome(uint32_t num) {
    ++val_.bytes[0];
    for (uint32_t i = 0; i < num; ++i) {
      benchmark::DoNotOptimize(
          COAP_RpcSerObserveDataUpdate(ctx_, &key_, keys_[i].bytes, val_.bytes));
    }
  }

  coap_rpc::SyncSet &Set() { return Entry()->sync->set; }
  double ExtraBytes() const { return extraBytes_; }

 private:
  void Register() {
    strcpy(key_.uri, "interfaces");
    key_.observe = 1;
    const CoapRpcSerVtblReg reg = {};
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = kFieldLen;
    ob.valLen = kFieldLen;
    ob.tupleKeyCmp = FieldCmp;
    COAP_RpcSerRegVtbl(ctx_, &key_, &reg, &ob);
  }
  CoapRpcSerUriVtbl *Entry() { return COAP_RpcSerFindUriVtbl(ctx_->ser, &key_); }
  uint64_t LiveBytes() const {
    KestrelMemStat stat = {};
    KestrelMemStatGet(KestrelMem(host_), &stat);
    return stat.liveBytes;
  }

  Kestrel *host_;
  CoapRpcCtx *ctx_;
  CoapRpcUriKey key_ = {};
  std::vector<Field> keys_;
  std::mt19937 random_{1};
  Field val_;
  double extraBytes_ = 0;
};

uint32_t NumTuples(const benchmark::State &state) { return static_cast<uint32_t>(state.range(0)); }

void Update(benchmark::State &state) {
  Publisher publisher(NumTuples(state), state.range(1) != 0);
  for (auto _ : state) {
    publisher.UpdateAll();
    state.PauseTiming();
    publisher.Shuffle();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * NumTuples(state));
  state.counters["tuple_extra"] = publisher.ExtraBytes();
}

void Page(benchmark::State &state) {
  Publisher publisher(NumTuples(state), true);
  std::mt19937 random(1);
  coap_rpc::SyncPage page;
  uint8_t bytes[COAP_RPC_SYNC_MAX_PAGE];
  for (auto _ : state) {
    const uint64_t since = random() % publisher.Set().head;
    coap_rpc::CollectSyncPage(publisher.Set(), {since, UINT64_MAX, 0}, sizeof(bytes), page);
    benchmark::DoNotOptimize(coap_rpc::WriteSyncPage(page, bytes));
  }
}

void Round(benchmark::State &state) {
  Publisher publisher(NumTuples(state), true);
  coap_rpc::SyncPage page;
  uint8_t bytes[COAP_RPC_SYNC_MAX_PAGE];
  for (auto _ : state) {
    const uint64_t notified = publisher.Set().head;
    publisher.UpdateSome(kRoundChanges);
    coap_rpc::CollectSyncRound(publisher.Set(), notified, 0, sizeof(bytes), page);
    benchmark::DoNotOptimize(coap_rpc::WriteSyncPage(page, bytes));
  }
}

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->ArgName("Tuples")->Arg(1000)->Arg(50'000)->Arg(1'000'000);
}

BENCHMARK(Update)
    ->ArgNames({"Tuples", "Versions"})
    ->ArgsProduct({{1000, 50'000, 1'000'000}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(Page)->Apply(Sizes)->Unit(benchmark::kMicrosecond);
BENCHMARK(Round)->Apply(Sizes)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
