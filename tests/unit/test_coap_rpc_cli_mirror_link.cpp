/* test_coap_rpc_cli_mirror_link.cpp: what a mirror sends over links of different width and length.
 *
 * The time is the test's own, so what is measured is what the mirror decides. */
#include <deque>

#include "mirror_world.h"

namespace coap_rpc_test {
namespace {

constexpr size_t kHeaders = 50;  // IP, UDP and CoAP
constexpr size_t kPullBytes = 110;
constexpr uint32_t kNumTuples = 20'000;
constexpr uint64_t kMaxUs = 60'000'000;

// LinkKind is what each direction is like; a queue drops what does not fit.
struct LinkKind {
  uint64_t usPerByte;
  uint64_t delayUs;
  size_t maxQueued;
};
constexpr LinkKind kNarrow = {8, 50'000, 20};  // 1 Mbit/s
constexpr LinkKind kWide = {0, 5'000, SIZE_MAX};

struct Packet {
  uint64_t arrivesUs;
  coap_rpc::MirrorAsk ask;
  std::string bytes;
};

// Link is one direction.
class Link {
 public:
  explicit Link(const LinkKind &kind) : kind_(kind) {}

  // Send queues a packet; false: it is dropped.
  bool Send(uint64_t nowUs, size_t len, const coap_rpc::MirrorAsk &ask, std::string bytes) {
    while (!leaving_.empty() && leaving_.front() <= nowUs) leaving_.pop_front();
    if (leaving_.size() > kind_.maxQueued) return false;
    freeUs_ = std::max(freeUs_, nowUs) + len * kind_.usPerByte;
    numBytes += len;
    leaving_.push_back(freeUs_);
    onTheWay_.push_back({freeUs_ + kind_.delayUs, ask, std::move(bytes)});
    return true;
  }
  uint64_t NextUs() const { return onTheWay_.empty() ? UINT64_MAX : onTheWay_.front().arrivesUs; }
  Packet Take() {
    Packet packet = onTheWay_.front();
    onTheWay_.pop_front();
    return packet;
  }
  // OwnUs is how long the link takes for what it has carried.
  uint64_t OwnUs() const { return numBytes * kind_.usPerByte + 2 * kind_.delayUs; }
  uint64_t numBytes = 0;

 private:
  LinkKind kind_;
  uint64_t freeUs_ = 0;
  std::deque<uint64_t> leaving_;  // when each queued packet is sent
  std::deque<Packet> onTheWay_;
};

// LinkedMirror is a mirror and the server of a set that it reads over a link.
class LinkedMirror {
 public:
  LinkedMirror(const LinkKind &kind, size_t pageBytes, uint32_t numInFlight)
      : life_(1024, pageBytes), toServer_(kind), toMirror_(kind) {
    CoapRpcMirrorParam param = {};
    param.keyLen = param.valLen = 4;
    param.numInFlight = numInFlight;
    param.heartbeatMs = 30000;
    mirror_ = std::make_unique<TestMirror>(host_.Mem(), param, random_, NowMs());
  }
  static std::string Key(uint32_t number) {
    std::string key = "    ";
    for (uint32_t at = 4; at-- != 0; number /= 36) {
      key[at] = "0123456789abcdefghijklmnopqrstuvwxyz"[number % 36];
    }
    return key;
  }
  void Put(uint32_t numTuples, const std::string &val) {
    for (uint32_t i = 0; i < numTuples; ++i) life_.Put(Key(i), val);
  }

  // RunUntilSynced returns how long it takes until the mirror has the set's last version.
  uint64_t RunUntilSynced() {
    const uint64_t beganUs = nowUs_;
    SendAll();
    while (!IsSynced() && nowUs_ < beganUs + kMaxUs) Step();
    EXPECT_EQ(mirror_->shadow.size(), life_.Table().size());
    return nowUs_ - beganUs;
  }
  const TestMirror &Mirror() const { return *mirror_; }
  const Link &ToMirror() const { return toMirror_; }
  uint64_t NumBytes() const { return toMirror_.numBytes + toServer_.numBytes; }

  uint32_t numSent = 0;
  uint32_t numLost = 0;

 private:
  uint64_t NowMs() const { return nowUs_ / 1000; }
  bool IsSynced() { return !mirror_->synced.empty() && mirror_->synced.back() == life_.Set().head; }
  void SendAll() {
    coap_rpc::Mirror &core = mirror_->core;
    for (auto ask = MirrorNext(core, NowMs()); ask.act != coap_rpc::MirrorAct::kNone;
         ask = MirrorNext(core, NowMs())) {
      if (ask.act == coap_rpc::MirrorAct::kOpen) continue;
      ++numSent;
      numLost += !toServer_.Send(nowUs_, kPullBytes, ask, "");
    }
  }
  void Serve(const Packet &packet) {
    const std::string page = packet.ask.act == coap_rpc::MirrorAct::kRegister
                                 ? life_.AnswerRegistration()
                                 : life_.Answer(packet.ask, true);
    numLost += !toMirror_.Send(nowUs_, page.size() + kHeaders, packet.ask, page);
  }
  void Step() {
    const uint64_t dueUs = MirrorDueMs(mirror_->core) * 1000;
    nowUs_ = std::max(nowUs_, std::min({toServer_.NextUs(), toMirror_.NextUs(), dueUs}));
    if (toServer_.NextUs() <= nowUs_) Serve(toServer_.Take());
    if (toMirror_.NextUs() <= nowUs_) {
      const Packet packet = toMirror_.Take();
      mirror_->Take(packet.ask.token, packet.bytes, NowMs());
    }
    if (dueUs <= nowUs_) MirrorTick(mirror_->core, NowMs());
    SendAll();
  }

  TestHost host_;
  std::mt19937_64 random_{1};
  uint64_t nowUs_ = 1'000'000;
  ServerLife life_;
  Link toServer_, toMirror_;
  std::unique_ptr<TestMirror> mirror_;
};

class CliMirrorLink : public ::testing::TestWithParam<uint32_t> {};

TEST_P(CliMirrorLink, FullSync_TakesTheLinksOwnTime_AndLosesLittle) {
  LinkedMirror link(kNarrow, 1024, GetParam());
  link.Put(kNumTuples, "v001");  // about 230 kB
  const uint64_t us = link.RunUntilSynced();
  const uint64_t ownUs = link.ToMirror().OwnUs();
  printf("%u in flight: %.2f s, the link's own time %.2f s; %u sent, %u lost, window %u\n",
         GetParam(), static_cast<double>(us) / 1e6, static_cast<double>(ownUs) / 1e6, link.numSent,
         link.numLost, link.Mirror().core.pulls.window);
  EXPECT_LE(link.numLost * 20, link.numSent);
  EXPECT_LE(us * 2, ownUs * 3);
}

INSTANTIATE_TEST_SUITE_P(InFlight, CliMirrorLink, ::testing::Values(16u, 32u, 64u, 128u));

// 10 ms there and back, and a set of some thousand pages.
TEST(CliMirrorLongLink, ManyInFlight_AreFiftyTimesAsFastAsOne) {
  LinkedMirror one(kWide, 256, 1);
  LinkedMirror many(kWide, 256, 128);
  one.Put(kNumTuples, "v001");
  many.Put(kNumTuples, "v001");
  const uint64_t oneUs = one.RunUntilSynced();
  const uint64_t manyUs = many.RunUntilSynced();
  printf("one at a time %.2f s, 128 in flight %.3f s\n", static_cast<double>(oneUs) / 1e6,
         static_cast<double>(manyUs) / 1e6);
  EXPECT_GE(oneUs, 50 * manyUs);
  EXPECT_EQ(many.Mirror().core.pulls.numRepeats, 0u);
}

}  // namespace
}  // namespace coap_rpc_test
