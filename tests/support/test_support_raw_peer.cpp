/* test_support_raw_peer.cpp: the raw UDP peer. */
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "raw_peer.h"

namespace coap_rpc_test {
namespace {

TEST(SupportRawPeer, TwoPeers_ExchangeDatagrams) {
  RawPeer client;
  RawPeer server;
  client.SetRemote(server.Local());
  ASSERT_TRUE(client.Send(Bytes({1, 2, 3})));
  EXPECT_EQ(server.Receive(nullptr), Bytes({1, 2, 3}));
  EXPECT_EQ(server.Remote(), client.Local());
  ASSERT_TRUE(server.Send(Bytes(2000, 7)));
  EXPECT_EQ(client.Receive(nullptr), Bytes(2000, 7));
}

TEST(SupportRawPeer, Ipv6_ExchangesDatagrams) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1 here";
  RawPeer client({"::1", 0});
  RawPeer server({"::1", 0});
  client.SetRemote(server.Local());
  ASSERT_TRUE(client.Send(Bytes({1})));
  EXPECT_EQ(server.Receive(nullptr), Bytes({1}));
  EXPECT_EQ(server.Remote(), client.Local());
}

TEST(SupportRawPeer, Receive_Nothing_EndsAfterItsTries) {
  RawPeer peer;
  int numPumps = 0;
  EXPECT_EQ(peer.Receive([&] { ++numPumps; }, 5), std::nullopt);
  EXPECT_EQ(numPumps, 5);
}

TEST(SupportRawPeer, Receive_PumpBringsTheDatagram) {
  RawPeer client;
  RawPeer server;
  client.SetRemote(server.Local());
  int numPumps = 0;
  const auto pump = [&] {
    if (++numPumps == 3) client.Send(Bytes());
  };
  EXPECT_EQ(server.Receive(pump), Bytes());
  EXPECT_GE(numPumps, 3);
}

TEST(SupportRawPeer, ReceiveMessage_Malformed_FailsTheTest) {
  RawPeer client;
  RawPeer server;
  client.SetRemote(server.Local());
  const CoapMessage request = Request(CoapType::kCon, kCodeGet, 9, {5}).AddPath("a");
  ASSERT_TRUE(client.Send(request));
  EXPECT_EQ(server.ReceiveMessage(nullptr), request);
  ASSERT_TRUE(client.Send(Bytes({0x40})));
  EXPECT_NONFATAL_FAILURE(server.ReceiveMessage(nullptr), "shorter than the header: 40");
}

TEST(SupportRawPeer, Log_HasBothWays) {
  RawPeer client;
  RawPeer server;
  client.SetRemote(server.Local());
  client.Send(Request(CoapType::kCon, kCodeGet, 9, {5}));
  server.Receive(nullptr);
  server.Send(Bytes({0x40}));
  ASSERT_EQ(server.Datagrams().size(), 2u);
  EXPECT_FALSE(server.Datagrams()[0].isSent);
  EXPECT_TRUE(server.Datagrams()[1].isSent);
  EXPECT_NE(server.LogText().find("CON 0.01 id 9 token [05]"), std::string::npos);
  EXPECT_NE(server.LogText().find("shorter than the header: 40"), std::string::npos);
}

TEST(SupportRawPeer, GivenAddress_IsTaken) {
  const uint16_t port = FindFreeUdpPort("127.0.1.7");
  ASSERT_NE(port, 0u);
  RawPeer peer({"127.0.1.7", port});
  EXPECT_TRUE(peer.IsOpen());
  EXPECT_EQ(peer.Local(), (UdpAddress{"127.0.1.7", port}));
  EXPECT_NONFATAL_FAILURE(RawPeer({"127.0.1.7", port}), "cannot bind 127.0.1.7");
}

TEST(SupportRawPeer, BadAddresses_FailTheTest) {
  EXPECT_NONFATAL_FAILURE(RawPeer({"nowhere", 0}), "cannot bind nowhere:0");
  EXPECT_EQ(FindFreeUdpPort("nowhere"), 0u);
  RawPeer peer;
  EXPECT_NONFATAL_FAILURE(EXPECT_FALSE(peer.Send(Bytes({1}))), "cannot send to");
}

}  // namespace
}  // namespace coap_rpc_test
