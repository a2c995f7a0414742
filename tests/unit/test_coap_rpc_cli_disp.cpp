/* test_coap_rpc_cli_disp.cpp: what an operator sees of the client tables. */
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "coap_svc/rpc/client/coap_rpc_cli_disp.h"
#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

using Pages = std::vector<std::string>;

constexpr uint32_t kNumMany = 10'000;

CoapRpcCliAddr Peer(uint32_t dstIp, uint32_t dstPort) {
  CoapRpcCliAddr addr = {};
  addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = 0x7F000001;
  addr.dstIp.addr.ipv4 = dstIp;
  addr.dstPort = dstPort;
  addr.codeType = COAP_RPC_POST;
  return addr;
}

class CliDisp : public testing::Test {
 protected:
  CliDisp() {
    ctx_.param.memHandle = host_.Mem();
    ctx_.param.tmrHandle = host_.Tmr();
    ctx_.param.dispHandle = host_.Disp();
    ctx_.log = host_.Log();
    ctx_.nameStr = name_;
    ctx_.cli = &cli_;
    cli_.owner = &ctx_;
    KST_DispRegObj(host_.Disp(), name_, &ctx_);
    COAP_RpcCliVtblInit(&cli_);
    COAP_RpcCliSessionInit(&cli_);
    COAP_RpcCliReqInit(&cli_);
    COAP_RpcCliUriInit(&cli_);
    COAP_RpcCliDispInit(&cli_);
  }
  ~CliDisp() override {
    COAP_RpcCliDispUninit(&cli_);
    COAP_RpcCliUriUninit(&cli_);
    COAP_RpcCliReqUninit(&cli_);
    COAP_RpcCliSessionUninit(&cli_);
    KST_DispUnregObj(host_.Disp(), name_);
    EXPECT_TRUE(host_.Pool().Violations().empty());
  }

  CoapRpcCliUriVtbl *AddUri(const CoapRpcUriKey &key, uint32_t payloadFormat = COAP_RPC_JSON) {
    CoapRpcCliVtblReg reg = {};
    reg.payloadFormat = payloadFormat;
    return COAP_RpcCliAddUriVtbl(&cli_, &key, &reg);
  }

  CoapRpcCliReqData *AddReq(const std::string &uri, const std::string &reqKeyRsv = "") {
    CoapRpcCliReqKey key = {};
    key.uri = KeyOf(uri.c_str());
    memcpy(key.param.reqKeyRsv, reqKeyRsv.data(), reqKeyRsv.size());
    const CoapRpcCliAddr addr = Peer(0x0A000001, 5683);
    return COAP_RpcCliAddReqData(&cli_, &key, &addr);
  }

  CoapRpcCliSession *AddSession(uint32_t dstIp, uint32_t dstPort) {
    const CoapRpcCliAddr addr = Peer(dstIp, dstPort);
    return COAP_RpcCliAddSession(&cli_, nullptr, &addr);
  }

  std::string ReqText(const CoapRpcCliReqData *req) {
    char text[1024];
    EXPECT_EQ(COAP_RpcGetCliReqDataStr_(&cli_, req, text, sizeof(text)), text);
    return text;
  }

  TestHost host_;
  CoapRpcCtx ctx_ = {};
  CoapRpcCliData cli_ = {};
  char name_[5] = "inst";
};

TEST_F(CliDisp, Init_RegistersThreeCommandsInOrder) {
  const std::vector<DispCommand> &commands = host_.Display().Commands();
  ASSERT_EQ(commands.size(), 3u);
  EXPECT_EQ(commands[0].handlerName, "COAP_RpcDispCliVtbl_");
  EXPECT_EQ(commands[0].command, "disp client uriVtbl");
  EXPECT_EQ(commands[0].paramNames, Pages{});
  EXPECT_EQ(commands[1].handlerName, "COAP_RpcDispCliRequest_");
  EXPECT_EQ(commands[1].command, "disp client request");
  EXPECT_EQ(commands[1].paramNames, Pages{"uniStartIndex"});
  EXPECT_EQ(commands[2].handlerName, "COAP_RpcDispCliSession_");
  EXPECT_EQ(commands[2].command, "disp client session");
  EXPECT_EQ(commands[2].paramNames, Pages{"uniStartIndex"});
  for (const DispCommand &command : commands) {
    EXPECT_EQ(command.flags, 128u);
    EXPECT_EQ(command.objName, "inst");
  }
  EXPECT_TRUE(host_.HasLog("[CoapRpc]\n"));
}

