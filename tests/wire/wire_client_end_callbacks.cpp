// Ends of requests: how many are followed, and what the callback that is told of them may do.
#include <algorithm>
#include <map>

#include "client_end.h"

namespace coap_rpc_test {
namespace {

TEST_F(ClientEnd, TooManyUnderWay_AreCounted) {
  constexpr uint64_t kSpare = 10;
  for (uint64_t i = 0; i < COAP_RPC_MAX_FOLLOWED_REQUESTS + kSpare; ++i) {
    EXPECT_EQ(Call(key_, i), 0U);
  }
  EXPECT_EQ(Told(), Reasons{});
  Wait(1100);
  ASSERT_EQ(Told(), Reasons{COAP_RPC_END_UNKNOWN});
  EXPECT_EQ(ends_[0].num, kSpare);
  EXPECT_EQ(ends_[0].userData, 0U);
  EXPECT_EQ(ends_[0].key.uri[0], '\0');
}

TEST_F(ClientEnd, WithoutMemoryToFollow_IsCounted) {
  app_.onBuild = [this] { host_.Pool().Failures().FailFrom(1); };
  Ask();  // the buffer for payloads needs memory only once
  host_.Pool().Failures().Clear();
  Wait(1100);
  ASSERT_EQ(Told(), Reasons{COAP_RPC_END_UNKNOWN});
  EXPECT_EQ(ends_[0].num, 1U);
  ExpectNothingMore();
}

TEST_F(ClientEnd, CallbackSendsAgain) {
  int numLeft = 3;
  onEnd_ = [&] {
    if (numLeft-- > 0) {
      EXPECT_EQ(Call(key_, 20), 0U);
    }
  };
  Ask(20);
  Wait(6 * kGivenUpMs);
  EXPECT_EQ(Told(), Reasons(4, COAP_RPC_END_TIMEOUT));
  ExpectNothingMore();
}

TEST_F(ClientEnd, CallbackStopsListening) {
  ASSERT_EQ(COAP_RpcSetNstart(Ctx(), 4), 0U);
  onEnd_ = [this] { EXPECT_EQ(COAP_RpcSetOnRequestEnd(Ctx(), nullptr, 0), 0U); };
  const CoapMessage first = Ask(1);
  Ask(2);
  Say(RstOf(first));
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_RESET});
  ExpectNothingMore();
}

TEST_F(ClientEnd, CallbackStopsListening_InTheTick) {
  Say(AckOf(Ask(1)));
  Say(AckOf(Ask(2)));
  onEnd_ = [this] { EXPECT_EQ(COAP_RpcSetOnRequestEnd(Ctx(), nullptr, 0), 0U); };
  Wait(95'000);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_CLOSED});
}

TEST_F(ClientEnd, CallbackEndsTheRelation) {
  onEnd_ = [this] { EXPECT_EQ(UnObserve(watchKey_), 0U); };
  Watch();
  Wait(kGivenUpMs);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  EXPECT_EQ(ReqOf(watchKey_), nullptr);
  ExpectNothingMore();
}

// Both have ended when the first one is told.
TEST_F(ClientEnd, CallbackEndsARelationThatIsNotToldYet) {
  const CoapRpcUriKey other = KeyOf("v", COAP_RPC_CON, 1);
  Register(other, &app_);
  Keep();
  EXPECT_EQ(Observe(watchKey_, 6), 0U);
  EXPECT_EQ(Observe(other, 7), 0U);
  for (int i = 0; i < 2; ++i) peer_.Send(AckOf(Next()));
  onEnd_ = [this, other] { EXPECT_EQ(UnObserve(other, 7), 0U); };
  Wait(kLifetimeMs + 5000);
  EXPECT_EQ(ToldUserData(), std::vector<uint64_t>{6});
  onEnd_ = nullptr;
  ExpectNothingMore();
}

// Ends of the callback's own making are told by a later tick, so nothing goes round for ever.
TEST_F(ClientEnd, CallbackThatClosesSessions_IsCalledOnceInATick) {
  int numLeft = 5;
  onEnd_ = [&] {
    if (numLeft-- <= 0) return;
    EXPECT_EQ(Observe(watchKey_), 0U);
    EXPECT_EQ(Call(key_), 0U);
    EXPECT_EQ(UnObserve(watchKey_), 0U);
  };
  EXPECT_EQ(Observe(watchKey_), 0U);
  EXPECT_EQ(Call(key_), 0U);
  EXPECT_EQ(UnObserve(watchKey_), 0U);
  size_t num = 0;
  for (int i = 0; i < 8; ++i) {
    Wait(1000);
    EXPECT_LE(ends_.size(), num + 1);
    num = ends_.size();
  }
  EXPECT_EQ(Told(), Reasons(6, COAP_RPC_END_CLOSED));
}

TEST_F(ClientEnd, OtherCallback_TakesOver) {
  const CoapMessage request = Ask();
  static uint64_t told = 0;
  told = 0;
  const auto other = [](uint64_t userData, const CoapRpcRequestEnd *) { told = userData; };
  EXPECT_EQ(COAP_RpcSetOnRequestEnd(Ctx(), other, 77), 0U);
  Say(RstOf(request));
  EXPECT_EQ(told, 77U);
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEnd, NobodyListens_NothingIsKept) {
  EXPECT_EQ(COAP_RpcSetOnRequestEnd(Ctx(), nullptr, 0), 0U);
  EXPECT_EQ(Ctx()->cli->ends, nullptr);
  const CoapMessage request = Ask();
  EXPECT_EQ(COAP_RpcSetOnRequestEnd(Ctx(), nullptr, 0), 0U);
  Listen();
  Say(RstOf(request));
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEnd, Stopped_TellsNobody) {
  Say(AckOf(Ask(1)));
  Ask(2);
  EXPECT_EQ(Call(key_, 3), 0U);
  Watch();
  instance_.reset();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEnd, Stopped_WithEndsNotToldYet) {
  EXPECT_EQ(Observe(watchKey_), 0U);
  EXPECT_EQ(Call(key_), 0U);
  EXPECT_EQ(UnObserve(watchKey_), 0U);
  instance_.reset();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEnd, NullInstance_IsAsserted) {
  EXPECT_EQ(COAP_RpcSetOnRequestEnd(nullptr, OnEnd, 0), 1900001461U);
  EXPECT_EQ(
      TestHost::Process().Asserts(),
      (std::vector<AssertRecord>{{"coap_server/src/coap_svc/rpc/client/coap_rpc_cli_end", 1460}}));
  TestHost::Process().ClearAsserts();
}

TEST_F(ClientEnd, NoMemoryToListen) {
  EXPECT_EQ(COAP_RpcSetOnRequestEnd(Ctx(), nullptr, 0), 0U);
  host_.Pool().Failures().FailFrom(1);
  EXPECT_EQ(COAP_RpcSetOnRequestEnd(Ctx(), OnEnd, Self()), 1900001462U);
  host_.Pool().Failures().Clear();
  Say(RstOf(Ask()));
  EXPECT_EQ(Told(), Reasons{});
  Listen();
  Say(RstOf(Ask()));
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_RESET});
}

}  // namespace
}  // namespace coap_rpc_test
