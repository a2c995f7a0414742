// A client whose address goes away, or whose interface: what it sends afterwards leaves from an
// address that it has, and with keep-alive it hears that nobody answers.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "netfault_net.h"
#include "netfault_packet.h"
#include "raw_peer.h"
#include "test_instance.h"

namespace netfault {
namespace {

using namespace coap_rpc_test;
using netfault::Bytes;

constexpr uint32_t kPeerHost = 1, kOwnHost = 2, kOtherHost = 8;
constexpr uint16_t kPort = 5683;
constexpr uint64_t kTickMs = 100;

class ClientSource : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (!CanMakeNetworks()) GTEST_SKIP() << "no network namespaces here";
    far_ = std::make_unique<Network>(IsIpv6(), kPeerHost);
    near_ = std::make_unique<Network>(IsIpv6(), kOwnHost);
    ASSERT_TRUE(far_->IsGood() && near_->IsGood());
    far_->Enter();
    peer_ = std::make_unique<RawPeer>(UdpAddress{Text(kPeerHost), kPort});
    near_->Enter();
    host_ = std::make_unique<TestHost>();
    instance_ = std::make_unique<TestInstance>(*host_);
    COAP_RpcRefreshTaskTimer(*instance_);
  }

  static bool IsIpv6() { return GetParam(); }
  static std::string Text(uint32_t host) {
    return (IsIpv6() ? "fd78::" : "10.78.0.") + std::to_string(host);
  }

  CoapRpcUriKey Key(uint32_t msgType, uint32_t observe, uint32_t pktType = 0) {
    const CoapRpcUriKey key = KeyOf("a", msgType, observe, pktType);
    CoapRpcCliVtblReg reg = {};
    reg.userData = reinterpret_cast<uint64_t>(&numLost_);
    reg.onDisconnect = [](uint64_t num, const CoapRpcIpAddr *) {
      ++*reinterpret_cast<uint32_t *>(num);
    };
    EXPECT_EQ(COAP_RpcCliRegVtbl(*instance_, &key, &reg), 0u);
    return key;
  }

  template <typename Call>
  uint32_t Do(Call call, const CoapRpcUriKey &key) {
    near_->Enter();
    const CoapRpcCliReqParam param = {};
    CoapRpcCliAddr addr = {};
    addr.srcIp = near_->AddressOf(kOwnHost);
    addr.dstIp = near_->AddressOf(kPeerHost);
    addr.dstPort = kPort;
    addr.codeType = COAP_RPC_GET;
    return call(*instance_, &key, &param, &addr);
  }

  static void Carry(const Network &from, const Network &to) {
    Bytes bytes(2048);
    for (ssize_t len; (len = read(from.Tunnel(), bytes.data(), bytes.size())) > 0;) {
      if (!LayoutOf(Bytes(bytes.begin(), bytes.begin() + len))) continue;
      static_cast<void>(!write(to.Tunnel(), bytes.data(), static_cast<size_t>(len)));
    }
  }
  void Tick() {
    near_->Enter();
    host_->AdvanceMs(kTickMs);
    Carry(*near_, *far_);
    Carry(*far_, *near_);
  }

  std::optional<CoapMessage> Receive() {
    std::optional<CoapMessage> message = peer_->ReceiveNow();
    if (message) peer_->SetRemote(peer_->Datagrams().back().other);
    return message;
  }
  // Next gives the next message that reaches the peer within `ms`; its sender is what Sends answer.
  std::optional<CoapMessage> Next(uint64_t ms) {
    for (uint64_t t = 0; t < ms; t += kTickMs) {
      Tick();
      if (std::optional<CoapMessage> message = Receive()) return message;
    }
    return std::nullopt;
  }

