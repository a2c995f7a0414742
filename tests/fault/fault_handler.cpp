// Requests, answers and notifications while allocations fail: no crash, no leak, no lost observer,
// and once memory is back no change is missing.
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kSync = 0, kAsync = 1;

class HandlerFault : public ObserveServer {
 protected:
  void ServeAll(uint8_t payloadFormat) {
    app_.result = 3;
    sync_ = Serve(KeyOf("sync"), RegOf(&app_, kSync));
    async_ = Serve(KeyOf("async"), RegOf(&app_, kAsync));
    ServeObs(COAP_RPC_CON, payloadFormat);
  }

  // Say sends a message and acknowledges whatever comes back within some rounds.
  void Say(const CoapMessage &message) {
    peer_.Send(message);
    Listen(3);
  }

  void Listen(int numRounds) {
    for (int i = 0; i < numRounds; ++i) {
      const std::optional<CoapMessage> answer = peer_.ReceiveMessage(Pump(), 1);
      if (!answer) continue;
      if (answer->type == CoapType::kCon) peer_.Send(AckOf(*answer));
      if (answer->code == Code(2, 5)) bodies_.push_back(answer->Text());
    }
  }

  void RunOnce() {
    Say(Get(CoapType::kCon, "sync", "q"));
    Say(Get(CoapType::kCon, "async", "q"));
    for (void *handle : app_.handles) {
      COAP_RpcSerSendAsyncResponse(Ctx(), handle, reinterpret_cast<const uint8_t *>("{}"), 2);
      COAP_RpcSerAbortAsyncResponse(Ctx(), handle);
    }
    Say(Observe(CoapType::kCon, {1}, "_ual-checkcode=0"));
    Update("k001", "v001");
    Listen(15);
  }

  // CallsOfARun counts the allocations of a run in which nothing fails.
  uint64_t CallsOfARun() {
    const uint64_t before = host_.Pool().Failures().NumCalls();
    RunOnce();
    return host_.Pool().Failures().NumCalls() - before;
  }

  // Restart starts a fresh instance: the old one must have left nothing.
  void Restart(uint8_t payloadFormat) {
    instance_->Stop();
    EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
    EXPECT_TRUE(host_.Pool().Violations().empty());
    instance_ = std::make_unique<TestInstance>(host_);
    COAP_RpcRefreshTaskTimer(Ctx());
    app_ = ObserveApp();
    app_.data = {{"k002", "v002"}};
    bodies_.clear();
    ServeAll(payloadFormat);
  }

  void EveryAllocationFails(uint8_t payloadFormat) {
    Restart(payloadFormat);
    const uint64_t numCalls = CallsOfARun();
    EXPECT_GE(numCalls, 10u);
    for (uint64_t n = 1; n <= numCalls; ++n) {
      SCOPED_TRACE(n);
      Restart(payloadFormat);
      host_.Pool().Failures().FailOnce(n);
      RunOnce();
      host_.Pool().Failures().Clear();
      EXPECT_EQ(entry_->observerNum, 1u);
    }
    host_.Pool().Failures().Clear();
  }

  CoapRpcSerUriVtbl *sync_ = nullptr;
  CoapRpcSerUriVtbl *async_ = nullptr;
  std::vector<std::string> bodies_;
};

TEST_F(HandlerFault, Json_EveryAllocationFails) { EveryAllocationFails(COAP_RPC_JSON); }

TEST_F(HandlerFault, Idl_EveryAllocationFails) { EveryAllocationFails(COAP_RPC_BYTE); }

TEST_F(HandlerFault, AllAllocationsFailForAWhile_ThenEverythingWorks) {
  Restart(COAP_RPC_JSON);
  host_.Pool().Failures().FailFrom(1);
  RunOnce();
  host_.Pool().Failures().Clear();
  EXPECT_EQ(entry_->observerNum, 1u);
  Update("k001", "v001");
  Listen(15);
  ASSERT_FALSE(bodies_.empty());
  EXPECT_EQ(bodies_.back(), R"({"data":[{"op":"u","key":"k001","val":"v001"}]})");
}

// Jansson's own memory, of which each allocation fails once.
int64_t g_numJsonLeft = -1;  // below 0: none fails

void *CountedMalloc(size_t size) {
  if (g_numJsonLeft >= 0 && g_numJsonLeft-- == 0) return nullptr;
  return malloc(size);
}

class JsonFault : public HandlerFault {
 protected:
  JsonFault() { json_set_alloc_funcs(CountedMalloc, free); }
  ~JsonFault() override { json_set_alloc_funcs(malloc, free); }
};

TEST_F(JsonFault, EveryAllocationOfADocumentFails_TheChangesComeAllTheSame) {
  Restart(COAP_RPC_JSON);
  Say(Observe(CoapType::kCon, {1}));
  bool hasFailed = true;
  for (int64_t n = 0; hasFailed; ++n) {
    SCOPED_TRACE(n);
    ASSERT_LT(n, 200);
    bodies_.clear();
    Update("k001", "v001");
    Delete("k002");
    g_numJsonLeft = n;
    Listen(11);
    hasFailed = g_numJsonLeft < 0;
    g_numJsonLeft = -1;
    Listen(11);
    // An application that does not look at its own results gives shorter objects.
    std::string all;
    for (const std::string &body : bodies_) all += body;
    EXPECT_FALSE(all.empty());
    EXPECT_TRUE(Pending().empty());
    EXPECT_EQ(entry_->observerNum, 1u);
    EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  }
}

}  // namespace
}  // namespace coap_rpc_test
