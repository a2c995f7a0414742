// A flood as fast as a thread can send, while one peer behaves and repeats what is lost.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "forger.h"
#include "hostile_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kBurst = 64;
constexpr uint32_t kNumSources = 60'000;
constexpr uint32_t kNumAddresses = 250;
constexpr uint32_t kFloodLen = 2 * kNumSources / kSlowdown;

// Source is where a datagram of a flood is from.
struct Source {
  uint32_t ip;
  uint16_t port;
};

Source OnePeer(uint32_t) { return {OwnIpv4(Role::kOtherPeer), 40'000}; }

Source Anybody(uint32_t i) {
  const uint32_t number = i % kNumSources;
  return {0x7F000002 + (number % kNumAddresses << 8),
          static_cast<uint16_t>(10'000 + number / kNumAddresses)};
}

// Flood sends a number of datagrams of a kind from a thread, as fast as the machine can.
class Flood {
 public:
  template <typename From, typename Make>
  Flood(From from, Make make)
      : forger_(OwnIpv4(Role::kServer), kCoapPort), thread_([this, from, make] {
          for (uint32_t i = 0; !hasEnded_ && i < kFloodLen; i += kBurst) {
            for (uint32_t k = i; k < i + kBurst; ++k) {
              const Source source = from(k);
              forger_.Add(source.ip, source.port, make(k));
            }
            numSent_ += forger_.Send();
          }
          seconds_ = std::chrono::duration<double>(Clock::now() - begin_).count();
          isOver_ = true;
        }) {}
  ~Flood() {
    hasEnded_ = true;
    thread_.join();
  }

  bool IsPossible() const { return forger_.IsOpen(); }
  uint32_t NumSent() const { return numSent_; }

  // Await waits until the flood is over, and returns how many it sent a second.
  double Await() const {
    while (!isOver_) std::this_thread::yield();
    return numSent_ / seconds_;
  }

  // AwaitMore waits until more has been sent: on a busy machine the thread may not get its turn.
  void AwaitMore() const {
    const uint32_t numBefore = numSent_;
    while (!isOver_ && numSent_ == numBefore) std::this_thread::yield();
  }

 private:
  using Clock = std::chrono::steady_clock;

  Forger forger_;
  const Clock::time_point begin_ = Clock::now();
  std::atomic<bool> hasEnded_ = false;
  std::atomic<bool> isOver_ = false;
  double seconds_ = 0;  // that it took
  std::atomic<uint32_t> numSent_ = 0;
  std::thread thread_;
};

class HostileFlood : public HostileServer {
 protected:
  static constexpr uint32_t kNumRequests = 100 / kSlowdown;
  static constexpr uint32_t kRequestsPerWait = 10;
  static constexpr int kMaxRepeats = 100'000;  // each lets the server work

  // What 1000 idle sessions, 1000 observers and 64 pages in blocks amount to.
  static constexpr uint64_t kMaxHeap = 4 * 1024 * 1024;

  struct Score {
    uint32_t numAnswered = 0;
    uint32_t numRepeats = 0;
    uint64_t heapBytes = 0;  // the most that was in use
    std::vector<int64_t> timesUs;
  };

  // AskOnce sends a request and serves for a turn.  Returns whether it was answered, now or
  // earlier.
  bool AskOnce(Sender &peer, const CoapMessage &request) {
    peer.Send(request);
    COAP_RpcProcIo(Ctx());
    DropRecords();
    for (Bytes datagram = peer.Receive(); !datagram.empty(); datagram = peer.Receive()) {
      CoapMessage answer;
      if (!Parse(datagram, &answer).empty() || answer.token != request.token) continue;
      EXPECT_EQ(answer.code, Code(2, 1));
      return true;
    }
    return false;
  }

  Score AskAllDuring(const Flood &flood) {
    Score score;
    Sender peer = SenderAt(OwnIpv4(Role::kPeer));
    for (uint32_t i = 0; i < kNumRequests; ++i) {
      if (i % kRequestsPerWait == 0) flood.AwaitMore();
      CoapMessage request = Get(CoapType::kCon, "sync", "q");
      request.token = {static_cast<uint8_t>(i), 0x5A};
      int numTries = 0;
      const auto from = std::chrono::steady_clock::now();
      while (numTries < kMaxRepeats && !AskOnce(peer, request)) ++numTries;
      score.numRepeats += static_cast<uint32_t>(numTries);
      score.numAnswered += numTries < kMaxRepeats ? 1 : 0;
      score.timesUs.push_back((std::chrono::steady_clock::now() - from) /
                              std::chrono::microseconds(1));
      score.heapBytes = std::max(score.heapBytes, HeapBytes());
    }
    return score;
  }

  static void Print(Score &score, const Flood &flood, uint64_t heapBytes) {
    const double perSecond = flood.Await();
    std::sort(score.timesUs.begin(), score.timesUs.end());
    const auto p99 = score.timesUs[score.timesUs.size() * 99 / 100];
    printf(
        "[ MEASURED ] %u of %u requests answered with %u repeated, p99 %lld us, heap +%lld KiB, %u "
        "datagrams of flood, %.0f a second\n",
        score.numAnswered, kNumRequests, score.numRepeats, static_cast<long long>(p99),
        static_cast<long long>(score.heapBytes - heapBytes) / 1024, flood.NumSent(), perSecond);
  }

  template <typename From, typename Make>
  void ExpectAllAnsweredDuring(From from, Make make) {
    const uint64_t heapBytes = HeapBytes();
    uint32_t numSent = 0;
    Score score;
    {
      const Flood flood(from, make);
      if (!flood.IsPossible()) GTEST_SKIP() << "no raw sockets here";
      score = AskAllDuring(flood);
      numSent = flood.NumSent();
      Print(score, flood, heapBytes);
    }
    EXPECT_LE(score.heapBytes, heapBytes + kMaxHeap);
    EXPECT_EQ(score.numAnswered, kNumRequests);
    EXPECT_GE(numSent, kNumRequests / kRequestsPerWait);
    ExpectAllForgotten();
  }
};

TEST_F(HostileFlood, OfNoise) {
  std::mt19937 random(1);
  Bytes noise(64);
  for (uint8_t &byte : noise) byte = static_cast<uint8_t>(random());
  ExpectAllAnsweredDuring(OnePeer, [noise](uint32_t i) {
    Bytes datagram = noise;
    datagram[i % noise.size()] = static_cast<uint8_t>(i);
    return datagram;
  });
}

Bytes PlainGet(uint32_t i) {
  const auto mid = static_cast<uint16_t>(i);
  return ToBytes(Request(CoapType::kCon, kCodeGet, mid, {1}).AddPath("big").PayloadText("payload"));
}

TEST_F(HostileFlood, OfRequests) { ExpectAllAnsweredDuring(OnePeer, PlainGet); }

TEST_F(HostileFlood, OfRequestsFromForgedSources) { ExpectAllAnsweredDuring(Anybody, PlainGet); }

TEST_F(HostileFlood, OfRegistrations) {
  ExpectAllAnsweredDuring(OnePeer, [](uint32_t i) {
    const Bytes token = {static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8)};
    return ToBytes(Request(CoapType::kCon, kCodeGet, static_cast<uint16_t>(i), token)
                       .AddPath("obs")
                       .AddUint(kOptObserve, i % 2));
  });
}

class HostileFloodOfReaders : public HostileFlood {
 protected:
  void SetUp() override {
    KeepVersions();
    HostileServer::SetUp();
  }
};

// Numbered makes copies of a datagram with message ids of their own.
auto Numbered(const CoapMessage &message) {
  return [datagram = ToBytes(message)](uint32_t i) {
    Bytes copy = datagram;
    copy[2] = static_cast<uint8_t>(i >> 8);
    copy[3] = static_cast<uint8_t>(i);
    return copy;
  };
}

TEST_F(HostileFloodOfReaders, Pulls) {
  ExpectAllAnsweredDuring(OnePeer, Numbered(Pull(CoapType::kCon)));
}

TEST_F(HostileFloodOfReaders, PullsFromForgedSources) {
  ExpectAllAnsweredDuring(Anybody, Numbered(Pull(CoapType::kNon)));
}

TEST_F(HostileFloodOfReaders, PullsInBlocks) {
  const CoapMessage pull =
      Pull(CoapType::kCon).AddUint(kOptAccept, 50).AddBlock(kOptBlock2, {0, false, 0});
  ExpectAllAnsweredDuring(OnePeer, Numbered(pull));
}

TEST_F(HostileFloodOfReaders, PullsInBlocksFromForgedSources) {
  const CoapMessage pull =
      Pull(CoapType::kNon).AddUint(kOptAccept, 50).AddBlock(kOptBlock2, {0, false, 0});
  ExpectAllAnsweredDuring(Anybody, Numbered(pull));
}

Bytes Registration(uint32_t i) {
  const Bytes token = {static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8)};
  return ToBytes(Request(CoapType::kCon, kCodeGet, static_cast<uint16_t>(i), token)
                     .AddPath("obs")
                     .AddUint(kOptObserve, i % 2)
                     .AddText(kOptUriQuery, "_sync=1"));
}

TEST_F(HostileFloodOfReaders, Registrations) { ExpectAllAnsweredDuring(OnePeer, Registration); }

TEST_F(HostileFloodOfReaders, RegistrationsFromForgedSources) {
  ExpectAllAnsweredDuring(Anybody, Registration);
}

}  // namespace
}  // namespace coap_rpc_test