  // ExpectFrom expects the next message from a host, at the port of those before, and answers it.
  // Under IPv6 the first transmission may leave from an address that was removed.
  void ExpectFrom(uint32_t host) {
    std::optional<CoapMessage> message = Next(5000);
    if (message && IsIpv6() && peer_->Remote().host != Text(host)) message = Next(5000);
    ASSERT_TRUE(message) << "nothing came from " << host;
    if (port_ == 0) port_ = peer_->Remote().port;
    EXPECT_EQ(peer_->Remote(), (UdpAddress{Text(host), port_}));
    Answer(*message);
  }
  // ExpectSent expects a call to send its request from a host.
  template <typename Call>
  void ExpectSent(Call call, const CoapRpcUriKey &key, uint32_t host) {
    EXPECT_EQ(Do(call, key), 0u);
    ExpectFrom(host);
  }
  void Answer(const CoapMessage &message) {
    if (message.type == CoapType::kNon) return;
    peer_->Send(message.code == kCodeEmpty ? RstOf(message) : AckOf(message));
    Tick();
    Tick();
  }
  // Idle lets time go by, with a peer that answers.
  void Idle(uint64_t ms) {
    for (uint64_t t = 0; t < ms; t += kTickMs) {
      Tick();
      if (std::optional<CoapMessage> message = Receive()) Answer(*message);
    }
  }

  std::unique_ptr<Network> far_, near_;
  std::unique_ptr<RawPeer> peer_;
  std::unique_ptr<TestHost> host_;
  std::unique_ptr<TestInstance> instance_;
  uint32_t numLost_ = 0;
  uint16_t port_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Families, ClientSource, testing::Values(false, true),
                         [](const auto &one) { return one.param ? "Ipv6" : "Ipv4"; });

TEST_P(ClientSource, AnotherAddress_RequestReachesThePeer) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 0);
  ExpectSent(COAP_RpcCliConReq, key, kOwnHost);
  near_->SetAddress(kOtherHost);
  ExpectSent(COAP_RpcCliConReq, key, kOtherHost);
  near_->SetAddress(kOwnHost);
  ExpectSent(COAP_RpcCliConReq, key, kOwnHost);
}

TEST_P(ClientSource, AnotherAddress_VerifyReachesThePeer) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 1);
  ExpectSent(COAP_RpcCliObserveReq, key, kOwnHost);
  near_->SetAddress(kOtherHost);
  ExpectSent(COAP_RpcCliObserveReqVerify, key, kOtherHost);
}

// Under IPv4 the system refuses to send from an address that was removed.  Under IPv6 it takes a
// CON request, whose retransmission finds out.
TEST_P(ClientSource, AnotherAddress_NonRequestReachesThePeer) {
  const CoapRpcUriKey key = Key(COAP_RPC_NON, 0);
  ExpectSent(COAP_RpcCliNonReq, key, kOwnHost);
  near_->SetAddress(kOtherHost);
  if (IsIpv6()) {
    ExpectSent(COAP_RpcCliConReq, Key(COAP_RPC_CON, 0), kOtherHost);
  }
  ExpectSent(COAP_RpcCliNonReq, key, kOtherHost);
}

TEST_P(ClientSource, AddressChangesWhileARequestIsUnderWay_RetransmissionReachesThePeer) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 0);
  EXPECT_EQ(Do(COAP_RpcCliConReq, key), 0u);
  const std::optional<CoapMessage> lost = Next(500);
  ASSERT_TRUE(lost);
  near_->SetAddress(kOtherHost);
  const std::optional<CoapMessage> again = Next(5000);
  ASSERT_TRUE(again);
  EXPECT_EQ(*again, *lost);
  EXPECT_EQ(peer_->Remote().host, Text(kOtherHost));
}

TEST_P(ClientSource, InterfaceDownAndUp_SourceIsTheSame) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 0);
  ExpectSent(COAP_RpcCliConReq, key, kOwnHost);
  near_->SetUp(false);
  EXPECT_EQ(Do(COAP_RpcCliConReq, key), 1900001103u);
  EXPECT_FALSE(Next(5000));
  near_->SetUp(true);
  ExpectFrom(kOwnHost);
}

