/* test_coap_rpc_cli_mirror.cpp: each rule of a mirror by itself, the window of its questions, and
 * its tuples. */
#include <algorithm>
#include <set>

#include "mirror_world.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::kSyncAtHead;
using coap_rpc::kSyncConfirm;
using coap_rpc::kSyncNotification;
using coap_rpc::kSyncNotObserving;
using coap_rpc::kSyncRestart;
using coap_rpc::MirrorAct;
using coap_rpc::MirrorAsk;

constexpr uint64_t kLife = 77;

struct Change {
  uint64_t version;
  std::string key;
  std::string val;  // "": deleted
};

// Page is a page with what it borrows.
struct Page {
  uint64_t flags = 0;
  uint64_t from = 0;
  uint64_t to = 0;
  uint64_t head = 0;
  uint64_t digest = 0;
  std::vector<Change> changes = {};
  uint64_t floor = 0;
  uint64_t replid = kLife;

  coap_rpc::MirrorPage Read() const {
    coap_rpc::MirrorPage page = {};
    page.flags = flags;
    page.replid = replid;
    page.from = from;
    page.to = to;
    page.head = head;
    page.floor = floor;
    page.digest = digest;
    for (const Change &change : changes) {
      const auto bytes = [](const std::string &text) {
        return reinterpret_cast<const uint8_t *>(text.data());
      };
      page.changes[page.num++] = {change.version, bytes(change.key),
                                  change.val.empty() ? nullptr : bytes(change.val)};
    }
    return page;
  }
};

class CliMirror : public ::testing::Test {
 protected:
  CliMirror() { Open({}); }

  void Open(CoapRpcMirrorParam param) {
    param.keyLen = param.valLen = 4;
    if (param.numInFlight == 0) param.numInFlight = 2;
    if (param.heartbeatMs == 0) param.heartbeatMs = 30000;
    mirror_ = std::make_unique<TestMirror>(host_.Mem(), param, random_, nowMs_);
    EXPECT_EQ(Next().act, MirrorAct::kOpen);
  }
  coap_rpc::Mirror &Core() { return mirror_->core; }

  MirrorAsk Next() { return MirrorNext(Core(), nowMs_); }
  MirrorAsk NextPull() {
    MirrorAsk ask = Next();
    if (ask.act == MirrorAct::kRegister) {
      registration_ = ask.token;
      ask = Next();
    }
    EXPECT_EQ(ask.act, MirrorAct::kPull);
    return ask;
  }
  bool IsQuiet() { return Next().act == MirrorAct::kNone; }

  void Say(uint64_t token, const Page &page) { MirrorTakePage(Core(), token, page.Read(), nowMs_); }
  void Push(Page page) {
    page.flags |= kSyncNotification;
    Say(registration_, page);
  }
  void Advance(uint64_t ms) {
    nowMs_ += ms;
    MirrorTick(Core(), nowMs_);
  }
  // AdvanceToDue moves time to when the mirror has something to do.
  void AdvanceToDue() { Advance(MirrorDueMs(Core()) - std::min(nowMs_, MirrorDueMs(Core()))); }

  // SendAll sends all that is to be sent now, and says whether a ping was.
  bool SendAll() {
    bool isPing = false;
    for (MirrorAsk ask = Next(); ask.act != MirrorAct::kNone; ask = Next()) {
      isPing = isPing || ask.act == MirrorAct::kPing;
    }
    return isPing;
  }
  bool LetTimeGo() {
    AdvanceToDue();
    return SendAll();
  }

