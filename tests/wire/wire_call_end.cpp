// Ends of calls that no answer came to, turns on a session, and what may be done in a callback.
#include "client_calls.h"
#include "fd_host.h"
#include "libcoap_lists.h"

namespace coap_rpc_test {
namespace {

TEST_F(ClientCalls, Unacknowledged_IsATimeout) {
  Make(Get("a"));
  Wait(61'000);
  EXPECT_EQ(told_.size(), 0U);
  Wait(33'000);
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_TIMEOUT});
  EXPECT_EQ(peer_.Datagrams().size(), 5U);
  EXPECT_EQ(told_[0].rsp.id, id_);
  EXPECT_EQ(told_[0].rsp.isLast, 1U);
  EXPECT_EQ(told_[0].rsp.code, 0U);
  Wait(100'000);
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(ClientCalls, AcknowledgedOnly_IsATimeoutAfter93s) {
  Make(Get("a"));
  Say(AckOf(Next()));
  Wait(92'000);
  EXPECT_EQ(told_.size(), 0U);
  Wait(1'500);
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_TIMEOUT});
}

TEST_F(ClientCalls, Deadline_EndsTheTransmissions) {
  CoapRpcCall call = Get("a");
  call.deadlineMs = 2'500;
  Make(call);
  (void)peer_.ReceiveMessage([] {});
  host_.AdvanceMs(2'400);
  EXPECT_EQ(told_.size(), 0U);
  host_.AdvanceMs(100);
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_TIMEOUT});
  while (peer_.ReceiveNow()) {
  }
  EXPECT_TRUE(IsSilent());
  Wait(60'000);
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(ClientCalls, ShortestAndLongestDeadline) {
  CoapRpcCall call = Get("a");
  call.deadlineMs = UINT32_MAX;
  const uint64_t patient = Make(call);
  Say(AckOf(Next()));
  call.deadlineMs = 1;
  const uint64_t hasty = Make(call);
  host_.AdvanceMs(1);
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_TIMEOUT});
  EXPECT_EQ(told_[0].rsp.id, hasty);
  Wait(200'000);
  EXPECT_EQ(told_.size(), 1U);
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), patient), 0U);
}

TEST_F(ClientCalls, OneTimerForAll) {
  const size_t before = host_.Timers().Running().size();
  COAP_RpcSetNstart(Ctx(), 10);
  for (uint32_t i = 1; i <= 10; ++i) {
    CoapRpcCall call = Get("a");
    call.deadlineMs = 1'000 * (11 - i);
    Make(call);
  }
  EXPECT_EQ(host_.Timers().Running().size(), before + 1);
  for (size_t i = 1; i <= 10; ++i) {
    host_.AdvanceMs(1'000);
    EXPECT_EQ(told_.size(), i);
  }
  EXPECT_EQ(host_.Timers().Running().size(), before);
  EXPECT_EQ(Statuses(), Ends(10, COAP_RPC_CALL_TIMEOUT));
}

TEST_F(ClientCalls, Cancel_EndsTheTransmissions) {
  const uint64_t id = Make(Get("a"));
  (void)Next();
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id), 0U);
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_CANCELLED});
  EXPECT_EQ(told_[0].rsp.id, id);
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id), 1900001502U);
  Wait(100'000);
  EXPECT_EQ(peer_.Datagrams().size(), 1U);
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(ClientCalls, Cancel_OfAPayloadInBlocks) {
  const std::string payload(5000, 'x');
  const uint64_t id = Make(Post("p", payload));
  const CoapMessage first = Next();
  peer_.Send(Piggyback(first, Code(2, 31)).AddBlock(kOptBlock1, *first.Block(kOptBlock1)));
  const CoapMessage second = Next();
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id), 0U);
  Wait(60'000);
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_CANCELLED});
  EXPECT_EQ(peer_.Datagrams().size(), 3U) << peer_.LogText();
  EXPECT_EQ(SessionOf(BaseAddr())->coapSession != nullptr, true);
}

