/* sweep_tables.cpp: start and stop, registering, attaching, tuples, displays. */
#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/common/coap_rpc_log.h"
#include "sweep.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kSync = 0, kAsync = 1;
constexpr uint16_t kOtherPort = 5684;

void PrepareNothing(Stage &) {}

// ---- start and stop
// ------------------------------------------------------------------------------

void PrepareStopped(Stage &stage) { stage.instance_->Stop(); }

void Init(Stage &stage) {
  const CoapRpcInitParam param = ParamOf(stage.host_);
  CoapRpcCtx *ctx = COAP_RpcInit(&param);
  if (ctx) COAP_RpcRefreshTaskTimer(ctx);
  COAP_RpcUninit(ctx);
}

void WorksAgain(Stage &stage) {
  stage.Restart();
  stage.ServePlain(kSync);
  stage.app_.result = 1;
  stage.Say(stage.Get(CoapType::kCon, "plain", "q"));
  EXPECT_TRUE(stage.HasHeard(Code(2, 1), std::string(2, '\0')));
}

// PrepareBusy leaves something of everything under way: an observer that does not fetch the rest
// of a large body, changes, an asynchronous request, a request, and a relation.
void PrepareBusy(Stage &stage) {
  stage.ServePlain(kAsync);
  stage.ServeObservable(COAP_RPC_JSON, 5000);
  stage.Say(stage.Observe(CoapType::kCon, {1}));
  stage.Update("k001", "v001");
  stage.Say(stage.Get(CoapType::kCon, "plain", "q"));
  stage.SetSilent(true);
  stage.RegisterClient(KeyOf("call"));
  stage.RegisterClient(KeyOf("watch", COAP_RPC_CON, 1));
  stage.Call(COAP_RpcCliConReq, KeyOf("call"), "payload");
  stage.Call(COAP_RpcCliObserveReq, KeyOf("watch", COAP_RPC_CON, 1));
  stage.Listen(12);
  stage.Update("k002", "v002");
  COAP_RpcLogRegUri(stage.Ctx(), "plain");
}

void Uninit(Stage &stage) { stage.instance_->Stop(); }

// ---- registering
// ---------------------------------------------------------------------------------

uint32_t RegisterServer(Stage &stage) {
  const CoapRpcSerVtblReg reg = stage.RegOf(&stage.app_, kSync);
  const CoapRpcUriKey key = KeyOf("new");
  return COAP_RpcSerRegVtbl(stage.Ctx(), &key, &reg, nullptr);
}
void PlayRegisterServer(Stage &stage) { ExpectOneOf(RegisterServer(stage), {0, 1900000251}); }
void WorksRegisterServer(Stage &stage) { EXPECT_EQ(RegisterServer(stage), 0u); }

uint32_t RegisterObservable(Stage &stage) {
  const CoapRpcSerVtblReg reg = stage.RegOf(&stage.app_, kSync);
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = ob.valLen = 4;
  ob.tupleKeyCmp = ObserveApp::KeyCmp;
  const CoapRpcUriKey key = KeyOf("new", COAP_RPC_CON, 1);
  return COAP_RpcSerRegVtbl(stage.Ctx(), &key, &reg, &ob);
}
void PlayRegisterObservable(Stage &stage) {
  ExpectOneOf(RegisterObservable(stage), {0, 1900000251});
}
void WorksRegisterObservable(Stage &stage) { EXPECT_EQ(RegisterObservable(stage), 0u); }

void RegisterClient(Stage &stage) { stage.RegisterClient(KeyOf("new")); }

void PlayRegisterDiagnosis(Stage &stage) { COAP_RpcLogRegUri(stage.Ctx(), "new"); }
void WorksRegisterDiagnosis(Stage &stage) {
  EXPECT_NE(COAP_RpcLogRegUri(stage.Ctx(), "new"), nullptr);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(stage.Ctx(), "new"), 1u);
}

// ---- attaching
// -----------------------------------------------------------------------------------

const CoapRpcUriKey kNew = KeyOf("new");

// What an attach leaves on purpose: a listen whose endpoint found no memory, until it is detached,
// and an entry whose resource did not, until it is attached again.
bool LacksEndPoint(const std::string &tables) { return Has(tables, "endPointIsNull(1)"); }
bool LacksPart(const std::string &tables) {
  return LacksEndPoint(tables) ||
         (Has(tables, "hasListen") && Has(tables, "total 0 server resource(s)"));
}
bool LacksSecondResource(const std::string &tables) {
  return !Has(tables, "notListen") && Has(tables, "total 1 server resource(s)");
}

void PrepareRegistered(Stage &stage) { EXPECT_EQ(RegisterServer(stage), 0u); }

void PlayAttach(Stage &stage) { ExpectOneOf(stage.Attach(kNew), {0, 1900000152, 1900000157}); }

// An address whose listen has no endpoint gets one when the listen was deleted.
void WorksAttach(Stage &stage) {
  stage.Attach(kNew);
  EXPECT_EQ(COAP_RpcSerUnsetUri(stage.Ctx(), &kNew), 0u);
  EXPECT_EQ(stage.Attach(kNew), 0u);
  stage.app_.result = 1;
  stage.Say(stage.Get(CoapType::kCon, "new", "q"));
  EXPECT_TRUE(stage.HasHeard(Code(2, 1), std::string(2, '\0')));
}

void PrepareListening(Stage &stage) {
  stage.ServePlain(kSync);
  PrepareRegistered(stage);
}