TEST_F(CliDisp, Init_EveryRegistrationFails_Gives0) {
  host_.Display().FuncFailures().FailFrom(1);
  EXPECT_EQ(COAP_RpcCliDispInit(&cli_), 0u);
  EXPECT_EQ(host_.Display().FuncFailures().NumFailed(), 3u);
}

TEST_F(CliDisp, Uninit_GivesTheLowHalfOfItsArgument) {
  EXPECT_EQ(COAP_RpcCliDispUninit(reinterpret_cast<void *>(uintptr_t{0x123456789ABCDEF0})),
            0x9ABCDEF0u);
  EXPECT_EQ(COAP_RpcCliDispUninit(nullptr), 0u);
}

TEST_F(CliDisp, EmptyTables_PrintOnlyTheTotal) {
  EXPECT_EQ(host_.RunCommand("disp client uriVtbl"),
            (Pages{" ***total 0 client uriVtbl(s) ***\n"}));
  EXPECT_EQ(host_.RunCommand("disp client request", 0u),
            (Pages{" ***total 0 client request(s) ***\n"}));
  EXPECT_EQ(host_.RunCommand("disp client session", 7u),
            (Pages{" ***total 0 client session(s) ***\n"}));
}

TEST_F(CliDisp, NoClientSide_PrintsOnlyTheTotal) {
  AddUri(KeyOf("a"));
  ctx_.cli = nullptr;
  EXPECT_EQ(host_.RunCommand("disp client uriVtbl"),
            (Pages{" ***total 0 client uriVtbl(s) ***\n"}));
  ctx_.cli = &cli_;
}

TEST_F(CliDisp, Uris_AreNumberedAndCounted) {
  CoapRpcUriKey key = KeyOf("b");
  key.msgType = 1;
  key.observe = 1;
  key.pktType = 1;
  AddUri(key, 2);
  AddUri(KeyOf("a"));
  EXPECT_EQ(host_.RunCommand("disp client uriVtbl"),
            (Pages{"client Vtbl[  0]: uri(a)/msgType(CON)/observe(0)/pktType(DEFAULT)/"
                   "payloadFormat(JSON)\n",
                   "client Vtbl[  1]: uri(b)/msgType(NON)/observe(1)/pktType(BROADCAST)/"
                   "payloadFormat(BYTE)\n",
                   " ***total 2 client uriVtbl(s) ***\n"}));
}

TEST_F(CliDisp, PayloadFormat_HasAll32Bits) {
  CoapRpcCliUriVtbl *uriVtbl = AddUri(KeyOf("a"));
  for (const uint32_t format : {0u, 3u, 255u, 256u, 257u, 0xFFFFFF01u}) {
    uriVtbl->reg.payloadFormat = format;
    char text[128];
    EXPECT_EQ(COAP_RpcGetCliUriVtblStr_(uriVtbl, text, sizeof(text)), text);
    EXPECT_STREQ(text,
                 "uri(a)/msgType(CON)/observe(0)/pktType(DEFAULT)/payloadFormat(__unknown__)");
  }
}

TEST_F(CliDisp, HostileUris_ArePrintedAsTheyAre) {
  CoapRpcUriKey key = {};
  memset(key.uri, 'u', sizeof(key.uri));
  AddUri(key);
  AddUri(KeyOf("%s%n\x1b\n"));
  const Pages pages = host_.RunCommand("disp client uriVtbl");
  ASSERT_EQ(pages.size(), 3u);
  EXPECT_EQ(pages[0].substr(0, 31), "client Vtbl[  0]: uri(%s%n\x1b\n)/m");
  EXPECT_EQ(pages[1], "client Vtbl[  1]: uri(" + std::string(64, 'u') +
                          ")/msgType(CON)/observe(0)/pktType(DEFAULT)/payloadFormat(JSON)\n");
}

TEST_F(CliDisp, Request_AllZero_ShowsSingleZeroDigits) {
  AddReq("a");
  EXPECT_EQ(host_.RunCommand("disp client request", 0u),
            (Pages{"client request[  0]: uri(a)/msgType(CON)/observe(0)/pktType(DEFAULT)/mid(0)/"
                   "reSnd(0)/Tout(0)/reqKeyRsv(0000000000000000)/codeType(POST)/"
                   "resendTimer(Idle)/resndLstEmpty(1)/token(00000000)\n",
                   " ***total 1 client request(s) ***\n"}));
}