TEST_F(ClientCalls, Reset) {
  Make(Get("a"));
  Say(RstOf(Next()));
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_RESET});
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientCalls, ResetOfNon) {
  CoapRpcCall call = Get("a");
  call.isNon = 1;
  Make(call);
  Make(call);
  const CoapMessage first = Next();
  Say(RstOf(Next()));
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_RESET});
  EXPECT_EQ(told_[0].rsp.id, id_);
  Say(RstOf(first));
  EXPECT_EQ(told_.size(), 2U);
}

TEST_F(ClientCalls, NobodyAtThePort_IsUnreachable) {
  CoapRpcCallAddr addr = {};
  {
    const RawPeer gone{UdpAddress{"127.0.0.2", 0}};
    addr = To(gone);
  }
  EXPECT_EQ(Try(Get("a"), addr), 0U);
  Ticks(2);
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_UNREACHABLE});
  Wait(30'000);
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(ClientCalls, NobodyAtThePort_IsUnreachableForNon) {
  CoapRpcCallAddr addr = {};
  {
    const RawPeer gone{UdpAddress{"127.0.0.2", 0}};
    addr = To(gone);
  }
  for (uint32_t method = COAP_RPC_GET; method <= COAP_RPC_IPATCH; ++method) {
    CoapRpcCall call = Get("a");
    call.method = method;
    call.isNon = 1;
    EXPECT_EQ(Try(call, addr), 0U);
    Ticks(2);
    EXPECT_EQ(Statuses(), Ends(method, COAP_RPC_CALL_UNREACHABLE));
  }
}

// The socket tells of the first call's datagram when the second one is sent.
TEST_F(ClientCalls, ServerThatIsBack_GetsTheCallAfterOneThatFoundNobody) {
  CoapRpcCallAddr addr = {};
  {
    const RawPeer gone{UdpAddress{"127.0.0.2", 0}};
    addr = To(gone);
  }
  CoapRpcCall early = Get("a");
  early.isNon = 1;
  EXPECT_EQ(Try(early, addr), 0U);
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id_), 0U);
  RawPeer back{UdpAddress{"127.0.0.2", static_cast<uint16_t>(addr.dstPort)}};
  ASSERT_EQ(Try(Get("b"), addr), 0U);
  back.Send(Piggyback(Next(back)));
  Ticks(3);
  EXPECT_EQ(Statuses(), (Ends{COAP_RPC_CALL_CANCELLED, COAP_RPC_CALL_ANSWERED}));
}

// BackAt opens the port of a peer that has gone.
RawPeer BackAt(const CoapRpcCallAddr &addr) {
  return RawPeer{UdpAddress{"127.0.0.2", static_cast<uint16_t>(addr.dstPort)}};
}

TEST_F(ClientCalls, ErrorOfAnEarlierNonCall_EndsThatOne) {
  CoapRpcCallAddr addr = {};
  {
    const RawPeer gone{UdpAddress{"127.0.0.2", 0}};
    addr = To(gone);
  }
  CoapRpcCall call = Get("a");
  call.isNon = 1;
  EXPECT_EQ(Try(call, addr), 0U);
  const uint64_t refused = id_;
  RawPeer back = BackAt(addr);
  EXPECT_EQ(Try(call, addr), 0U);
  Ticks(2);
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_UNREACHABLE});
  EXPECT_EQ(told_[0].rsp.id, refused);
  back.Send(Apart(CoapType::kNon, 9, Next(back)));
  Ticks(3);
  EXPECT_EQ(Statuses(), (Ends{COAP_RPC_CALL_UNREACHABLE, COAP_RPC_CALL_ANSWERED}));
}

