// Runs of the fault bench: it is repeatable, it finds a mirror that is wrong, and the faults that
// the library overcomes by itself stay overcome.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "netfault_bench.h"

namespace netfault {
namespace {

std::string FileText(const std::string &path) {
  std::ifstream file(path);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

// Read makes a scenario of a file of this folder's "scenarios", followed by lines of the test.
Scenario Read(const std::string &file, const std::string &lines = "") {
  Scenario scenario;
  const std::string text = FileText(std::string(NETFAULT_SCENARIOS) + '/' + file + ".txt");
  EXPECT_EQ(ParseScenario(text, &scenario), "");
  EXPECT_EQ(ParseScenario(lines, &scenario), "");
  return scenario;
}

// One bench at a time: they share clock and random numbers.
uint64_t DigestOf(const Scenario &scenario) { return Bench(scenario).Run().digest; }

class NetfaultRun : public testing::Test {
 protected:
  void SetUp() override {
    if (!CanMakeNetworks()) GTEST_SKIP() << "no network namespaces here";
  }
};

TEST(NetfaultScenario, EveryFile_IsUnderstood_AndNamedLikeItsFile) {
  size_t num = 0;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(NETFAULT_SCENARIOS)) {
    if (!entry.is_regular_file()) continue;
    Scenario scenario;
    EXPECT_EQ(ParseScenario(FileText(entry.path()), &scenario), "") << entry.path();
    EXPECT_EQ(scenario.name, entry.path().stem());
    EXPECT_FALSE(scenario.events.empty());
    ++num;
  }
  EXPECT_GE(num, 30u);
}

TEST(NetfaultScenario, WhatIsWrong_IsNamedWithItsLine) {
  const std::map<std::string, std::string> faults = {
      {"colour red", "line 1: no such setting: colour red"},
      {"seed 1\nformat xml", "line 2: not a value of this setting: format xml"},
      {"tuples many", "line 1: not a value of this setting: tuples many"},
      {"seed", "line 1: not a value of this setting: seed"},
      {"policy verify 0", "line 1: not a value of this setting: policy verify 0"},
      {"at 5 link", "line 1: an event is: at <seconds> <who> <what> ...: at 5 link"},
      {"at 5 link sideways", "line 1: no such event: at 5 link sideways"},
      {"at 5 mirror change 3", "line 1: no such event: at 5 mirror change 3"},
      {"at 5 link loss", "line 1: no such event: at 5 link loss"},
      {"at 5 link loss 3 4", "line 1: no such event: at 5 link loss 3 4"},
  };
  for (const auto &[text, expected] : faults) {
    Scenario scenario;
    EXPECT_EQ(ParseScenario(text, &scenario), expected);
  }
}

TEST(NetfaultScenario, Events_AreInOrderOfTime) {
  Scenario scenario;
  EXPECT_EQ(
      ParseScenario("at 20 link up # later\nat 10.5 link down\nat 20 link delay 3\n", &scenario),
      "");
  ASSERT_EQ(scenario.events.size(), 3u);
  EXPECT_EQ(scenario.events[0].atMs, 10'500u);
  EXPECT_EQ(scenario.events[1].what, "up");
  EXPECT_EQ(scenario.events[2].what, "delay");
}

TEST_F(NetfaultRun, SameSeed_SamePackets_OtherSeedOthers) {
  const Scenario first = Read("matrix/loss", "limit 60");
  const Scenario other = Read("matrix/loss", "limit 60\nseed 2");
  const uint64_t digest = DigestOf(first);
  EXPECT_EQ(DigestOf(first), digest);
  EXPECT_NE(DigestOf(other), digest);
}

TEST_F(NetfaultRun, SameSeed_SamePackets_WithVersions) {
  const Scenario scenario = Read("matrix/publisher-restart", "policy mirror 30\nlimit 60");
  const uint64_t digest = DigestOf(scenario);
  EXPECT_EQ(DigestOf(scenario), digest);
}

TEST_F(NetfaultRun, SameSeed_SamePackets_OverIpv6InPolledMode) {
  const Scenario scenario = Read("matrix/reordering", "ip 6\nio polled\nlimit 60");
  const uint64_t digest = DigestOf(scenario);
  EXPECT_EQ(DigestOf(scenario), digest);
}

// A run that ends at once would be right as well: the faults have to meet traffic.
TEST_F(NetfaultRun, Faults_MeetTraffic) {
  const Verdict verdict = Bench(Read("matrix/quiet")).Run();
  EXPECT_TRUE(verdict.isRight) << verdict.Text();
  EXPECT_GT(verdict.counts[kMirror].delivered, 100u);
  EXPECT_GT(verdict.counts[kPublisher].delivered, 100u);
  EXPECT_EQ(verdict.counts[kMirror].lost + verdict.counts[kPublisher].lost, 0u);
  EXPECT_GT(verdict.virtualSeconds, 100);
}

TEST_F(NetfaultRun, MirrorMadeWrongByHand_IsReportedWrong) {
  Bench bench(Read("matrix/quiet"));
  ASSERT_TRUE(bench.Begin());
  bench.RunMs(20'000);
  ASSERT_TRUE(bench.Look().difference.IsNone()) << bench.Look().Text();
  NetTable wrong = bench.Publisher().Table();
  wrong.erase(wrong.begin());
  ++wrong.rbegin()->second.rxBytes;
  wrong[{'x'}] = {};
  bench.CompareInstead(&wrong);
  const Difference difference = bench.Look().difference;
  EXPECT_EQ(difference.numMissing, 1u);
  EXPECT_EQ(difference.numStale, 1u);
  EXPECT_EQ(difference.numExtra, 1u);
  EXPECT_FALSE(bench.Look().IsReported());
}

TEST_F(NetfaultRun, MirrorThatStaysWrong_HasAWrongVerdict) {
  const NetTable empty;
  Bench bench(Read("matrix/quiet", "base start\nlimit 20"));
  bench.CompareInstead(&empty);
  const Verdict verdict = bench.Run();
  EXPECT_FALSE(verdict.isRight);
  EXPECT_GT(verdict.state.difference.numMissing, 400u);
  EXPECT_NE(verdict.Text().find("WRONG"), std::string::npos);
}

// A mirror that hears nothing more is wrong as soon as something changes.
TEST_F(NetfaultRun, MirrorWithoutLink_HasAWrongVerdict) {
  Scenario scenario = Read("matrix/quiet", "limit 20");
  ASSERT_EQ(scenario.Apply("at 11 to-mirror down"), "");
  const Verdict verdict = Bench(scenario).Run();
  EXPECT_FALSE(verdict.isRight);
  EXPECT_GT(verdict.state.difference.numStale, 10u);
}

// What a mirror promises is an end: to be right some time later is not enough.
TEST_F(NetfaultRun, MirrorThatIsRightTooLate_HasAWrongVerdict) {
  Scenario scenario = Read("matrix/quiet", "policy mirror 1\ntail 0\nlimit 60");
  scenario.events.clear();
  ASSERT_EQ(scenario.Apply("at 10 to-mirror loss 98"), "");
  ASSERT_EQ(scenario.Apply("at 11 publisher change 300"), "");
  const Verdict verdict = Bench(scenario).Run();
  EXPECT_FALSE(verdict.isRight);
  EXPECT_TRUE(verdict.isLate || verdict.state.difference.numStale > 10) << verdict.Text();
}

TEST_F(NetfaultRun, LateFault_IsSeenInTheWatch) {
  Bench bench(Read("matrix/quiet", "base start"));
  ASSERT_TRUE(bench.Begin());
  bench.RunMs(20'000);
  NetTable copy = bench.Publisher().Table();
  EXPECT_TRUE(bench.Look().difference.IsNone());
  Event erase;
  erase.who = "publisher";
  erase.what = "erase";
  erase.args = {"1"};
  bench.Do(erase);
  EXPECT_EQ(bench.Look().difference.numExtra, 1u);
  bench.RunMs(5000);
  EXPECT_TRUE(bench.Look().difference.IsNone());
}

TEST_F(NetfaultRun, LateCopyOfANotification_IsNotApplied) {
  const Verdict verdict = Bench(Read("late-copy-of-a-notification")).Run();
  EXPECT_TRUE(verdict.isRight) << verdict.Text();
}

TEST_F(NetfaultRun, ImpatientVerify_LetsThePayloadArrive) {
  for (const char *seed : {"seed 1", "seed 2", "seed 3"}) {
    const Verdict verdict = Bench(Read("impatient-verify", seed)).Run();
    EXPECT_TRUE(verdict.isRight) << verdict.Text();
  }
}

// Nothing brings the relation about, but the application has been told.
TEST_F(NetfaultRun, RegistrationLostForGood_IsTold) {
  const Verdict verdict = Bench(Read("registration-lost-for-good")).Run();
  EXPECT_FALSE(verdict.isRight);
  EXPECT_EQ(verdict.state.news.numEnded, 1u);
  EXPECT_TRUE(verdict.state.IsReported());
}

// What the library overcomes with any seed, by scenario and further lines.
struct Cell {
  const char *scenario, *lines;
};

void PrintTo(const Cell &cell, std::ostream *out) { *out << cell.scenario << '\n' << cell.lines; }

class NetfaultCell : public NetfaultRun, public testing::WithParamInterface<Cell> {};

TEST_P(NetfaultCell, BecomesRight) {
  const Verdict verdict = Bench(Read(GetParam().scenario, GetParam().lines)).Run();
  EXPECT_TRUE(verdict.isRight) << verdict.Text();
}

constexpr Cell kCells[] = {
    {"matrix/quiet", "policy none"},
    {"matrix/quiet", "policy none\ntuples 5000"},
    {"matrix/quiet", "policy verify 30\nformat idl\ntuples 5000"},
    {"matrix/quiet", "policy hand\nip 6"},
    {"matrix/quiet", "policy none\nio polled"},
    {"matrix/delay", "policy none\nformat idl"},
    {"matrix/delay", "policy verify 30"},
    {"matrix/reordering", "policy none"},
    {"matrix/reordering", "policy hand\nformat idl"},
    {"matrix/copies", "policy verify 30"},
    {"matrix/late-copies", "policy verify 30"},
    {"matrix/late-copies", "policy none\nformat idl"},
    {"matrix/old-copies", "policy verify 30\nformat idl"},
    {"matrix/renumbered-copies", "policy none"},
    {"late-copy-of-a-notification", ""},
    {"matrix/mirror-interface-down", "policy none"},
    {"matrix/mirror-interface-down", "policy hand\nip 6"},
    {"matrix/mirror-prohibited", "policy verify 30\nformat idl"},
    {"matrix/mirror-address", "policy verify 30"},
    {"matrix/mirror-address", "policy hand\nformat idl\nip 6"},
    {"address-goes-away", ""},
    {"matrix/mirror-restart-other-port", "policy none"},
    {"matrix/mirror-restart-same-port", "policy none"},
    {"restart-at-the-same-port", ""},
    {"registration-lost-for-good", "policy verify 30"},
    {"matrix/publisher-silent", "policy verify 30"},
    {"matrix/publisher-restart", "policy verify 30"},
    {"matrix/publisher-restart", "policy hand\nformat idl"},
    {"matrix/publisher-replaced-fast", "policy verify 30"},
    {"matrix/late-copies", "policy none"},
    {"matrix/late-copies", "policy verify 30\nseed 2"},
    {"matrix/old-copies", "policy hand\nseed 3"},
    {"matrix/renumbered-copies", "policy none\nip 6"},
    {"matrix/renumbered-copies", "policy verify 30"},
    {"matrix/reordering", "policy verify 30\nseed 2"},
    {"matrix/publisher-address", "policy verify 30\nformat idl"},
    {"matrix/publisher-enobufs", "policy none"},
    {"matrix/publisher-eperm", "policy none\nip 6"},
    {"matrix/publisher-interface-down", "policy none\nformat idl"},
    {"sends-fail-while-changes-happen", ""},
    {"renewal-in-a-large-payload", ""},
    {"payload-given-up-while-retransmitted", ""},
    {"deleted-while-nobody-observes", ""},
    {"deleted-while-nobody-observes", "format idl"},
    {"matrix/link-down-10", "policy verify 30\ntuples 5000"},
    {"matrix/link-down-180", "policy verify 30"},
    {"matrix/loss", "policy verify 30"},
    {"matrix/loss", "policy hand"},
    {"matrix/loss", "policy verify 30\nformat idl\nip 6"},
    {"matrix/flipped-bits", "policy verify 30"},
    {"matrix/flipped-bits", "policy verify 30\nformat idl"},
    {"matrix/lost-fragments", "policy verify 30"},
    {"matrix/small-packets-only", "policy verify 30\nformat idl"},
    {"matrix/everything", "policy verify 30\nformat idl"},
    {"matrix/everything", "policy hand\ntuples 5000"},
    {"matrix/forged-bits", "policy hand"},
    {"matrix/everything", "policy mirror 30\ntuples 5000"},
    {"matrix/forged-bits", "policy mirror 30\ntuples 5000"},
    {"matrix/link-down-180", "policy mirror 30"},
    {"matrix/loss", "policy mirror 30\nseed 2"},
    {"matrix/loss-to-publisher", "policy mirror 30\nio polled"},
    {"matrix/mirror-address", "policy mirror 30\nip 6"},
    {"matrix/mirror-restart-same-port", "policy mirror 30"},
    {"matrix/publisher-address", "policy mirror 30"},
    {"matrix/publisher-enobufs", "policy mirror 30"},
    {"matrix/publisher-replaced-fast", "policy mirror 30"},
    {"matrix/publisher-restart", "policy mirror 30"},
    {"matrix/publisher-silent", "policy mirror 30"},
    {"matrix/small-packets-only", "policy mirror 30"},
};

INSTANTIATE_TEST_SUITE_P(Cells, NetfaultCell, testing::ValuesIn(kCells), [](const auto &one) {
  std::string name = std::string(one.param.scenario) + '_' + one.param.lines;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !isalnum(c); }, '_');
  return name;
});

}  // namespace
}  // namespace netfault
