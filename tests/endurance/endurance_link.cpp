// Two processes on two hosts with a link that loses 5 % of all packets, in real time, under a mixed
// load, for as many seconds as COAP_RPC_ENDURANCE_SECONDS says.  Each has the reference host.
//
// In the end every call has been answered and the mirrors are equal.  A run of more than ten
// minutes also says whether memory has grown after the first quarter.
#include <chrono>
#include <cstdlib>
#include <sstream>

#include "kestrel.h"
#include "kestrel_param.h"
#include "kst_tmr.h"
#include "load.h"
#include "memory_sample.h"
#include "two_hosts.h"

namespace coap_rpc_test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kLibLogLevel = 3;  // errors
constexpr uint32_t kStepMs = 20;
constexpr uint64_t kLimitSeconds = 400;  // of a stage, which ends when it is done

uint64_t MsSince(Clock::time_point start) {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

uint64_t SecondsSince(Clock::time_point start) { return MsSince(start) / 1000; }

// Pacing is that of a short run, or of a long one.
LoadParam ParamOf(uint32_t ip, bool isLong) {
  const uint32_t peerIp = 2 * kFirstHostIp + 1 - ip;
  if (isLong) {
    return {ip, peerIp, ip, 500, 30'000, 20'000, 60'000, COAP_RpcCliObserveReqBatch, 240'000};
  }
  return {ip, peerIp, ip, 300, 8000, 4000, 12'000, COAP_RpcCliObserveReqBatch, 64'000};
}

// Sample is what one side held at one time, and what it had done by then.
struct Sample {
  uint64_t seconds = 0;
  uint64_t rssBytes = 0, mallocBytes = 0, numFds = 0;
  uint64_t poolBytes = 0, poolCount = 0;
  uint64_t answered = 0, served = 0, payloads = 0, postsSeen = 0;

  std::string Text() const {
    std::ostringstream text;
    for (const uint64_t value : {seconds, rssBytes, mallocBytes, numFds, poolBytes, poolCount,
                                 answered, served, payloads, postsSeen}) {
      text << ' ' << value;
    }
    return text.str();
  }
  static Sample Of(const std::string &line) {
    std::istringstream text(line);
    Sample of;
    for (uint64_t *value : {&of.seconds, &of.rssBytes, &of.mallocBytes, &of.numFds, &of.poolBytes,
                            &of.poolCount, &of.answered, &of.served, &of.payloads, &of.postsSeen}) {
      text >> *value;
    }
    return of;
  }
};

// Worker is what runs in one of the two processes.  It tells the test once a second what it holds
// ("sample") and, when it was told to begin nothing new, once it is at rest ("rest", its tables,
// and its mirrors).
class Worker {
 public:
  Worker(uint32_t ip, bool isLong, const Channel &channel) : channel_(channel) {
    KestrelParam param = {};
    param.logSinks = KESTREL_SINK_NONE;
    host_ = KestrelNew(&param, nullptr, 0);
    CoapRpcInitParam init = ParamOn(host_, "endurance");
    init.logHandle = KestrelLog(host_);
    ctx_ = COAP_RpcInit(&init);
    COAP_RpcSetLibLogLevel(ctx_, kLibLogLevel);
    KestrelWatch(host_, COAP_RpcGetIoFd(ctx_), OnReadable, ctx_);
    load_ = std::make_unique<Load>(ctx_, ParamOf(ip, isLong), 0);
    KST_TmrStartLoop(KestrelTmr(host_), OnStep, kStepMs, this);
  }

  void Run() {
    EXPECT_EQ(KestrelRun(host_), uint32_t{KESTREL_OK});
    KestrelUnwatch(host_, COAP_RpcGetIoFd(ctx_));
    COAP_RpcUninit(ctx_);
    EXPECT_EQ(KestrelDelete(host_), 0u);
    EXPECT_EQ(KestrelAssertCount(), 0u);
    channel_.Send("end " + load_->Counts().Text());
  }

 private:
  static void OnReadable(void *ctx, int) { COAP_RpcProcIo(static_cast<CoapRpcCtx *>(ctx)); }
  static uint32_t OnStep(void *self) {
    static_cast<Worker *>(self)->Step();
    return 0;
  }

  void Step() {
    load_->Step(MsSince(start_));
    Obey(channel_.Receive());
    const uint64_t seconds = SecondsSince(start_);
    if (seconds == lastReport_) return;
    lastReport_ = seconds;
    Report();
  }

  void Obey(const std::string &order) {
    if (order == "quiet") load_->SetQuiet(true);
    if (order == "stop") KestrelStop(host_);
  }

  void Report() {
    channel_.Send("sample" + TakeSample().Text());
    if (load_->IsQuiet()) channel_.Send("rest " + load_->TablesText() + "|" + load_->MirrorsText());
  }

  Sample TakeSample() const {
    const MemorySample memory = TakeMemorySample();
    KestrelMemStat pool = {};
    KestrelMemStatGet(KestrelMem(host_), &pool);
    const LoadCounts counts = load_->Counts();
    return {lastReport_,           memory.rssBytes,     memory.mallocBytes,
            memory.numFds,         pool.liveBytes,      pool.liveCount,
            counts.calls.answered, counts.calls.served, counts.mirrors.payloads,
            counts.postsSeen};
  }

  const Channel &channel_;
  const Clock::time_point start_ = Clock::now();
  Kestrel *host_ = nullptr;
  CoapRpcCtx *ctx_ = nullptr;
  std::unique_ptr<Load> load_;
  uint64_t lastReport_ = 0;
};

// Watch is what the test knows about one side.
struct Watch {
  explicit Watch(uint32_t ip, bool isLong)
      : process(ip, [ip, isLong](const Channel &channel) { Worker(ip, isLong, channel).Run(); }) {}

  void Listen() {
    const std::string text = process.Talk().Receive();
    if (text.rfind("sample", 0) == 0) samples.push_back(Sample::Of(text.substr(6)));
    if (text.rfind("end ", 0) == 0) counts = text.substr(4);
    if (text.rfind("rest ", 0) != 0) return;
    const size_t bar = text.find('|');
    tables = text.substr(5, bar - 5);
    mirrors = text.substr(bar + 1);
  }

  HostProcess process;
  std::vector<Sample> samples;
  std::string tables, mirrors, counts;
};

using Samples = std::vector<Sample>;

// OverQuarter puts together one member of all samples of a quarter of the run, counted from 0.
template <typename Combine>
double OverQuarter(const Samples &samples, uint64_t Sample::*member, size_t quarter,
                   Combine combine) {
  const size_t num = samples.size() / 4;
  double result = static_cast<double>(samples[quarter * num].*member);
  for (size_t i = quarter * num; i < (quarter + 1) * num; ++i) {
    result = combine(result, static_cast<double>(samples[i].*member));
  }
  return result;
}

double Least(const Samples &samples, uint64_t Sample::*member, size_t quarter) {
  return OverQuarter(samples, member, quarter, [](double a, double b) { return std::min(a, b); });
}

double Most(const Samples &samples, uint64_t Sample::*member, size_t quarter) {
  return OverQuarter(samples, member, quarter, [](double a, double b) { return std::max(a, b); });
}

class EnduranceLink : public testing::Test {
 protected:
  static constexpr uint64_t kLongSeconds = 600;  // from here on the run is a long one

  EnduranceLink() {
    const char *seconds = getenv("COAP_RPC_ENDURANCE_SECONDS");
    if (seconds) numSeconds_ = strtoull(seconds, nullptr, 10);
    for (uint32_t i = 0; i < 2; ++i)
      sides_[i] = std::make_unique<Watch>(kFirstHostIp + i, IsLong());
  }

  bool IsLong() const { return numSeconds_ >= kLongSeconds; }
  bool HasNetwork() const {
    return sides_[0]->process.HasNetwork() && sides_[1]->process.HasNetwork();
  }

  template <typename Condition>
  void CarryUntil(Link *link, uint64_t limitSeconds, Condition condition) {
    const uint64_t endSeconds = SecondsSince(start_) + limitSeconds;
    while (!condition() && SecondsSince(start_) < endSeconds) {
      link->Carry(MsSince(start_), 1);
      for (auto &side : sides_) side->Listen();
    }
  }

  void Tell(const char *order) {
    for (auto &side : sides_) EXPECT_TRUE(side->process.Talk().Send(order));
  }

  // HasWorked says whether the run is long enough: in time, and in what has been done.
  bool HasWorked(const Link &link) const {
    const bool isLongEnough = SecondsSince(start_) >= numSeconds_ && link.NumLost() > 0;
    return isLongEnough && HasWorked(*sides_[0]) && HasWorked(*sides_[1]);
  }
  static bool HasWorked(const Watch &side) {
    if (side.samples.empty()) return false;
    const Sample &last = side.samples.back();
    return last.answered > 0 && last.served > 0 && last.payloads > 0 && last.postsSeen > 0;
  }

  bool IsAtRest() const {
    return !sides_[0]->tables.empty() && sides_[0]->mirrors == sides_[1]->tables &&
           sides_[1]->mirrors == sides_[0]->tables;
  }

  // Each minute must bring more of everything.
  void ExpectProgress(const std::vector<Sample> &samples) {
    for (size_t i = 60; i < samples.size(); i += 60) {
      EXPECT_GT(samples[i].answered, samples[i - 60].answered) << i;
      EXPECT_GT(samples[i].served, samples[i - 60].served) << i;
      EXPECT_GT(samples[i].payloads, samples[i - 60].payloads) << i;
      EXPECT_GT(samples[i].postsSeen, samples[i - 60].postsSeen) << i;
    }
  }

  // What is held goes up and down with the load.  What leaks raises the least that is ever held:
  // the last quarter of the run is compared with the second one.
  void ExpectFlat(const Samples &samples) {
    constexpr double kGrowth = 1.05;
    constexpr double kCacheBytes = 256 << 10;  // freed pieces that the allocator counts as in use
    constexpr double kPieces = 32;             // what is always under way comes in so few pieces
    EXPECT_LE(Least(samples, &Sample::mallocBytes, 3),
              Least(samples, &Sample::mallocBytes, 1) + kCacheBytes);
    EXPECT_LE(Least(samples, &Sample::poolCount, 3),
              Least(samples, &Sample::poolCount, 1) + kPieces);
    for (const auto member : {&Sample::poolBytes, &Sample::rssBytes}) {
      EXPECT_LE(Least(samples, member, 3), kGrowth * Least(samples, member, 1));
    }
    EXPECT_LE(Most(samples, &Sample::numFds, 3), Most(samples, &Sample::numFds, 1));
  }

  void Print(const Watch &side) {
    printf("%s\n  least and most by quarter of the run:\n", side.counts.c_str());
    const auto line = [&](const char *what, uint64_t Sample::*member) {
      printf("  %-13s", what);
      for (size_t quarter = 0; quarter < 4; ++quarter) {
        printf(" %9.0f-%-9.0f", Least(side.samples, member, quarter),
               Most(side.samples, member, quarter));
      }
      printf("\n");
    };
    line("resident", &Sample::rssBytes);
    line("malloc", &Sample::mallocBytes);
    line("pool bytes", &Sample::poolBytes);
    line("pool pieces", &Sample::poolCount);
    line("descriptors", &Sample::numFds);
  }

  uint64_t numSeconds_ = 4;
  const Clock::time_point start_ = Clock::now();
  std::array<std::unique_ptr<Watch>, 2> sides_;
};

TEST_F(EnduranceLink, LinkThatLosesATwentieth_AllIsAnsweredAndNothingGrows) {
  if (!HasNetwork()) GTEST_SKIP() << "network namespaces and tunnel devices cannot be made here";
  Link link(sides_[0]->process.Tunnel(), sides_[1]->process.Tunnel(), {5});
  CarryUntil(&link, numSeconds_ + kLimitSeconds, [&] { return HasWorked(link); });
  EXPECT_TRUE(HasWorked(link));
  std::array<std::vector<Sample>, 2> samples = {sides_[0]->samples, sides_[1]->samples};
  Tell("quiet");
  CarryUntil(&link, kLimitSeconds, [this] { return IsAtRest(); });
  EXPECT_TRUE(IsAtRest());
  Tell("stop");
  CarryUntil(&link, kLimitSeconds,
             [this] { return !sides_[0]->counts.empty() && !sides_[1]->counts.empty(); });
  printf("packets lost %llu, carried %llu\n", static_cast<unsigned long long>(link.NumLost()),
         static_cast<unsigned long long>(link.NumCarried()));
  for (size_t i = 0; i < 2; ++i) {
    while (!sides_[i]->process.HasEnded()) usleep(1000);
    Print(*sides_[i]);
    ExpectProgress(samples[i]);
    if (IsLong()) ExpectFlat(samples[i]);
  }
}

}  // namespace
}  // namespace coap_rpc_test