TEST_F(ClientCalls, ErrorsOfManyNonCalls_EndEachOnce) {
  CoapRpcCallAddr addr = {};
  {
    const RawPeer gone{UdpAddress{"127.0.0.2", 0}};
    addr = To(gone);
  }
  CoapRpcCall call = Get("a");
  call.isNon = 1;
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Try(call, addr), 0U);
  Ticks(3);
  EXPECT_EQ(Statuses(), Ends(20, COAP_RPC_CALL_UNREACHABLE));
  Ticks(3);
  EXPECT_EQ(NumCalls(), 0U);
}

// The peer answers one of two calls and restarts: the acknowledgement of its answer finds nobody.
TEST_F(ClientCalls, ErrorOfAnAcknowledgement_EndsNoCall) {
  COAP_RpcSetNstart(Ctx(), 2);
  auto peer = std::make_unique<RawPeer>(UdpAddress{"127.0.0.2", 0});
  const CoapRpcCallAddr addr = To(*peer);
  ASSERT_EQ(Try(Get("a"), addr), 0U);
  ASSERT_EQ(Try(Get("b"), addr), 0U);
  peer->Send(Apart(CoapType::kCon, 9, Next(*peer)));
  peer.reset();
  Ticks(2);
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
  RawPeer back = BackAt(addr);
  Wait(3'100);
  const CoapMessage again = Next(back);
  EXPECT_EQ(again.Path(), "b");
  back.Send(Piggyback(again));
  Ticks(3);
  EXPECT_EQ(Statuses(), Ends(2, COAP_RPC_CALL_ANSWERED));
}

// A list that each of them adds to is walked for each of them, and by each turn.
TEST_F(ClientCalls, ManyUnderWay_LeaveNothingToLookThrough) {
  COAP_RpcSetNstart(Ctx(), 64);
  CoapRpcCall non = Get("a");
  non.isNon = 1;
  std::vector<CoapMessage> requests;
  for (int i = 0; i < 64; ++i) {
    Make(i % 2 != 0 ? non : Get("a"));
    requests.push_back(Next());
    if (requests.back().type == CoapType::kCon) Say(AckOf(requests.back()));
  }
  EXPECT_EQ(NumLibcoapPrepared(Ctx()->lib->coapCtx), 0U);
  for (const CoapMessage &request : requests) Say(Apart(CoapType::kNon, 9, request));
  EXPECT_EQ(Statuses(), Ends(64, COAP_RPC_CALL_ANSWERED));
  EXPECT_EQ(NumLibcoapPrepared(Ctx()->lib->coapCtx), 0U);
}

TEST_F(ClientCalls, Stop_TellsEachOnce) {
  COAP_RpcSetNstart(Ctx(), 2);
  Make(Get("a"));
  Make(Get("b"));
  Make(Get("queued"));
  Watch(Get("w"));
  CoapRpcCall non = Get("n");
  non.isNon = 1;
  Make(non);
  uint32_t ret = 0;
  onTold_ = [&](const CoapRpcCallRsp &) { ret = Try(Get("late")); };
  instance_->Stop();
  EXPECT_EQ(Statuses(), Ends(5, COAP_RPC_CALL_STOPPED));
  EXPECT_EQ(ret, 1900001497U);
}

TEST_F(ClientCalls, Turns_OneAtATime) {
  const uint64_t ids[] = {Make(Get("a")), Make(Get("b")), Make(Get("c"))};
  for (const uint64_t id : ids) {
    const CoapMessage request = Next();
    EXPECT_TRUE(IsSilent());
    Say(Piggyback(request).PayloadText(request.Path()));
    EXPECT_EQ(told_.back().rsp.id, id);
    EXPECT_EQ(told_.back().payload, request.Path());
  }
  EXPECT_EQ(told_.size(), 3U);
}

TEST_F(ClientCalls, Turns_PassWithAnAcknowledgement) {
  Make(Get("a"));
  Make(Get("b"));
  const CoapMessage first = Next();
  Say(AckOf(first));
  const CoapMessage second = Next();
  EXPECT_EQ(second.Path(), "b");
  Say(Piggyback(second));
  Say(Apart(CoapType::kNon, 9, first));
  EXPECT_EQ(told_.size(), 2U);
}

TEST_F(ClientCalls, Turns_PassWithACancelAndADeadline) {
  const uint64_t first = Make(Get("a"));
  CoapRpcCall hasty = Get("b");
  hasty.deadlineMs = 1'500;
  Make(hasty);
  const uint64_t queued = Make(Get("c"));
  Make(Get("d"));
  EXPECT_EQ(Next().Path(), "a");
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), first), 0U);
  EXPECT_EQ(Next().Path(), "b");
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), queued), 0U);
  host_.AdvanceMs(1'500);
  EXPECT_EQ(Next().Path(), "d");
  EXPECT_EQ(Statuses(),
            (Ends{COAP_RPC_CALL_CANCELLED, COAP_RPC_CALL_CANCELLED, COAP_RPC_CALL_TIMEOUT}));
}

