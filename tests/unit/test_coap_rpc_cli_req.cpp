// Client requests: records, binding, and what a call does with them.
#include "coap_svc/rpc/client/coap_rpc_cli_req.h"

#include "cli_fixture.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::LinkIsAlone;

class CliReq : public CliFixture {
 protected:
  uint32_t Call(const CoapRpcUriKey &key, const CoapRpcCliReqParam &param,
                const CoapRpcCliAddr &addr) {
    return COAP_RpcCliReq(&ctx_, &key, &param, &addr);
  }
  uint32_t UnReq(const CoapRpcUriKey &key, const CoapRpcCliReqParam &param,
                 const CoapRpcCliAddr &addr) {
    return COAP_RpcCliUnReq(&ctx_, &key, &param, &addr);
  }
  CoapRpcCliReqData *Add(const CoapRpcUriKey &key, const CoapRpcCliReqParam &param) {
    const CoapRpcCliReqKey reqKey = ReqKeyOf(key, param);
    const CoapRpcCliAddr addr = AddrOf();
    return COAP_RpcCliAddReqData(cli_, &reqKey, &addr);
  }

  uint8_t bytes_[4] = {1, 2, 0, 4};
};

TEST_F(CliReq, Cmp_OrdersByUriKeyUserDataPayloadPointerAndDiscriminator) {
  uint8_t two[2];
  const CoapRpcCliReqKey base = ReqKeyOf(KeyOf("b"), ParamOf(5));
  CoapRpcCliReqKey uri = ReqKeyOf(KeyOf("c"), ParamOf(1));
  CoapRpcCliReqKey user = ReqKeyOf(KeyOf("b"), ParamOf(0x8000000000000000));
  CoapRpcCliReqKey payload = base;
  payload.param.payload = two;
  CoapRpcCliReqKey rsv = base;
  rsv.param.reqKeyRsv[15] = 1;
  for (const CoapRpcCliReqKey &greater : {uri, user, payload, rsv}) {
    EXPECT_EQ(COAP_RpcCliReqCmp_(&base, &greater), -1);
    EXPECT_EQ(COAP_RpcCliReqCmp_(&greater, &base), 1);
  }
  CoapRpcCliReqKey len = base;
  len.param.payloadLen = 9;  // not compared
  EXPECT_EQ(COAP_RpcCliReqCmp_(&base, &len), 0);
  CoapRpcCliReqKey next = payload;
  next.param.payload = two + 1;
  EXPECT_EQ(COAP_RpcCliReqCmp_(&payload, &next), -1);
}

TEST_F(CliReq, Add_CopiesThePayloadWithATerminator) {
  CoapRpcCliReqParam param = ParamOf(1);
  param.payload = bytes_;
  param.payloadLen = 4;
  CoapRpcCliReqData *req = Add(KeyOf("a"), param);
  ASSERT_NE(req, nullptr);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]cli create req success, uri:a, msgType:0, observe:0, pktType:0.\n"));
  const uint8_t *copy = req->key.param.payload;
  EXPECT_NE(copy, bytes_);
  EXPECT_EQ(memcmp(copy, "\1\2\0\4\0", 5), 0);
  EXPECT_EQ(uint32_t{req->key.param.payloadLen}, 4U);
  EXPECT_TRUE(LinkIsAlone(req->sessionLink));
  EXPECT_TRUE(LinkIsAlone(req->resendLink));
  EXPECT_EQ(req->session, nullptr);
  EXPECT_EQ(req->tokenLen, 0U);
  EXPECT_EQ(req->mode, 0U);
}

TEST_F(CliReq, AddWithHalfAPayload_StoresNone) {
  CoapRpcCliReqParam onlyPointer = ParamOf(1);
  onlyPointer.payload = bytes_;
  CoapRpcCliReqParam onlyLen = ParamOf(2);
  onlyLen.payloadLen = 7;
  for (const CoapRpcCliReqParam &param : {onlyPointer, onlyLen}) {
    CoapRpcCliReqData *req = Add(KeyOf("a"), param);
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(static_cast<uint8_t *>(req->key.param.payload), nullptr);
    EXPECT_EQ(uint32_t{req->key.param.payloadLen}, 0U);
  }
}

