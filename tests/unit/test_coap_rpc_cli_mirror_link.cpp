/* test_coap_rpc_cli_mirror_link.cpp: a mirror that reads a large set over a narrow link: 1 Mbit/s
 * and 50 ms each way, with a queue of 20 packets that drops what does not fit. */
#include <deque>

#include "mirror_world.h"

namespace coap_rpc_test {
namespace {

constexpr uint64_t kUsPerByte = 8;  // 1 Mbit/s
constexpr uint64_t kDelayUs = 50'000;
constexpr size_t kMaxQueued = 20;
constexpr size_t kHeaders = 50;  // IP, UDP and CoAP
constexpr size_t kPullBytes = 110;
constexpr uint32_t kNumTuples = 30'000;  // about 350 kB

struct Packet {
  uint64_t arrivesUs;
  coap_rpc::MirrorAsk ask;
  std::string bytes;
};

// Link is one direction.
class Link {
 public:
  // Send queues a packet; false: it is dropped.
  bool Send(uint64_t nowUs, size_t len, const coap_rpc::MirrorAsk &ask, std::string bytes) {
    while (!leaving_.empty() && leaving_.front() <= nowUs) leaving_.pop_front();
    if (leaving_.size() > kMaxQueued) return false;
    freeUs_ = std::max(freeUs_, nowUs) + len * kUsPerByte;
    numBytes += len;
    leaving_.push_back(freeUs_);
    onTheWay_.push_back({freeUs_ + kDelayUs, ask, std::move(bytes)});
    return true;
  }
  uint64_t NextUs() const { return onTheWay_.empty() ? UINT64_MAX : onTheWay_.front().arrivesUs; }
  Packet Take() {
    Packet packet = onTheWay_.front();
    onTheWay_.pop_front();
    return packet;
  }
  uint64_t numBytes = 0;

 private:
  uint64_t freeUs_ = 0;
  std::deque<uint64_t> leaving_;  // when each queued packet is sent
  std::deque<Packet> onTheWay_;
};

class CliMirrorLink : public ::testing::TestWithParam<uint32_t> {
 protected:
  void Fill() {
    for (uint32_t i = 0; i < kNumTuples; ++i) {
      std::string key = "    ";
      for (uint32_t rest = i, at = 4; at-- != 0; rest /= 36) {
        key[at] = "0123456789abcdefghijklmnopqrstuvwxyz"[rest % 36];
      }
      life_.Put(key, "v001");
    }
  }
  void SendAll(coap_rpc::Mirror &core) {
    for (auto ask = MirrorNext(core, NowMs()); ask.act != coap_rpc::MirrorAct::kNone;
         ask = MirrorNext(core, NowMs())) {
      if (ask.act == coap_rpc::MirrorAct::kOpen) continue;
      ++numSent_;
      numLost_ += !toServer_.Send(nowUs_, kPullBytes, ask, "");
    }
  }
  void Serve(const Packet &packet) {
    const std::string page = packet.ask.act == coap_rpc::MirrorAct::kRegister
                                 ? life_.AnswerRegistration()
                                 : life_.Answer(packet.ask, true);
    numLost_ += !toMirror_.Send(nowUs_, page.size() + kHeaders, packet.ask, page);
  }
  uint64_t NowMs() const { return nowUs_ / 1000; }

  ServerLife life_{1024, 1024};
  TestHost host_;
  std::mt19937_64 random_{1};
  Link toServer_, toMirror_;
  uint64_t nowUs_ = 1'000'000;
  uint32_t numSent_ = 0;
  uint32_t numLost_ = 0;
};

TEST_P(CliMirrorLink, FullSync_TakesTheLinksOwnTime_AndLosesLittle) {
  Fill();
  CoapRpcMirrorParam param = {};
  param.keyLen = param.valLen = 4;
  param.numInFlight = GetParam();
  param.heartbeatMs = 30000;
  TestMirror mirror(host_.Mem(), param, random_, NowMs());
  const uint64_t beganUs = nowUs_;
  SendAll(mirror.core);
  while (mirror.synced.empty() && nowUs_ < beganUs + 60'000'000) {
    const uint64_t dueUs = MirrorDueMs(mirror.core) * 1000;
    nowUs_ = std::max(nowUs_, std::min({toServer_.NextUs(), toMirror_.NextUs(), dueUs}));
    if (toServer_.NextUs() <= nowUs_) Serve(toServer_.Take());
    if (toMirror_.NextUs() <= nowUs_) {
      const Packet packet = toMirror_.Take();
      mirror.Take(packet.ask.token, packet.bytes, NowMs());
    }
    if (dueUs <= nowUs_) MirrorTick(mirror.core, NowMs());
    SendAll(mirror.core);
  }
  const uint64_t us = nowUs_ - beganUs;
  const uint64_t ownUs = toMirror_.numBytes * kUsPerByte + 2 * kDelayUs;
  printf("%u in flight: %.2f s, the link's own time %.2f s; %u sent, %u lost, window %u\n",
         GetParam(), static_cast<double>(us) / 1e6, static_cast<double>(ownUs) / 1e6, numSent_,
         numLost_, mirror.core.pulls.window);
  EXPECT_EQ(mirror.shadow.size(), kNumTuples);
  EXPECT_LE(numLost_ * 20, numSent_);
  EXPECT_LE(us * 2, ownUs * 3);
}

INSTANTIATE_TEST_SUITE_P(InFlight, CliMirrorLink, ::testing::Values(16u, 32u, 64u, 128u));

}  // namespace
}  // namespace coap_rpc_test