TEST_P(ClientSource, ProhibitedForAWhile_SourceIsTheSame) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 0);
  ExpectSent(COAP_RpcCliConReq, key, kOwnHost);
  for (const RouteKind kind :
       {RouteKind::kProhibit, RouteKind::kUnreachable, RouteKind::kBlackhole}) {
    near_->SetRoute(kind, kPeerHost);
    EXPECT_EQ(Do(COAP_RpcCliConReq, key), 1900001103u);
    EXPECT_FALSE(Next(2000));
    near_->SetRoute(RouteKind::kNormal, kPeerHost);
    ExpectFrom(kOwnHost);
  }
}

// Loss alone must not move a session: the server would not know its relations any more.
TEST_P(ClientSource, SilentPeer_SourceIsTheSame) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 0);
  ExpectSent(COAP_RpcCliConReq, key, kOwnHost);
  EXPECT_EQ(Do(COAP_RpcCliConReq, key), 0u);
  while (Next(25'000)) EXPECT_EQ(peer_->Remote(), (UdpAddress{Text(kOwnHost), port_}));
  ExpectSent(COAP_RpcCliConReq, key, kOwnHost);
}

// The former address is there, but the way leads through another one: a message that is given up
// makes the session look.
TEST_P(ClientSource, RouteHasAnotherSource_NextRequestUsesIt) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 0);
  ExpectSent(COAP_RpcCliConReq, key, kOwnHost);
  near_->AddSource(kOtherHost, kPeerHost);
  EXPECT_EQ(Do(COAP_RpcCliConReq, key), 0u);
  while (Next(25'000)) EXPECT_EQ(peer_->Remote(), (UdpAddress{Text(kOwnHost), port_}));
  ExpectSent(COAP_RpcCliConReq, key, kOtherHost);
}

TEST_P(ClientSource, PingsThatCannotBeSent_CountAsUnanswered) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 1);
  ASSERT_EQ(COAP_RpcSetKeepAlive(*instance_, 3), 0u);
  ExpectSent(COAP_RpcCliObserveReq, key, kOwnHost);
  near_->SetUp(false);
  Idle(5500);
  EXPECT_EQ(numLost_, 0u);
  Idle(2500);
  EXPECT_EQ(numLost_, 1u);
  Idle(3000);
  EXPECT_EQ(numLost_, 2u);
  near_->SetUp(true);
  Idle(6500);  // the first ping that is answered reports those before
  const uint32_t numLost = numLost_;
  Idle(20'000);
  EXPECT_EQ(numLost_, numLost);
}

// The server's relation is with the former address: a ping that is answered must not hide that.
TEST_P(ClientSource, AnotherAddress_IsReportedOnceWithKeepAlive) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 1);
  ASSERT_EQ(COAP_RpcSetKeepAlive(*instance_, 3), 0u);
  ExpectSent(COAP_RpcCliObserveReq, key, kOwnHost);
  Idle(10'000);
  EXPECT_EQ(numLost_, 0u);
  near_->SetAddress(kOtherHost);
  Idle(30'000);
  EXPECT_EQ(numLost_, 1u);
  ExpectSent(COAP_RpcCliObserveReq, key, kOtherHost);
}

TEST_P(ClientSource, AnotherAddressWithoutKeepAlive_IsNotReported) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 1);
  ExpectSent(COAP_RpcCliObserveReq, key, kOwnHost);
  near_->SetAddress(kOtherHost);
  ExpectSent(COAP_RpcCliObserveReqVerify, key, kOtherHost);
  EXPECT_EQ(numLost_, 0u);
}