  // Read leads to a full sync of (0, 4] in the ranges (0, 2] and (2, 4].
  void BeginRanges() {
    Say(NextPull().token, {.flags = kSyncNotObserving, .head = 4});
    first_ = NextPull();
    second_ = NextPull();
    EXPECT_EQ(std::pair(first_.since, first_.until), std::pair(uint64_t{0}, uint64_t{2}));
    EXPECT_EQ(std::pair(second_.since, second_.until), std::pair(uint64_t{2}, uint64_t{4}));
    Say(registration_, {.head = 4});
  }
  // Sync leads to a mirror with a001 of version 1 and b001 of version 4, which is all.
  void Sync() {
    BeginRanges();
    Say(first_.token, {.from = 0, .to = 2, .head = 4, .changes = {{1, "a001", "v001"}}});
    Say(second_.token, {.from = 2, .to = 4, .head = 4, .changes = {{4, "b001", "v004"}}});
    Say(NextPull().token,
        {.flags = kSyncAtHead, .from = 4, .to = 4, .head = 4, .digest = Digest()});
    EXPECT_EQ(Core().state, uint32_t{COAP_RPC_MIRROR_SYNCED});
    EXPECT_TRUE(IsQuiet());
    AdvanceToDue();
    const MirrorAsk confirming = NextPull();
    EXPECT_EQ(std::pair(confirming.since, confirming.isFull), std::pair(uint64_t{4}, false));
    Say(confirming.token,
        {.flags = kSyncAtHead, .from = 4, .to = 4, .head = 4, .digest = Digest()});
    EXPECT_TRUE(IsQuiet());
  }
  // FailPulls answers pulls so often with an error that the pauses are long.
  void FailPulls(uint32_t code) {
    MirrorTakeNothing(Core(), registration_, nowMs_);
    for (int i = 0; i < 12; ++i) {
      nowMs_ = std::max(nowMs_, Core().holdMs);
      MirrorTakeFailure(Core(), NextPull().token, code, nowMs_);
    }
    EXPECT_TRUE(IsQuiet());
  }
  uint64_t Digest() { return Core().table.digest; }
  // DigestOf is what the digest of a table is.
  static uint64_t DigestOf(const Rows &rows) {
    uint64_t digest = 0;
    for (const auto &[key, val] : rows) digest += XXH64((key + val).data(), 8, 0);
    return digest;
  }
  Rows Table() { return mirror_->Table(); }
  uint32_t State() { return Core().state; }

  TestHost host_;
  std::mt19937_64 random_{1};
  uint64_t nowMs_ = 1000;
  uint64_t registration_ = 0;
  MirrorAsk first_, second_;
  std::unique_ptr<TestMirror> mirror_;
};

// Rule 1.

TEST_F(CliMirror, Rule1_AnswerWithoutAPull_IsNobodys) {
  Sync();
  Say(12345, {.flags = kSyncRestart, .head = 9, .replid = 5});
  Say(first_.token, {.from = 0, .to = 2, .head = 4, .changes = {{1, "z001", "v001"}}});
  EXPECT_EQ(Table(), (Rows{{"a001", "v001"}, {"b001", "v004"}}));
  EXPECT_TRUE(IsQuiet());
}

TEST_F(CliMirror, Rule1_AnswerOfAFormerFullSync_IsNobodys) {
  BeginRanges();
  Say(first_.token, {.flags = kSyncRestart, .head = 4, .replid = 78});
  Say(second_.token, {.from = 2, .to = 4, .head = 4, .changes = {{4, "z001", "v001"}}});
  EXPECT_EQ(Table(), Rows());
}

TEST_F(CliMirror, Rule1_OlderPageOfTheTail_OverwritesNothing) {
  Sync();
  MirrorTakeNothing(Core(), registration_, nowMs_);
  const MirrorAsk tail = NextPull();
  const Rows rows = {{"a001", "v006"}, {"b001", "v004"}};
  Push({.flags = kSyncAtHead,
        .from = 4,
        .to = 6,
        .head = 6,
        .digest = DigestOf(rows),
        .changes = {{6, "a001", "v006"}}});
  Say(tail.token,
      {.flags = kSyncAtHead, .from = 4, .to = 5, .head = 5, .changes = {{5, "a001", "v005"}}});
  EXPECT_EQ(Table(), rows);
  EXPECT_EQ(Core().cursor, 6u);
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
  EXPECT_EQ(mirror_->synced, (std::vector<uint64_t>{4, 6}));
}

// Rule 2.

TEST_F(CliMirror, Rule2_NotificationAfterAGap_IsNotApplied) {
  Sync();
  Push({.flags = kSyncAtHead, .from = 5, .to = 6, .head = 6, .changes = {{6, "a001", "v006"}}});
  EXPECT_EQ(Table()["a001"], "v001");
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_BEHIND});
  EXPECT_EQ(NextPull().since, 4u);
}

TEST_F(CliMirror, Rule2_OldNotification_IsNoReasonToPull) {
  Sync();
  Push({.flags = kSyncAtHead, .from = 1, .to = 3, .head = 3, .changes = {{3, "a001", "v003"}}});
  EXPECT_EQ(Table()["a001"], "v001");
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
  EXPECT_TRUE(IsQuiet());
}