TEST_F(ClientCalls, Turn_CountsAgainstTheDeadline) {
  Make(Get("a"));
  CoapRpcCall call = Get("b");
  call.deadlineMs = 1'000;
  const uint64_t id = Make(call);
  host_.AdvanceMs(1'000);
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_TIMEOUT});
  EXPECT_EQ(told_[0].rsp.id, id);
  Say(Piggyback(Next()));
  EXPECT_EQ(told_.size(), 2U);
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientCalls, Nstart_LetsMoreGo) {
  COAP_RpcSetNstart(Ctx(), 3);
  for (const char *path : {"a", "b", "c", "d"}) Make(Get(path));
  std::string paths;
  for (int i = 0; i < 3; ++i) paths += Next().Path();
  EXPECT_EQ(paths, "abc");
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientCalls, Callback_MayCallAndCancel) {
  const uint64_t first = Make(Get("a"));
  const uint64_t second = Make(Get("b"));
  Make(Get("c"));
  std::vector<uint32_t> results;
  onTold_ = [&](const CoapRpcCallRsp &rsp) {
    if (rsp.id != first) return;
    results.push_back(COAP_RpcCallCancel(Ctx(), first));
    results.push_back(COAP_RpcCallCancel(Ctx(), second));
    results.push_back(Try(Get("d")));
  };
  Say(Piggyback(Next()));
  EXPECT_EQ(results, (std::vector<uint32_t>{1900001502, 0, 0}));
  EXPECT_EQ(Statuses(), (Ends{COAP_RPC_CALL_ANSWERED, COAP_RPC_CALL_CANCELLED}));
  for (const char *path : {"c", "d"}) {
    const CoapMessage request = Next();
    EXPECT_EQ(request.Path(), path);
    Say(Piggyback(request));
  }
  EXPECT_EQ(told_.size(), 4U);
}

TEST_F(ClientCalls, CallbackOfATimeout_MayCallAgain) {
  CoapRpcCall call = Get("a");
  call.deadlineMs = 1;
  onTold_ = [&](const CoapRpcCallRsp &) {
    if (told_.size() < 5) Make(call);
  };
  Make(call);
  host_.AdvanceMs(100);
  EXPECT_EQ(Statuses(), Ends(5, COAP_RPC_CALL_TIMEOUT));
}

TEST_F(ClientCalls, TooManyCalls_GetACode) {
  CoapRpcCall call = Get("a");
  for (uint32_t i = 0; i < COAP_RPC_MAX_CALLS; ++i) ASSERT_EQ(Try(call), 0U);
  EXPECT_EQ(NumCalls(), COAP_RPC_MAX_CALLS);
  EXPECT_EQ(Try(call), 1900001493U);
  Say(Piggyback(Next()));
  EXPECT_EQ(NumCalls(), COAP_RPC_MAX_CALLS - 1);
  EXPECT_EQ(Try(call), 0U);
}

