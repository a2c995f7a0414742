// Two instances under a mixed load for a day of the manual clock, or for as many hours as
// COAP_RPC_ENDURANCE_HOURS says.
//
// Each hour has a time with lost datagrams, a client that observes and vanishes, and an instance
// that vanishes without notice and is restarted.  At the end of each hour the load rests: every
// call has been answered then, the mirrors are equal, and memory is what it was at the first rest.
//
// Clocks and numbers start near their ends: the host's clock crosses 2^40 ms and libcoap's 2^32 ms
// half-way, sessions begin 64 message ids before the last one, tables as many notifications before
// the end of the 24 bits of an observe number.
#include <coap3/coap.h>

#include <cstdlib>

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "load.h"
#include "memory_sample.h"

namespace coap_rpc_test {
namespace {

constexpr uint64_t kMinuteMs = 60'000;
constexpr uint64_t kHourMs = 60 * kMinuteMs;
constexpr uint32_t kBeforeTheEnd = 64;

enum class Loss { kNone, kSome, kAll };

// Random is libcoap's source of chance: always the same sequence, and message ids that start near
// their end while nothing is lost (their two bytes are drawn the same way as losses are).
struct Random {
  static inline std::mt19937 sequence{71};
  static inline bool isLossy = false;

  static int Draw(void *out, size_t len) {
    auto *bytes = static_cast<uint8_t *>(out);
    for (size_t i = 0; i < len; ++i) bytes[i] = static_cast<uint8_t>(sequence());
    const uint16_t nearEnd = static_cast<uint16_t>(0 - kBeforeTheEnd);
    if (len == sizeof(nearEnd) && !isLossy) memcpy(bytes, &nearEnd, sizeof(nearEnd));
    return 1;
  }
};

// libcoap keeps the two ways of losing apart: by chance, and by the numbers of datagrams.
void SetLoss(Loss loss) {
  Random::isLossy = loss == Loss::kSome;
  EXPECT_TRUE(coap_debug_set_packet_loss(loss == Loss::kSome ? "5%" : "0%"));
  EXPECT_TRUE(coap_debug_set_packet_loss(loss == Loss::kAll ? "1-2147483647" : "2147483647"));
}

// Party is one instance and its load.
class Party {
 public:
  Party(uint32_t ip, uint32_t peerIp, uint32_t seed) : side_(ip), peerIp_(peerIp), seed_(seed) {
    StartLoad();
  }
  ~Party() { side_.Stop(); }  // before the load that it calls

  void Step() {
    side_.Host().AdvanceMs(kTickMs);
    load_->Step(side_.Host().Timers().NowMs());
    side_.Host().ClearLogs();
  }

  // Restart begins a new life; the peer of the old one hears nothing of its end.
  void Restart() {
    SetLoss(Loss::kAll);
    earlier_ += load_->Counts();
    side_.Stop();
    SetLoss(Loss::kNone);
    side_.Start();
    StartLoad();
  }

  Load &Work() { return *load_; }
  TestHost &Host() { return side_.Host(); }
  CoapRpcCtx *Ctx() { return side_.Ctx(); }
  uint32_t Ip() { return side_.Address().addr.ipv4; }

  LoadCounts Counts() {
    LoadCounts counts = earlier_;
    counts += load_->Counts();
    return counts;
  }

 private:
  void StartLoad() {
    EXPECT_EQ(COAP_RpcSetLibLogLevel(side_.Ctx(), COAP_LOG_ERR), 0u);
    load_ = std::make_unique<Load>(side_.Ctx(),
                                   LoadParam{Ip(), peerIp_, ++seed_, 2000, kMinuteMs, 20'000,
                                             kMinuteMs, COAP_RpcCliObserveReqVerify},
                                   side_.Host().Timers().NowMs());
    MoveObserveNumbers();
  }