TEST_F(CliReq, PointerWithoutLengthTwice_SecondGives1900001102) {
  CoapRpcCliReqParam param = ParamOf(1);
  param.payload = bytes_;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(key, param, AddrOf()), 0U);
  // The stored key has no payload: the call's does not find it, and collides with it on insert.
  EXPECT_EQ(Call(key, param, AddrOf()), 1900001102U);
  EXPECT_EQ(NumReqs(), 1U);
}

TEST_F(CliReq, LengthWithoutPointerTwice_FindsTheRecord) {
  CoapRpcCliReqParam param = ParamOf(1);
  param.payloadLen = 7;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(key, param, AddrOf()), 0U);
  EXPECT_EQ(Call(key, param, AddrOf()), 0U);
  EXPECT_EQ(NumReqs(), 1U);
}

TEST_F(CliReq, AddWithoutMemory_GivesNullAndLeaksNothing) {
  CoapRpcCliReqParam param = ParamOf(1);
  param.payload = bytes_;
  param.payloadLen = 4;
  const uint64_t numLive = host_.Pool().LiveCount();
  for (const uint64_t n : {1U, 2U}) {
    host_.Pool().Failures().FailOnce(n);
    EXPECT_EQ(Add(KeyOf("a"), param), nullptr);
    EXPECT_EQ(host_.Pool().LiveCount(), numLive);
  }
}

TEST_F(CliReq, AddOfAPayloadThatNoPoolHolds_GivesNull) {
  CoapRpcCliReqParam param = ParamOf(1);
  param.payload = bytes_;
  param.payloadLen = 0xFFFFFFFF;  // refused before a byte of it is read
  EXPECT_EQ(Add(KeyOf("a"), param), nullptr);
}

TEST_F(CliReq, AddOfAPresentKey_GivesNullAndLeaksNothing) {
  ASSERT_NE(Add(KeyOf("a"), ParamOf(1)), nullptr);
  const uint64_t numLive = host_.Pool().LiveCount();
  EXPECT_EQ(Add(KeyOf("a"), ParamOf(1)), nullptr);
  EXPECT_EQ(host_.Pool().LiveCount(), numLive);
}

TEST_F(CliReq, ReqPayload_FillsARecordAndFreesItsCopy) {
  CoapRpcCliReqData req = {};
  CoapRpcCliReqParam param = ParamOf(1);
  param.payload = bytes_;
  param.payloadLen = 4;
  const CoapRpcCliReqKey key = ReqKeyOf(KeyOf("a"), param);
  CoapRpcCliAddr addr = AddrOf();
  addr.codeType = COAP_RPC_PUT;
  addr.reqRsv[3] = 7;
  EXPECT_EQ(COAP_RpcCliReqPayload(cli_, &req, &key, &addr), 0U);
  EXPECT_EQ(req.codeType, 3U);
  EXPECT_EQ(req.reqRsv[3], 7);
  EXPECT_EQ(memcmp(req.key.param.payload, bytes_, 4), 0);
  COAP_RpcCliReqPayloadFree(cli_, &req);
  EXPECT_EQ(static_cast<uint8_t *>(req.key.param.payload), nullptr);
  COAP_RpcCliReqPayloadFree(cli_, &req);
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcCliReqPayload(cli_, &req, &key, &addr), 1900001106U);
  EXPECT_EQ(static_cast<uint8_t *>(req.key.param.payload), nullptr);
}