void WorksAttachToListen(Stage &stage) {
  EXPECT_EQ(stage.Attach(kNew), 0u);
  stage.app_.result = 1;
  stage.Say(stage.Get(CoapType::kCon, "new", "q"));
  EXPECT_TRUE(stage.HasHeard(Code(2, 1), std::string(2, '\0')));
}

void PrepareAttached(Stage &stage) {
  PrepareRegistered(stage);
  EXPECT_EQ(stage.Attach(kNew), 0u);
}

void PlayDetach(Stage &stage) { EXPECT_EQ(COAP_RpcSerUnsetUri(stage.Ctx(), &kNew), 0u); }

void PlayMove(Stage &stage) {
  ExpectOneOf(stage.Attach(kNew, kOtherPort), {0, 1900000152, 1900000157});
}
void WorksMove(Stage &stage) {
  stage.Attach(kNew, kOtherPort);
  EXPECT_EQ(COAP_RpcSerUnsetUri(stage.Ctx(), &kNew), 0u);
  EXPECT_EQ(stage.Attach(kNew, kOtherPort), 0u);
  EXPECT_EQ(stage.Attach(kNew), 0u);
  stage.app_.result = 1;
  stage.Say(stage.Get(CoapType::kCon, "new", "q"));
  EXPECT_TRUE(stage.HasHeard(Code(2, 1), std::string(2, '\0')));
}

// ---- tuples
// --------------------------------------------------------------------------------------

void PrepareObservable(Stage &stage) { stage.ServeObservable(COAP_RPC_JSON, 0); }

// A tuple that finds no memory is not reported.
void PlayUpdate(Stage &stage) { EXPECT_EQ(stage.Update("k001", "v001"), 0u); }
void WorksUpdate(Stage &stage) {
  EXPECT_EQ(stage.Update("k001", "v001"), 0u);
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(stage.entry_), 1u);
}

void PrepareTuple(Stage &stage) {
  PrepareObservable(stage);
  EXPECT_EQ(stage.Update("k001", "v001"), 0u);
  EXPECT_EQ(stage.Update("k002", "v002"), 0u);
}
void PlayDelete(Stage &stage) { stage.Delete("k001"); }
void WorksDelete(Stage &stage) {
  stage.Delete("k001");
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(stage.entry_), 1u);
}

CoapRpcIterator *NewIterator(Stage &stage) {
  const CoapRpcIteratorParam param = {reinterpret_cast<uint64_t>(static_cast<App *>(&stage.app_)),
                                      nullptr,
                                      4,
                                      4,
                                      ObserveApp::First,
                                      ObserveApp::Next};
  return COAP_RpcNewIterator(&param, stage.Ctx());
}

uint32_t NumSteps(Stage &stage) {
  CoapRpcIterator *it = NewIterator(stage);
  uint32_t numSteps = 0;
  while (COAP_RpcIterateTupleFromApp(it, stage.Ctx()) != 0) ++numSteps;
  COAP_RpcFreeIterator(it, stage.Ctx());
  return numSteps;
}

void PrepareAppTuples(Stage &stage) { stage.app_.data = {{"k001", "v001"}, {"k002", "v002"}}; }
void PlayIterate(Stage &stage) { ExpectOneOf(NumSteps(stage), {0, 2}); }
void WorksIterate(Stage &stage) { EXPECT_EQ(NumSteps(stage), 2u); }

// ---- displays
// ------------------------------------------------------------------------------------

void PlayDisplays(Stage &stage) {
  const std::string first = stage.Tables();
  EXPECT_EQ(stage.Tables(), first);
  EXPECT_NE(first.find(" ***total 2 server uriVtbl(s) ***\n"), std::string::npos) << first;
}

}  // namespace

const std::vector<Scenario> &TableScenarios() {
  static const std::vector<Scenario> scenarios = {
      {"Init", kPool | kTimers | kLibcoap, PrepareStopped, Init, WorksAgain, true},
      {"Uninit", 0, PrepareBusy, Uninit, WorksAgain},
      {"RegisterServer", kPool, PrepareNothing, PlayRegisterServer, WorksRegisterServer, true},
      {"RegisterObservable", kPool, PrepareNothing, PlayRegisterObservable, WorksRegisterObservable,
       true},
      {"RegisterClient", kPool, PrepareNothing, RegisterClient, RegisterClient, true},
      {"RegisterDiagnosis", kPool, PrepareNothing, PlayRegisterDiagnosis, WorksRegisterDiagnosis,
       true},
      {"Attach", kPool | kLibcoap, PrepareRegistered, PlayAttach, WorksAttach, true, LacksPart},
      {"AttachToListen", kPool | kLibcoap, PrepareListening, PlayAttach, WorksAttachToListen, true,
       LacksSecondResource},
      {"Detach", 0, PrepareAttached, PlayDetach, WorksAttach, true},
      {"Move", kPool | kLibcoap, PrepareAttached, PlayMove, WorksMove, true, LacksEndPoint},
      {"Update", kPool, PrepareObservable, PlayUpdate, WorksUpdate, true},
      {"Delete", 0, PrepareTuple, PlayDelete, WorksDelete, true},
      {"Iterate", kPool, PrepareAppTuples, PlayIterate, WorksIterate, true},
      {"Displays", 0, PrepareBusy, PlayDisplays, PlayDisplays},
  };
  return scenarios;
}

}  // namespace coap_rpc_test
