/* test_coap_rpc_ser_conn.cpp: listens, and the entries attached to them. */
#include <algorithm>

#include "server_tables.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

const CoapRpcSerListenAddr kAddrA = Ipv4Addr(0x7f000001, 5683);
const CoapRpcSerListenAddr kAddrB = Ipv4Addr(0x7f000001, 5684);

class SerConn : public ServerTables {};

TEST_F(SerConn, Cmp_OrdersByFamilyAddressPort) {
  const CoapRpcSerListenAddr low = Ipv4Addr(0x7f000001, 9);
  const CoapRpcSerListenAddr high = Ipv4Addr(0xff000001, 1);
  const CoapRpcSerListenAddr highPort = Ipv4Addr(0xff000001, 65535);
  const CoapRpcSerListenAddr ipv6 = Ipv6Addr(0, 0);
  const CoapRpcSerListenAddr ipv6One = Ipv6Addr(1, 0);
  EXPECT_EQ(COAP_RpcSerConnCmp_(&low, &high), -1);
  EXPECT_EQ(COAP_RpcSerConnCmp_(&high, &low), 1);
  EXPECT_EQ(COAP_RpcSerConnCmp_(&high, &highPort), -1);
  EXPECT_EQ(COAP_RpcSerConnCmp_(&highPort, &high), 1);
  EXPECT_EQ(COAP_RpcSerConnCmp_(&highPort, &ipv6), -1);
  EXPECT_EQ(COAP_RpcSerConnCmp_(&ipv6One, &ipv6), 1);
  EXPECT_EQ(COAP_RpcSerConnCmp_(&ipv6, &ipv6), 0);
}

TEST_F(SerConn, Cmp_ReservedBytes_DoNotCount) {
  CoapRpcSerListenAddr other = kAddrA;
  other.rsv[0] = 1;
  other.listenAddr.rsv[2] = 1;
  other.listenAddr.addr.ipv6[15] = 1;
  EXPECT_EQ(COAP_RpcSerConnCmp_(&kAddrA, &other), 0);
}

