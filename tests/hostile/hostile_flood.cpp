// A flood as fast as a thread can send, while one peer behaves and repeats what is lost.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "hostile_server.h"

namespace coap_rpc_test {
namespace {

// Flood sends datagrams of a kind from a thread until it ends.
class Flood {
 public:
  template <typename Make>
  Flood(uint32_t fromIp, uint32_t toIp, Make make)
      : thread_([this, fromIp, toIp, make] {
          Sender sender(fromIp, 0, toIp, kCoapPort);
          for (uint32_t i = 0; !hasEnded_; ++i) {
            sender.Send(make(i));
            ++numSent_;
          }
        }) {}
  ~Flood() {
    hasEnded_ = true;
    thread_.join();
  }

  uint32_t NumSent() const { return numSent_; }

  // AwaitMore waits until more has been sent: on a busy machine the thread may not get its turn.
  void AwaitMore() const {
    const uint32_t numBefore = numSent_;
    while (numSent_ == numBefore) std::this_thread::yield();
  }

 private:
  std::atomic<bool> hasEnded_ = false;
  std::atomic<uint32_t> numSent_ = 0;
  std::thread thread_;
};

class HostileFlood : public HostileServer {
 protected:
  static constexpr uint32_t kNumRequests = 100 / kSlowdown;
  static constexpr uint32_t kRequestsPerWait = 10;
  static constexpr int kMaxRepeats = 100'000;  // each lets the server work

  struct Score {
    uint32_t numAnswered = 0;
    uint32_t numRepeats = 0;
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
    }
    return score;
  }

  template <typename Make>
  void ExpectAllAnsweredDuring(Make make) {
    uint32_t numSent = 0;
    Score score;
    {
      const Flood flood(OwnIpv4(Role::kOtherPeer), OwnIpv4(Role::kServer), make);
      score = AskAllDuring(flood);
      numSent = flood.NumSent();
    }
    std::sort(score.timesUs.begin(), score.timesUs.end());
    printf(
        "[ MEASURED ] %u of %u requests answered with %u repeated, p99 %lld us, %u datagrams of "
        "flood\n",
        score.numAnswered, kNumRequests, score.numRepeats,
        static_cast<long long>(score.timesUs[score.timesUs.size() * 99 / 100]), numSent);
    EXPECT_EQ(score.numAnswered, kNumRequests);
    EXPECT_GE(numSent, kNumRequests / kRequestsPerWait);
    ExpectAllForgotten();
  }
};

TEST_F(HostileFlood, OfNoise) {
  std::mt19937 random(1);
  Bytes noise(64);
  for (uint8_t &byte : noise) byte = static_cast<uint8_t>(random());
  ExpectAllAnsweredDuring([noise](uint32_t i) {
    Bytes datagram = noise;
    datagram[i % noise.size()] = static_cast<uint8_t>(i);
    return datagram;
  });
}

TEST_F(HostileFlood, OfRequests) {
  ExpectAllAnsweredDuring([](uint32_t i) {
    const auto mid = static_cast<uint16_t>(i);
    return ToBytes(
        Request(CoapType::kCon, kCodeGet, mid, {1}).AddPath("big").PayloadText("payload"));
  });
}

TEST_F(HostileFlood, OfRegistrations) {
  ExpectAllAnsweredDuring([](uint32_t i) {
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

TEST_F(HostileFloodOfReaders, Pulls) {
  const Bytes pull = ToBytes(Pull(CoapType::kCon));
  ExpectAllAnsweredDuring([pull](uint32_t i) {
    Bytes datagram = pull;
    datagram[2] = static_cast<uint8_t>(i >> 8);
    datagram[3] = static_cast<uint8_t>(i);
    return datagram;
  });
}

TEST_F(HostileFloodOfReaders, PullsInBlocks) {
  const Bytes pull =
      ToBytes(Pull(CoapType::kCon).AddUint(kOptAccept, 50).AddBlock(kOptBlock2, {0, false, 0}));
  ExpectAllAnsweredDuring([pull](uint32_t i) {
    Bytes datagram = pull;
    datagram[2] = static_cast<uint8_t>(i >> 8);
    datagram[3] = static_cast<uint8_t>(i);
    return datagram;
  });
}

TEST_F(HostileFloodOfReaders, Registrations) {
  ExpectAllAnsweredDuring([](uint32_t i) {
    const Bytes token = {static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8)};
    return ToBytes(Request(CoapType::kCon, kCodeGet, static_cast<uint16_t>(i), token)
                       .AddPath("obs")
                       .AddUint(kOptObserve, i % 2)
                       .AddText(kOptUriQuery, "_sync=1"));
  });
}

}  // namespace
}  // namespace coap_rpc_test