// A session that is bound to its address has no other one; it works again when that is back.
TEST_P(ClientSource, BoundSession_WorksAgainWithItsAddress) {
  const CoapRpcUriKey key = Key(COAP_RPC_CON, 0, COAP_RPC_BROADCAST);
  ExpectSent(COAP_RpcCliConReq, key, kOwnHost);
  near_->SetAddress(kOtherHost);
  Do(COAP_RpcCliConReq, key);
  while (Next(25'000)) EXPECT_EQ(peer_->Remote(), (UdpAddress{Text(kOwnHost), port_}));
  near_->SetAddress(kOwnHost);
  if (IsIpv6()) Do(COAP_RpcCliConReq, key);  // the former one went out and was given up
  ExpectFrom(kOwnHost);
}

// Calls: those that name their source end with it, the others follow.
class CallSource : public ClientSource {
 protected:
  ~CallSource() override { instance_.reset(); }  // which tells of the calls that are left

  static void OnRsp(uint64_t userData, const CoapRpcCallRsp *rsp) {
    reinterpret_cast<std::vector<uint32_t> *>(userData)->push_back(rsp->status);
  }
  uint32_t Call(bool isBound) {
    near_->Enter();
    CoapRpcCallAddr addr = {};
    if (isBound) addr.srcIp = near_->AddressOf(kOwnHost);
    addr.dstIp = near_->AddressOf(kPeerHost);
    addr.dstPort = kPort;
    CoapRpcCall call = {};
    call.method = COAP_RPC_GET;
    call.path = "a";
    call.userData = reinterpret_cast<uint64_t>(&statuses_);
    call.onRsp = OnRsp;
    uint64_t id = 0;
    return COAP_RpcCall(*instance_, &addr, &call, &id);
  }

  std::vector<uint32_t> statuses_;
};

INSTANTIATE_TEST_SUITE_P(Families, CallSource, testing::Values(false, true),
                         [](const auto &one) { return one.param ? "Ipv6" : "Ipv4"; });

TEST_P(CallSource, NamedAddressIsGone_NextCallSaysSo) {
  EXPECT_EQ(Call(true), 0u);
  const std::optional<CoapMessage> request = Next(1000);
  ASSERT_TRUE(request);
  Answer(*request);
  near_->SetAddress(kOtherHost);
  EXPECT_EQ(Call(true), 1900001495u);
  near_->SetAddress(kOwnHost);
  EXPECT_EQ(Call(true), 0u);
}

TEST_P(CallSource, NamedAddressGoesAway_CallEndsWithItsRetransmission) {
  EXPECT_EQ(Call(true), 0u);
  ASSERT_TRUE(Next(1000));
  near_->SetAddress(kOtherHost);
  Next(3500);
  EXPECT_EQ(statuses_, std::vector<uint32_t>{COAP_RPC_CALL_UNREACHABLE});
}

TEST_P(CallSource, AnyAddress_FollowsAndIsAnswered) {
  EXPECT_EQ(Call(false), 0u);
  ASSERT_TRUE(Next(1000));
  near_->SetAddress(kOtherHost);
  const std::optional<CoapMessage> again = Next(5000);
  ASSERT_TRUE(again);
  EXPECT_EQ(peer_->Remote().host, Text(kOtherHost));
  peer_->Send(Request(CoapType::kAck, coap_rpc_test::Code(2, 5), again->messageId, again->token));
  Tick();
  Tick();
  EXPECT_EQ(statuses_, std::vector<uint32_t>{COAP_RPC_CALL_ANSWERED});
}

TEST_P(CallSource, NoWayToThePeer_IsNotSent) {
  EXPECT_EQ(Call(false), 0u);
  const std::optional<CoapMessage> request = Next(1000);
  ASSERT_TRUE(request);
  Answer(*request);
  near_->SetUp(false);
  EXPECT_EQ(Call(false), 1900001499u);
  near_->SetUp(true);
  EXPECT_EQ(Call(false), 0u);
  EXPECT_TRUE(Next(1000));
}

}  // namespace
}  // namespace netfault