TEST_F(SerConn, GetListenStr_WritesAddressAndPort) {
  char buf[64] = {};
  const CoapRpcSerListenAddr ipv6 = Ipv6Addr(1, 1);
  EXPECT_EQ(COAP_RpcSerGetListenStr_(&kAddrA, buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "addr:127.0.0.1, port:5683");
  EXPECT_STREQ(COAP_RpcSerGetListenStr_(&ipv6, buf, sizeof(buf)), "addr:::1, port:1");
  EXPECT_STREQ(COAP_RpcSerGetListenStr_(&kAddrA, buf, 10), "addr:127.");
}

TEST_F(SerConn, GetListenStr_LongIpv6_ShowsMarker) {
  CoapRpcSerListenAddr addr = Ipv6Addr(1, 7);
  memset(addr.listenAddr.addr.ipv6, 0x11, sizeof(addr.listenAddr.addr.ipv6));
  char buf[64] = {};
  EXPECT_STREQ(COAP_RpcSerGetListenStr_(&addr, buf, sizeof(buf)), "addr:-v6i-, port:7");
}

TEST_F(SerConn, Uninit_NullZeroedOrTwice_IsHarmless) {
  CoapRpcSerData zeroed = {};
  EXPECT_EQ(COAP_RpcSerConnUninit(nullptr), 0u);
  EXPECT_EQ(COAP_RpcSerConnUninit(&zeroed), 0u);
  EXPECT_EQ(COAP_RpcSerConnUninit(Ser()), 0u);
  EXPECT_EQ(COAP_RpcSerConnUninit(Ser()), 0u);
}

TEST_F(SerConn, Uninit_AttachedEntries_AreUnboundAndAllIsClosed) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(KeyOf("b")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  ASSERT_EQ(Set(KeyOf("b"), kAddrB), 0u);
  adapter_.events.clear();
  EXPECT_EQ(COAP_RpcSerConnUninit(Ser()), 0u);
  EXPECT_EQ(adapter_.events,
            (Texts{"close addr:127.0.0.1, port:5683", "close addr:127.0.0.1, port:5684"}));
  EXPECT_EQ(ListenTexts(), Texts{});
  EXPECT_EQ(Find(KeyOf("a"))->listen, nullptr);
  EXPECT_EQ(Find(KeyOf("b"))->listen, nullptr);
}

TEST_F(SerConn, AddListen_New_CopiesAddressWithoutEndPoint) {
  CoapRpcSerListenAddr addr = kAddrA;
  addr.rsv[1] = 0x5a;
  const CoapRpcSerListen *listen = COAP_RpcSerConnAddListen(Ser(), nullptr, &addr);
  ASSERT_NE(listen, nullptr);
  EXPECT_EQ(memcmp(&listen->key, &addr, 24), 0);
  EXPECT_EQ(listen->endPoint, nullptr);
  EXPECT_EQ(listen->uriDataList.next, &listen->uriDataList);
  EXPECT_TRUE(Host().HasLog("[CoapRpc]create listen success, addr:127.0.0.1, port:5683.\n"));
  EXPECT_TRUE(Host().HasDebug("[CoapRpc]create listen success, addr:127.0.0.1, port:5683.\n"));
}

TEST_F(SerConn, AddListen_AddressIsThere_ReturnsNull) {
  ASSERT_NE(COAP_RpcSerConnAddListen(Ser(), nullptr, &kAddrA), nullptr);
  const uint64_t numLive = Host().Pool().LiveCount();
  Host().ClearLogs();
  EXPECT_EQ(COAP_RpcSerConnAddListen(Ser(), nullptr, &kAddrA), nullptr);
  EXPECT_EQ(Host().Pool().LiveCount(), numLive);
  EXPECT_TRUE(Host().Logs().Records().empty());
}

TEST_F(SerConn, FindNext_WalksInOrder) {
  EXPECT_EQ(COAP_RpcSerFindFirstListen(Ser()), nullptr);
  const CoapRpcSerListenAddr ipv6 = Ipv6Addr(1, 1);
  ASSERT_NE(COAP_RpcSerConnAddListen(Ser(), nullptr, &ipv6), nullptr);
  ASSERT_NE(COAP_RpcSerConnAddListen(Ser(), nullptr, &kAddrB), nullptr);
  ASSERT_NE(COAP_RpcSerConnAddListen(Ser(), nullptr, &kAddrA), nullptr);
  EXPECT_EQ(ListenTexts(),
            (Texts{"addr:127.0.0.1, port:5683", "addr:127.0.0.1, port:5684", "addr:::1, port:1"}));
}

TEST_F(SerConn, CreatListen_AddressIsThere_Gives1900000152) {
  ASSERT_NE(COAP_RpcSerConnAddListen(Ser(), nullptr, &kAddrA), nullptr);
  const CoapRpcUriKey key = KeyOf("a");
  EXPECT_EQ(COAP_RpcSerCreatListen(ctx_, &key, &kAddrA), 1900000152u);
  EXPECT_EQ(adapter_.NumOf("open addr:127.0.0.1, port:5683"), 0u);
}

TEST_F(SerConn, CreatListen_NoMemory_Gives1900000152) {
  const CoapRpcUriKey key = KeyOf("a");
  Host().Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcSerCreatListen(ctx_, &key, &kAddrA), 1900000152u);
  EXPECT_EQ(ListenTexts(), Texts{});
}

TEST_F(SerConn, Bind_UnregisteredKey_LogsAndDeletesEmptyListen) {
  CoapRpcSerListen *listen = COAP_RpcSerConnAddListen(Ser(), nullptr, &kAddrA);
  const CoapRpcUriKey key = KeyOf("no", 1, 0, 2);
  EXPECT_EQ(COAP_RpcSerConnBindUriVtbl(Ser(), listen, &key), nullptr);
  ExpectError("COAP_RpcSerConnBindUriVtbl", 60,
              "[CoapRpc]findUriVtbl fail, uri:no, msgType:1, observe:0, pktType:2.\n");
  EXPECT_EQ(ListenTexts(), Texts{});
  EXPECT_EQ(adapter_.events, Texts{"close nothing"});
}

