// The whole life of two instances, with traffic of every kind, in the one thread of the process.
//
// The kernel is asked how many threads there are.  A thread that is gone before the next look is
// not seen here; that the library does not import what it takes to start one is a link test.
#include <sys/syscall.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>

#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "two_observe.h"

namespace coap_rpc_test {
namespace {

size_t NumThreads() {
  namespace fs = std::filesystem;
  return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/task"), {}));
}

long ThreadId() { return syscall(SYS_gettid); }

// Counted before the two instances of the fixture are made.
struct Before {
  const size_t numThreads = NumThreads();
  const long threadId = ThreadId();
};

class OneThread : protected Before, public TwoObserve {
 protected:
  OneThread() {
    server_.ServeAsync(callKey_, &callee_);
    asker_.ServeAsync(answerKey_, nullptr);
    asker_.Register(callKey_, &answers_);
    asker_.Register(lostKey_, &answers_);
    callee_.onAsync = [this](void *handle) { Answer(handle); };
    answers_.onPayload = [this](const std::string &) { Look(); };
    app_.whileBuilding = [this](const std::string &) { Look(); };
  }

  // Look is called between steps and inside callbacks.
  void Look() {
    ++numLooks_;
    EXPECT_EQ(NumThreads(), numThreads);
    EXPECT_EQ(ThreadId(), threadId);
  }

  void Answer(void *handle) {
    Look();
    const uint8_t text[] = {'y', 'e', 's'};
    EXPECT_EQ(COAP_RpcSerSendAsyncResponse(server_.Ctx(), handle, text, sizeof(text)), 0u);
  }

  // Five minutes, longer than all retransmissions and sessions.
  void LetTimePass() {
    for (int i = 0; i < 10; ++i) {
      Steps(300);
      Look();
    }
  }

  const CoapRpcUriKey callKey_ = KeyOf("call");
  const CoapRpcUriKey answerKey_ = KeyOf("call", COAP_RPC_CON, 0, COAP_RPC_UNICAST);
  const CoapRpcUriKey lostKey_ = KeyOf("lost");
  App callee_;
  Responses answers_;
  size_t numLooks_ = 0;
};

TEST_F(OneThread, WholeLifeWithTraffic_StartsNoThread) {
  Look();
  Publish(true);
  app_.padding = 47;  // 60,000 bytes, in blocks
  Fill(1000);
  StartMirror();
  Set("0001", "new1");
  ASSERT_TRUE(IsMirrored());

  for (const char *question : {"one", "two"}) {
    EXPECT_EQ(asker_.Ask(callKey_, server_, question), 0u);
  }
  ASSERT_TRUE(RunUntil([this] { return answers_.all.size() == 2; }));

  EXPECT_EQ(asker_.Ask(lostKey_, Ipv4Address(kServerIp + 1), "to nobody"), 0u);
  server_.Detach(callKey_);
  LetTimePass();
  asker_.Stop();
  Look();
  server_.Stop();
  Look();
  EXPECT_GE(numLooks_, 1000u);
}

TEST_F(OneThread, Count_SeesAThread) {
  std::atomic<bool> isDone = false;
  std::thread other([&] { isDone.wait(false); });
  EXPECT_GT(NumThreads(), numThreads);  // a sanitizer adds one of its own
  isDone = true;
  isDone.notify_one();
  other.join();
}

}  // namespace
}  // namespace coap_rpc_test