TEST_F(ClientCalls, SessionAgesAfterTheLastCall) {
  Make(Get("a"));
  const CoapMessage request = Next();
  Say(AckOf(request));
  Wait(92'000);
  EXPECT_NE(SessionOf(BaseAddr()), nullptr);
  Wait(2'000);
  EXPECT_EQ(told_.size(), 1U);
  Wait(85'000);
  EXPECT_NE(SessionOf(BaseAddr()), nullptr);
  Wait(10'000);
  EXPECT_EQ(SessionOf(BaseAddr()), nullptr);
}

TEST_F(ClientCalls, FailedCall_LeavesItsSessionToAge) {
  CoapRpcCall call = Get("a");
  const std::string query = std::string(255, 'q') + "&" + std::string(255, 'q') + "&" +
                            std::string(255, 'q') + "&" + std::string(255, 'q') + "&" +
                            std::string(255, 'q');
  call.query = query.c_str();
  EXPECT_EQ(Try(call), 1900001492U);
  EXPECT_NE(SessionOf(BaseAddr()), nullptr);
  Wait(95'000);
  EXPECT_EQ(SessionOf(BaseAddr()), nullptr);
}

TEST_F(ClientCalls, CallWithoutASource_LeavesNoSession) {
  CoapRpcCallAddr addr = To(peer_);
  addr.srcIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = 0xC0000201;  // 192.0.2.1, of documents
  EXPECT_EQ(Try(Get("a"), addr), 1900001495U);
  EXPECT_EQ(COAP_RpcCliFindFirstSession(Ctx()->cli), nullptr);
}

TEST_F(ClientCalls, BoundSource_IsWhereItComesFrom) {
  CoapRpcCallAddr addr = To(peer_);
  addr.srcIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = 0x7F000009;
  EXPECT_EQ(Try(Get("a"), addr), 0U);
  (void)Next();
  EXPECT_EQ(peer_.Datagrams()[0].other.host, "127.0.0.9");
}

TEST_F(ClientCalls, SessionOfBaseRequests_ThatSendsFromElsewhere) {
  const CoapRpcUriKey key = KeyOf("base");
  App app;
  Register(key, &app);
  const CoapRpcCliReqParam param = ParamOf(1);
  CoapRpcCliAddr base = PeerAddr();
  base.srcIp.addr.ipv4 = 0x7F000009;
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key, &param, &base), 0U);
  CoapRpcCallAddr addr = To(peer_);
  addr.srcIp = base.srcIp;
  EXPECT_EQ(Try(Get("a"), addr), 1900001496U);
  EXPECT_EQ(NumCalls(), 0U);
}

// A host that serves the descriptor alone: no periodic task.
class CallsByDescriptor : public ClientCalls {
 protected:
  FdHost fd_{Ctx()};
};

TEST_F(CallsByDescriptor, NothingWaitsForTheTask) {
  Make(Get("a"));
  const uint64_t cancelled = id_;
  Make(Get("b"));
  Make(Get("c"));
  EXPECT_EQ(peer_.ReceiveMessage([] {}, 5)->Path(), "a");
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), cancelled), 0U);
  fd_.Serve();
  const CoapMessage second = *peer_.ReceiveMessage([] {}, 5);
  EXPECT_EQ(second.Path(), "b");
  peer_.Send(Piggyback(second));
  fd_.Serve();
  EXPECT_EQ(told_.size(), 2U);
  EXPECT_EQ(peer_.ReceiveMessage([] {}, 5)->Path(), "c");
}

TEST_F(CallsByDescriptor, RepeatsInTime) {
  Make(Get("a"));
  EXPECT_TRUE(peer_.ReceiveNow());
  fd_.Advance(3'000);
  EXPECT_TRUE(peer_.ReceiveNow());
}

}  // namespace
}  // namespace coap_rpc_test
