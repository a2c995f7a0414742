/* sweep_mirror.cpp: mirrors of a URI that the same instance serves. */
#include <coap3/coap.h>

#include <algorithm>
#include <random>

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "sweep.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kHeartbeatMs = 1000;
constexpr int kLongEnough = 400;  // rounds, after which a mirror that can is synced

CoapRpcMirror *g_mirror;
std::mt19937 g_random;

// Draw gives each run the same random bytes: pauses are random, and the calls of all runs are compared.
int Draw(void *bytes, size_t len) {
  auto *out = static_cast<uint8_t *>(bytes);
  std::generate(out, out + len, [] { return static_cast<uint8_t>(g_random()); });
  return 1;
}

uint32_t Open(Stage &stage) {
  CoapRpcMirrorParam param = {};
  param.keyLen = param.valLen = 4;
  param.heartbeatMs = kHeartbeatMs;
  CoapRpcCallAddr addr = {};
  addr.dstIp.family = COAP_RPC_IPV4;
  addr.dstIp.addr.ipv4 = OwnIpv4(Role::kServer);
  addr.dstPort = kCoapPort;
  return COAP_RpcMirrorOpen(stage.Ctx(), &stage.key_, &addr, &param, &g_mirror);
}

void TryOpen(Stage &stage) {
  g_mirror = nullptr;
  ExpectOneOf(Open(stage), {0, 1900001608, 1900001609});
}

void Close() {
  COAP_RpcMirrorClose(g_mirror);
  g_mirror = nullptr;
}

CoapRpcMirrorState StateOf(CoapRpcMirror *mirror) {
  CoapRpcMirrorState state = {};
  EXPECT_EQ(COAP_RpcMirrorGetState(mirror, &state), 0u);
  return state;
}

// WorksMirrored expects that the mirror, or another one, has the whole set soon.
void WorksMirrored(Stage &stage) {
  if (!g_mirror) {
    EXPECT_EQ(Open(stage), 0u);
  }
  EXPECT_EQ(stage.Update("k009", "v009"), 0u);
  const coap_rpc::SyncSet &set = stage.entry_->sync->set;
  for (int i = 0; i < kLongEnough; ++i) {
    const CoapRpcMirrorState state = StateOf(g_mirror);
    if (state.state == COAP_RPC_MIRROR_SYNCED && state.version == set.head) break;
    stage.Listen(1);
  }
  const CoapRpcMirrorState state = StateOf(g_mirror);
  EXPECT_EQ(state.state, uint32_t{COAP_RPC_MIRROR_SYNCED});
  EXPECT_EQ(state.version, set.head);
  EXPECT_EQ(state.digest, set.digest);
  EXPECT_EQ(state.numTuples, set.numLive);
  Close();
}

void Prepare(Stage &stage) {
  g_random.seed(std::mt19937::default_seed);
  coap_set_prng(Draw);
  g_mirror = nullptr;
  stage.ServeObservable(COAP_RPC_JSON, 0);
  for (const char *key : {"k001", "k002", "k003"}) stage.Update(key, "v001");
  const CoapRpcSerSyncParam param = {};
  EXPECT_EQ(COAP_RpcSerSetUriSync(stage.Ctx(), &stage.key_, &param), 0u);
}

void PlayOpen(Stage &stage) {
  TryOpen(stage);
  stage.Listen(15);
}

void PrepareMirrored(Stage &stage) {
  Prepare(stage);
  EXPECT_EQ(Open(stage), 0u);
  stage.Listen(15);
}

// PlayChanges has a deletion, a tuple that comes back, which takes no memory at the server, and a
// full sync.
void PlayChanges(Stage &stage) {
  stage.Delete("k001");
  stage.Listen(10);
  stage.Update("k001", "v004");
  stage.Listen(10);
  stage.entry_->sync->set.replid += 1;  // as after a restart
  stage.Update("k002", "v005");
  stage.Listen(40);
}

void PlayClose(Stage &stage) {
  Close();
  stage.Listen(5);
}

}  // namespace

const std::vector<Scenario> &MirrorScenarios() {
  static const std::vector<Scenario> scenarios = {
      {"MirrorOpen", kPool | kTimers | kLibcoap, Prepare, PlayOpen, WorksMirrored},
      {"MirrorChanges", kPool | kTimers | kLibcoap, PrepareMirrored, PlayChanges, WorksMirrored},
      {"MirrorClose", kTimers | kLibcoap, PrepareMirrored, PlayClose, WorksMirrored},
  };
  return scenarios;
}

}  // namespace coap_rpc_test