TEST_F(CliMirror, Rule2_NotificationDuringAFullSync_IsNotApplied) {
  BeginRanges();
  Push({.flags = kSyncAtHead, .from = 0, .to = 5, .head = 5, .changes = {{5, "c001", "v005"}}});
  EXPECT_EQ(Table(), Rows());
  Say(first_.token, {.from = 0, .to = 2, .head = 4});
  Say(second_.token, {.from = 2, .to = 4, .head = 4});
  EXPECT_EQ(NextPull().since, 4u);
}

// Rule 3.

TEST_F(CliMirror, Rule3_TailComesAfterAllRanges_FromTheBase) {
  BeginRanges();
  Say(second_.token, {.from = 2, .to = 4, .head = 9, .changes = {{4, "b001", "v004"}}});
  EXPECT_TRUE(IsQuiet());
  EXPECT_EQ(Core().cursor, 0u);
  Say(first_.token, {.from = 0, .to = 1, .head = 9, .changes = {{1, "a001", "v001"}}});
  const MirrorAsk rest = NextPull();
  EXPECT_EQ(std::pair(rest.since, rest.until), std::pair(uint64_t{1}, uint64_t{2}));
  EXPECT_TRUE(rest.isFull);
  Say(rest.token, {.from = 1, .to = 2, .head = 9});
  const MirrorAsk tail = NextPull();
  EXPECT_EQ(tail.since, 4u);
}

TEST_F(CliMirror, Rule3_DeletionsForgottenBeforeTheTail_BeginAgain) {
  BeginRanges();
  Say(first_.token, {.from = 0, .to = 2, .head = 4, .changes = {{1, "a001", "v001"}}});
  Say(second_.token, {.from = 2, .to = 4, .head = 4});
  Say(NextPull().token,
      {.flags = kSyncAtHead, .from = 4, .to = 6, .head = 6, .digest = Digest(), .floor = 5});
  EXPECT_EQ(Core().numFullSyncs, 2u);
  EXPECT_EQ(mirror_->synced, std::vector<uint64_t>());
}

TEST_F(CliMirror, Rule3_DeletionsForgottenMeanwhile_BeginAgain) {
  BeginRanges();
  Say(first_.token, {.from = 0, .to = 2, .head = 9, .floor = 5});
  EXPECT_EQ(Core().base, 9u);
  EXPECT_EQ(Core().numFullSyncs, 2u);
  EXPECT_EQ(NextPull().since, 0u);
}

TEST_F(CliMirror, Rule3_FinishedRange_TakesHalfOfTheLongest) {
  Say(NextPull().token, {.head = 1000});
  first_ = NextPull();
  second_ = NextPull();
  Say(second_.token, {.from = 500, .to = 505, .head = 1000, .changes = {{505, "a001", "v001"}}});
  second_ = NextPull();
  Say(first_.token, {.from = 0, .to = 500, .head = 1000});
  const MirrorAsk half = NextPull();
  EXPECT_EQ(half.until, 1000u);
  EXPECT_NEAR(static_cast<double>(half.since), 752, 2);
  // The other one was asked up to the end, and reaches into the half.
  Say(second_.token, {.from = 505,
                      .to = 900,
                      .head = 1000,
                      .changes = {{600, "b001", "v001"}, {900, "c001", "v001"}}});
  Say(half.token, {.from = half.since,
                   .to = 1000,
                   .head = 1000,
                   .changes = {{900, "c001", "v001"}, {1000, "d001", "v001"}}});
  while (Core().numRanges != 0) {
    const MirrorAsk ask = NextPull();
    Say(ask.token, {.from = ask.since, .to = ask.until, .head = 1000});
  }
  EXPECT_EQ(Core().cursor, 1000u);
  EXPECT_EQ(Core().numBad, 0u);
  EXPECT_EQ(Table().size(), 4u);
}

// Rule 4.

