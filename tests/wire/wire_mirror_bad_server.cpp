// Mirrors of servers that do not keep to the protocol: never synced, and asked patiently.
#include "mirror_client.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::kSyncAtHead;
using coap_rpc::kSyncNotObserving;
using coap_rpc::kSyncRestart;

class MirrorBadServer : public MirrorClient {
 protected:
  // CountAttempts answers every question for a while, and returns how often the mirror has begun
  // with a hello or, without one, asked.
  template <typename Answer>
  uint32_t CountAttempts(uint64_t ms, Answer answer) {
    uint32_t num = 0;
    for (uint64_t t = 0; t < ms; t += kTickMs) {
      Tick();
      while (const auto pull = peer_.ReceiveNow()) {
        num += QueryOf(*pull) == "_sync=1" && !pull->Has(kOptObserve);
        answer(*pull);
      }
    }
    return num;
  }
  static constexpr uint32_t kMaxAttempts = 27;  // in ten minutes: one in a heartbeat, -25 %
  // ExpectPatience looks whether the pauses have grown to 60 s, and the state is what it is for
  // such a server.
  template <typename Answer>
  void ExpectPatience(const std::string &state, Answer answer) {
    CountAttempts(400'000, answer);
    EXPECT_LE(CountAttempts(600'000, answer), kMaxAttempts);
    EXPECT_EQ(StateText(), state);
    for (const std::string &text : app_.told) EXPECT_EQ(text.find("synced"), std::string::npos);
  }
  std::string StateText() { return MirrorApp::StateText(State().state, State().code); }
  void ExpectRefusedBytes(uint32_t code, const std::string &payload) {
    ExpectPatience("REFUSED " + std::to_string(code),
                   [&](const CoapMessage &pull) { Reply(AnswerBytes(pull, payload)); });
  }
};

TEST_F(MirrorBadServer, ErrorCode_IsRefused) {
  mirror_ = Open(Param());
  ExpectPatience("REFUSED 1618", [&](const CoapMessage &pull) { Reply(Error(pull, Code(4, 4))); });
  EXPECT_EQ(app_.told, (std::vector<std::string>{"REFUSED 1618"}));
}

TEST_F(MirrorBadServer, ServerWithoutSync_IsRefused_AndNotObserved) {
  mirror_ = Open(Param());
  uint32_t numObserves = 0;
  ExpectPatience("REFUSED 1619", [&](const CoapMessage &pull) {
    numObserves += pull.Has(kOptObserve);
    CoapMessage answer = Request(CoapType::kNon, Code(2, 5), ++mid_, pull.token);
    Reply(answer.AddUint(kOptContentFormat, 50).PayloadText("{\"data\":[]}"));
  });
  EXPECT_EQ(numObserves, 0u);
}

TEST_F(MirrorBadServer, EmptyAnswers_AreRefused) {
  mirror_ = Open(Param());
  ExpectPatience("REFUSED 1619", [&](const CoapMessage &pull) {
    Reply(
        Request(CoapType::kNon, pull.messageId % 2 ? Code(2, 5) : Code(2, 1), ++mid_, pull.token));
  });
}

TEST_F(MirrorBadServer, OtherCbor_IsRefused) {
  mirror_ = Open(Param());
  ExpectRefusedBytes(1619, CborText().Head(5, 1).Number(1).Number(1).Bytes());
}

TEST_F(MirrorBadServer, CutPage_IsRefused) {
  mirror_ = Open(Param());
  const std::string page = Written({.head = 5, .digest = 7});
  ExpectRefusedBytes(1620, page.substr(0, page.size() - 1));
}

TEST_F(MirrorBadServer, KeysOfAnotherLength_AreRefused) {
  mirror_ = Open(Param());
  ExpectPatience("REFUSED 1621", [&](const CoapMessage &pull) {
    const bool isHello = QueryOf(pull) == "_sync=1";
    SyncPageText page = {.head = 1};
    if (!isHello) page = {.from = 0, .to = 1, .head = 1, .changes = {{1, "k0001", "v001"}}};
    Reply(AnswerWith(pull, page));
  });
}

TEST_F(MirrorBadServer, DigestThatNeverFits_IsNeverSynced) {
  mirror_ = Open(Param());
  ExpectPatience("BEHIND 1622", [&](const CoapMessage &pull) {
    Reply(AnswerWith(pull, {.flags = kSyncAtHead, .head = 0, .digest = 1}));
  });
  EXPECT_GT(State().numDigestErrors, 3u);
}

TEST_F(MirrorBadServer, PagesWithoutProgress_Contradict) {
  mirror_ = Open(Param());
  ExpectPatience("BEHIND 1623",
                 [&](const CoapMessage &pull) { Reply(AnswerWith(pull, {.head = 5})); });
}

TEST_F(MirrorBadServer, VersionsThatGoBack_BeginAgain) {
  Sync(Param());
  uint64_t head = 1000;
  ExpectPatience("BEHIND 1624", [&](const CoapMessage &pull) {
    head = head > 1 ? head - 1 : 1000;
    const bool isHello = QueryOf(pull) == "_sync=1";
    const uint64_t at = isHello ? 0 : head;
    Reply(AnswerWith(pull, {.flags = kSyncAtHead, .from = at, .to = at, .head = head}));
  });
}

TEST_F(MirrorBadServer, HugeVersions_AreBounded) {
  mirror_ = Open(Param());
  ExpectPatience("BEHIND 1623", [&](const CoapMessage &pull) {
    const bool isHello = QueryOf(pull) == "_sync=1";
    SyncPageText page = {.head = UINT64_MAX};
    if (!isHello) page = {.from = UINT64_MAX, .to = UINT64_MAX, .head = UINT64_MAX};
    Reply(AnswerWith(pull, page));
  });
}

TEST_F(MirrorBadServer, EndlessRestarts_AreWaitedFor) {
  mirror_ = Open(Param());
  ExpectPatience("BEHIND 1624", [&](const CoapMessage &pull) {
    const bool isHello = QueryOf(pull) == "_sync=1";
    Reply(AnswerWith(pull, {.flags = isHello ? 0u : uint64_t{kSyncRestart}, .head = 0}));
  });
}

TEST_F(MirrorBadServer, ServerWithoutMemory_IsWaitedFor) {
  mirror_ = Open(Param());
  ExpectPatience("BEHIND 1624", [&](const CoapMessage &pull) { Reply(Error(pull, Code(5, 3))); });
}

TEST_F(MirrorBadServer, RegistrationRefused_ChangesNothing) {
  mirror_ = Open(Param());
  Say(Next(), {.flags = kSyncNotObserving, .head = 2, .digest = One()});
  Say(Error(Next(), Code(4, 6)));
  for (int i = 0; i < 2; ++i) SayRange(Next());
  Say(Next(), {.flags = kSyncAtHead, .from = 2, .to = 2, .head = 2, .digest = One()});
  EXPECT_EQ(app_.Take(), "FULL_SYNC, +k001=v001, SYNCED, synced 2");
}

TEST_F(MirrorBadServer, BadNotification_IsPulledFor) {
  Sync(Param());
  CoapMessage bad = Request(CoapType::kNon, Code(2, 5), ++mid_, registration_.token);
  Say(bad.AddUint(kOptContentFormat, kFormatCbor).PayloadText("\x88\x01"));
  EXPECT_EQ(app_.Take(), "BEHIND");
  const CoapMessage pull = Next();
  EXPECT_EQ(pull, Pull(pull, {kLifeArg, "since=2"}));
  EXPECT_EQ(State().numBadMessages, 1u);
}

}  // namespace
}  // namespace coap_rpc_test
