/* test_coap_rpc_cli_mirror_time.cpp: rule 7 of a mirror, confirmations, pauses, and the window of
 * its questions. */
#include <set>

#include "cli_mirror.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"

namespace coap_rpc_test {
namespace {

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

// It was slow, and its first page came after all.
TEST_F(CliMirror, Rule7_SilenceOfAServerThatHasVersions_IsNoRefusal) {
  MirrorAsk hello = NextPull();
  for (bool isPinged = false; !isPinged;) isPinged = LetTimeGo();
  MirrorTakePong(Core());
  Say(hello.token, {.head = 0});
  Say(NextPull().token, {.flags = kSyncAtHead});
  EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
  while (State() == COAP_RPC_MIRROR_SYNCED) LetTimeGo();
  EXPECT_EQ(mirror_->states.back(), (std::pair<uint32_t, uint32_t>{5, 1900001616}));
}

// Three heartbeats are then over with the third question.
TEST_F(CliMirror, Rule7_FewLostQuestions_AreNoRefusal_HoweverShortTheHeartbeat) {
  CoapRpcMirrorParam param = {};
  param.heartbeatMs = 100;
  Open(param);
  SendAll();
  while (State() != COAP_RPC_MIRROR_REFUSED && nowMs_ < 60'000) {
    if (LetTimeGo()) MirrorTakePong(Core());
  }
  EXPECT_EQ(mirror_->states,
            (std::vector<std::pair<uint32_t, uint32_t>>{{5, 1900001616}, {6, 1900001619}}));
  EXPECT_GE(Core().pulls.numPulls, 6u);
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

TEST_F(CliMirror, Rule7_RegistrationThatIsForgottenNowAndThen_IsMadeAgainAtOnce) {
  CoapRpcMirrorParam param = {};
  param.heartbeatMs = 8000;
  Open(param);
  Sync();
  for (int i = 0; i < 20; ++i) {
    const uint64_t flags = i % 2 == 0 ? kSyncAtHead | kSyncNotObserving : uint64_t{kSyncAtHead};
    AdvanceToDue();
    Say(NextPull().token, {.flags = flags, .from = 4, .to = 4, .head = 4, .digest = Digest()});
    const MirrorAsk ask = Next();
    EXPECT_EQ(ask.act, i % 2 == 0 ? MirrorAct::kRegister : MirrorAct::kNone) << i;
    Say(registration_, {.head = 4});
  }
}

TEST_F(CliMirror, Rule7_RegistrationThatIsRefused_IsNotRepeated) {
  Open({});
  Say(NextPull().token, {.flags = kSyncNotObserving, .head = 0});
  const MirrorAsk registration = Next();
  EXPECT_EQ(registration.act, MirrorAct::kRegister);
  MirrorTakeFailure(Core(), registration.token, 1900001618, nowMs_);
  while (nowMs_ < 20'000) {
    AdvanceToDue();
    EXPECT_NE(Next().act, MirrorAct::kRegister);
  }
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

// It would be asked for the rest of the versions, as fast as it answers.
TEST_F(CliMirror, PagesThatLeadNowhere_AreNoAnswers) {
  uint32_t numAsked = 0;
  while (nowMs_ < 600'000) {
    const MirrorAsk ask = Next();
    if (ask.act == MirrorAct::kNone) {
      AdvanceToDue();
    } else if (ask.isHello) {
      Say(ask.token, {.head = UINT64_MAX});
    } else if (ask.act == MirrorAct::kPull) {
      ASSERT_LT(++numAsked, 100u);
      Say(ask.token, {.from = ask.since, .to = ask.since + 1, .head = UINT64_MAX});
    }
  }
  EXPECT_EQ(mirror_->states.back(), (std::pair<uint32_t, uint32_t>{4, 1900001623}));
}

TEST_F(CliMirror, BlocksWithoutAPage_CostTheSocket_AndGrowingPauses) {
  std::vector<uint64_t> pauses;
  const uint64_t numSockets = Core().numSockets;
  for (uint64_t round = 1; round <= 8; ++round) {
    const MirrorAsk hello = NextPull();
    EXPECT_TRUE(hello.isHello);
    for (uint32_t i = 0; i < coap_rpc::kMirrorMaxBlocks; ++i) {
      EXPECT_TRUE(MirrorTakeBlock(Core(), nowMs_));
    }
    EXPECT_FALSE(MirrorTakeBlock(Core(), nowMs_));
    EXPECT_EQ(mirror_->states.back(), (std::pair<uint32_t, uint32_t>{6, 1900001620}));
    EXPECT_EQ(Next().act, MirrorAct::kOpen);
    EXPECT_EQ(Core().numSockets, numSockets + round);
    pauses.push_back(Core().holdMs - nowMs_);
    nowMs_ = Core().holdMs;
  }
  EXPECT_EQ(pauses[0], 0u);
  EXPECT_GT(pauses[7], 20'000u);
}

// A server of an empty set that answers what would confirm it in a way of its own.
class CliMirrorReadAgain : public CliMirror {
 protected:
  // Read returns how many full syncs begin in ten minutes.
  template <typename Lie>
  uint64_t Read(Lie lie) {
    const uint64_t endMs = nowMs_ + 600'000;
    const uint64_t num = Core().numFullSyncs;
    while (nowMs_ < endMs) {
      const MirrorAsk ask = Next();
      if (ask.act == MirrorAct::kNone) {
        AdvanceToDue();
      } else if (ask.isHello || ask.act == MirrorAct::kRegister) {
        Say(ask.token, {.head = 0});
      } else if (ask.isFull) {
        Say(ask.token, {.flags = kSyncAtHead});
      } else {
        lie(ask.token);
      }
    }
    return Core().numFullSyncs - num;
  }
  template <typename Lie>
  void ExpectOnceInAHeartbeat(Lie lie) {
    EXPECT_LE(Read(lie), 45u);
    EXPECT_LE(Read(lie), 27u);
    EXPECT_GE(mirror_->synced.size(), 30u);
  }
};

TEST_F(CliMirrorReadAgain, OtherLives_AreReadOnceInAHeartbeat) {
  ExpectOnceInAHeartbeat([this](uint64_t token) {
    Say(token, {.flags = kSyncRestart, .replid = kLife + Core().numFullSyncs});
  });
}

TEST_F(CliMirrorReadAgain, OtherDigests_AreReadOnceInAHeartbeat) {
  ExpectOnceInAHeartbeat(
      [this](uint64_t token) { Say(token, {.flags = kSyncAtHead, .digest = 1}); });
}

TEST_F(CliMirrorReadAgain, Contradictions_AreReadOnceInAHeartbeat) {
  ExpectOnceInAHeartbeat([this](uint64_t token) { Say(token, {.from = 1, .to = 1, .head = 1}); });
}

// What is no answer excuses the digest after it, though not for ever.
TEST_F(CliMirrorReadAgain, OtherDigestsAfterBadAnswers_AreReadOnceInAHeartbeat) {
  bool isBad = false;
  ExpectOnceInAHeartbeat([&](uint64_t token) {
    isBad = !isBad;
    if (isBad) {
      MirrorTakeFailure(Core(), token, 1900001620, nowMs_);
    } else {
      Say(token, {.flags = kSyncAtHead, .digest = 1});
    }
  });
}

// Nobody has to wait who restarts a server now and then.
TEST_F(CliMirror, RestartAfterAHeartbeatOfPeace_CostsNoPause) {
  Sync();
  for (uint64_t life = 100; life < 110; ++life) {
    Advance(31'000);
    MirrorTakeNothing(Core(), registration_, nowMs_);
    Say(NextPull().token, {.flags = kSyncRestart, .replid = life});
    const MirrorAsk tail = NextPull();
    EXPECT_EQ(tail.replid, life);
    Say(tail.token, {.flags = kSyncAtHead, .replid = life});
    EXPECT_EQ(State(), uint32_t{COAP_RPC_MIRROR_SYNCED});
    AdvanceToDue();
    Say(NextPull().token, {.flags = kSyncAtHead, .replid = life});
  }
}

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
  for (int round = 0; round < 4; ++round) {
    flight.clear();
    for (MirrorAsk ask = Next(); ask.act == MirrorAct::kPull; ask = Next()) flight.push_back(ask);
    Advance(20);
    for (const MirrorAsk &ask : flight) SayOne(ask, 1'000'000);
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
    SayOne(ask, 1'000'000);
  }
  EXPECT_EQ(Core().pulls.window, window);
}

// It may be the answer to either message.
TEST_F(CliMirror, Window_LearnsNothingFromAnswersToRepetitions) {
  const MirrorAsk hello = NextPull();
  Advance(700);
  EXPECT_TRUE(NextPull().isRepeated);
  Advance(1);
  Say(hello.token, {.head = 0});
  EXPECT_EQ(Core().pulls.minRttMs, UINT64_MAX);
}

TEST_F(CliMirror, Window_GrowsByOneInAFlight_AfterALoss) {
  CoapRpcMirrorParam param = {};
  param.numInFlight = 16;
  Open(param);
  (void)NextPull();
  Advance(700);
  Say(NextPull().token, {.head = 1'000'000});
  EXPECT_EQ(Core().pulls.window, 1u);
  for (int i = 0; i < 1 + 2 + 3; ++i) SayOne(NextPull(), 1'000'000);
  EXPECT_EQ(Core().pulls.window, 4u);
}

TEST_F(CliMirror, QuestionThatFailed_IsRepeatedAsANewOne) {
  (void)NextPull();
  for (int i = 0; i < 3; ++i) Advance(5000);
  MirrorTakeFailure(Core(), NextPull().token, 1900001618, nowMs_);
  EXPECT_FALSE(NextPull().isRepeated);
  Advance(700);
  EXPECT_TRUE(NextPull().isRepeated);
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

}  // namespace
}  // namespace coap_rpc_test
