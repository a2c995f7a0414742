/* sweep_sync.cpp: versions of tuples, and their readers. */
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "sweep.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kWindowMs = 300;
constexpr uint16_t kFormatJson = 50;

CoapMessage Reading(const std::vector<std::string> &args, uint16_t messageId) {
  CoapMessage get = coap_rpc_test::Request(CoapType::kCon, kCodeGet, messageId, {0x55});
  get.AddPath("obs").AddText(kOptUriQuery, "_sync=1");
  for (const std::string &arg : args) get.AddText(kOptUriQuery, arg);
  return get;
}

// Each message has a number of its own: a repeated one is answered without the handler.
uint16_t NextId() {
  static uint16_t lastId = 0x2000;
  return ++lastId;
}

uint32_t SetSync(Stage &stage, uint32_t windowMs = 0) {
  CoapRpcSerSyncParam param = {};
  param.windowMs = windowMs;
  return COAP_RpcSerSetUriSync(stage.Ctx(), &stage.key_, &param);
}

coap_rpc::SyncSet &SetOf(Stage &stage) { return stage.entry_->sync->set; }

std::string IdArg(Stage &stage) {
  char text[32];
  snprintf(text, sizeof(text), "id=%llx", static_cast<unsigned long long>(SetOf(stage).replid));
  return text;
}

void Register(Stage &stage) { stage.Say(Reading({}, NextId()).AddUint(kOptObserve, 0)); }

void Pull(Stage &stage) { stage.Say(Reading({IdArg(stage)}, NextId())); }

// A few small blocks of it: what libcoap holds then is given up when the instance ends.
void PullInBlocks(Stage &stage) {
  stage.Say(Reading({IdArg(stage)}, NextId()).AddBlock(kOptBlock2, {0, false, 0}));
}

void PullJson(Stage &stage) {
  stage.Say(Reading({IdArg(stage)}, NextId()).AddUint(kOptAccept, kFormatJson));
}

void PreparePlain(Stage &stage) {
  stage.ServeObservable(COAP_RPC_JSON, 0);
  for (const char *key : {"k001", "k002", "k003"}) stage.Update(key, "v001");
}

template <uint32_t kWindow = 0>
void Prepare(Stage &stage) {
  PreparePlain(stage);
  EXPECT_EQ(SetSync(stage, kWindow), 0u);
}

template <uint32_t kWindow = 0>
void PrepareObserved(Stage &stage) {
  Prepare<kWindow>(stage);
  Register(stage);
  EXPECT_EQ(stage.entry_->sync->peers.num, 1u);
}

// WorksObserved expects one reader, which hears of the next change and can read all tuples.
void WorksObserved(Stage &stage) {
  stage.Listen(50);
  Register(stage);
  EXPECT_EQ(stage.entry_->sync->peers.num, 1u);
  stage.Listen(5);
  stage.Forget();
  EXPECT_EQ(stage.Update("k009", "v009"), 0u);
  stage.Listen(10);
  EXPECT_TRUE(stage.HasHeardBytes(12));  // in a notification
  stage.Forget();
  Pull(stage);
  EXPECT_TRUE(stage.HasHeardBytes(SetOf(stage).numLive * 11));
}

// Plain registers an observer by the change list with the token of the reader.
void Plain(Stage &stage) {
  CoapMessage get = coap_rpc_test::Request(CoapType::kCon, kCodeGet, NextId(), {0x55});
  stage.Say(get.AddPath("obs").AddUint(kOptObserve, 0));
}
void PreparePlainObserved(Stage &stage) {
  Prepare(stage);
  Plain(stage);
  EXPECT_EQ(stage.entry_->observerNum, 1u);
}
// WorksAsBoth expects that the plain observer gets all that is pending before it becomes a reader.
void WorksAsBoth(Stage &stage) {
  Plain(stage);
  EXPECT_EQ(stage.entry_->observerNum, 1u);
  EXPECT_EQ(stage.entry_->sync->peers.num, 0u);
  WorksObserved(stage);
}

void PlaySetUp(Stage &stage) { ExpectOneOf(SetSync(stage), {0, 1900001515}); }
void WorksSetUp(Stage &stage) {
  EXPECT_EQ(SetSync(stage), 0u);
  EXPECT_EQ(SetOf(stage).numLive, 3u);
  WorksObserved(stage);
}

void PlayChanges(Stage &stage) {
  ExpectOneOf(stage.Update("k004", "v004"), {0, 1900000135});
  ExpectOneOf(stage.Update("k001", "v002"), {0});
  stage.Delete("k002");
  stage.Listen(15);
}
void WorksChanges(Stage &stage) {
  EXPECT_EQ(stage.Update("k004", "v004"), 0u);
  EXPECT_EQ(SetOf(stage).numLive, 3u);
  EXPECT_EQ(SetOf(stage).numTombs, 1u);
  WorksObserved(stage);
}

uint32_t OneTuple(uint64_t userData, void *key, void *val) {
  auto &numGiven = *reinterpret_cast<int *>(userData);
  if (numGiven++ != 0) return COAP_RPC_SYNC_END;
  memcpy(key, "k007", 4);
  memcpy(val, "v007", 4);
  return 0;
}
uint32_t Replace(Stage &stage) {
  int numGiven = 0;
  return COAP_RpcSerSyncReplace(stage.Ctx(), &stage.key_, OneTuple,
                                reinterpret_cast<uint64_t>(&numGiven));
}
void PlayReplace(Stage &stage) { ExpectOneOf(Replace(stage), {0, 1900001524}); }
void WorksReplace(Stage &stage) {
  EXPECT_EQ(Replace(stage), 0u);
  EXPECT_EQ(SetOf(stage).numLive, 1u);
  WorksObserved(stage);
}

}  // namespace

const std::vector<Scenario> &SyncScenarios() {
  static const std::vector<Scenario> scenarios = {
      {"SyncSetUp", kPool, PreparePlain, PlaySetUp, WorksSetUp},
      {"SyncRegister", kPool | kTimers | kLibcoap, Prepare<>, Register, WorksObserved},
      {"SyncTakeToken", kPool | kTimers | kLibcoap, PreparePlainObserved, Register, WorksAsBoth},
      {"SyncChanges", kPool | kTimers | kLibcoap, PrepareObserved<>, PlayChanges, WorksChanges},
      {"SyncWindow", kPool | kTimers | kLibcoap, PrepareObserved<kWindowMs>, PlayChanges,
       WorksChanges},
      {"SyncPull", kLibcoap, PrepareObserved<>, Pull, WorksObserved},
      {"SyncPullBlocks", kPool | kLibcoap, PrepareObserved<>, PullInBlocks, WorksObserved},
      {"SyncPullJson", kPool | kLibcoap | kJansson, PrepareObserved<>, PullJson, WorksObserved},
      {"SyncReplace", kPool | kTimers, PrepareObserved<>, PlayReplace, WorksReplace},
  };
  return scenarios;
}

}  // namespace coap_rpc_test
