/* wire_adapter_messages.cpp: what a peer sees of an instance that has endpoints and resources. */
#include <gtest/gtest.h>

#include "adapter_fixture.h"
#include "coap_malformed.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "fd_capture.h"
#include "raw_peer.h"

using namespace coap_rpc_test;

namespace {

CoapRpcMsgInfo g_info;

void AnswerAndKeepInfo(coap_resource_t *resource, coap_session_t *session,
                       const coap_pdu_t *request, const coap_string_t *query,
                       coap_pdu_t *response) {
  g_info = COAP_RpcGetMsgInfo(request, session);
  AnswerHello(resource, session, request, query, response);
}

std::function<void()> g_whileHandling;

// AnswerAndAct answers and lets the test act from inside the handler.
void AnswerAndAct(coap_resource_t *resource, coap_session_t *session, const coap_pdu_t *request,
                  const coap_string_t *query, coap_pdu_t *response) {
  AnswerHello(resource, session, request, query, response);
  if (g_whileHandling) g_whileHandling();
}

// Server is an adapter with one open endpoint.
struct Server {
  explicit Server(TestHost &host, const CoapRpcSerListenAddr &addr) : adapter(host) {
    adapter.Start();
    listen = adapter.Open(addr);
    EXPECT_NE(listen.endPoint, nullptr);
  }

  void Close() { COAP_RpcDeleteEndPoint(adapter.Ctx(), &listen); }

  AdapterFixture adapter;
  CoapRpcSerListen listen;
};

class WireAdapter : public testing::Test {
 protected:
  WireAdapter() : server_(host_, Ipv4Listen("127.0.0.1", FindFreeUdpPort())) {
    peer_.SetRemote({"127.0.0.1", server_.listen.key.port});
  }

  std::optional<CoapMessage> Exchange(const CoapMessage &request) {
    EXPECT_TRUE(peer_.Send(request));
    return peer_.ReceiveMessage(server_.adapter.Ticker());
  }

  // Observe registers the peer with a resource and takes the first answer.
  void Observe(const std::string &path, const Bytes &token = {0x0B}) {
    const auto answer = Exchange(
        Request(CoapType::kCon, kCodeGet, 77, token).AddUint(kOptObserve, 0).AddPath(path));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, Code(2, 5));
    EXPECT_TRUE(answer->Has(kOptObserve));
    EXPECT_EQ(g_adapterCalls.numObserversAdded, 1u);
  }

  std::optional<CoapMessage> Notify(const char *path) {
    coap_resource_notify_observers(server_.adapter.Resource(path), nullptr);
    return peer_.ReceiveMessage(server_.adapter.Ticker());
  }

  TestHost host_;
  Server server_;
  RawPeer peer_;
};

}  // namespace

TEST_F(WireAdapter, UnknownPath_Gets404) {
  const auto answer = Exchange(Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("nothing"));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->type, CoapType::kAck);
  EXPECT_EQ(CodeText(answer->code), "4.04");
  EXPECT_EQ(answer->messageId, 1);
  EXPECT_EQ(answer->token, Bytes{1});
}

TEST_F(WireAdapter, GetAndPost_ReachTheHandlers) {
  server_.adapter.AddResource("a/b");
  for (const uint8_t code : {kCodeGet, kCodePost}) {
    const auto answer = Exchange(Request(CoapType::kCon, code, code, {1}).AddPath("a/b"));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->type, CoapType::kAck);
    EXPECT_EQ(CodeText(answer->code), "2.05");
    EXPECT_EQ(answer->Text(), "hello");
  }
  EXPECT_EQ(g_adapterCalls.numGets, 2u);
}

TEST_F(WireAdapter, PutAndDelete_Get405AndReachNoHandler) {
  server_.adapter.AddResource("a");
  for (const uint8_t code : {kCodePut, kCodeDelete}) {
    const auto answer = Exchange(Request(CoapType::kCon, code, code, {1}).AddPath("a"));
    ASSERT_TRUE(answer);
    EXPECT_EQ(CodeText(answer->code), "4.05");
  }
  EXPECT_EQ(g_adapterCalls.numGets, 0u);
}

TEST_F(WireAdapter, WellKnownCore_ListsResources) {
  server_.adapter.AddResource("plain");
  server_.adapter.AddResource("watched", 0, 1);
  server_.adapter.AddResource("later");
  server_.adapter.AddResource("later", 0, 1);
  server_.adapter.AddResource("watched", 0, 0);
  server_.adapter.AddResource("gone");
  COAP_RpcDeleteResource(server_.adapter.Ctx(), "gone");
  const auto answer =
      Exchange(Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath(".well-known/core"));
  ASSERT_TRUE(answer);
  EXPECT_EQ(CodeText(answer->code), "2.05");
  EXPECT_EQ(answer->Uint(kOptContentFormat), 40u);
  EXPECT_NE(answer->Text().find("</plain>"), std::string::npos) << answer->Text();
  EXPECT_EQ(answer->Text().find("</plain>;obs"), std::string::npos) << answer->Text();
  EXPECT_NE(answer->Text().find("</watched>;obs"), std::string::npos) << answer->Text();
  EXPECT_NE(answer->Text().find("</later>;obs"), std::string::npos) << answer->Text();
  EXPECT_EQ(answer->Text().find("gone"), std::string::npos) << answer->Text();
}