TEST_F(CliMirror, Rule4_UnmetTuples_GoWithTheFirstPageThatReachesTheHead) {
  Sync();
  Push({.replid = 78});
  Say(NextPull().token, {.flags = kSyncRestart, .head = 1, .replid = 78});
  const MirrorAsk range = NextPull();
  Say(range.token, {.from = 0, .to = 1, .head = 2, .changes = {{1, "b001", "v004"}}, .replid = 78});
  EXPECT_EQ(Table().size(), 2u);
  const MirrorAsk tail = NextPull();
  Say(tail.token, {.from = 1, .to = 2, .head = 3, .changes = {{2, "c001", "v001"}}, .replid = 78});
  EXPECT_EQ(Table().size(), 3u);  // not at the head
  const Rows rows = {{"a001", "v001"}, {"b001", "v004"}, {"c001", "v001"}};
  Say(NextPull().token, {.flags = kSyncAtHead,
                         .from = 2,
                         .to = 3,
                         .head = 3,
                         .digest = DigestOf(rows),
                         .changes = {{3, "a001", "v001"}},
                         .replid = 78});
  EXPECT_EQ(Table(), rows);  // a001 moved to the tail, and was not removed
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
  EXPECT_EQ(mirror_->numCallbacks, 3u);  // a001, b001; c001
}

TEST_F(CliMirror, Rule4_TupleThatTheServerHasNot_IsRemoved) {
  Sync();
  Push({.replid = 78});
  Say(NextPull().token, {.flags = kSyncRestart, .head = 0, .replid = 78});
  Say(NextPull().token, {.flags = kSyncAtHead, .replid = 78});
  EXPECT_EQ(Table(), Rows());
  EXPECT_EQ(mirror_->shadow, Rows());
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
}

// Rule 5.

TEST_F(CliMirror, Rule5_HeadBelowOneThatWasHeardOf_IsNotSynced) {
  BeginRanges();
  Say(first_.token, {.from = 0, .to = 2, .head = 4});
  Say(second_.token, {.from = 2, .to = 4, .head = 4});
  const MirrorAsk tail = NextPull();
  Push({.flags = kSyncAtHead, .from = 5, .to = 6, .head = 6});
  Say(tail.token, {.flags = kSyncAtHead, .from = 4, .to = 4, .head = 4});  // on its way before
  EXPECT_EQ(mirror_->synced, std::vector<uint64_t>());
  EXPECT_EQ(NextPull().since, 4u);
}

TEST_F(CliMirror, Rule5_PageThatIsNotAtTheHead_SyncsNothing) {
  Sync();
  Push({.flags = 0, .from = 4, .to = 5, .head = 6, .changes = {{5, "b001", "v005"}}});
  EXPECT_EQ(Table()["b001"], "v005");
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_BEHIND});
  EXPECT_EQ(NextPull().since, 5u);
}

TEST_F(CliMirror, Rule5_AnotherDigest_IsAnErrorAndAFullSync) {
  Sync();
  Push({.flags = kSyncAtHead,
        .from = 4,
        .to = 5,
        .head = 5,
        .digest = 1,
        .changes = {{5, "b001", "v005"}}});
  EXPECT_EQ(Core().numDigestErrors, 1u);
  EXPECT_EQ(mirror_->synced, (std::vector<uint64_t>{4}));
  EXPECT_EQ(mirror_->states.back(), (std::pair<uint32_t, uint32_t>{4, 1900001622}));
  EXPECT_TRUE(NextPull().isHello);
}

// Rule 6.

