#include "sweep.h"

#include <dirent.h>

#include <memory>

#include "libcoap_memory.h"

namespace coap_rpc_test {
namespace {

constexpr uint64_t kMaxCalls = 5000;  // more than any scenario makes

// Failing says which call fails; 0: none does.
struct Failing {
  uint64_t from = 0;
  bool forGood = false;
};

// Run is what one run of a scenario showed.
struct Run {
  uint64_t numCalls = 0;   // while it played
  uint64_t numFailed = 0;  // of these
  std::string before;      // tables
  std::string played;
  std::string worked;
};

size_t NumOpenFds() {
  DIR *folder = opendir("/proc/self/fd");
  size_t numOpen = 0;
  while (readdir(folder)) ++numOpen;
  closedir(folder);
  return numOpen;
}

void Arm(FailPlan &plan, const Failing &failing) {
  if (failing.from == 0) return;
  if (failing.forGood) {
    plan.FailFrom(failing.from);
  } else {
    plan.FailOnce(failing.from);
  }
}

// The only assertion that a lack of memory may bring up is the one made for it.
void ExpectNoOtherAssert() {
  for (const AssertRecord &record : TestHost::Process().Asserts()) EXPECT_EQ(record.line, 442u);
}

void ExpectNothingLeft(Stage &stage) {
  EXPECT_EQ(stage.host_.Pool().LiveCount(), 0u) << stage.host_.Pool().LeakText();
  EXPECT_TRUE(stage.host_.Pool().Violations().empty());
  EXPECT_TRUE(stage.host_.Logs().Violations().empty());
  EXPECT_TRUE(stage.host_.Timers().Running().empty());
  EXPECT_TRUE(stage.host_.Display().Objects().empty());
}

void Play(const Scenario &scenario, Stage &stage, FailPlan &plan, const Failing &failing,
          Run *run) {
  const uint64_t callsBefore = plan.NumCalls();
  const uint64_t failedBefore = plan.NumFailed();
  Arm(plan, failing);
  scenario.play(stage);
  plan.Clear();
  run->numCalls = plan.NumCalls() - callsBefore;
  run->numFailed = plan.NumFailed() - failedBefore;
}

// Silence gives an instance a log that takes nothing, or none at all.
void Silence(Stage &stage, bool hasLog) {
  if (hasLog) return stage.host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
  stage.Ctx()->log = 0;
  stage.Ctx()->param.dbgHandle = 0;
}

Run RunOnce(const Scenario &scenario, Source source, const Failing &failing) {
  Run run;
  const size_t numFds = NumOpenFds();
  const int64_t numLibcoap = NumLibcoapLive();
  const int64_t numJansson = NumJanssonLive();
  {
    Stage stage;
    if (failing.forGood) Silence(stage, failing.from % 2 == 0);
    scenario.prepare(stage);
    run.before = stage.Tables();
    Play(scenario, stage, stage.PlanOf(source), failing, &run);
    run.played = stage.Tables();
    scenario.works(stage);
    run.worked = stage.Tables();
    EXPECT_TRUE(!stage.IsRunning() || stage.Ctx()->ioDepth == 0);
    ExpectNoOtherAssert();
    stage.instance_->Stop();
    ExpectNothingLeft(stage);
  }
  EXPECT_EQ(NumOpenFds(), numFds);
  EXPECT_EQ(NumLibcoapLive(), numLibcoap);
  EXPECT_EQ(NumJanssonLive(), numJansson);
  return run;
}

// ExpectBeforeOrAfter expects no half-made record.
void ExpectBeforeOrAfter(const Scenario &scenario, const Run &run, const Run &clean) {
  if (run.played == run.before || run.played == clean.played) return;
  if (scenario.isMeant && scenario.isMeant(run.played)) return;
  ADD_FAILURE() << "left:\n"
                << run.played << "\nbefore:\n"
                << run.before << "\nafter:\n"
                << clean.played;
}

// SweepOne lets one call after the other fail until the scenario makes fewer.  Returns how many.
uint64_t SweepOne(const Scenario &scenario, Source source, bool forGood, const Run &clean) {
  for (uint64_t n = 1; n < kMaxCalls; ++n) {
    SCOPED_TRACE(std::string(forGood ? "from call " : "call ") + std::to_string(n));
    const Run run = RunOnce(scenario, source, {n, forGood});
    if (run.numFailed == 0) return n - 1;
    if (scenario.isOneStep) ExpectBeforeOrAfter(scenario, run, clean);
    EXPECT_EQ(run.worked, clean.worked);
    if (testing::Test::HasFailure()) return n;
  }
  ADD_FAILURE() << "no end";
  return kMaxCalls;
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const Scenario &scenario) {
  return out << scenario.name;
}

uint64_t Sweep(const Scenario &scenario, Source source) {
  const Run clean = RunOnce(scenario, source, {});
  if ((scenario.sources & source) == 0) {
    EXPECT_EQ(clean.numCalls, 0u);
    return 0;
  }
  EXPECT_GT(clean.numCalls, 0u);
  if (testing::Test::HasFailure()) return 0;
  const uint64_t numCalls = SweepOne(scenario, source, false, clean);
  SweepOne(scenario, source, true, clean);
  EXPECT_GE(numCalls, clean.numCalls);
  return numCalls;
}

}  // namespace coap_rpc_test
