// Many peers at forged addresses: what the server holds for them is bounded, and ends.
#include "hostile_server.h"

namespace coap_rpc_test {
namespace {

constexpr int kNumSources = 60'000 / kSlowdown;
constexpr int kBatch = 200;  // sources that send twice before the next ones do

// What 1000 idle sessions, 1000 observers and 500 sessions of asynchronous answers amount to.
constexpr uint64_t kMaxHeap = 4 * 1024 * 1024;

// What the pool under test control notes of each piece, outside itself, and what stays of that.
constexpr uint64_t kNotedPerPiece = 128;
constexpr uint64_t kKeptPerPiece = 16;

// An answer is given up after 93 s and five turns at most, and those that wait with it, but for the
// next one, which is under way by then.
constexpr uint64_t kAllWaitingGivenUpMs = 2 * 98'000;

class HostileSources : public HostileServer {
 protected:
  // FromEverywhere sends one datagram of each source: some hundred addresses with as many ports.
  // `serve` runs after every few.
  template <typename Make>
  void FromEverywhere(int numSources, Make make) {
    for (int i = 0; i < numSources; ++i) {
      const auto ip = 0x7F000000 + (static_cast<uint32_t>(i % 250) << 8) + 2;
      const auto port = static_cast<uint16_t>(10'000 + i / 250);
      Sender sender = SenderAt(ip, port);
      sender.Send(make(i));
      if (i % 32 == 31) ServeAndMeasure();
      if (i % 1024 == 1023) Sample();
    }
    Sample();
  }

  void ServeAndMeasure() {
    ServeWaiting();
    peak_.heapBytes = std::max(peak_.heapBytes, HeapBytes() - host_.Pool().LiveBytes());
  }

  void Sample() {
    host_.AdvanceMs(100);
    const Usage now = Usage::Now(host_.Pool());
    peak_.poolCount = std::max(peak_.poolCount, now.poolCount);
    peak_.heapBytes = std::max(peak_.heapBytes, now.heapBytes);
    peak_.numFds = std::max(peak_.numFds, now.numFds);
  }

  void ExpectBounded(uint64_t poolCount, uint64_t heapBytes, uint32_t numFds) {
    printf("[ MEASURED ] pool +%lld, heap +%lld KiB, descriptors +%lld\n",
           static_cast<long long>(peak_.poolCount - base_.poolCount),
           static_cast<long long>(peak_.heapBytes - base_.heapBytes) / 1024,
           static_cast<long long>(peak_.numFds) - base_.numFds);
    EXPECT_LE(peak_.poolCount, base_.poolCount + poolCount);
    EXPECT_LE(peak_.heapBytes, base_.heapBytes + heapBytes);
    EXPECT_LE(peak_.numFds, base_.numFds + numFds);
  }

  Usage peak_;
};

TEST_F(HostileSources, Requests) {
  FromEverywhere(kNumSources, [&](int i) {
    return Get(CoapType::kCon, Paths()[static_cast<size_t>(i) % 4], "q");
  });
  ExpectBounded(10, kMaxHeap, 1);
  ExpectAllForgotten();
}

TEST_F(HostileSources, AsynchronousRequests) {
  FromEverywhere(kNumSources, [&](int) { return Get(CoapType::kCon, "async", "q"); });
  ExpectBounded(2000, kMaxHeap, 502);
  ExpectAllForgotten();
}

// Answers go to one port, whatever the port that asks: all of them are queued after the first.
TEST_F(HostileSources, AsynchronousRequestsOfOneAddress) {
  for (int i = 0; i < kNumSources; ++i) {
    Sender sender = SenderAt(0x7F00FF02, static_cast<uint16_t>(1024 + i % 60'000));
    sender.Send(Get(CoapType::kCon, "async", "q"));
    if (i % 32 == 31) ServeAndMeasure();
    if (i % 1024 == 1023) Sample();
  }
  Sample();
  ExpectBounded(2 * 2048 + 20, kMaxHeap, 2);  // a record and an answer for each that is queued
  host_.AdvanceMs(kAllWaitingGivenUpMs);
  ExpectAllForgotten();
}

// The application answers none of them.  Each of the 250 addresses has one session.
TEST_F(HostileSources, AsynchronousRequestsThatAreNeverAnswered) {
  std::vector<void *> handles;
  async_.onAsync = [&](void *handle) { handles.push_back(handle); };
  FromEverywhere(kNumSources, [&](int) { return Get(CoapType::kCon, "async", "q"); });
  ServeAndMeasure();
  EXPECT_EQ(handles.size(), static_cast<size_t>(kNumSources));
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), static_cast<uint32_t>(kNumSources));
  ExpectBounded(kNumSources + 2000, kMaxHeap + kNumSources * kNotedPerPiece, 252);
  for (void *handle : handles) COAP_RpcSerAbortAsyncResponse(Ctx(), handle);
  std::vector<void *>().swap(handles);
  host_.AdvanceMs(kAllWaitingGivenUpMs);
  base_.heapBytes += kNumSources * kKeptPerPiece;
  ExpectAllForgotten();
}

// One address tries to take all that may be open.  Others are served all the same.
TEST_F(HostileSources, MoreOpenAsynchronousRequestsThanAPeerMayHave) {
  std::vector<void *> handles;
  async_.onAsync = [&](void *handle) { handles.push_back(handle); };
  Bytes request = ToBytes(Get(CoapType::kNon, "async", "q"));
  for (int i = 0; i < 66'000; i += 33'000) {
    Sender sender = SenderAt(0x7F00FF02, static_cast<uint16_t>(10'000 + i));
    for (int mid = 0; mid < 33'000; ++mid) {
      request[2] = static_cast<uint8_t>(mid >> 8);
      request[3] = static_cast<uint8_t>(mid);
      sender.Send(request);
      if (mid % 32 == 31) ServeWaiting();
    }
    ServeWaiting();
  }
  EXPECT_EQ(handles.size(), 65'536u);
  RawPeer stranger;
  stranger.SetRemote(Address());
  stranger.Send(Get(CoapType::kCon, "async", "q"));
  const auto answer = stranger.ReceiveMessage([this] { ServeWaiting(); });
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->code, kCodeEmpty);
  ExpectServing();
  for (void *handle : handles) COAP_RpcSerAbortAsyncResponse(Ctx(), handle);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 0u);
}

TEST_F(HostileSources, Registrations) {
  FromEverywhere(kNumSources,
                 [&](int i) { return Observe(CoapType::kCon, {static_cast<uint8_t>(i)}); });
  EXPECT_EQ(NumObservers(), 1000u);
  ExpectBounded(200, kMaxHeap, 1);
  Change("v002");  // notifications that nobody acknowledges
  ExpectAllForgotten();
  EXPECT_EQ(NumObservers(), 0u);
}

// 64 bodies are kept; up to 32 more come between two turns.
TEST_F(HostileSources, Uploads) {
  constexpr uint32_t kBodyLen = 1024 * 1024;
  FromEverywhere(kNumSources, [&](int) {
    CoapMessage part = Post(CoapType::kCon, "sync", std::string(1024, 'u'));
    return part.AddBlock(kOptBlock1, {0, true, 6}).AddUint(kOptSize1, kBodyLen);
  });
  ExpectBounded(10, (64 + 32) * kBodyLen + kMaxHeap, 1);
  ExpectAllForgotten();
}

// Blocks that do not fit together: the second of each source has another size than the first.
TEST_F(HostileSources, UploadsOfMixedBlockSizes) {
  constexpr uint32_t kBodyLen = 1024 * 1024;
  CoapBlock block = {};
  const auto part = [&](int) {
    CoapMessage message = Post(CoapType::kCon, "sync", std::string(size_t{16} << block.szx, 'u'));
    return message.AddBlock(kOptBlock1, block).AddUint(kOptSize1, kBodyLen);
  };
  for (int i = 0; i < kNumSources / kBatch; ++i) {
    block = {0, true, static_cast<uint8_t>(i % 7)};
    FromEverywhere(kBatch, part);
    block = {1, i % 2 == 0, static_cast<uint8_t>((i + 3) % 7)};
    FromEverywhere(kBatch, part);
  }
  ExpectBounded(10, (64 + 32) * kBodyLen + kMaxHeap, 1);
  ExpectAllForgotten();
}

// The size that means "none".
TEST_F(HostileSources, ReservedBlockSize) {
  FromEverywhere(kNumSources, [&](int i) {
    const uint16_t option = i % 2 == 0 ? kOptBlock1 : kOptBlock2;
    CoapMessage message = Post(i % 3 == 0 ? CoapType::kNon : CoapType::kCon,
                               Paths()[static_cast<size_t>(i) % Paths().size()], "part");
    if (i % 5 == 0) message.AddUint(kOptObserve, 0).code = kCodeGet;
    return message.Add(option, {static_cast<uint8_t>(i % 7 << 4 | 0x0F)});
  });
  ExpectBounded(2200, kMaxHeap, 502);  // some ask asynchronously, some observe
  ExpectAllForgotten();
}

// Acknowledgements and resets of nothing, with and without code and token, and what they say comes
// from observers and askers as well.
TEST_F(HostileSources, RepliesToNothing) {
  const auto reply = [&](int i) {
    const CoapType type = i % 2 == 0 ? CoapType::kAck : CoapType::kRst;
    const auto code = static_cast<uint8_t>(i % 4 < 2 ? 0 : i);
    CoapMessage message = Request(type, code, static_cast<uint16_t>(i * 7919));
    if (code != 0) message.Token({static_cast<uint8_t>(i)}).AddPath("obs").PayloadText("reply");
    return message;
  };
  FromEverywhere(kNumSources / 2, reply);
  ExpectBounded(10, kMaxHeap, 1);
  FromEverywhere(kBatch, [&](int i) {
    return i % 2 == 0 ? Observe(CoapType::kCon, {1}) : Get(CoapType::kCon, "async", "q");
  });
  Change("v002");
  FromEverywhere(kNumSources / 2, reply);
  ExpectBounded(2200, kMaxHeap, 502);
  ExpectAllForgotten();
}

class HostileReaders : public HostileSources {
 protected:
  void SetUp() override {
    KeepVersions();
    HostileServer::SetUp();
  }
};

TEST_F(HostileReaders, Pulls) {
  FromEverywhere(kNumSources,
                 [&](int i) { return Pull(i % 2 == 0 ? CoapType::kCon : CoapType::kNon); });
  ExpectBounded(10, kMaxHeap, 1);
  ExpectAllForgotten();
}

// 64 pages in blocks are held, each with a record of ours.
TEST_F(HostileReaders, PullsInBlocks) {
  FromEverywhere(kNumSources, [&](int i) {
    CoapMessage pull = Pull(CoapType::kCon);
    if (i % 2 == 0) pull.AddUint(kOptAccept, 50);
    return pull.AddBlock(kOptBlock2, {0, false, static_cast<uint8_t>(i % 4)});
  });
  ExpectBounded(64 + 10, kMaxHeap, 1);
  ExpectAllForgotten();
}

// They never confirm anything; the bound is libcoap's on observers, and their lease ends.
TEST_F(HostileReaders, Registrations) {
  FromEverywhere(kNumSources, [&](int i) {
    return Observe(CoapType::kCon, {static_cast<uint8_t>(i)}).AddText(kOptUriQuery, "_sync=1");
  });
  EXPECT_EQ(versions_->peers.num, 1000u);
  ExpectBounded(1000 + 10, kMaxHeap, 1);
  Change("v002");
  ServeWaiting();
  ExpectAllForgotten();
  EXPECT_EQ(versions_->peers.num, 0u);
}

}  // namespace
}  // namespace coap_rpc_test
