/* bench_lookup.cpp: how the cost of the server's tables grows with the number of URIs.
 *
 *   Lookup     find the entry of a registered key; "levels" is how many keys it compares at most
 *   Reattach   attach a key to the listen on which it and all others are already */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "test_host.h"

namespace {

using coap_rpc_test::TestHost;

constexpr CoapRpcSerListenAddr kAddr = {{COAP_RPC_IPV4, {}, {0x7f000001}}, 5683, {}};

coap_endpoint_t *CreateEndPoint(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *) {
  return reinterpret_cast<coap_endpoint_t *>(ctx);
}
void DeleteEndPoint(CoapRpcCtx *, CoapRpcSerListen *) {}
uint32_t CreateOrUpdateResource(CoapRpcCtx *, const CoapRpcUriKey *) { return 0; }
void DeleteResource(CoapRpcCtx *, const char *) {}

CoapRpcUriKey KeyOf(size_t i) {
  CoapRpcUriKey key = {};
  snprintf(key.uri, sizeof(key.uri), "plant/unit/%05zu/state", i);
  return key;
}

// Server is a started server side with `numUris` entries, all attached to one listen.
class Server {
 public:
  explicit Server(size_t numUris) {
    CoapRpcInitParam param = {};
    param.name = "bench";
    param.memHandle = host_.Mem();
    param.dispHandle = host_.Disp();
    param.tmrHandle = host_.Tmr();
    ctx_ = COAP_RpcDataNew_(&param);
    COAP_RpcDispInit(ctx_);
    COAP_RpcSerInit(ctx_);
    ctx_->ser->createEndPoint = CreateEndPoint;
    ctx_->ser->deleteEndPoint = DeleteEndPoint;
    ctx_->ser->createOrUpdateResource = CreateOrUpdateResource;
    ctx_->ser->deleteResource = DeleteResource;
    for (size_t i = 0; i < numUris; ++i) Add(KeyOf(i));
  }

  ~Server() {
    COAP_RpcSerUninit(ctx_);
    COAP_RpcDispUninit(ctx_);
    COAP_RpcDataDelete_(ctx_);
  }

  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  CoapRpcCtx *Ctx() const { return ctx_; }

  // NumLevels is the longest way from the root of the URI table to an entry.
  double NumLevels() const {
    int numLevels = 0;
    for (const CoapRpcUriKey &key : keys_) {
      const OSAL_AVL3_NODE *node = &COAP_RpcSerFindUriVtbl(ctx_->ser, &key)->node;
      int level = 0;
      for (; node; node = node->parent) ++level;
      numLevels = std::max(numLevels, level);
    }
    return numLevels;
  }

  // NextKey goes through the keys in an order that no cache foresees.
  const CoapRpcUriKey &NextKey() {
    next_ = (next_ + kStride) % keys_.size();
    return keys_[next_];
  }

 private:
  static constexpr size_t kStride = 7919;

  void Add(const CoapRpcUriKey &key) {
    const CoapRpcSerVtblReg reg = {};
    COAP_RpcSerRegVtbl(ctx_, &key, &reg, nullptr);
    COAP_RpcSerSetUri(ctx_, &key, &kAddr);
    keys_.push_back(key);
  }

  TestHost host_;
  CoapRpcCtx *ctx_;
  std::vector<CoapRpcUriKey> keys_;
  size_t next_ = 0;
};

void Lookup(benchmark::State &state) {
  Server server(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(COAP_RpcSerFindUriVtbl(server.Ctx()->ser, &server.NextKey()));
  }
  state.SetComplexityN(state.range(0));
  state.counters["levels"] = server.NumLevels();
}

void Reattach(benchmark::State &state) {
  Server server(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(COAP_RpcSerSetUri(server.Ctx(), &server.NextKey(), &kAddr));
  }
  state.SetComplexityN(state.range(0));
}

BENCHMARK(Lookup)->ArgName("Uris")->Arg(100)->Arg(1000)->Arg(10000)->Complexity(benchmark::oLogN);
BENCHMARK(Reattach)->ArgName("Uris")->Arg(100)->Arg(1000)->Arg(10000)->Complexity(benchmark::oLogN);

}  // namespace

BENCHMARK_MAIN();