  void MoveObserveNumbers() {
    for (const char *uri : {"t/json", "t/idl", "t/non"}) {
      coap_str_const_t path = {strlen(uri), reinterpret_cast<const uint8_t *>(uri)};
      coap_resource_t *resource = coap_get_resource_from_uri_path(side_.Ctx()->lib->coapCtx, &path);
      ASSERT_NE(resource, nullptr);
      coap_persist_set_observe_num(resource, 0xFFFFFF - kBeforeTheEnd);
    }
  }

  Side side_;
  std::unique_ptr<Load> load_;
  const uint32_t peerIp_;
  uint32_t seed_;
  LoadCounts earlier_;  // of lives before this one
};

// Rest is what was held at one rest.
struct Rest {
  uint64_t poolCount = 0;
  uint64_t poolBytes = 0;
  uint64_t numTimers = 0;
  MemorySample process;

  std::string Text() const {
    return "pool " + std::to_string(poolCount) + " pieces, " + std::to_string(poolBytes) +
           " bytes; timers " + std::to_string(numTimers) + "; malloc " +
           std::to_string(process.mallocBytes) + " bytes; descriptors " +
           std::to_string(process.numFds);
  }
};

class EnduranceDay : public testing::Test {
 protected:
  static void SetUpTestSuite() { EnterOwnNetwork(); }

  EnduranceDay() {
    const char *hours = getenv("COAP_RPC_ENDURANCE_HOURS");
    if (hours) numHours_ = strtoull(hours, nullptr, 10);
    const uint64_t halfMs = numHours_ * kHourMs / 2;
    coap_set_prng(Random::Draw);
    TestHost::Process().FollowTo((uint64_t{1} << 32) - halfMs);
    asker_ = std::make_unique<Party>(kAskerIp, kServerIp, 1000);
    server_ = std::make_unique<Party>(kServerIp, kAskerIp, 2000);
    TestHost::Process().SetNowMs((uint64_t{1} << 40) - halfMs);
  }

  void Run(uint64_t ms) {
    for (uint64_t at = 0; at < ms; at += kTickMs) {
      asker_->Step();
      server_->Step();
    }
  }

  // Vanish stalls one side for a minute, removes it, and restarts it.
  void Vanish(Party *gone, Party *other) {
    for (uint64_t at = 0; at < kMinuteMs; at += kTickMs) other->Step();
    const LoadCounts life = gone->Work().Counts();
    numCallsGone_ += life.calls.asked - life.calls.answered;
    numPostsGone_ += life.posted - life.postsSeen;
    gone->Restart();
  }

  // ObserveAndVanish is what a client does that is never heard of again.
  void ObserveAndVanish(Party *server) {
    RawPeer peer({"127.0.0.9", 0});
    peer.SetRemote({server->Ip() == kServerIp ? "127.0.0.2" : "127.0.0.1", kCoapPort});
    CoapMessage get = Request(CoapType::kCon, kCodeGet, 7, {0x0D}).AddPath("t").AddPath("json");
    peer.Send(get.AddUint(kOptObserve, 0));
    EXPECT_TRUE(peer.ReceiveMessage([this] { Run(kTickMs); }));
  }

  bool IsMirrored() {
    return asker_->Work().MirrorsText() == server_->Work().TablesText() &&
           server_->Work().MirrorsText() == asker_->Work().TablesText();
  }

  void ExpectRest() {
    for (uint64_t at = 0; at < 10 * kMinuteMs; at += 1000) {
      if (asker_->Work().IsQuiet() && server_->Work().IsQuiet() && IsMirrored()) return;
      Run(1000);
    }
    ADD_FAILURE() << asker_->Work().StateText() << "\n" << server_->Work().StateText();
  }

  void SetQuiet(bool isQuiet) {
    asker_->Work().SetQuiet(isQuiet);
    server_->Work().SetQuiet(isQuiet);
  }