TEST_F(WireAdapter, DeletedResource_Gets404) {
  server_.adapter.AddResource("a");
  COAP_RpcDeleteResource(server_.adapter.Ctx(), "a");
  const auto answer = Exchange(Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("a"));
  ASSERT_TRUE(answer);
  EXPECT_EQ(CodeText(answer->code), "4.04");
}

TEST_F(WireAdapter, Ping_GetsReset) {
  const CoapMessage ping = Request(CoapType::kCon, kCodeEmpty, 4711);
  const auto answer = Exchange(ping);
  ASSERT_TRUE(answer);
  EXPECT_EQ(*answer, RstOf(ping));
}

TEST_F(WireAdapter, MalformedDatagrams_LeaveTheServerWorking) {
  server_.adapter.AddResource("a");
  const CoapMessage request = Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("a");
  for (const Bytes &datagram :
       {WithVersion(request, 2), WithTokenLen(request, 15), WithReservedDelta(request),
        WithReservedLen(request), WithCutExtension(request), WithCutValue(request, 12),
        WithHugeNumber(request), WithBareMarker(request), Truncated(request, 1), Bytes{}}) {
    peer_.Send(datagram);
    server_.adapter.Tick();
  }
  while (peer_.Receive(server_.adapter.Ticker(), 3)) {
  }
  const auto answer = Exchange(Request(CoapType::kCon, kCodeGet, 9, {9}).AddPath("a"));
  ASSERT_TRUE(answer);
  EXPECT_EQ(CodeText(answer->code), "2.05");
}

TEST_F(WireAdapter, ConResource_NotifiesConfirmably) {
  server_.adapter.AddResource("a", 0, 1);
  Observe("a");
  const auto notification = Notify("a");
  ASSERT_TRUE(notification);
  EXPECT_EQ(notification->type, CoapType::kCon);
  EXPECT_EQ(notification->token, Bytes{0x0B});
  peer_.Send(AckOf(*notification));
  server_.adapter.Tick();
}

TEST_F(WireAdapter, NonResource_NotifiesNonConfirmably) {
  server_.adapter.AddResource("a", 1, 1);
  Observe("a");
  const auto notification = Notify("a");
  ASSERT_TRUE(notification);
  EXPECT_EQ(notification->type, CoapType::kNon);
}

TEST_F(WireAdapter, MessageInfo_TellsThePeerFromTheWire) {
  server_.adapter.Lib().getHandler = AnswerAndKeepInfo;
  server_.adapter.AddResource("a");
  ASSERT_TRUE(Exchange(Request(CoapType::kNon, kCodeGet, 1, {1})
                           .Add(kOptEtag, {1, 2})
                           .AddPath("a")
                           .AddText(kOptUriQuery, "k=v")));
  EXPECT_EQ(g_info.peer.family, 1);
  EXPECT_EQ(g_info.peer.addr.ipv4, 0x7F000001u);
  EXPECT_EQ(g_info.msgType, 1u);
  EXPECT_EQ(g_info.code, 1u);
  EXPECT_EQ(g_info.opt.optMask, 5u);
  EXPECT_EQ(g_info.opt.etag, 0x0102u);
  EXPECT_STREQ(g_info.opt.query, "k=v");
}

TEST_F(WireAdapter, Ipv6EndPoint_Answers) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1";
  const uint16_t port = FindFreeUdpPort("::1");
  CoapRpcSerListen listen = server_.adapter.Open(Ipv6Listen("::1", port));
  ASSERT_NE(listen.endPoint, nullptr);
  server_.adapter.Lib().getHandler = AnswerAndKeepInfo;
  server_.adapter.AddResource("a");
  RawPeer peer({"::1", 0});
  peer.SetRemote({"::1", port});
  peer.Send(Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("a"));
  const auto answer = peer.ReceiveMessage(server_.adapter.Ticker());
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->Text(), "hello");
  EXPECT_EQ(g_info.peer.family, 2);
  const uint8_t loopback[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  EXPECT_EQ(memcmp(g_info.peer.addr.ipv6, loopback, sizeof(loopback)), 0);
  COAP_RpcDeleteEndPoint(server_.adapter.Ctx(), &listen);
}

