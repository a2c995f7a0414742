// Asynchronous requests that the application leaves open: what they cost, and how they end.
#include <poll.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <set>

#include "async_server.h"
#include "libcoap_lists.h"
#include "libcoap_memory.h"
#include "usage.h"

namespace {
unsigned g_numCounts = 0;  // walks along a queue of libcoap's
}

extern "C" {
unsigned __real_CoapRpcLibNumDelayed(const coap_session_t *session);
unsigned __wrap_CoapRpcLibNumDelayed(const coap_session_t *session) {
  ++g_numCounts;
  return __real_CoapRpcLibNumDelayed(session);
}
}

namespace coap_rpc_test {
namespace {

constexpr size_t kNumOpen = kSlowdown == 1 ? 50'000 : 1'000;

class OpenAsync : public Async {
 protected:
  // Quiet is for many requests: neither texts nor the callbacks' records.
  void BeQuiet() {
    host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
    COAP_RpcSetLibLogLevel(Ctx(), 0);
  }

  void Run() {
    while (COAP_RpcProcIo(Ctx()) != 0) {
    }
    host_.ClearLogs();
    app_.requests.clear();
  }

  // Open leaves requests open, NON ones for which nothing comes back.
  void Open(size_t num) {
    for (size_t i = 1; i <= num; ++i) {
      asker_.Send(GetWith({}, CoapType::kNon));
      if (i % 32 == 0 || i == num) Run();
    }
    EXPECT_EQ(app_.handles.size(), num);
  }

  unsigned NumLibcoap() const { return NumLibcoapAsync(Ctx()->lib->coapCtx); }

  static uint64_t CpuNs() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
  }

  // MedianCost is the processor time of a synchronous request, the median of `num`.
  uint64_t MedianCost(size_t num) {
    std::vector<uint64_t> costs(num);
    for (uint64_t &cost : costs) {
      const uint64_t fromNs = CpuNs();
      peer_.Send(Get(CoapType::kNon, "sync", "q"));
      EXPECT_TRUE(peer_.ReceiveMessage([this] { Run(); }));
      cost = CpuNs() - fromNs;
    }
    std::sort(costs.begin(), costs.end());
    return costs[num / 2];
  }
};

TEST_F(OpenAsync, LibcoapKnowsNothingOfThem) {
  ServeAsync();
  BeQuiet();
  Open(10'000 / kSlowdown);
  EXPECT_EQ(NumLibcoap(), 0u);
  for (void *handle : app_.handles) EXPECT_EQ(Answer(handle, "{}"), 0u);
  EXPECT_EQ(NumLibcoap(), 0u);
  Run();
  EXPECT_EQ(NumLibcoap(), 0u);
}

TEST_F(OpenAsync, Number_IsOfThoseThatTheApplicationOwesAnAnswer) {
  ServeAsync();
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(nullptr), 0u);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 0u);
  std::vector<void *> handles;
  for (uint8_t i = 0; i < 4; ++i) handles.push_back(AskOnce(GetWith({i})));
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 4u);
  EXPECT_EQ(Answer(handles[0], "{}"), 0u);
  EXPECT_EQ(Answer(handles[0], "again"), 0u);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 3u);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), handles[1]), 0u);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 2u);
  EXPECT_EQ(Answer(handles[2], std::string(3000, 'x')), 0u);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 1u);
  COAP_RpcSerDelUriVtbl(Ctx()->ser, entry_);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 0u);
}

TEST_F(OpenAsync, SynchronousRequests_CostTheSame) {
  App sync;
  sync.result = 3;
  Serve(KeyOf("sync"), RegOf(&sync, 0));
  ServeAsync();
  BeQuiet();
  MedianCost(50);
  const uint64_t beforeNs = MedianCost(300);
  Open(kNumOpen);
  const uint64_t afterNs = MedianCost(300);
  printf("[ MEASURED ] %llu ns, then %llu ns\n", static_cast<unsigned long long>(beforeNs),
         static_cast<unsigned long long>(afterNs));
  EXPECT_LT(afterNs, 3 * beforeNs);
}