// A way that forges bits for some minutes must not cost more than a heartbeat when it is good
// again.
TEST_F(CliMirror, DigestThatNeverFits_IsAskedForAfterAHeartbeatAtMost_AndLaterAfterAMinute) {
  std::vector<uint64_t> pauses;
  MirrorAsk hello = NextPull();
  for (int i = 0; i < 20; ++i) {
    Say(hello.token, {.head = 0});
    Say(NextPull().token,
        {.flags = kSyncAtHead, .from = 0, .to = 0, .head = 0, .digest = Digest() + 1});
    const uint64_t beganMs = nowMs_;
    while ((hello = Next()).act != MirrorAct::kPull) AdvanceToDue();
    pauses.push_back(nowMs_ - beganMs);
    EXPECT_TRUE(hello.isHello);
  }
  EXPECT_EQ(pauses[0], 0u);
  EXPECT_LE(*std::max_element(pauses.begin(), pauses.begin() + 12), 30'000u);
  EXPECT_GT(pauses[11], 20'000u);
  EXPECT_GT(pauses[19], 44'000u);
  EXPECT_LE(pauses[19], 60'000u);
}

// Another answer was none: what was wrong with that one was wrong with the values too.
TEST_F(CliMirror, DigestThatDoesNotFitOnABadWay_CostsNoFurtherPause) {
  MirrorAsk ask = NextPull();
  for (int i = 0; i < 10; ++i) {
    MirrorTakeFailure(Core(), ask.token, 1900001620, nowMs_);
    while ((ask = Next()).act != MirrorAct::kPull) AdvanceToDue();
  }
  Say(ask.token, {.head = 2});
  ask = NextPull();
  MirrorTakeFailure(Core(), ask.token, 1900001620, nowMs_);
  while ((ask = Next()).act != MirrorAct::kPull) AdvanceToDue();
  Say(ask.token, {.from = 0, .to = 1, .head = 2});
  Say(NextPull().token, {.from = 1, .to = 2, .head = 2});
  Say(NextPull().token,
      {.flags = kSyncAtHead, .from = 2, .to = 2, .head = 2, .digest = Digest() + 1});
  EXPECT_EQ(Core().numDigestErrors, 1u);
  EXPECT_TRUE(NextPull().isHello);
}

TEST_F(CliMirror, Rule6_AnswerOfAnotherLife_BeginsAFullSync) {
  Sync();
  MirrorTakeNothing(Core(), registration_, nowMs_);
  Say(NextPull().token, {.flags = kSyncAtHead,
                         .from = 4,
                         .to = 5,
                         .head = 5,
                         .changes = {{5, "b001", "v005"}},
                         .replid = 78});
  EXPECT_EQ(Core().replid, 78u);
  EXPECT_EQ(Core().numFullSyncs, 2u);
  EXPECT_EQ(Table()["b001"], "v004");
  EXPECT_EQ(NextPull().since, 0u);
}

TEST_F(CliMirror, Rule6_HeadBelowTheCursor_BeginsAFullSync) {
  Sync();
  MirrorTakeNothing(Core(), registration_, nowMs_);
  Say(NextPull().token, {.flags = kSyncAtHead, .from = 3, .to = 3, .head = 3});
  EXPECT_EQ(Core().numFullSyncs, 2u);
  EXPECT_EQ(Core().base, 3u);
  EXPECT_EQ(Core().head, 4u);  // a head of this life is not forgotten
}

TEST_F(CliMirror, Rule6_NotificationOfAnotherLife_MayBeLate) {
  Sync();
  Push({.flags = kSyncAtHead, .from = 0, .to = 9, .head = 9, .replid = 11});
  EXPECT_EQ(Core().numFullSyncs, 1u);
  const MirrorAsk pull = NextPull();
  EXPECT_EQ(pull.replid, kLife);
  Say(pull.token, {.flags = kSyncAtHead, .from = 4, .to = 4, .head = 4, .digest = Digest()});
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
  EXPECT_EQ(Core().numFullSyncs, 1u);
}

// Rule 7.

TEST_F(CliMirror, Rule7_LostNotification_IsHealedByTheHeartbeat) {
  Sync();
  const uint64_t beganMs = nowMs_;
  while (IsQuiet() && nowMs_ < beganMs + 60000) Advance(100);
  EXPECT_GE(nowMs_ - beganMs, 26000u);
  EXPECT_LE(nowMs_ - beganMs, 33100u);
}

TEST_F(CliMirror, Rule7_ThreeHeartbeatsWithoutAnswer_TryOtherSockets) {
  Sync();
  const uint64_t beganMs = nowMs_;
  uint32_t numOpened = 0;
  uint32_t numSent = 0;
  uint64_t staleMs = 0;
  while (nowMs_ < beganMs + 600000) {
    AdvanceToDue();
    for (MirrorAsk ask = Next(); ask.act != MirrorAct::kNone; ask = Next()) {
      numOpened += ask.act == MirrorAct::kOpen;
      ++numSent;
      EXPECT_NE(ask.act, MirrorAct::kRegister);
    }
    if (staleMs == 0 && State() == COAP_RPC_MIRROR_STALE) staleMs = nowMs_ - beganMs;
  }
  EXPECT_GE(staleMs, 100000u);  // a heartbeat, and three that were not answered
  EXPECT_LE(staleMs, 135000u);
  EXPECT_GE(numOpened, 15u);
  EXPECT_LE(numOpened, 25u);
  EXPECT_LE(numSent, 200u);
  EXPECT_EQ(Table().size(), 2u);
}

TEST_F(CliMirror, Rule7_HostThatIsThereButSilent_IsRefused_AndStaleWhenItHasGone) {
  bool isPinged = SendAll();
  while (!isPinged) isPinged = LetTimeGo();
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_CONNECTING});
  EXPECT_EQ(Core().numSilent, 2u);
  MirrorTakePong(Core());
  isPinged = false;
  while (State() == COAP_RPC_MIRROR_CONNECTING) isPinged = LetTimeGo();
  EXPECT_EQ(mirror_->states.back(), (std::pair<uint32_t, uint32_t>{6, 1900001619}));
  EXPECT_TRUE(isPinged);  // through the next socket
  while (State() == COAP_RPC_MIRROR_REFUSED) isPinged = LetTimeGo();
  EXPECT_EQ(mirror_->states.back(), (std::pair<uint32_t, uint32_t>{5, 1900001616}));
  EXPECT_TRUE(isPinged);
}

// Through another socket nothing was answered so far.
TEST_F(CliMirror, Rule7_PingThatWasAnsweredBeforeAMove_DoesNotCount) {
  bool isPinged = SendAll();
  while (!isPinged) isPinged = LetTimeGo();
  MirrorTakePong(Core());
  MirrorMove(Core(), nowMs_);
  while (State() == COAP_RPC_MIRROR_CONNECTING) LetTimeGo();
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_STALE});
}