TEST_F(WireAdapter, ServiceFlag_HandlesManyDatagramsInOneTick) {
  server_.adapter.AddResource("a");
  COAP_RpcSetSvcFlag(server_.adapter.Ctx());
  for (uint16_t i = 0; i < 100; ++i) {
    peer_.Send(Request(CoapType::kNon, kCodeGet, i, {1}).AddPath("a"));
  }
  server_.adapter.Tick();
  EXPECT_EQ(g_adapterCalls.numGets, 100u);
}

TEST_F(WireAdapter, PlainTick_HandlesOneDatagram_QuickTick25) {
  server_.adapter.AddResource("a");
  for (uint16_t i = 0; i < 100; ++i) {
    peer_.Send(Request(CoapType::kNon, kCodeGet, i, {1}).AddPath("a"));
  }
  server_.adapter.Tick();
  EXPECT_EQ(g_adapterCalls.numGets, 1u);
  COAP_RpcRefreshTaskTimer(server_.adapter.Ctx());
  host_.AdvanceMs(100);
  EXPECT_EQ(g_adapterCalls.numGets, 26u);
}

TEST_F(WireAdapter, CloseWithObserverAndUnacknowledgedNotification_IsClean) {
  server_.adapter.AddResource("a", 0, 1);
  Observe("a");
  ASSERT_TRUE(Notify("a"));
  server_.Close();
  EXPECT_EQ(g_adapterCalls.numObserversDeleted, 1u);
  EXPECT_GE(g_adapterCalls.numNacks, 1u);
  coap_resource_notify_observers(server_.adapter.Resource("a"), nullptr);
  host_.AdvanceMs(5000);
  COAP_RpcDeleteResource(server_.adapter.Ctx(), "a");
}

TEST_F(WireAdapter, CloseWithHalfFetchedBody_IsClean) {
  server_.adapter.Lib().getHandler = AnswerLarge;
  server_.adapter.AddResource("a", 0, 1);
  Observe("a");
  const auto second = Exchange(Request(CoapType::kCon, kCodeGet, 2, {0x0C})
                                   .AddPath("a")
                                   .AddBlock(kOptBlock2, {1, false, 6}));
  ASSERT_TRUE(second);
  EXPECT_EQ(second->Block(kOptBlock2), (CoapBlock{1, true, 6}));
  server_.Close();
  COAP_RpcDeleteResource(server_.adapter.Ctx(), "a");
  host_.AdvanceMs(5000);
}

TEST_F(WireAdapter, HandlerClosesItsEndPointAndResource_AnswerStillLeaves) {
  g_whileHandling = [this] {
    COAP_RpcDeleteResource(server_.adapter.Ctx(), "a");
    COAP_RpcDeleteResource(server_.adapter.Ctx(), "a");
    server_.Close();
    EXPECT_EQ(server_.listen.endPoint, nullptr);
  };
  server_.adapter.Lib().getHandler = AnswerAndAct;
  server_.adapter.AddResource("a", 0, 1);
  host_.ClearLogs();
  Observe("a");
  EXPECT_EQ(g_adapterCalls.numObserversDeleted, 1u);
  EXPECT_EQ(server_.adapter.Resource("a"), nullptr);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]del resource success, uri:a.\n"));
  // The address is free again.
  RawPeer next({"127.0.0.1", server_.listen.key.port});
  EXPECT_TRUE(next.IsOpen());
}

TEST_F(WireAdapter, HandlerReopensItsEndPointAndResource_BothServeOn) {
  g_whileHandling = [this] {
    COAP_RpcDeleteResource(server_.adapter.Ctx(), "a");
    server_.Close();
    server_.listen = server_.adapter.Open(server_.listen.key);
    server_.adapter.AddResource("a", 0, 1);
  };
  server_.adapter.Lib().getHandler = AnswerAndAct;
  server_.adapter.AddResource("a");
  for (uint16_t i = 0; i < 3; ++i) {
    const auto answer = Exchange(Request(CoapType::kCon, kCodeGet, i, {1}).AddPath("a"));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->Text(), "hello");
    EXPECT_NE(server_.listen.endPoint, nullptr);
    EXPECT_EQ(g_sleeps.size(), 0u);
  }
  g_whileHandling = nullptr;
  const auto core = Exchange(Request(CoapType::kCon, kCodeGet, 9, {1}).AddPath(".well-known/core"));
  ASSERT_TRUE(core);
  EXPECT_NE(core->Text().find("</a>;obs"), std::string::npos) << core->Text();
}

