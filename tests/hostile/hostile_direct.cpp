// Direct entries and many peers at forged addresses: what is held for them is bounded, and ends.
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "hostile_server.h"

namespace coap_rpc_test {
namespace {

constexpr int kNumSources = 10'000;
constexpr uint64_t kKiB = 1024;

// Entry is a direct entry that keeps nothing of its requests but handles.
struct Entry {
  std::string out;
  std::vector<void *> handles;

  static Entry &Of(uint64_t userData) { return *reinterpret_cast<Entry *>(userData); }

  static int32_t OnRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *, uint32_t,
                           uint8_t *out, uint32_t) {
    const std::string &text = Of(userData).out;
    std::copy(text.begin(), text.end(), out);
    return static_cast<int32_t>(text.size());
  }

  static uint32_t OnAsyncRequest(uint64_t userData, uint8_t *, uint32_t, void *handle) {
    Of(userData).handles.push_back(handle);
    return 0;
  }
};

class HostileDirect : public HostileServer {
 protected:
  HostileDirect() {
    ServeDirect("direct", kSyncMode);
    ServeDirect("later", kAsyncMode);
    entry_.handles.reserve(static_cast<size_t>(kNumSources));
  }

  void ServeDirect(const char *uri, uint8_t mode) {
    CoapRpcSerVtblReg reg = {};
    reg.mode = mode;
    reg.userData = reinterpret_cast<uint64_t>(&entry_);
    reg.onRequest = Entry::OnRequest;
    reg.onAsyncRequest = Entry::OnAsyncRequest;
    const CoapRpcUriKey key = KeyOf(uri);
    Serve(key, reg);
    EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key, nullptr), 0u);
  }

  // PostFromEverywhere sends a request of each source.  `answer` runs after every few.
  void PostFromEverywhere(const char *uri, const std::function<void()> &answer = {}) {
    for (int i = 0; i < kNumSources; ++i) {
      const auto ip = 0x7F000000 + (static_cast<uint32_t>(i % 250) << 8) + 2;
      SenderAt(ip, static_cast<uint16_t>(10'000 + i / 250)).Send(Post(CoapType::kCon, uri, "q"));
      if (i % 32 != 31) continue;
      ServeWaiting();
      if (answer) answer();
      Sample();
    }
  }

  void Sample() {
    peakPool_ = std::max(peakPool_, host_.Pool().LiveBytes());
    peakHeap_ = std::max(peakHeap_, HeapBytes() - host_.Pool().LiveBytes());
  }

  void ExpectBounded(uint64_t poolKiB, uint64_t heapKiB) {
    printf("[ MEASURED ] pool %llu KiB, heap +%lld KiB\n",
           static_cast<unsigned long long>(peakPool_ / kKiB),
           static_cast<long long>(peakHeap_ - base_.heapBytes) / 1024);
    EXPECT_LE(peakPool_, poolKiB * kKiB);
    EXPECT_LE(peakHeap_, base_.heapBytes + heapKiB * kKiB);
    ForgetAll();
    EXPECT_LE(host_.Pool().LiveCount(), base_.poolCount + 1) << "the table of the requests known";
    ExpectServing();
  }

  Entry entry_;
  uint64_t peakPool_ = 0;
  uint64_t peakHeap_ = 0;
};

TEST_F(HostileDirect, Requests) {
  entry_.out = std::string(1000, 'x');
  PostFromEverywhere("direct");
  ExpectBounded(6 * kKiB, 4 * kKiB);
}

TEST_F(HostileDirect, AnswersInBlocks) {
  entry_.out = std::string(60'000, 'x');
  PostFromEverywhere("direct");
  ExpectBounded(40 * kKiB, 4 * kKiB);
}

// Nobody acknowledges what the application answers.
TEST_F(HostileDirect, LaterAnswers) {
  PostFromEverywhere("later", [this] {
    for (void *handle : entry_.handles) {
      COAP_RpcSerSendAsyncResponse(Ctx(), handle, reinterpret_cast<const uint8_t *>("{}"), 2);
    }
    entry_.handles.clear();
    ServeWaiting();
  });
  ExpectBounded(4 * kKiB, 8 * kKiB);
}

// The application answers nothing: all of them get 5.04 in one turn.
TEST_F(HostileDirect, OpenRequests) {
  PostFromEverywhere("later");
  EXPECT_LE(entry_.handles.size(), 16'384u);
  host_.AdvanceMs(60'000);
  ServeWaiting();
  Sample();
  ExpectBounded(8 * kKiB, 40 * kKiB);
}

}  // namespace
}  // namespace coap_rpc_test