TEST_F(CliDisp, Request_Values) {
  CoapRpcCliReqData *req = AddReq(
      "a", std::string("\x0a\x00\xff\x10\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0b\x80\x0f", 16));
  req->mid = -1;
  req->reSnd = 4294967295;
  req->Tout = 2;
  req->codeType = COAP_RPC_GET;
  memcpy(req->token, "\xfe\x01\x00\x20\x03\x0c\x0d\xa0", 8);
  EXPECT_EQ(ReqText(req),
            "uri(a)/msgType(CON)/observe(0)/pktType(DEFAULT)/mid(-1)/reSnd(4294967295)/Tout(2)/"
            "reqKeyRsv(a0ff10123456789b80f)/codeType(GET)/resendTimer(Idle)/resndLstEmpty(1)/"
            "token(fe10203cda0)");
}

TEST_F(CliDisp, Request_ShowsTheClientsTimerAndList) {
  CoapRpcCliReqData *shown = AddReq("a");
  CoapRpcCliReqData *queued = AddReq("b");
  cli_.resendList.next = cli_.resendList.prev = &queued->resendLink;
  queued->resendLink = {&cli_.resendList, &cli_.resendList};
  cli_.resendTimer = 5;
  const std::string text = ReqText(shown);
  cli_.resendTimer = 0;
  EXPECT_NE(text.find("/resendTimer(Running)/resndLstEmpty(0)/"), std::string::npos) << text;
}

TEST_F(CliDisp, Request_HostileUri_IsPrintedAsItIsAndPassed) {
  AddReq(std::string(64, 'u'));
  AddReq("%s%n\x1b\n");
  const Pages pages = host_.RunCommand("disp client request", 0u);
  ASSERT_EQ(pages.size(), 3u);
  EXPECT_EQ(pages[0].substr(0, 34), "client request[  0]: uri(%s%n\x1b\n)/m");
  EXPECT_EQ(pages[1].substr(0, 104),
            "client request[  1]: uri(" + std::string(64, 'u') + ")/msgType(CON)/");
}

TEST_F(CliDisp, Request_UnknownCode) {
  CoapRpcCliReqData *req = AddReq("a");
  req->codeType = 9;
  EXPECT_NE(ReqText(req).find("/codeType(__unknown__)/"), std::string::npos);
}

TEST_F(CliDisp, Session_Values) {
  CoapRpcCliSession *session = AddSession(0x0A000002, 5683);
  EXPECT_EQ(host_.RunCommand("disp client session", 0u),
            (Pages{"client session[  0]: srcIp(127.0.0.1)/dstIp(10.0.0.2)/dstPort(5683)/"
                   "coapSessionIsNull(1)/uriDataListIsEmpty(1)/agingTick(90)/"
                   "agingTimer(Running)/ConMsgStatistic(0)/NonMsgStatistic(0)\n",
                   " ***total 1 client session(s) ***\n"}));

  CoapRpcCliReqData *req = AddReq("a");
  COAP_RpcCliReqBindSession(&cli_, session, req);
  session->coapSession = reinterpret_cast<coap_session_t *>(&ctx_);
  session->agingTick = 3;
  session->msgStatistic[0] = 4;
  session->msgStatistic[1] = 5;
  session->msgStatistic[2] = 6;
  const uint64_t timer = cli_.agingTimer;
  cli_.agingTimer = 0;
  char text[1024];
  EXPECT_EQ(COAP_RpcGetCliSessionStr_(&cli_, session, text, sizeof(text)), text);
  EXPECT_STREQ(text,
               "srcIp(127.0.0.1)/dstIp(10.0.0.2)/dstPort(5683)/coapSessionIsNull(0)/"
               "uriDataListIsEmpty(0)/agingTick(3)/agingTimer(Idle)/ConMsgStatistic(4)/"
               "NonMsgStatistic(5)");
  cli_.agingTimer = timer;
  session->coapSession = nullptr;
}

TEST_F(CliDisp, StartIndex_SkipsLinesButCountsAll) {
  for (uint32_t port = 1; port <= 4; ++port) AddSession(0x0A000001, port);
  const Pages pages = host_.RunCommand("disp client session", 2u);
  ASSERT_EQ(pages.size(), 5u);
  EXPECT_EQ(pages[0], "");
  EXPECT_EQ(pages[1], "");
  EXPECT_EQ(pages[2].substr(0, 20), "client session[  2]:");
  EXPECT_EQ(pages[3].substr(0, 20), "client session[  3]:");
  EXPECT_EQ(pages[4], " ***total 4 client session(s) ***\n");
}