TEST_F(CliReq, PlainCon_IsSentAtOnceAndForgotten) {
  EXPECT_EQ(Call(KeyOf("a"), ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(adapter_.calls, (std::vector<std::string>{"flag", "create", "send"}));
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]req bind session success, uri:a, msgType:0, observe:0, pktType:0.\n"));
  EXPECT_EQ(NumReqs(), 0U);
  const CoapRpcCliSession *session = SessionOf(AddrOf());
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->msgStatistic[0], 1U);
  EXPECT_FALSE(LinkIsAlone(session->agingLink));  // idle again
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliReq, MessageTypes_CountInTheirOwnCounter) {
  for (const uint32_t msgType : {0U, 1U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
    EXPECT_EQ(Call(KeyOf("a", msgType), ParamOf(1), AddrOf()), 0U);
  }
  const CoapRpcCliSession *session = SessionOf(AddrOf());
  EXPECT_EQ(session->msgStatistic[0], 1U);
  EXPECT_EQ(session->msgStatistic[1], 2U);
  EXPECT_EQ(session->msgStatistic[2], 1U);
  EXPECT_EQ(session->msgStatistic[3], 1U);
}

TEST_F(CliReq, SecondRequest_UsesTheOpenSession) {
  EXPECT_EQ(Call(KeyOf("a"), ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(Call(KeyOf("b"), ParamOf(2), AddrOf()), 0U);
  EXPECT_EQ(adapter_.created.size(), 1U);
  EXPECT_EQ(adapter_.created[0].dstPort, 5683U);
  EXPECT_EQ(adapter_.sends.size(), 2U);
}

TEST_F(CliReq, SessionThatCannotBeOpened_IsTriedAgainByTheNextAttempt) {
  adapter_.createFails = true;
  adapter_.decide = [this](CoapRpcCliReqData *) {
    return adapter_.sends.back().hasCoapSession ? 0U : 1U;
  };
  EXPECT_EQ(Call(KeyOf("a"), ParamOf(1), AddrOf()), 1900001103U);
  EXPECT_EQ(adapter_.sends.size(), 1U);  // the send itself reports the missing session
  adapter_.createFails = false;
  host_.AdvanceMs(1001);
  EXPECT_EQ(adapter_.created.size(), 2U);
  EXPECT_EQ(NumReqs(), 0U);
}

TEST_F(CliReq, PlainNonThatFails_IsKeptUnqueued) {
  adapter_.sendResult = 1;
  EXPECT_EQ(Call(KeyOf("a", COAP_RPC_NON), ParamOf(1), AddrOf()), 1900001103U);
  const std::vector<LogRecord> lines = host_.LogsOf("COAP_RpcTrySendReq");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, "[CoapRpc]req sendFail, uri:a, msgType:1, observe:0, pktType:0.\n");
  EXPECT_EQ(lines[0].level, 3U);
  EXPECT_EQ(lines[0].line, 1061U);
  CoapRpcCliReqData *req = ReqOf(KeyOf("a", COAP_RPC_NON), ParamOf(1));
  ASSERT_NE(req, nullptr);
  EXPECT_TRUE(LinkIsAlone(req->resendLink));
  EXPECT_EQ(req->reSnd, 1U);
  EXPECT_EQ(cli_->resendTimer, 0U);
  EXPECT_EQ(SessionOf(AddrOf())->msgStatistic[1], 0U);
}

TEST_F(CliReq, PlainConThatFails_IsQueuedAndRetriedUntilItGoesOut) {
  adapter_.sendResult = 1;
  EXPECT_EQ(Call(KeyOf("a"), ParamOf(1), AddrOf()), 1900001103U);
  EXPECT_NE(cli_->resendTimer, 0U);
  host_.AdvanceMs(1001);
  host_.AdvanceMs(1001);
  EXPECT_EQ(adapter_.sends.size(), 3U);
  EXPECT_EQ(ReqOf(KeyOf("a"), ParamOf(1))->reSnd, 3U);
  adapter_.sendResult = 0;
  host_.AdvanceMs(1001);
  EXPECT_EQ(NumReqs(), 0U);
  EXPECT_EQ(cli_->resendTimer, 0U);
  host_.AdvanceMs(5000);
  EXPECT_EQ(adapter_.sends.size(), 4U);
}

TEST_F(CliReq, ObserveNon_IsRecordedAndNeverSent) {
  EXPECT_EQ(Call(KeyOf("a", COAP_RPC_NON, 1), ParamOf(1), AddrOf()), 0U);
  host_.AdvanceMs(10'000);
  EXPECT_EQ(adapter_.calls, (std::vector<std::string>{"refresh"}));
  EXPECT_NE(ReqOf(KeyOf("a", COAP_RPC_NON, 1), ParamOf(1)), nullptr);
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliReq, ObserveCon_GoesOutWithTheNextTickAndStays) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(adapter_.calls, (std::vector<std::string>{"refresh"}));
  host_.AdvanceMs(1000);
  EXPECT_TRUE(adapter_.sends.empty());
  host_.AdvanceMs(1);
  EXPECT_EQ(adapter_.sends.size(), 1U);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]req resend, uri:a, msgType:0, observe:1, pktType:0.\n"));
  CoapRpcCliReqData *req = ReqOf(key, ParamOf(1));
  ASSERT_NE(req, nullptr);
  EXPECT_TRUE(LinkIsAlone(req->resendLink));
  EXPECT_EQ(cli_->resendTimer, 0U);
  EXPECT_EQ(req->session->msgStatistic[0], 1U);
}

TEST_F(CliReq, ObserveRepeatedBeforeItsTick_IsQueuedOnce) {
  const CoapRpcUriKey first = KeyOf("a", COAP_RPC_CON, 1);
  const CoapRpcUriKey second = KeyOf("b", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(first, ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(Call(second, ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(Call(first, ParamOf(1), AddrOf()), 0U);  // moves to the tail
  host_.AdvanceMs(1001);
  ASSERT_EQ(adapter_.sends.size(), 2U);
  EXPECT_EQ(adapter_.sends[0].uri, "b");
  EXPECT_EQ(adapter_.sends[1].uri, "a");
}

TEST_F(CliReq, CallAgainWithoutPayload_UpdatesInPlace) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON, 1);
  CoapRpcCliAddr addr = AddrOf();
  EXPECT_EQ(Call(key, ParamOf(1), addr), 0U);
  addr.codeType = COAP_RPC_DELETE;
  addr.reqRsv[0] = 9;
  EXPECT_EQ(Call(key, ParamOf(1), addr), 0U);
  EXPECT_EQ(NumReqs(), 1U);
  EXPECT_EQ(ReqOf(key, ParamOf(1))->codeType, 4U);
  EXPECT_EQ(ReqOf(key, ParamOf(1))->reqRsv[0], 9);
  EXPECT_EQ(DebugLines("[CoapRpc]req bind session success").size(), 1U);
}

TEST_F(CliReq, CallAgainWithPayload_MakesASecondRecord) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON, 1);
  CoapRpcCliReqParam param = ParamOf(1);
  param.payload = bytes_;
  param.payloadLen = 4;
  EXPECT_EQ(Call(key, param, AddrOf()), 0U);
  EXPECT_EQ(Call(key, param, AddrOf()), 0U);
  EXPECT_EQ(NumReqs(), 2U);
}

TEST_F(CliReq, CallToAnotherPeer_MovesTheRecordAndAgesTheOldSession) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf(1, 2)), 0U);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf(1, 3)), 0U);
  EXPECT_EQ(NumReqs(), 1U);
  EXPECT_EQ(ReqOf(key, ParamOf(1))->session, SessionOf(AddrOf(1, 3)));
  EXPECT_FALSE(LinkIsAlone(SessionOf(AddrOf(1, 2))->agingLink));
  EXPECT_TRUE(LinkIsAlone(SessionOf(AddrOf(1, 3))->agingLink));
  host_.AdvanceMs(1001);
  EXPECT_EQ(adapter_.sends.size(), 1U);
}

