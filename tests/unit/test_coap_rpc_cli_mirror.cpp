/* test_coap_rpc_cli_mirror.cpp: rules 1 to 6 of a mirror, each by itself, and its tuples. */
#include "cli_mirror.h"

namespace coap_rpc_test {
namespace {

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

TEST_F(CliMirror, Rule3_DeletionsForgottenUpToTheBase_DoNoHarm) {
  BeginRanges();
  Say(first_.token, {.from = 0, .to = 2, .head = 9, .floor = 4});
  EXPECT_EQ(Core().numFullSyncs, 1u);
}

TEST_F(CliMirror, Rule3_PageWithAHole_OrBeyondItsRange_IsNotApplied) {
  const Page others[] = {
      {.from = 1, .to = 2, .head = 4, .changes = {{2, "a001", "v001"}}},
      {.from = 0, .to = 3, .head = 4, .changes = {{3, "a001", "v001"}}},
      {.from = 0, .to = 1, .head = 4},
  };
  for (const Page &other : others) {
    Open({});
    BeginRanges();
    Say(first_.token, other);
    EXPECT_EQ(Table(), Rows());
    EXPECT_EQ(mirror_->states.back(), (std::pair<uint32_t, uint32_t>{4, 1900001623}));
  }
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

TEST_F(CliMirror, Rule5_PageThatDoesNotSayThatItIsAtTheHead_SyncsNothing) {
  Sync();
  Push({.from = 4,
        .to = 5,
        .head = 5,
        .digest = DigestOf({{"a001", "v001"}, {"b001", "v005"}}),
        .changes = {{5, "b001", "v005"}}});
  EXPECT_EQ(mirror_->synced, (std::vector<uint64_t>{4}));
}

TEST_F(CliMirror, Rule5_RegistrationThatKnowsANewerHead_IsAReasonToPull) {
  Sync();
  Say(registration_, {.head = 6});
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_BEHIND});
  EXPECT_EQ(NextPull().since, 4u);
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

TEST_F(CliMirror, Rule6_AnswerThatSaysSo_BeginsAFullSync) {
  Sync();
  MirrorTakeNothing(Core(), registration_, nowMs_);
  Say(NextPull().token, {.flags = kSyncRestart, .head = 4});
  EXPECT_EQ(Core().numFullSyncs, 2u);
  EXPECT_EQ(Core().numBad, 0u);
}

TEST_F(CliMirror, Rule6_HeadBelowTheCursor_BeginsAFullSync) {
  Sync();
  MirrorTakeNothing(Core(), registration_, nowMs_);
  Say(NextPull().token, {.flags = kSyncAtHead, .from = 3, .to = 3, .head = 3});
  EXPECT_EQ(Core().numFullSyncs, 2u);
  EXPECT_EQ(Core().base, 3u);
  EXPECT_EQ(Core().head, 4u);  // a head of this life is not forgotten
}

// Through another socket, or after a pause.
TEST_F(CliMirror, QuestionOfTheTailThatHadToWait_AsksFromTheCursor) {
  Sync();
  MirrorTakeNothing(Core(), registration_, nowMs_);
  const MirrorAsk tail = NextPull();
  Push({.from = 4, .to = 6, .head = 7, .changes = {{6, "a001", "v006"}}});
  MirrorMove(Core(), nowMs_);
  EXPECT_EQ(Next().act, MirrorAct::kOpen);
  const MirrorAsk again = NextPull();
  EXPECT_NE(again.token, tail.token);
  EXPECT_EQ(std::pair(again.since, again.isFull), std::pair(uint64_t{6}, true));
}

// The question was lost and asked again, while notifications brought what the server has forgotten.
TEST_F(CliMirror, Rule6_AnswerThatForgotWhatNotificationsBrought_BeginsNothing) {
  const Rows rows = {{"a001", "v001"}, {"c001", "v006"}};
  for (const uint64_t floor : {5u, 6u, 7u}) {
    Open({});
    Sync();
    MirrorTakeNothing(Core(), registration_, nowMs_);
    const MirrorAsk tail = NextPull();
    Push({.flags = kSyncAtHead,
          .from = 4,
          .to = 6,
          .head = 6,
          .digest = DigestOf(rows),
          .changes = {{5, "b001", ""}, {6, "c001", "v006"}}});
    Say(tail.token, {.flags = kSyncRestart, .head = 7, .floor = floor});
    EXPECT_EQ(Core().numFullSyncs, floor <= 6 ? 1u : 2u);
    const MirrorAsk next = NextPull();
    EXPECT_EQ(next.since, floor <= 6 ? 6u : 0u);
    EXPECT_EQ(Core().head, 7u);
  }
}

TEST_F(CliMirror, Rule6_AnswerThatForgotWhatIsKnown_IsAskedForAgainInSilence) {
  Sync();
  const MirrorAsk tail = (AdvanceToDue(), NextPull());
  const Rows rows = {{"a001", "v001"}};
  Push({.flags = kSyncAtHead,
        .from = 4,
        .to = 5,
        .head = 5,
        .digest = DigestOf(rows),
        .changes = {{5, "b001", ""}}});
  const size_t numStates = mirror_->states.size();
  Say(tail.token, {.flags = kSyncRestart, .head = 5, .floor = 5});
  EXPECT_EQ(NextPull().since, 5u);
  EXPECT_EQ(mirror_->states.size(), numStates);
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

// Whatever it says, each tuple is in the table once, or not at all.
TEST_F(CliMirror, AnOrderOfKeysThatContradictsItself_LosesNoTuple) {
  static uint32_t number;
  number = 0;
  CoapRpcMirrorParam param = {};
  param.keyCmp = [](const void *, const void *) -> int32_t {
    return static_cast<int32_t>((number += 7) % 3) - 1;
  };
  Open(param);
  BeginRanges();
  Page page = {.from = 0, .to = 2, .head = 4};
  for (uint64_t i = 0; i < 100; ++i) {
    page.changes.push_back({1 + i, "k" + std::to_string(100 + i), i % 5 == 4 ? "" : "v001"});
  }
  Say(first_.token, page);
  uint64_t num = 0;
  for (auto *tuple = MirrorTableFirst(Core().table); tuple; ++num) {
    tuple = MirrorTableNext(Core().table, tuple);
  }
  EXPECT_EQ(Core().table.num, num);
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