TEST_F(CliMirror, Rule7_ServerThatHasAnsweredOnce_IsNotPinged) {
  Sync();
  const uint64_t beganMs = nowMs_;
  while (nowMs_ < beganMs + 600000) EXPECT_FALSE(LetTimeGo());
}

TEST_F(CliMirror, Rule7_SilenceDuringAFullSync_LosesNoRange) {
  CoapRpcMirrorParam param = {};
  param.heartbeatMs = 500;
  Open(param);
  Say(NextPull().token, {.head = 100});
  first_ = NextPull();
  Say(first_.token, {.from = 0, .to = 30, .head = 100, .changes = {{3, "a001", "v001"}}});
  while (State() != COAP_RPC_MIRROR_STALE) {
    AdvanceToDue();
    while (Next().act != MirrorAct::kNone) {
    }
  }
  std::set<uint64_t> wanted;
  for (const coap_rpc::MirrorPull *pull = Core().pulls.slots; pull != Core().pulls.slots + 2;
       ++pull) {
    wanted.insert(pull->since);
  }
  EXPECT_EQ(wanted, (std::set<uint64_t>{30, 50}));
  EXPECT_EQ(Core().numFullSyncs, 1u);
}

// The process that had the port before has left a registration behind.
TEST_F(CliMirror, Rule7_ServerThatPushesToAFormerOwnerOfThePort_IsRegisteredWith) {
  Open({});
  Say(NextPull().token, {.head = 4});
  EXPECT_EQ(Next().act, MirrorAct::kRegister);
}

TEST_F(CliMirror, Rule7_ServerThatPushesNothing_IsRegisteredWith_WithPauses) {
  Sync();
  uint32_t numRegistered = 0;
  for (int i = 0; i < 1000; ++i) {
    MirrorTakeNothing(Core(), registration_, nowMs_);
    MirrorAsk ask = Next();
    if (ask.act == MirrorAct::kRegister) {
      ++numRegistered;
      Say(ask.token, {.head = 4});
      ask = Next();
    }
    if (ask.act == MirrorAct::kPull) {
      Say(ask.token, {.flags = kSyncAtHead | kSyncNotObserving,
                      .from = 4,
                      .to = 4,
                      .head = 4,
                      .digest = Digest()});
    }
    Advance(100);
  }
  EXPECT_GE(numRegistered, 5u);
  EXPECT_LE(numRegistered, 12u);
}

// Confirmations.  `full` is what makes a pull say nothing.

TEST_F(CliMirror, PullsOfAFullSync_ConfirmNothing_UntilItIsSynced) {
  BeginRanges();
  EXPECT_TRUE(first_.isFull);
  EXPECT_TRUE(second_.isFull);
  Say(first_.token, {.from = 0, .to = 2, .head = 4});
  Say(second_.token, {.from = 2, .to = 4, .head = 4});
  const MirrorAsk tail = NextPull();
  EXPECT_EQ(std::pair(tail.since, tail.isFull), std::pair(uint64_t{4}, true));
  Say(tail.token, {.from = 4, .to = 5, .head = 6});
  EXPECT_TRUE(NextPull().isFull);
}