  // TakeRest waits until everything that is kept for a time has been given up: sessions, bodies,
  // idle peers.
  Rest TakeRest() {
    SetQuiet(true);
    ExpectRest();
    for (Party *party : {asker_.get(), server_.get()}) party->Work().ResetTables();
    Run(10 * kMinuteMs);
    for (Party *party : {asker_.get(), server_.get()}) party->Work().Verify();
    Run(kMinuteMs);
    EXPECT_TRUE(IsMirrored());
    const Rest rest = WhatIsHeld();
    SetQuiet(false);
    return rest;
  }

  Rest WhatIsHeld() {
    Rest rest;
    for (Party *party : {asker_.get(), server_.get()}) {
      rest.poolCount += party->Host().Pool().LiveCount();
      rest.poolBytes += party->Host().Pool().LiveBytes();
      rest.numTimers += party->Host().Timers().Running().size();
      EXPECT_TRUE(party->Host().Pool().Violations().empty());
    }
    rest.process = TakeMemorySample();
    return rest;
  }

  void Hour(uint64_t number) {
    Party *gone = number % 2 == 0 ? asker_.get() : server_.get();
    Party *other = number % 2 == 0 ? server_.get() : asker_.get();
    ExpectCalm();
    SetLoss(Loss::kSome);
    Run(10 * kMinuteMs);
    SetLoss(Loss::kNone);
    ObserveAndVanish(other);
    Run(9 * kMinuteMs);
    Vanish(gone, other);
    Run(19 * kMinuteMs);
  }

  // Without faults no request has to be made twice.  (A mirror may: a renewal that goes out while a
  // payload comes in blocks ends that payload.)
  void ExpectCalm() {
    const LoadCounts before = Counts();
    Run(10 * kMinuteMs);
    const LoadCounts now = Counts();
    EXPECT_EQ(now.calls.repeated, before.calls.repeated);
    EXPECT_EQ(now.postsRepeated, before.postsRepeated);
  }

  // What happened in an hour happens in every hour: nothing has come to a stop.
  void ExpectProgress(const LoadCounts &before, const LoadCounts &now) {
    EXPECT_GT(now.calls.answered, before.calls.answered + 1000);
    EXPECT_GT(now.calls.served, before.calls.served + 1000);
    EXPECT_GT(now.postsSeen, before.postsSeen + 200);
    EXPECT_GT(now.changes, before.changes + 2000);
    EXPECT_GT(now.mirrors.payloads, before.mirrors.payloads + 2000);
    EXPECT_GT(now.mirrors.renewals, before.mirrors.renewals + 200);
  }

  static std::string RepeatedText(const LoadCounts &before, const LoadCounts &now) {
    return "; repeated: calls " + std::to_string(now.calls.repeated - before.calls.repeated) +
           ", posts " + std::to_string(now.postsRepeated - before.postsRepeated) + ", mirrors " +
           std::to_string(now.mirrors.rebuilt - before.mirrors.rebuilt);
  }

  LoadCounts Counts() {
    LoadCounts counts = asker_->Counts();
    counts += server_->Counts();
    return counts;
  }