TEST_F(CliReq, NoSession_Gives1900001101) {
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(Call(KeyOf("a"), ParamOf(1), AddrOf()), 1900001101U);
  EXPECT_TRUE(adapter_.calls.empty());
}

TEST_F(CliReq, NoRecord_Gives1900001102AndLeavesNoSession) {
  host_.Pool().Failures().FailOnce(2);
  EXPECT_EQ(Call(KeyOf("a"), ParamOf(1), AddrOf()), 1900001102U);
  EXPECT_EQ(NumSessions(), 0U);
}

TEST_F(CliReq, IsBindSession_ComparesTheWholeKeyAndTheSession) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON, 1);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf(1, 2)), 0U);
  EXPECT_EQ(Call(key, ParamOf(2), AddrOf(1, 3)), 0U);
  CoapRpcCliReqData *req = ReqOf(key, ParamOf(1));
  EXPECT_EQ(COAP_RpcCliReqIsBindSession(SessionOf(AddrOf(1, 2)), req), 1U);
  EXPECT_EQ(COAP_RpcCliReqIsBindSession(SessionOf(AddrOf(1, 3)), req), 0U);
  CoapRpcCliReqData other = {};
  other.key = req->key;  // a record of an equal key elsewhere
  EXPECT_EQ(COAP_RpcCliReqIsBindSession(SessionOf(AddrOf(1, 2)), &other), 1U);
  other.key.param.payloadLen = 1;
  EXPECT_EQ(COAP_RpcCliReqIsBindSession(SessionOf(AddrOf(1, 2)), &other), 0U);
}