TEST_F(CliDisp, StartIndex_PastTheEnd_PrintsOnlyTheTotal) {
  AddReq("a");
  AddReq("b");
  for (const uint32_t startIndex : {2u, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(host_.RunCommand("disp client request", startIndex),
              (Pages{"", "", " ***total 2 client request(s) ***\n"}));
  }
}

TEST_F(CliDisp, Requests_OfOneUriArePagedByTheirWholeKey) {
  AddReq("a", "2");
  AddReq("a", "1");
  AddReq("a", "3");
  const Pages pages = host_.RunCommand("disp client request", 0u);
  ASSERT_EQ(pages.size(), 4u);
  EXPECT_NE(pages[0].find("/reqKeyRsv(31000"), std::string::npos);
  EXPECT_NE(pages[1].find("/reqKeyRsv(32000"), std::string::npos);
  EXPECT_NE(pages[2].find("/reqKeyRsv(33000"), std::string::npos);
}

TEST_F(CliDisp, Position_IsTheWholeKeyAndAFourByteCounter) {
  const std::string one("\1\0\0\0", 4);
  const TestDisp &disp = host_.Display();
  const CoapRpcCliUriVtbl *uriVtbl = AddUri(KeyOf("a"));
  host_.InvokeOnce("disp client uriVtbl");
  EXPECT_EQ(disp.SavedKey(), std::string(reinterpret_cast<const char *>(&uriVtbl->key), 76));
  EXPECT_EQ(disp.SavedCounter(), one);
  host_.InvokeOnce("disp client uriVtbl");
  EXPECT_FALSE(disp.HasContext());

  const CoapRpcCliReqData *req = AddReq("a", "0123456789abcdef");
  host_.InvokeOnce("disp client request", 7u);  // walked and counted, not printed
  EXPECT_EQ(disp.SavedKey(), std::string(reinterpret_cast<const char *>(&req->key), 112));
  EXPECT_EQ(disp.SavedCounter(), one);
  host_.InvokeOnce("disp client request", 7u);

  const CoapRpcCliSession *session = AddSession(0x0A000002, 5683);
  host_.InvokeOnce("disp client session", 0u);
  EXPECT_EQ(disp.SavedKey(), std::string(reinterpret_cast<const char *>(&session->key), 44));
  EXPECT_EQ(disp.SavedCounter(), one);
  host_.InvokeOnce("disp client session", 0u);
  EXPECT_FALSE(disp.HasContext());
}

TEST_F(CliDisp, RecordsRemovedAndAddedBetweenPages) {
  AddSession(0x0A000001, 10);
  CoapRpcCliSession *gone = AddSession(0x0A000001, 20);
  AddSession(0x0A000001, 30);
  host_.InvokeOnce("disp client session", 0u);
  COAP_RpcCliTryDelSession(&cli_, gone);
  AddSession(0x0A000001, 5);
  AddSession(0x0A000001, 25);
  EXPECT_NE(host_.InvokeOnce("disp client session", 0u).find("/dstPort(25)/"), std::string::npos);
  EXPECT_NE(host_.InvokeOnce("disp client session", 0u).find("/dstPort(30)/"), std::string::npos);
  EXPECT_EQ(host_.InvokeOnce("disp client session", 0u), " ***total 3 client session(s) ***\n");
}

TEST_F(CliDisp, TenThousandChangingRequests_AreWalkedToTheEnd) {
  ctx_.log = 0;
  std::vector<CoapRpcCliReqData *> reqs;
  for (uint32_t i = 0; i < kNumMany; ++i) reqs.push_back(AddReq(std::to_string(100'000 + i)));
  uint32_t numLines = 0;
  std::string page = host_.InvokeOnce("disp client request", 0u);
  while (host_.Display().HasContext()) {
    ASSERT_NE(page.find("uri(" + std::to_string(100'000 + numLines) + ")"), std::string::npos);
    COAP_RpcCliDelReqData(&cli_, reqs[numLines++]);
    page = host_.InvokeOnce("disp client request", 0u);
  }
  EXPECT_EQ(numLines, kNumMany);
  EXPECT_EQ(page, " ***total 10000 client request(s) ***\n");
}

TEST_F(CliDisp, Texts_AreCutAtTheBuffer) {
  char buf[8];
  EXPECT_EQ(COAP_RpcGetCliUriVtblStr_(AddUri(KeyOf("long")), buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "uri(lon");
  EXPECT_EQ(COAP_RpcGetCliReqDataStr_(&cli_, AddReq("long"), buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "uri(lon");
  EXPECT_EQ(COAP_RpcGetCliSessionStr_(&cli_, AddSession(0x0A000001, 1), buf, 1), buf);
  EXPECT_STREQ(buf, "");
}

}  // namespace
}  // namespace coap_rpc_test