// The page leaves out what has changed again after it.
TEST_F(CliMirror, PullsBetweenPages_ConfirmNothing) {
  Sync();
  Push({.flags = kSyncConfirm, .from = 4, .to = 5, .head = 9, .changes = {{5, "c001", "v005"}}});
  const MirrorAsk pull = NextPull();
  EXPECT_EQ(std::pair(pull.since, pull.isFull), std::pair(uint64_t{5}, true));
  Say(pull.token, {.flags = kSyncAtHead, .from = 5, .to = 9, .head = 9, .digest = Digest()});
  EXPECT_TRUE(IsQuiet());
  AdvanceToDue();
  const MirrorAsk confirming = NextPull();
  EXPECT_EQ(std::pair(confirming.since, confirming.isFull), std::pair(uint64_t{9}, false));
}

TEST_F(CliMirror, ServerThatWantsConfirmations_IsAskedSoonAndOnce) {
  Sync();
  const uint64_t beganMs = nowMs_;
  for (uint64_t version = 5; version < 8; ++version) {
    Push({.flags = kSyncConfirm | kSyncAtHead,
          .from = 4,
          .to = version,
          .head = version,
          .digest = Digest(),
          .changes = {}});
  }
  EXPECT_TRUE(IsQuiet());
  AdvanceToDue();
  const MirrorAsk confirming = NextPull();
  EXPECT_EQ(std::pair(confirming.since, confirming.isFull), std::pair(uint64_t{7}, false));
  EXPECT_LE(nowMs_, beganMs + 50);
  Say(confirming.token, {.flags = kSyncAtHead, .from = 7, .to = 7, .head = 7, .digest = Digest()});
  Advance(20000);
  EXPECT_TRUE(IsQuiet());
}

// Troubles.

// A pause ends when a notification has shown that nothing is wrong any more.
TEST_F(CliMirror, NotificationThatSyncs_EndsThePause) {
  Sync();
  FailPulls(1900001618);
  Push({.flags = kSyncAtHead,
        .from = 4,
        .to = 5,
        .head = 5,
        .digest = DigestOf({{"a001", "v001"}, {"b001", "v005"}}),
        .changes = {{5, "b001", "v005"}}});
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
  Push({.flags = kSyncAtHead, .from = 9, .to = 9, .head = 9});
  EXPECT_EQ(Next().act, MirrorAct::kPull);
}

TEST_F(CliMirror, ServerWithoutMemory_IsAskedInEveryHeartbeat) {
  CoapRpcMirrorParam param = {};
  param.heartbeatMs = 8000;
  Open(param);
  Sync();
  FailPulls(1900001624);
  EXPECT_LE(Core().holdMs, nowMs_ + 8000);
}

// The window.

TEST_F(CliMirror, Window_GrowsWithEachAnswer_AndIsHalvedOnceForALoss) {
  CoapRpcMirrorParam param = {};
  param.numInFlight = 128;
  Open(param);
  const MirrorAsk hello = NextPull();
  Advance(20);
  Say(hello.token, {.head = 1'000'000});
  const MirrorAsk registration = Next();
  EXPECT_EQ(registration.act, MirrorAct::kRegister);
  Say(registration.token, {.head = 1'000'000});
  std::vector<MirrorAsk> flight;
  uint64_t version = 0;
  for (int round = 0; round < 4; ++round) {
    flight.clear();
    for (MirrorAsk ask = Next(); ask.act == MirrorAct::kPull; ask = Next()) flight.push_back(ask);
    Advance(20);
    for (const MirrorAsk &ask : flight) {
      Say(ask.token, {.from = ask.since, .to = ask.since + 1, .head = 1'000'000});
      ++version;
    }
  }
  EXPECT_EQ(flight.size(), 3u * 8);
  EXPECT_EQ(Core().pulls.window, 3u * 16);
  while (Next().act == MirrorAct::kPull) {
  }
  EXPECT_EQ(Core().pulls.numSent, 48u);
  Advance(700);
  EXPECT_EQ(Core().pulls.window, 24u);
  uint32_t numRepeated = 0;
  for (MirrorAsk ask = Next(); ask.act == MirrorAct::kPull; ask = Next()) {
    numRepeated += ask.isRepeated;
  }
  EXPECT_EQ(numRepeated, 24u);
}