TEST_F(WireAdapter, HandlerDeletesResourceWhileNotifying_IsClean) {
  server_.adapter.Lib().getHandler = AnswerAndAct;
  g_whileHandling = nullptr;
  server_.adapter.AddResource("a", 1, 1);
  Observe("a");
  RawPeer second;
  second.SetRemote(peer_.Remote());
  second.Send(Request(CoapType::kCon, kCodeGet, 5, {2}).AddUint(kOptObserve, 0).AddPath("a"));
  ASSERT_TRUE(second.ReceiveMessage(server_.adapter.Ticker()));
  g_whileHandling = [this] {
    COAP_RpcDeleteResource(server_.adapter.Ctx(), "a");
    server_.Close();
  };
  EXPECT_TRUE(Notify("a"));
  EXPECT_EQ(g_adapterCalls.numObserversDeleted, 2u);
  EXPECT_EQ(server_.adapter.Resource("a"), nullptr);
}

TEST_F(WireAdapter, StopWithEverythingInFlight_IsClean) {
  server_.adapter.AddResource("a", 0, 1);
  server_.adapter.Lib().getHandler = AnswerLarge;
  server_.adapter.AddResource("large");
  Observe("a");
  ASSERT_TRUE(Notify("a"));
  ASSERT_TRUE(Exchange(Request(CoapType::kCon, kCodeGet, 2, {0x0C}).AddPath("large")));
  server_.adapter.Stop();
  EXPECT_EQ(g_adapterCalls.numObserversDeleted, 1u);
}

TEST_F(WireAdapter, ReopenedEndPoint_Answers) {
  server_.adapter.AddResource("a");
  for (uint16_t i = 0; i < 3; ++i) {
    server_.Close();
    server_.listen = server_.adapter.Open(server_.listen.key);
    ASSERT_NE(server_.listen.endPoint, nullptr);
    ASSERT_TRUE(Exchange(Request(CoapType::kCon, kCodeGet, i, {1}).AddPath("a")));
  }
}

TEST_F(WireAdapter, FullExchange_ReachesTheLogAndNotTheHostsOutput) {
  const CapturedText captured = CaptureFds([this] {
    server_.adapter.AddResource("a", 0, 1);
    Observe("a");
    Exchange(Request(CoapType::kCon, kCodePut, 2, {1}).AddPath("a"));
    Notify("a");
    peer_.Send(Bytes{0xFF, 0xFF});
    server_.adapter.Tick();
    server_.adapter.Open(server_.listen.key);  // fails: it is taken
    server_.Close();
  });
  EXPECT_EQ(captured.out, "");
  EXPECT_EQ(captured.err, "");
  bool hasDump = false;
  for (const LogRecord &record : host_.LogsOf("CORP_RpcLibCoapLog")) {
    hasDump |= record.text.find("[CoapRpc][coap_show_pdu], level = 7, msg = ") == 0 &&
               record.text.find("Uri-Path:a") != std::string::npos;
  }
  EXPECT_TRUE(hasDump);
}

TEST(WireTwoInstances, StoppingOne_LeavesTheOtherWorking) {
  TestHost hostA;
  TestHost hostB;
  const CapturedText captured = CaptureFds([&] {
    Server a(hostA, Ipv4Listen("127.0.0.1", FindFreeUdpPort()));
    RawPeer peer;
    peer.SetRemote({"127.0.0.1", a.listen.key.port});
    a.adapter.AddResource("a");
    {
      Server b(hostB, Ipv4Listen("127.0.0.1", FindFreeUdpPort()));
      b.adapter.AddResource("b");
      RawPeer peerOfB;
      peerOfB.SetRemote({"127.0.0.1", b.listen.key.port});
      peerOfB.Send(Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("b"));
      EXPECT_TRUE(peerOfB.ReceiveMessage(b.adapter.Ticker()));
    }
    for (uint16_t i = 0; i < 3; ++i) {
      peer.Send(Request(CoapType::kCon, kCodeGet, i, {1}).AddPath("a"));
      const auto answer = peer.ReceiveMessage(a.adapter.Ticker());
      ASSERT_TRUE(answer);
      EXPECT_EQ(answer->Text(), "hello");
    }
  });
  EXPECT_EQ(captured.out, "");
  EXPECT_EQ(captured.err, "");
}

TEST(WireRestart, AfterTheLastInstanceStopped_NewOneIsQuietAndLogs) {
  TestHost host;
  const CapturedText captured = CaptureFds([&] {
    for (uint16_t i = 0; i < 3; ++i) {
      host.ClearLogs();
      Server server(host, Ipv4Listen("127.0.0.1", FindFreeUdpPort()));
      server.adapter.AddResource("a");
      RawPeer peer;
      peer.SetRemote({"127.0.0.1", server.listen.key.port});
      peer.Send(Request(CoapType::kCon, kCodeGet, i, {1}).AddPath("a"));
      EXPECT_TRUE(peer.ReceiveMessage(server.adapter.Ticker()));
      EXPECT_GE(host.LogsOf("CORP_RpcLibCoapLog").size(), 4u);
    }
  });
  EXPECT_EQ(captured.out, "");
  EXPECT_EQ(captured.err, "");
}