  uint64_t numHours_ = 1;
  uint64_t numCallsGone_ = 0;  // whose asker has vanished
  uint64_t numPostsGone_ = 0;
  std::unique_ptr<Party> asker_;
  std::unique_ptr<Party> server_;
};

TEST_F(EnduranceDay, MixedLoad_NothingIsLostAndNothingGrows) {
  Run(10 * kMinuteMs);
  Rest first;
  Rest rest;
  for (uint64_t hour = 0; hour < numHours_; ++hour) {
    const LoadCounts before = Counts();
    Hour(hour);
    rest = TakeRest();
    ExpectProgress(before, Counts());
    if (hour == 0) first = rest;
    // The test itself allocates once at its first output.
    if (hour == 1) first.process.mallocBytes = rest.process.mallocBytes;
    printf("hour %llu: %s%s\n", static_cast<unsigned long long>(hour) + 1, rest.Text().c_str(),
           RepeatedText(before, Counts()).c_str());
    EXPECT_EQ(rest.poolCount, first.poolCount);
    EXPECT_EQ(rest.poolBytes, first.poolBytes);
    EXPECT_EQ(rest.numTimers, first.numTimers);
    EXPECT_EQ(rest.process.numFds, first.process.numFds);
  }
  EXPECT_TRUE(TestHost::Process().Asserts().empty());
  EXPECT_LE(rest.process.mallocBytes, first.process.mallocBytes + 4096);
  const LoadCounts counts = Counts();
  EXPECT_EQ(counts.calls.answered + numCallsGone_, counts.calls.asked);
  EXPECT_EQ(counts.postsSeen + numPostsGone_, counts.posted);
  printf("%llu hours: %s; gone with their instance: calls %llu, posts %llu\n",
         static_cast<unsigned long long>(numHours_), counts.Text().c_str(),
         static_cast<unsigned long long>(numCallsGone_),
         static_cast<unsigned long long>(numPostsGone_));
}

// VersionedCopy is the library's mirror of one of a party's tables.
class VersionedCopy {
 public:
  VersionedCopy(Party *from, Party *at) {
    const CoapRpcUriKey key = KeyOf("t/idl", COAP_RPC_CON, 1);
    EXPECT_EQ(COAP_RpcSerSetUriSync(from->Ctx(), &key, nullptr), 0u);
    CoapRpcCallAddr addr = {};
    addr.dstIp = Ipv4Address(from->Ip());
    addr.dstPort = kCoapPort;
    CoapRpcMirrorParam param = {};
    param.keyLen = param.valLen = 4;
    EXPECT_EQ(COAP_RpcMirrorOpen(at->Ctx(), &key, &addr, &param, &mirror_), 0u);
  }
  ~VersionedCopy() { COAP_RpcMirrorClose(mirror_); }

  Tuples Data() const {
    Tuples data;
    const uint8_t *tuple = nullptr;
    while ((tuple = COAP_RpcMirrorNext(mirror_, tuple))) {
      data[std::string(tuple, tuple + 4)] = std::string(tuple + 4, tuple + 8);
    }
    return data;
  }

  CoapRpcMirrorState State() const {
    CoapRpcMirrorState state = {};
    COAP_RpcMirrorGetState(mirror_, &state);
    return state;
  }

 private:
  CoapRpcMirror *mirror_ = nullptr;
};

// Loss for a sixth of the time, and a minute of each hour without any datagram: a mirror reads
// everything once in its life.
TEST_F(EnduranceDay, Mirror_IsReadWholeOnce_WhateverIsLost) {
  const VersionedCopy copy(server_.get(), asker_.get());
  for (uint64_t hour = 0; hour < numHours_; ++hour) {
    Run(20 * kMinuteMs);
    SetLoss(Loss::kSome);
    Run(10 * kMinuteMs);
    SetLoss(Loss::kAll);
    Run(kMinuteMs);
    SetLoss(Loss::kNone);
    Run(28 * kMinuteMs);
    SetQuiet(true);
    Run(kMinuteMs);
    EXPECT_EQ(copy.State().state, uint32_t{COAP_RPC_MIRROR_SYNCED}) << "hour " << hour;
    EXPECT_EQ(copy.Data(), server_->Work().TableData(1)) << "hour " << hour;
    SetQuiet(false);
  }
  const CoapRpcMirrorState state = copy.State();
  EXPECT_EQ(state.numFullSyncs, 1u);
  EXPECT_EQ(state.numDigestErrors + state.numBadMessages, 0u);
  EXPECT_GT(state.numNotifications, 500 * numHours_);
  EXPECT_GT(state.numRepeats, 0u);
  printf(
      "%llu hours: version %llu, pulls %llu, repeated %llu, notifications %llu, full syncs %llu\n",
      static_cast<unsigned long long>(numHours_), static_cast<unsigned long long>(state.version),
      static_cast<unsigned long long>(state.numPulls),
      static_cast<unsigned long long>(state.numRepeats),
      static_cast<unsigned long long>(state.numNotifications),
      static_cast<unsigned long long>(state.numFullSyncs));
}

}  // namespace
}  // namespace coap_rpc_test
