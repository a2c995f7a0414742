/* sweep_observe.cpp: observers of the server, and what they are told. */
#include <cerrno>

#include "failing_sends.h"
#include "sweep.h"

namespace coap_rpc_test {
namespace {

constexpr size_t kLarge = 3000;  // bytes added to an element: more than one message holds

// Of a payload that the builders make of one change.
constexpr char kJsonChange[] = R"({"data":[{"key":"k001","val":"v001"}]})";
constexpr char kJsonLast[] = R"({"data":[{"key":"k009","val":"v009"}]})";

template <uint8_t kFormat, size_t kPadding>
void Prepare(Stage &stage) {
  stage.ServeObservable(kFormat, kPadding);
}

template <uint8_t kFormat, size_t kPadding>
void PrepareObserved(Stage &stage) {
  Prepare<kFormat, kPadding>(stage);
  stage.Say(stage.Observe(CoapType::kCon, {1}));
  EXPECT_EQ(stage.entry_->observerNum, 1u);
}

void Register(Stage &stage) { stage.Say(stage.Observe(CoapType::kCon, {1})); }

// Settle lets everything go out that still waits, transfers and repetitions included.
void Settle(Stage &stage) { stage.Listen(150); }

// WorksFor expects one observer, and that it hears of the next change.
void WorksObserved(Stage &stage) {
  Settle(stage);
  Register(stage);
  EXPECT_EQ(stage.entry_->observerNum, 1u);
  Settle(stage);
  stage.Forget();
  EXPECT_EQ(stage.Update("k009", "v009"), 0u);
  stage.Listen(25);
  EXPECT_TRUE(stage.HasHeardBytes(stage.app_.padding + 8));
  if (stage.app_.padding == 0 && stage.entry_->reg.payloadFormat == COAP_RPC_JSON) {
    EXPECT_TRUE(stage.HasHeard(Code(2, 5), kJsonLast));
  }
  Settle(stage);
  EXPECT_EQ(stage.entry_->isSendingLargeBlock, 0);
  EXPECT_EQ(stage.entry_->tupleChgList.next, &stage.entry_->tupleChgList);
}

void PlayRegister(Stage &stage) { Register(stage); }

void PlayUpdate(Stage &stage) {
  EXPECT_EQ(stage.Update("k001", "v001"), 0u);
  stage.Listen(25);
}

// The set may lack the tuple, which is not reported: the application sets it again.
void WorksUpdate(Stage &stage) {
  EXPECT_EQ(stage.Update("k001", "v001"), 0u);
  WorksObserved(stage);
}

// More changes at once than a list without index holds.
void UpdateMany(Stage &stage) {
  for (int i = 100; i < 136; ++i) stage.Update("k" + std::to_string(i), "v001");
}
void PlayMany(Stage &stage) {
  UpdateMany(stage);
  stage.Listen(15);
}
void WorksMany(Stage &stage) {
  UpdateMany(stage);
  WorksObserved(stage);
}

void PlayDelete(Stage &stage) {
  stage.Delete("k001");
  stage.Listen(15);
}
template <uint8_t kFormat>
void PrepareDelete(Stage &stage) {
  PrepareObserved<kFormat, 0>(stage);
  stage.Update("k001", "v001");
  Settle(stage);
}
void WorksDelete(Stage &stage) {
  stage.Delete("k001");
  WorksObserved(stage);
}

// A change that is pending when sends and memory begin to fail.
template <uint8_t kFormat>
void PrepareUnsent(Stage &stage) {
  PrepareObserved<kFormat, 0>(stage);
  Settle(stage);
  stage.Forget();
  EXPECT_EQ(stage.Update("k001", "v001"), 0u);
}
void PlayUnsent(Stage &stage) {
  const FailingSends sends(ENETUNREACH);
  stage.Listen(25);
}
// The change comes without the application's doing.
void WorksUnsent(Stage &stage) {
  stage.Listen(25);
  if (stage.entry_->reg.payloadFormat == COAP_RPC_JSON) {
    EXPECT_TRUE(stage.HasHeard(Code(2, 5), kJsonChange));
  } else {
    EXPECT_TRUE(stage.HasHeardBytes(8));
  }
  WorksObserved(stage);
}

void PrepareResync(Stage &stage) {
  Prepare<COAP_RPC_JSON, 0>(stage);
  stage.app_.data = {{"k001", "v001"}};
}
void Resync(Stage &stage) {
  stage.Say(stage.Observe(CoapType::kCon, {1}, std::string(kCheckCode) + "0"), 15);
}
void WorksResync(Stage &stage) {
  Settle(stage);
  stage.Forget();
  Resync(stage);
  EXPECT_TRUE(stage.HasHeard(Code(2, 5), kJsonChange));
  WorksObserved(stage);
}

void PlayLeave(Stage &stage) { stage.Say(stage.Observe(CoapType::kCon, {1}, "", 1)); }
void WorksLeave(Stage &stage) {
  PlayLeave(stage);
  EXPECT_EQ(stage.entry_->observerNum, 0u);
  WorksObserved(stage);
}

}  // namespace

const std::vector<Scenario> &ObserveScenarios() {
  constexpr uint32_t kMost = kPool | kTimers | kLibcoap;
  static const std::vector<Scenario> scenarios = {
      {"ObserveRegister", kLibcoap, Prepare<COAP_RPC_JSON, 0>, PlayRegister, WorksObserved},
      {"NotifyJson", kMost | kJansson, PrepareObserved<COAP_RPC_JSON, 0>, PlayUpdate, WorksUpdate},
      {"NotifyJsonLarge", kMost | kJansson, PrepareObserved<COAP_RPC_JSON, kLarge>, PlayUpdate,
       WorksUpdate},
      {"NotifyIdl", kMost, PrepareObserved<COAP_RPC_BYTE, 0>, PlayUpdate, WorksUpdate},
      {"NotifyIdlLarge", kMost, PrepareObserved<COAP_RPC_BYTE, kLarge>, PlayUpdate, WorksUpdate},
      {"NotifyDelete", kPool | kLibcoap | kJansson, PrepareDelete<COAP_RPC_JSON>, PlayDelete,
       WorksDelete},
      {"NotifyIdlDelete", kPool | kLibcoap, PrepareDelete<COAP_RPC_BYTE>, PlayDelete, WorksDelete},
      {"NotifyUnsent", kPool | kLibcoap | kJansson, PrepareUnsent<COAP_RPC_JSON>, PlayUnsent,
       WorksUnsent},
      {"NotifyIdlUnsent", kPool | kLibcoap, PrepareUnsent<COAP_RPC_BYTE>, PlayUnsent, WorksUnsent},
      {"ManyChanges", kMost, PrepareObserved<COAP_RPC_BYTE, 0>, PlayMany, WorksMany},
      {"Resynchronise", kMost | kJansson, PrepareResync, Resync, WorksResync},
      {"ObserveLeave", kLibcoap, PrepareObserved<COAP_RPC_JSON, 0>, PlayLeave, WorksLeave},
  };
  return scenarios;
}

}  // namespace coap_rpc_test
