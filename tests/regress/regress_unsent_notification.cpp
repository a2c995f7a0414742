// Changes were lost when the socket refused their notification: they had left the list when it was
// built.  libcoap asked for another one at once, and in every run of the I/O from then on, and got
// an empty 2.01.
#include <cerrno>

#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "failing_sends.h"
#include "flight_server.h"

namespace coap_rpc_test {
namespace {

constexpr int kErrors[] = {ENETUNREACH, EPERM, ENOBUFS, EAGAIN, EHOSTUNREACH};

class UnsentNotification : public FlightServer {
 protected:
  // FailFor lets the time pass while nothing can be sent.  Returns the number of attempts.
  uint32_t FailFor(uint64_t ms, int error = ENETUNREACH) {
    const FailingSends sends(error);
    for (uint64_t at = 0; at < ms; at += kTickMs) Tick();
    return sends.NumRefused();
  }

  // KeyText makes a key of a number.
  static std::string KeyText(uint32_t number) {
    std::string text;
    for (int i = 0; i < 4; ++i, number /= 26)
      text.insert(text.begin(), "abcdefghijklmnopqrstuvwxyz"[number % 26]);
    return text;
  }
};

// A payload of JSON takes any number of changes.
class UnsentTable : public UnsentNotification {};

TEST_P(UnsentNotification, ItsChangesComeWhenSendsWorkAgain) {
  StartRelation();
  int i = 0;
  for (const int error : kErrors) {
    const std::string val = "v00" + std::to_string(i++);
    Update("k001", val);
    Update("k002", val);
    Delete("k003");
    EXPECT_GT(FailFor(2500, error), 0u);
    EXPECT_EQ(NextChanges(peer_), (Texts{"u:k001=" + val, "u:k002=" + val, "d:k003"})) << error;
    EXPECT_TRUE(Pending().empty());
    ExpectSilence(peer_);
  }
}

TEST_P(UnsentNotification, IsTriedOnceASecond) {
  StartRelation();
  Update("k001", "v001");
  const uint32_t numBuilt = app_.numBuilt;
  EXPECT_LE(FailFor(10'000), 11u);
  EXPECT_LE(app_.numBuilt, numBuilt + 11);
  EXPECT_GE(app_.numBuilt, numBuilt + 9);
}

TEST_P(UnsentNotification, NewerChangeOfTheSameKeyWins_OrderIsKept) {
  StartRelation();
  Update("k002", "old2");
  Update("k001", "old1");
  Update("k003", "old3");
  FailFor(1100);
  EXPECT_EQ(Pending(), (Texts{"1k002", "1k001", "1k003"}));
  Update("k004", "new4");
  Delete("k001");
  Update("k003", "new3");
  EXPECT_EQ(NextChanges(peer_), (Texts{"u:k002=old2", "d:k001", "u:k003=new3", "u:k004=new4"}));
  ExpectSilence(peer_);
}

// The payload that was not sent had a check code, which is not that of what is pending.
TEST_P(UnsentNotification, TheCheckCodeChangesAsWell) {
  StartRelation();
  app_.data = {{"k001", "v001"}};
  uint64_t code = 0;
  app_.whileBuilding = [&](const std::string &) { code = entry_->etag; };
  Update("k001", "v001");
  FailFor(1100);
  EXPECT_NE(code, 0u);
  EXPECT_GT(entry_->etag, code);
  Register(peer_, CoapType::kCon, {1}, kCheckCode + std::to_string(code));
  EXPECT_EQ(app_.numWalks, 1u);
}

TEST_P(UnsentNotification, AnswerToARegistration_ItsChangesComeLater) {
  ServeRelation();
  Update("k001", "v001");
  Update("k002", "v002");
  {
    const FailingSends sends(EPERM);
    peer_.Send(Observe(CoapType::kNon, {1}));
    while (entry_->observerNum == 0) Tick();
    EXPECT_EQ(sends.NumRefused(), 1u);
    EXPECT_EQ(Pending(), (Texts{"1k001", "1k002"}));
  }
  EXPECT_EQ(NextChanges(peer_), (Texts{"u:k001=v001", "u:k002=v002"}));
  ExpectSilence(peer_);
}

TEST_P(UnsentNotification, InBlocks_ItsChangesComeWhenSendsWorkAgain) {
  StartRelation();
  app_.padding = 1500;
  Update("k001", "v001");
  Delete("k002");
  EXPECT_GT(FailFor(2500), 0u);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  CoapMessage first = NextNotification(peer_);
  ASSERT_EQ(first.code, Code(2, 5));
  const Bytes body =
      ReadBlocks(first, "obs", "", 0x2000, [&](const CoapMessage &next) { return Ask(next); });
  EXPECT_EQ(ElementsOf(body), (Texts{"u:k001=v001" + std::string(1500, 'p'), "d:k002"}));
  host_.AdvanceMs(1000);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  EXPECT_TRUE(Pending().empty());
  ExpectSilence(peer_);
}

// An observer that nothing can be sent to took the changes away from the others.
TEST_P(UnsentNotification, OfTheFirstObserver_TheSecondGetsIt) {
  StartRelation();
  {
    RawPeer gone;
    gone.SetRemote(Address());
    Register(gone, CoapType::kCon, {2});
  }
  Update("k001", "v001");
  host_.AdvanceMs(900);
  const FailingSends sends(EPERM);
  COAP_RpcSerNotifyObservers(Ctx(), entry_);
  Tick();
  EXPECT_EQ(sends.NumRefused(), 2u);
  EXPECT_EQ(Pending(), Texts{"1k001"});
}

// Tuples come and go while nothing can be sent: their deletions do not pile up without end.
TEST_P(UnsentTable, OfVeryManyTuples_TheOldestGiveWay) {
  StartRelation();
  constexpr uint32_t kMax = 65'536;
  const auto fail = [&](uint32_t from, uint32_t to) {
    for (uint32_t i = from; i < to; ++i) Delete(KeyText(i));
    FailFor(1100);
  };
  fail(0, 40'000);
  EXPECT_EQ(Pending().size(), 40'000u);
  const uint64_t code = entry_->etag;
  fail(40'000, kMax + 500);
  const Texts pending = Pending();
  ASSERT_EQ(pending.size(), kMax);
  EXPECT_EQ(pending.front(), "2" + KeyText(500));
  EXPECT_EQ(pending.back(), "2" + KeyText(kMax + 499));
  EXPECT_NE(entry_->etag, code);
}

// With memory failing at any call, a change is pending, in flight or delivered.
TEST_P(UnsentNotification, WithoutMemory_NothingIsLost) {
  StartRelation();
  int i = 0;
  for (uint64_t n = 1; n <= 12; ++n) {
    for (const bool forGood : {false, true}) {
      const std::string val = std::to_string(1000 + ++i);
      Update("k001", val);
      Delete("k002");
      if (forGood) {
        host_.Pool().Failures().FailFrom(n);
      } else {
        host_.Pool().Failures().FailOnce(n);
      }
      FailFor(2500);
      host_.Pool().Failures().Clear();
      EXPECT_EQ(NextChanges(peer_), (Texts{"u:k001=" + val, "d:k002"})) << n;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Relations, UnsentTable,
                         testing::Combine(testing::Values(COAP_RPC_JSON),
                                          testing::Values(COAP_RPC_CON, COAP_RPC_NON)),
                         RelationName);
INSTANTIATE_TEST_SUITE_P(Relations, UnsentNotification, AllRelations(), RelationName);

}  // namespace
}  // namespace coap_rpc_test