TEST_F(SerConn, Bind_UnregisteredKey_KeepsListenWithEntries) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  const CoapRpcUriKey key = KeyOf("no");
  EXPECT_EQ(COAP_RpcSerConnBindUriVtbl(Ser(), FindListen(kAddrA), &key), nullptr);
  EXPECT_EQ(EntriesOf(FindListen(kAddrA)), Texts{"a/0/0/0"});
  EXPECT_EQ(adapter_.endPoints.size(), 1u);
}

TEST_F(SerConn, Bind_RegisteredKey_AppendsAtTheTailAndLogs) {
  ASSERT_EQ(Register(KeyOf("b")), 0u);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  CoapRpcSerListen *listen = COAP_RpcSerConnAddListen(Ser(), nullptr, &kAddrA);
  const CoapRpcUriKey first = KeyOf("b");
  const CoapRpcUriKey second = KeyOf("a");
  EXPECT_EQ(COAP_RpcSerConnBindUriVtbl(Ser(), listen, &first), Find(first));
  EXPECT_EQ(COAP_RpcSerConnBindUriVtbl(Ser(), listen, &second), Find(second));
  EXPECT_EQ(EntriesOf(listen), (Texts{"b/0/0/0", "a/0/0/0"}));
  EXPECT_EQ(Find(first)->listen, listen);
  EXPECT_TRUE(
      Host().HasLog("[CoapRpc]create uri success, uri:b, msgType:0, observe:0, pktType:0.\n"));
}

// The session for answers has been sending from an address that may be gone.
TEST_F(SerConn, Bind_ElsewhereThanBefore_RenewsTheSourceOfAnswers) {
  adapter_.InstallExt(ctx_);
  const CoapRpcUriKey key = KeyOf("a");
  int session = 0;
  Register(key);
  EXPECT_EQ(Set(key, kAddrA), 0u);
  Find(key)->asyncSession = reinterpret_cast<coap_session_t *>(&session);
  adapter_.events.clear();
  EXPECT_EQ(Set(key, kAddrA), 0u);
  EXPECT_EQ(std::count(adapter_.events.begin(), adapter_.events.end(), "renew source"), 0);
  EXPECT_EQ(Set(key, kAddrB), 0u);
  EXPECT_EQ(std::count(adapter_.events.begin(), adapter_.events.end(), "renew source"), 1);
}

TEST_F(SerConn, IsBind_OnlyOnItsListen) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(KeyOf("b")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  ASSERT_EQ(Set(KeyOf("b"), kAddrB), 0u);
  const CoapRpcUriKey key = KeyOf("a");
  EXPECT_EQ(COAP_RpcSerConnIsBindVtbl(FindListen(kAddrA), &key), Find(key));
  EXPECT_EQ(COAP_RpcSerConnIsBindVtbl(FindListen(kAddrB), &key), nullptr);
}

TEST_F(SerConn, UnBind_NotAttached_DoesNothing) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  COAP_RpcSerConnUnBindUriVtbl(nullptr, nullptr, Find(KeyOf("a")));
  EXPECT_EQ(Find(KeyOf("a"))->listen, nullptr);
}

TEST_F(SerConn, UnBindAll_EmptiesListenAndLeavesIt) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(KeyOf("b")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  ASSERT_EQ(Set(KeyOf("b"), kAddrA), 0u);
  COAP_RpcSerConnUnBindAllUriVtbl(nullptr, FindListen(kAddrA));
  EXPECT_EQ(EntriesOf(FindListen(kAddrA)), Texts{});
  EXPECT_EQ(Find(KeyOf("a"))->listen, nullptr);
  EXPECT_EQ(Find(KeyOf("b"))->listenLink.next, &Find(KeyOf("b"))->listenLink);
  EXPECT_EQ(adapter_.endPoints.size(), 1u);
}

TEST_F(SerConn, TryDelListen_HasEntries_DoesNothing) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  COAP_RpcSerConnTryDelListen(Ser(), FindListen(kAddrA));
  EXPECT_EQ(ListenTexts(), Texts{"addr:127.0.0.1, port:5683"});
  EXPECT_EQ(adapter_.endPoints.size(), 1u);
}

}  // namespace
}  // namespace coap_rpc_test