TEST_F(CliMirror, Window_DoesNotGrow_WhileAnswersTakeLonger) {
  CoapRpcMirrorParam param = {};
  param.numInFlight = 128;
  Open(param);
  MirrorAsk ask = NextPull();
  Advance(100);
  Say(ask.token, {.head = 1'000'000});
  const uint32_t window = Core().pulls.window;
  for (int i = 0; i < 10; ++i) {
    ask = NextPull();
    Advance(200);
    Say(ask.token, {.from = ask.since, .to = ask.since + 1, .head = 1'000'000});
  }
  EXPECT_EQ(Core().pulls.window, window);
}

TEST_F(CliMirror, Repetitions_DoubleUpToEightSeconds) {
  (void)NextPull();
  std::vector<uint64_t> waits;
  for (uint64_t lastMs = nowMs_; waits.size() < 8;) {
    AdvanceToDue();
    const MirrorAsk ask = Next();
    if (ask.act != MirrorAct::kPull) continue;
    waits.push_back(nowMs_ - lastMs);
    lastMs = nowMs_;
  }
  uint64_t expected = 500;
  for (const uint64_t ms : waits) {
    EXPECT_GE(ms, expected * 3 / 4);
    EXPECT_LE(ms, expected * 5 / 4);
    expected = std::min<uint64_t>(2 * expected, 8000);
  }
}

// Tuples.

TEST_F(CliMirror, ATupleCosts_ItsNodeAndEightBytes) {
  EXPECT_EQ(sizeof(coap_rpc::MirrorTuple), sizeof(OSAL_AVL3_NODE) + 8);
}

// A message has keys at any address, and an order may read them as numbers.
TEST_F(CliMirror, AnOrderOfKeys_IsGivenThemAsTuplesHaveThem) {
  static bool areAligned;
  areAligned = true;
  CoapRpcMirrorParam param = {};
  param.keyCmp = [](const void *a, const void *b) -> int32_t {
    for (const void *key : {a, b}) areAligned &= reinterpret_cast<uintptr_t>(key) % 8 == 0;
    return memcmp(a, b, 4);
  };
  Open(param);
  Sync();
  alignas(8) static constexpr char kText[] = ".a001";
  EXPECT_NE(MirrorTableFind(Core().table, kText + 1), nullptr);
  EXPECT_TRUE(areAligned);
}

// A key is renamed: the new one comes before the other one goes.
TEST_F(CliMirror, MaxBytesThatHoldTheSet_HoldItAfterARename) {
  CoapRpcMirrorParam param = {};
  param.maxBytes = 2 * (sizeof(coap_rpc::MirrorTuple) + 8);
  Open(param);
  Sync();
  const Rows rows = {{"b001", "v004"}, {"c001", "v001"}};
  Push({.flags = kSyncAtHead,
        .from = 4,
        .to = 6,
        .head = 6,
        .digest = DigestOf(rows),
        .changes = {{5, "c001", "v001"}, {6, "a001", ""}}});
  EXPECT_EQ(Table(), rows);
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
}

// What could not be stored is asked for again, with what is newer.
TEST_F(CliMirror, MaxBytesThatDoNotHoldAPage_StopBeforeIt) {
  CoapRpcMirrorParam param = {};
  param.maxBytes = 2 * (sizeof(coap_rpc::MirrorTuple) + 8);
  Open(param);
  Sync();
  Push({.flags = kSyncAtHead,
        .from = 4,
        .to = 8,
        .head = 8,
        .changes = {
            {5, "b001", "v005"}, {6, "c001", "v001"}, {7, "d001", "v001"}, {8, "a001", ""}}});
  EXPECT_EQ(Table(), (Rows{{"b001", "v005"}, {"c001", "v001"}}));
  EXPECT_EQ(mirror_->states.back(), (std::pair<uint32_t, uint32_t>{4, 1900001625}));
  EXPECT_EQ(NextPull().since, 6u);
}

TEST_F(CliMirror, NoMemory_MakesNoMirror) {
  for (uint64_t n = 1; n <= 3; ++n) {
    coap_rpc::Mirror mirror = {};
    CoapRpcMirrorParam param = {};
    param.keyLen = 4;
    param.numInFlight = 1;
    param.heartbeatMs = 1000;
    host_.Pool().Failures().FailOnce(n);
    EXPECT_FALSE(MirrorInit(mirror, host_.Mem(), param, DrawFrom, &random_, 0));
  }
}

}  // namespace
}  // namespace coap_rpc_test