TEST_F(CliReq, Unbind_TakesTheRecordOffBothLists) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf()), 0U);
  CoapRpcCliReqData *req = ReqOf(key, ParamOf(1));
  COAP_RpcCliReqUnbindSession(cli_, req);
  EXPECT_TRUE(LinkIsAlone(req->sessionLink));
  EXPECT_TRUE(LinkIsAlone(req->resendLink));
  EXPECT_EQ(req->session, nullptr);
  EXPECT_FALSE(LinkIsAlone(SessionOf(AddrOf())->agingLink));
}

TEST_F(CliReq, UnReq_CancelsAndFreesRecordAndSession) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf()), 0U);
  host_.AdvanceMs(1001);
  CoapRpcCliSession *session = SessionOf(AddrOf());
  adapter_.calls.clear();
  EXPECT_EQ(UnReq(key, ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(adapter_.calls, (std::vector<std::string>{"cancel", "delete"}));
  EXPECT_EQ(adapter_.cancelledAt, std::vector<CoapRpcCliSession *>{session});
  EXPECT_EQ(NumReqs(), 0U);
  EXPECT_EQ(NumSessions(), 0U);
  EXPECT_EQ(UnReq(key, ParamOf(1), AddrOf()), 0U);
}

TEST_F(CliReq, UnReqOfOneOfTwo_KeepsTheSession) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(Call(key, ParamOf(2), AddrOf()), 0U);
  EXPECT_EQ(UnReq(key, ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(NumSessions(), 1U);
  EXPECT_EQ(NumReqs(), 1U);
  host_.AdvanceMs(1001);
  ASSERT_EQ(adapter_.sends.size(), 1U);
  EXPECT_EQ(adapter_.sends[0].userData, 2U);
}

TEST_F(CliReq, UnReqOfUnknownOnes_Gives0) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(UnReq(key, ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(UnReq(key, ParamOf(2), AddrOf()), 0U);
  EXPECT_EQ(UnReq(key, ParamOf(1), AddrOf(1, 9)), 0U);
  EXPECT_EQ(NumReqs(), 1U);
  EXPECT_TRUE(adapter_.cancelledAt.empty());
}

TEST_F(CliReq, UnReqThroughAnotherPeersSession_CancelsAtTheRelationsOwn) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  EXPECT_EQ(Call(key, ParamOf(1), AddrOf(1, 2)), 0U);
  EXPECT_EQ(Call(key, ParamOf(2), AddrOf(1, 3)), 0U);
  EXPECT_EQ(UnReq(key, ParamOf(1), AddrOf(1, 3)), 0U);
  EXPECT_EQ(adapter_.cancelledAt, std::vector<CoapRpcCliSession *>{SessionOf(AddrOf(1, 2))});
  EXPECT_EQ(NumReqs(), 1U);
}

TEST_F(CliReq, SetReqMode_NeedsTheRecord) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf();
  EXPECT_EQ(COAP_RpcCliSetReqMode(&ctx_, &key, &param, &addr, 1), 1900001105U);
  EXPECT_EQ(Call(key, param, addr), 0U);
  EXPECT_EQ(COAP_RpcCliSetReqMode(&ctx_, &key, &param, &addr, 2), 0U);
  EXPECT_EQ(ReqOf(key, param)->mode, 2U);
}

TEST_F(CliReq, ResendRequest_CountsOnTheFirstRecordOfTheMid) {
  for (const uint64_t userData : {1U, 2U, 3U}) {
    EXPECT_EQ(Call(KeyOf("a", COAP_RPC_NON, 1), ParamOf(userData), AddrOf()), 0U);
    ReqOf(KeyOf("a", COAP_RPC_NON, 1), ParamOf(userData))->mid = userData == 1 ? 0 : 77;
  }
  const auto tout = [this](uint64_t userData) {
    return ReqOf(KeyOf("a", COAP_RPC_NON, 1), ParamOf(userData))->Tout;
  };
  COAP_RpcResendRequest(&ctx_, 77);
  COAP_RpcResendRequest(&ctx_, 77);
  COAP_RpcResendRequest(&ctx_, 78);
  EXPECT_EQ(tout(2), 2U);
  EXPECT_EQ(tout(3), 0U);
  COAP_RpcResendRequest(&ctx_, 0);  // a record that was never sent has the id 0
  EXPECT_EQ(tout(1), 1U);
}

TEST_F(CliReq, TrySendWithoutSession_DoesNothing) {
  CoapRpcCliReqData *req = Add(KeyOf("a"), ParamOf(1));
  EXPECT_EQ(COAP_RpcTrySendReq(&ctx_, nullptr, req), 0U);
  EXPECT_EQ(req->reSnd, 0U);
  EXPECT_TRUE(adapter_.calls.empty());
}

TEST_F(CliReq, TrySendThatFails_Gives1900001104) {
  EXPECT_EQ(Call(KeyOf("a", COAP_RPC_NON, 1), ParamOf(1), AddrOf()), 0U);
  CoapRpcCliReqData *req = ReqOf(KeyOf("a", COAP_RPC_NON, 1), ParamOf(1));
  adapter_.sendResult = 5;
  EXPECT_EQ(COAP_RpcTrySendReq(&ctx_, req->session, req), 1900001104U);
}

TEST_F(CliReq, UnwiredSlots_FailTheSendAndNothingElse) {
  cli_->createCliSession = nullptr;
  cli_->sendRequest = nullptr;
  cli_->cancelRequest = nullptr;
  cli_->refreshTaskTimer = nullptr;
  cli_->setSvcFlag = nullptr;
  EXPECT_EQ(Call(KeyOf("a"), ParamOf(1), AddrOf()), 1900001103U);
  EXPECT_EQ(Call(KeyOf("a", COAP_RPC_CON, 1), ParamOf(1), AddrOf()), 0U);
  EXPECT_EQ(UnReq(KeyOf("a", COAP_RPC_CON, 1), ParamOf(1), AddrOf()), 0U);
  cli_->deleteCliSession = nullptr;
}

TEST_F(CliReq, Uninit_FreesRecordsAndStopsTheTimer) {
  adapter_.sendResult = 1;
  Call(KeyOf("a"), ParamOf(1), AddrOf());
  Call(KeyOf("b", COAP_RPC_CON, 1), ParamOf(1), AddrOf());
  EXPECT_EQ(COAP_RpcCliReqUninit(cli_), 0U);
  EXPECT_EQ(NumReqs(), 0U);
  EXPECT_EQ(cli_->resendTimer, 0U);
  EXPECT_EQ(COAP_RpcCliReqUninit(cli_), 0U);
  EXPECT_EQ(COAP_RpcCliReqUninit(nullptr), 0U);
  CoapRpcCliData zeroed = {};
  EXPECT_EQ(COAP_RpcCliReqUninit(&zeroed), 0U);
  EXPECT_EQ(COAP_RpcCliSessionUninit(cli_), 0U);
  EXPECT_TRUE(TestHost::Process().Asserts().empty());
}

}  // namespace
}  // namespace coap_rpc_test