TEST_F(OpenAsync, Stop_IsQuick) {
  ServeAsync();
  BeQuiet();
  const uint64_t fromNs = CpuNs();
  Open(kNumOpen);
  const uint64_t openedNs = CpuNs() - fromNs;
  instance_->Stop();
  const uint64_t stoppedNs = CpuNs() - fromNs - openedNs;
  printf("[ MEASURED ] opened in %llu us, stopped in %llu us\n",
         static_cast<unsigned long long>(openedNs / 1000),
         static_cast<unsigned long long>(stoppedNs / 1000));
  EXPECT_LT(stoppedNs, openedNs);
}

TEST_F(OpenAsync, AllAnsweredAtOnce_AllArriveAndLibcoapsQueueIsShort) {
  ServeAsync();
  BeQuiet();
  Open(kNumOpen);
  for (size_t i = 0; i < kNumOpen; ++i) EXPECT_EQ(Answer(app_.handles[i], std::to_string(i)), 0u);
  std::vector<bool> hasArrived(kNumOpen);
  size_t numArrived = 0;
  unsigned mostDelayed = 0;
  Run();
  while (const std::optional<CoapMessage> message = home_.ReceiveMessage([this] { Run(); }, 20)) {
    mostDelayed = std::max(mostDelayed, MostLibcoapDelayed(Ctx()->lib->coapCtx));
    const size_t i = std::stoul(message->Text());
    EXPECT_FALSE(hasArrived[i]) << i;
    hasArrived[i] = true;
    ++numArrived;
    if (message->type != CoapType::kCon) continue;
    home_.SetRemote(home_.Datagrams().back().other);
    home_.Send(AckOf(*message));
    Run();
  }
  EXPECT_EQ(numArrived, kNumOpen);
  EXPECT_LE(mostDelayed, 32u);
}

TEST_F(OpenAsync, NonAnswers_GoOutOverSeveralTurns) {
  constexpr size_t kShare = 128;
  ServeAsync(COAP_RPC_NON);
  BeQuiet();
  Open(3 * kShare + 1);
  for (void *handle : app_.handles) EXPECT_EQ(Answer(handle, "{}"), 0u);
  pollfd fd = {COAP_RpcGetIoFd(Ctx()), POLLIN, 0};
  for (const size_t num : {kShare, kShare, kShare, size_t{1}}) {
    EXPECT_EQ(poll(&fd, 1, 1000), 1);
    COAP_RpcProcIo(Ctx());
    for (size_t i = 0; i < num; ++i) EXPECT_TRUE(home_.ReceiveNow()) << i;
    EXPECT_FALSE(home_.ReceiveNow());
  }
}

// The order in which libcoap would send them.
TEST_F(OpenAsync, AnsweredAtOnce_TheNewestRequestGoesFirst) {
  ServeAsync();
  std::vector<void *> handles;
  for (uint8_t i = 0; i < 5; ++i) handles.push_back(AskOnce(GetWith({i})));
  for (const size_t i : {3u, 0u, 4u, 2u, 1u}) {
    EXPECT_EQ(Answer(handles[i], std::to_string(i)), 0u);
  }
  std::string order;
  for (int i = 0; i < 5; ++i) order += NextAtHome().Text();
  EXPECT_EQ(order, "43210");
}

// Of a peer that acknowledges nothing.
TEST_F(OpenAsync, QueuedAnswers_AreNotCountedInEachTurn) {
  ServeAsync();
  for (uint8_t i = 0; i < 60; ++i) AskOnce(GetWith({i}));
  for (void *handle : app_.handles) EXPECT_EQ(Answer(handle, "{}"), 0u);
  Run();
  const unsigned numBefore = g_numCounts;
  EXPECT_GT(numBefore, 0u);
  for (int i = 0; i < 100; ++i) COAP_RpcProcIo(Ctx());
  EXPECT_EQ(g_numCounts, numBefore);
}

