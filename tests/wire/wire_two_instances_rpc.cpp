// Two instances: asynchronous calls, whose answers travel as POST to port 5683 of the asker.
#include <random>
#include <set>

#include "two_instances.h"

namespace coap_rpc_test {
namespace {

class TwoRpc : public TwoInstances {
 protected:
  TwoRpc() {
    asker_.Register(key_, &responses_);
    asker_.ServeAsync(answerKey_, nullptr);
    server_.ServeAsync(key_, &app_);
  }

  uint32_t Answer(size_t request, const std::string &text) {
    return COAP_RpcSerSendAsyncResponse(server_.Ctx(), app_.handles[request],
                                        reinterpret_cast<const uint8_t *>(text.data()),
                                        static_cast<uint32_t>(text.size()));
  }

  bool HasAsked(size_t num) {
    return RunUntil([this, num] { return app_.requests.size() >= num; });
  }
  bool IsAnswered(size_t num) {
    return RunUntil([this, num] { return responses_.all.size() >= num; });
  }

  const CoapRpcUriKey key_ = KeyOf("rpc");
  const CoapRpcUriKey answerKey_ = KeyOf("rpc", COAP_RPC_CON, 0, COAP_RPC_UNICAST);
  Responses responses_;
  App app_;
};

TEST_F(TwoRpc, Answer_ReachesOnResponse) {
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(HasAsked(1));
  EXPECT_EQ(app_.requests[0].payload, "ping");
  EXPECT_EQ(Answer(0, "{\"pong\":1}"), 0u);
  ASSERT_TRUE(IsAnswered(1));
  EXPECT_EQ(responses_.all[0].payload, "{\"pong\":1}");
  EXPECT_EQ(responses_.all[0].info.rspCode, 2u);  // a POST
  EXPECT_EQ(responses_.all[0].info.isChanged, 0u);
  EXPECT_EQ(responses_.all[0].info.checkCodeOk, 0u);
  Steps(300);
  EXPECT_EQ(app_.requests.size(), 1u);
  EXPECT_EQ(responses_.all.size(), 1u);
}

TEST_F(TwoRpc, AnswerInsideTheCallback_ReachesOnResponse) {
  app_.onAsync = [this](void *) { EXPECT_EQ(Answer(app_.handles.size() - 1, "now"), 0u); };
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(IsAnswered(1));
  EXPECT_EQ(responses_.all[0].payload, "now");
}

TEST_F(TwoRpc, CallInsideOnResponse_IsAnsweredAsWell) {
  app_.onAsync = [this](void *) {
    Answer(app_.handles.size() - 1, app_.requests.back().payload + "!");
  };
  responses_.onPayload = [this](const std::string &payload) {
    if (payload.size() == 5) return;
    EXPECT_EQ(asker_.Ask(key_, server_, payload), 0u);
  };
  EXPECT_EQ(asker_.Ask(key_, server_, "a"), 0u);
  ASSERT_TRUE(IsAnswered(4));
  EXPECT_EQ(responses_.all[3].payload, "a!!!!");
}

TEST_F(TwoRpc, NonCall_IsAnswered) {
  const CoapRpcUriKey key = KeyOf("non", COAP_RPC_NON);
  asker_.Register(key, &responses_);
  asker_.ServeAsync(KeyOf("non", COAP_RPC_NON, 0, COAP_RPC_UNICAST), nullptr);
  server_.ServeAsync(key, &app_);
  EXPECT_EQ(asker_.Call(COAP_RpcCliNonReq, key, server_, "ping"), 0u);
  ASSERT_TRUE(HasAsked(1));
  EXPECT_EQ(Answer(0, "pong"), 0u);
  ASSERT_TRUE(IsAnswered(1));
  EXPECT_EQ(responses_.all[0].payload, "pong");
}

TEST_F(TwoRpc, BodiesOf60000Bytes_ArriveWholeBothWays) {
  std::string question(60'000, 'q');
  std::string answer(60'000, 'a');
  for (size_t i = 0; i < question.size(); i += 100) {
    question[i] = answer[i] = static_cast<char>('0' + i / 100 % 10);
  }
  EXPECT_EQ(asker_.Ask(key_, server_, question), 0u);
  ASSERT_TRUE(HasAsked(1));
  EXPECT_EQ(app_.requests[0].payload, question);
  EXPECT_EQ(Answer(0, answer), 0u);
  ASSERT_TRUE(IsAnswered(1));
  EXPECT_EQ(responses_.all[0].payload, answer);
}

TEST_F(TwoRpc, AbortedCall_CallsNothing) {
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(HasAsked(1));
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(server_.Ctx(), app_.handles[0]), 0u);
  Steps(300);
  EXPECT_TRUE(responses_.all.empty());
}

TEST_F(TwoRpc, ThousandPending_AnsweredInRandomOrder_AllArriveOnce) {
  constexpr size_t kNum = 1000;
  constexpr uint32_t kNumSessions = 8;
  for (uint32_t i = 0; i < kNum; ++i) {
    EXPECT_EQ(asker_.Ask(key_, server_, std::to_string(i), 16 + i % kNumSessions), 0u);
  }
  ASSERT_TRUE(HasAsked(kNum)) << app_.requests.size();
  std::vector<size_t> order(kNum);
  for (size_t i = 0; i < kNum; ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(11));
  for (const size_t i : order) EXPECT_EQ(Answer(i, "re " + app_.requests[i].payload), 0u);
  ASSERT_TRUE(IsAnswered(kNum)) << responses_.all.size();
  Steps(300);
  std::multiset<std::string> expected;
  for (size_t i = 0; i < kNum; ++i) expected.insert("re " + std::to_string(i));
  std::multiset<std::string> answers;
  for (const auto &response : responses_.all) answers.insert(response.payload);
  EXPECT_EQ(answers, expected);
}

TEST_F(TwoRpc, BothAskEachOther_BothAreAnswered) {
  // Bound to its source address, so that the answer finds its way back to the one that asked.
  const CoapRpcUriKey back = KeyOf("back", COAP_RPC_CON, 0, COAP_RPC_BROADCAST);
  const CoapRpcUriKey backAnswer = KeyOf("back");
  Responses backResponses;
  App backApp;
  backApp.onAsync = [&](void *handle) {
    const uint8_t text[] = {'o', 'k'};
    EXPECT_EQ(COAP_RpcSerSendAsyncResponse(asker_.Ctx(), handle, text, sizeof(text)), 0u);
  };
  app_.onAsync = [this](void *) { Answer(app_.handles.size() - 1, "pong"); };
  server_.Register(back, &backResponses);
  server_.Register(backAnswer, &backResponses);
  server_.ServeAsync(KeyOf("back", COAP_RPC_CON, 0, COAP_RPC_UNICAST), nullptr);
  asker_.ServeAsync(backAnswer, &backApp);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(asker_.Ask(key_, server_, "to the server"), 0u);
    EXPECT_EQ(server_.Ask(back, asker_, "to the asker"), 0u);
  }
  EXPECT_TRUE(
      RunUntil([&] { return responses_.all.size() == 20 && backResponses.all.size() == 20; }));
  for (const auto &response : backResponses.all) EXPECT_EQ(response.payload, "ok");
}

TEST_F(TwoRpc, AnswerAfterTheSessionAgedOut_StillArrives) {
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(HasAsked(1));
  Steps(880);
  EXPECT_TRUE(asker_.HasSession());
  Steps(50);
  EXPECT_FALSE(asker_.HasSession());
  EXPECT_EQ(Answer(0, "late"), 0u);
  ASSERT_TRUE(IsAnswered(1));
  EXPECT_EQ(responses_.all[0].payload, "late");
  EXPECT_EQ(asker_.Ask(key_, server_, "again"), 0u);
  EXPECT_TRUE(asker_.HasSession());
  EXPECT_TRUE(HasAsked(2));
}

TEST_F(TwoRpc, ServerThatIsAwayForASecond_GetsTheRetransmission) {
  server_.Detach(key_);
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  Steps(10);
  server_.Attach(key_);
  ASSERT_TRUE(HasAsked(1));
  EXPECT_EQ(Answer(0, "back"), 0u);
  ASSERT_TRUE(IsAnswered(1));
  Steps(300);
  EXPECT_EQ(app_.requests.size(), 1u);
}

TEST_F(TwoRpc, AskerThatIsAwayForASecond_GetsTheAnswerRepeated) {
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(HasAsked(1));
  asker_.Detach(answerKey_);
  EXPECT_EQ(Answer(0, "pong"), 0u);
  Steps(10);
  EXPECT_TRUE(responses_.all.empty());
  asker_.Attach(answerKey_);
  ASSERT_TRUE(IsAnswered(1));
  Steps(300);
  EXPECT_EQ(responses_.all.size(), 1u);
}

TEST_F(TwoRpc, AskerThatStoodStill_FindsItsAnswer) {
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(HasAsked(1));
  EXPECT_EQ(Answer(0, "pong"), 0u);
  for (int i = 0; i < 100; ++i) server_.Host().AdvanceMs(kTickMs);
  ASSERT_TRUE(IsAnswered(1));
  EXPECT_EQ(responses_.all[0].payload, "pong");
}

TEST_F(TwoRpc, ServerThatRestarts_AnswersAgain) {
  EXPECT_EQ(asker_.Ask(key_, server_, "before"), 0u);
  ASSERT_TRUE(HasAsked(1));
  server_.Stop();
  app_ = App();
  server_.Start();
  server_.ServeAsync(key_, &app_);
  EXPECT_EQ(asker_.Ask(key_, server_, "after"), 0u);
  ASSERT_TRUE(HasAsked(1));
  EXPECT_EQ(app_.requests[0].payload, "after");
  EXPECT_EQ(Answer(0, "pong"), 0u);
  EXPECT_TRUE(IsAnswered(1));
}

TEST_F(TwoRpc, AnswerEntryDetachedInsideOnResponse_IsSafe) {
  app_.onAsync = [this](void *) { Answer(app_.handles.size() - 1, "pong"); };
  responses_.onPayload = [this](const std::string &) { asker_.Detach(answerKey_); };
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(IsAnswered(1));
  Steps(20);
  asker_.Attach(answerKey_);
  EXPECT_EQ(asker_.Ask(key_, server_, "again"), 0u);
  ASSERT_TRUE(IsAnswered(2));
  Steps(1000);
}

TEST_F(TwoRpc, EntryDetachedInsideItsCallback_IsSafeAndTheCallUnanswered) {
  app_.onAsync = [this](void *) { server_.Detach(key_); };
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(HasAsked(1));
  Steps(20);
  EXPECT_EQ(Answer(0, "pong"), 0u);
  Steps(20);
  EXPECT_EQ(Answer(0, "pong"), 1900001302u);
  EXPECT_TRUE(responses_.all.empty());
  app_.onAsync = nullptr;
  server_.Attach(key_);
  EXPECT_EQ(asker_.Ask(key_, server_, "again"), 0u);
  ASSERT_TRUE(HasAsked(2));
  EXPECT_EQ(Answer(1, "pong"), 0u);
  EXPECT_TRUE(IsAnswered(1));
}

// The one URI whose calls are BROADCAST and whose answers come through the DEFAULT entry.
TEST_F(TwoRpc, DynamicMac_IsAnsweredThroughTheDefaultEntry) {
  const CoapRpcUriKey key = KeyOf("terminals/dynamic-mac");
  const CoapRpcUriKey call = KeyOf("terminals/dynamic-mac", COAP_RPC_CON, 0, COAP_RPC_BROADCAST);
  asker_.Register(call, &responses_);
  asker_.ServeAsync(key, nullptr);
  server_.ServeAsync(key, &app_);
  app_.onAsync = [this](void *) { Answer(app_.handles.size() - 1, "mac"); };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(asker_.Ask(call, server_, "who"), 0u);
  ASSERT_TRUE(IsAnswered(3));
  EXPECT_EQ(responses_.all[2].payload, "mac");
}

TEST_F(TwoRpc, MemoryReturnsToWhereItWas) {
  app_.onAsync = [this](void *) { Answer(app_.handles.size() - 1, "pong"); };
  EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(IsAnswered(1));
  Steps(4000);  // sessions and repetitions are forgotten
  const uint64_t askerBlocks = asker_.Host().Pool().LiveCount();
  const uint64_t serverBlocks = server_.Host().Pool().LiveCount();
  for (int i = 0; i < 500; ++i) EXPECT_EQ(asker_.Ask(key_, server_, "ping"), 0u);
  ASSERT_TRUE(IsAnswered(501));
  Steps(4000);
  EXPECT_EQ(asker_.Host().Pool().LiveCount(), askerBlocks);
  EXPECT_EQ(server_.Host().Pool().LiveCount(), serverBlocks);
}

TEST_F(TwoRpc, StoppedInMidTransfer_IsCleanInEitherOrder) {
  for (Side *first : {&asker_, &server_}) {
    Side *second = first == &asker_ ? &server_ : &asker_;
    EXPECT_EQ(asker_.Ask(key_, server_, "small"), 0u);
    EXPECT_EQ(asker_.Ask(key_, server_, std::string(60'000, 'q'), 16), 0u);
    ASSERT_TRUE(HasAsked(1));
    EXPECT_EQ(Answer(0, std::string(60'000, 'a')), 0u);
    Steps(5);
    EXPECT_TRUE(responses_.all.empty());
    first->Stop();
    for (int i = 0; i < 50; ++i) second->Host().AdvanceMs(kTickMs);
    second->Stop();
    app_ = App();
    for (Side *side : {first, second}) side->Start();
    asker_.Register(key_, &responses_);
    asker_.ServeAsync(answerKey_, nullptr);
    server_.ServeAsync(key_, &app_);
  }
}

}  // namespace
}  // namespace coap_rpc_test