TEST_F(OpenAsync, HandleOfAQueuedAnswer_HasEnded) {
  ServeAsync();
  std::vector<void *> handles;
  for (uint8_t i = 0; i < 60; ++i) handles.push_back(AskOnce(GetWith({i})));
  for (void *handle : handles) EXPECT_EQ(Answer(handle, "{}"), 0u);
  Tick();
  for (void *handle : handles) EXPECT_EQ(Answer(handle, "late"), 1900001302u);
  for (size_t i = 0; i < handles.size(); ++i) EXPECT_EQ(NextAtHome().Text(), "{}");
  ExpectSilence(home_);
}

TEST_F(OpenAsync, QueuedAnswers_EndWithTheirEntry) {
  ServeAsync();
  for (uint8_t i = 0; i < 60; ++i) AskOnce(GetWith({i}));
  for (void *handle : app_.handles) EXPECT_EQ(Answer(handle, "{}"), 0u);
  Tick();
  COAP_RpcSerDelUriVtbl(Ctx()->ser, entry_);
  while (home_.ReceiveMessage(Pump(), kNothingComes)) {
  }
  EXPECT_EQ(Ctx()->lib->numAnswerSessions, 0u);
}

TEST_F(OpenAsync, AnsweredOutsideTheIo_OneRunOfItSends) {
  ServeAsync();
  void *handle = AskOnce(GetWith({1}));
  Run();
  pollfd fd = {COAP_RpcGetIoFd(Ctx()), POLLIN, 0};
  EXPECT_EQ(poll(&fd, 1, 0), 0);
  EXPECT_EQ(Answer(handle, "{}"), 0u);
  EXPECT_EQ(poll(&fd, 1, 1000), 1);
  COAP_RpcProcIo(Ctx());
  EXPECT_TRUE(home_.ReceiveNow());
}

TEST_F(OpenAsync, AnsweredInsideTheCallback_TheSameRunSends) {
  ServeAsync();
  app_.onAsync = [this](void *handle) { EXPECT_EQ(Answer(handle, "{}"), 0u); };
  asker_.Send(GetWith({1}));
  COAP_RpcProcIo(Ctx());
  EXPECT_TRUE(home_.ReceiveNow());
}

TEST_F(OpenAsync, PathWithCharactersThatLibcoapEncodes_LeadsBack) {
  Serve(KeyOf("a%20b"), RegOf(&app_, kAsync));
  const CoapMessage request =
      Request(CoapType::kCon, kCodeGet, ++mid_, {1}).AddPath("a b").PayloadText("q");
  EXPECT_EQ(Answer(AskOnce(request), "{}"), 0u);
  const CoapMessage post = NextAtHome();
  EXPECT_EQ(post.code, kCodePost);
  EXPECT_EQ(post.Text(), "{}");
}

// Each allocation for the stand-in and libcoap's record of it.
TEST_F(OpenAsync, NoMemoryForTheStandIn_TheAnswerComesLater) {
  ServeAsync();
  constexpr int kNumAllocations = 5;
  for (int n = 0; n < kNumAllocations; ++n) {
    SCOPED_TRACE(n);
    void *handle = AskOnce(GetWith({1}));
    {
      int numLeft = n;
      const NoMemory noMemory([&](const Need &) { return numLeft-- <= 0; });
      EXPECT_EQ(Answer(handle, "{}"), 0u);
      COAP_RpcProcIo(Ctx());
      COAP_RpcProcIo(Ctx());
      EXPECT_GT(noMemory.NumRefused(), 0);
      EXPECT_FALSE(home_.ReceiveNow());
    }
    EXPECT_EQ(NextAtHome().Text(), "{}");
    EXPECT_EQ(NumLibcoap(), 0u);
  }
}

}  // namespace
}  // namespace coap_rpc_test
