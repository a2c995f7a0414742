/* test_coap_rpc_ser.cpp: the server's entry points: register, attach, detach, feed. */
#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "server_tables.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

const CoapRpcSerListenAddr kAddrA = Ipv4Addr(0x7f000001, 5683);
const CoapRpcSerListenAddr kAddrB = Ipv4Addr(0x7f000001, 5684);
constexpr char kPath[] = "coap_server/src/coap_svc/rpc/init/coap_rpc_ser";

class Ser : public ServerTables {
 protected:
  static const std::vector<AssertRecord> &Asserts() { return TestHost::Process().Asserts(); }

  void ExpectSetListenFailed(const std::string &text) {
    ExpectError("COAP_RpcSerSetUri", 101, text);
    const std::vector<LogRecord> debug = host_.Logs().OfKind(LogKind::kDebug);
    ASSERT_FALSE(debug.empty());
    EXPECT_EQ(debug.back().text, text);
    EXPECT_EQ(debug.back().level, 1u);
  }
};

TEST_F(Ser, RegVtbl_NullArgument_Gives1900000169) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcSerVtblReg reg = {};
  EXPECT_EQ(COAP_RpcSerRegVtbl(nullptr, &key, &reg, nullptr), 1900000169u);
  EXPECT_EQ(COAP_RpcSerRegVtbl(ctx_, nullptr, &reg, nullptr), 1900000169u);
  EXPECT_EQ(COAP_RpcSerRegVtbl(ctx_, &key, nullptr, nullptr), 1900000169u);
  EXPECT_EQ(Asserts(), (std::vector<AssertRecord>(3, {kPath, 168})));
  EXPECT_EQ(UriTexts(), Texts{});
}

TEST_F(Ser, SetUri_NullArgument_Gives1900000077) {
  const CoapRpcUriKey key = KeyOf("a");
  EXPECT_EQ(COAP_RpcSerSetUri(nullptr, &key, &kAddrA), 1900000077u);
  EXPECT_EQ(COAP_RpcSerSetUri(ctx_, nullptr, &kAddrA), 1900000077u);
  EXPECT_EQ(COAP_RpcSerSetUri(ctx_, &key, nullptr), 1900000077u);
  EXPECT_EQ(Asserts(), (std::vector<AssertRecord>(3, {kPath, 76})));
}

TEST_F(Ser, SetUri_ZeroIpv4_Gives1900000087) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  Host().ClearLogs();
  EXPECT_EQ(Set(KeyOf("a"), Ipv4Addr(0, 5683)), 1900000087u);
  EXPECT_EQ(ListenTexts(), Texts{});
  EXPECT_TRUE(Host().Logs().Records().empty());
}

TEST_F(Ser, SetUri_UnknownFamily_Gives1900000082) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  Host().ClearLogs();
  for (const uint8_t family : {uint8_t{0}, uint8_t{3}, uint8_t{255}}) {
    CoapRpcSerListenAddr addr = kAddrA;
    addr.listenAddr.family = family;
    EXPECT_EQ(Set(KeyOf("a"), addr), 1900000082u);
  }
  EXPECT_EQ(ListenTexts(), Texts{});
  EXPECT_TRUE(Host().Logs().Records().empty());
  EXPECT_EQ(adapter_.events, Texts{});
}

TEST_F(Ser, SetUri_Ipv6Wildcard_IsAttached) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(Set(KeyOf("a"), Ipv6Addr(0, 5683)), 0u);
  EXPECT_EQ(ListenTexts(), Texts{"addr:::, port:5683"});
}

TEST_F(Ser, SetUri_Port0And65535_ArePassedOn) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(Set(KeyOf("a"), Ipv4Addr(0x7f000001, 0)), 0u);
  EXPECT_EQ(Set(KeyOf("a"), Ipv4Addr(0x7f000001, 65535)), 0u);
  EXPECT_EQ(ListenTexts(), (Texts{"addr:127.0.0.1, port:0", "addr:127.0.0.1, port:65535"}));
}

TEST_F(Ser, SetUri_StrayBytesAfterTerminator_Gives1900000163) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  CoapRpcUriKey stray = KeyOf("a");
  stray.uri[63] = 'x';
  EXPECT_EQ(Set(stray, kAddrA), 1900000163u);
  EXPECT_EQ(ListenTexts(), Texts{});
  EXPECT_EQ(adapter_.events,
            (Texts{"open addr:127.0.0.1, port:5683", "close addr:127.0.0.1, port:5683"}));
  ExpectSetListenFailed(
      "[CoapRpc]set listen Failed, addr:0x7f000001, port:5683, uri:a, observe:0, msgTyp:0, "
      "pktType:0, ret:1900000163.\n");
}

TEST_F(Ser, SetUri_RegisteredKey_OpensEndPointThenMakesResource) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  EXPECT_EQ(adapter_.events, (Texts{"open addr:127.0.0.1, port:5683", "resource a"}));
  EXPECT_EQ(Find(KeyOf("a"))->listen, FindListen(kAddrA));
  EXPECT_NE(FindListen(kAddrA)->endPoint, nullptr);
  EXPECT_EQ(Host().LogsOf("COAP_RpcSerSetUri").size(), 0u);
}

TEST_F(Ser, SetUri_UnregisteredKeyOnFreshAddress_Gives1900000163) {
  EXPECT_EQ(Set(KeyOf("no", 1, 2, 0), kAddrA), 1900000163u);
  ExpectError("COAP_RpcSerConnBindUriVtbl", 60,
              "[CoapRpc]findUriVtbl fail, uri:no, msgType:1, observe:2, pktType:0.\n");
  ExpectSetListenFailed(
      "[CoapRpc]set listen Failed, addr:0x7f000001, port:5683, uri:no, observe:2, msgTyp:1, "
      "pktType:0, ret:1900000163.\n");
  EXPECT_EQ(adapter_.events,
            (Texts{"open addr:127.0.0.1, port:5683", "close addr:127.0.0.1, port:5683"}));
  EXPECT_EQ(ListenTexts(), Texts{});
}

TEST_F(Ser, SetUri_UnregisteredKeyOnListen_Gives1900000177) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  EXPECT_EQ(Set(KeyOf("no"), kAddrA), 1900000177u);
  ExpectSetListenFailed(
      "[CoapRpc]set listen Failed, addr:0x7f000001, port:5683, uri:no, observe:0, msgTyp:0, "
      "pktType:0, ret:1900000177.\n");
  EXPECT_EQ(EntriesOf(FindListen(kAddrA)), Texts{"a/0/0/0"});
}

TEST_F(Ser, SetUri_NoListenRecord_Gives1900000152) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  Host().Pool().Failures().FailOnce(1);
  EXPECT_EQ(Set(KeyOf("a"), kAddrA), 1900000152u);
  ExpectSetListenFailed(
      "[CoapRpc]set listen Failed, addr:0x7f000001, port:5683, uri:a, observe:0, msgTyp:0, "
      "pktType:0, ret:1900000152.\n");
  EXPECT_EQ(adapter_.events, Texts{});
}

TEST_F(Ser, SetUri_Ipv6Fails_LogsFirstFourBytes) {
  CoapRpcSerListenAddr addr = Ipv6Addr(1, 65535);
  const uint32_t firstWord = 0x12345678;
  memcpy(addr.listenAddr.addr.ipv6, &firstWord, sizeof(firstWord));
  EXPECT_EQ(Set(KeyOf(std::string(64, 'u')), addr), 1900000163u);
  ExpectSetListenFailed(
      "[CoapRpc]set listen Failed, addr:0x12345678, port:65535, uri:" + std::string(64, 'u') +
      ", observe:0, msgTyp:0, pktType:0, ret:1900000163.\n");
}

TEST_F(Ser, SetUri_FailsWithoutHandles_WritesNothing) {
  ctx_->log = 0;
  ctx_->param.dbgHandle = 0;
  EXPECT_EQ(Set(KeyOf("no"), kAddrA), 1900000163u);
  EXPECT_TRUE(Host().Logs().Records().empty());
  EXPECT_TRUE(TestHost::Process().NullDebugTexts().empty());
}

TEST_F(Ser, SetUri_NoEndPoint_Gives1900000157AndListenStays) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  adapter_.failsEndPoints = true;
  EXPECT_EQ(Set(KeyOf("a"), kAddrA), 1900000157u);
  ExpectSetListenFailed(
      "[CoapRpc]set listen Failed, addr:0x7f000001, port:5683, uri:a, observe:0, msgTyp:0, "
      "pktType:0, ret:1900000157.\n");
  ASSERT_EQ(ListenTexts(), Texts{"addr:127.0.0.1, port:5683"});
  EXPECT_EQ(FindListen(kAddrA)->endPoint, nullptr);
  EXPECT_EQ(EntriesOf(FindListen(kAddrA)), Texts{});
  EXPECT_EQ(Find(KeyOf("a"))->listen, nullptr);
}

TEST_F(Ser, SetUri_ListenWithoutEndPoint_IsReusedWithoutOpening) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  adapter_.failsEndPoints = true;
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 1900000157u);
  adapter_.failsEndPoints = false;
  EXPECT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  EXPECT_EQ(adapter_.events, (Texts{"open addr:127.0.0.1, port:5683", "resource a"}));
  EXPECT_EQ(FindListen(kAddrA)->endPoint, nullptr);
  EXPECT_EQ(Unset(KeyOf("a")), 0u);
  EXPECT_EQ(adapter_.NumOf("close nothing"), 1u);
  EXPECT_EQ(ListenTexts(), Texts{});
}

TEST_F(Ser, SetUri_UnregisteredKeyOnEmptyListen_DeletesIt) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrB), 0u);
  EXPECT_EQ(Set(KeyOf("no"), kAddrA), 1900000177u);
  EXPECT_EQ(ListenTexts(), Texts{"addr:127.0.0.1, port:5684"});
}

TEST_F(Ser, SetUri_SameAddressAgain_RunsOnlyTheResourceStep) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(KeyOf("b")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  ASSERT_EQ(Set(KeyOf("b"), kAddrA), 0u);
  adapter_.events.clear();
  Host().ClearLogs();
  EXPECT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  EXPECT_EQ(adapter_.events, Texts{"resource a"});
  EXPECT_EQ(EntriesOf(FindListen(kAddrA)), (Texts{"a/0/0/0", "b/0/0/0"}));
  EXPECT_TRUE(Host().Logs().Records().empty());
}

TEST_F(Ser, SetUri_OtherAddress_MovesAndOldListenStays) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  EXPECT_EQ(Set(KeyOf("a"), kAddrB), 0u);
  EXPECT_EQ(ListenTexts(), (Texts{"addr:127.0.0.1, port:5683", "addr:127.0.0.1, port:5684"}));
  EXPECT_EQ(EntriesOf(FindListen(kAddrA)), Texts{});
  EXPECT_EQ(EntriesOf(FindListen(kAddrB)), Texts{"a/0/0/0"});
  EXPECT_EQ(Find(KeyOf("a"))->listen, FindListen(kAddrB));
  EXPECT_EQ(adapter_.endPoints.size(), 2u);
  EXPECT_EQ(Unset(KeyOf("a")), 0u);
  EXPECT_EQ(ListenTexts(), Texts{"addr:127.0.0.1, port:5683"});
}

TEST_F(Ser, SetUri_EmptyListen_IsReusedAndDeletedByItsNextDetach) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrB), 0u);
  EXPECT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  EXPECT_EQ(adapter_.NumOf("open addr:127.0.0.1, port:5683"), 1u);
  EXPECT_EQ(Unset(KeyOf("a")), 0u);
  EXPECT_EQ(ListenTexts(), Texts{"addr:127.0.0.1, port:5684"});
}

TEST_F(Ser, SetUri_TwoKeysOneAddress_ShareListenAndEndPoint) {
  ASSERT_EQ(Register(KeyOf("b")), 0u);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("b"), kAddrA), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  EXPECT_EQ(adapter_.endPoints.size(), 1u);
  EXPECT_EQ(EntriesOf(FindListen(kAddrA)), (Texts{"b/0/0/0", "a/0/0/0"}));
  EXPECT_EQ(Unset(KeyOf("b")), 0u);
  EXPECT_EQ(adapter_.endPoints.size(), 1u);
  EXPECT_EQ(Unset(KeyOf("a")), 0u);
  EXPECT_EQ(adapter_.endPoints.size(), 0u);
  EXPECT_EQ(ListenTexts(), Texts{});
}

TEST_F(Ser, SetUri_TwoPortsOrFamilies_AreTwoListens) {
  for (const char *uri : {"a", "b", "c"}) ASSERT_EQ(Register(KeyOf(uri)), 0u);
  EXPECT_EQ(Set(KeyOf("a"), Ipv4Addr(1, 0)), 0u);
  EXPECT_EQ(Set(KeyOf("b"), Ipv4Addr(1, 65535)), 0u);
  EXPECT_EQ(Set(KeyOf("c"), Ipv6Addr(1, 0)), 0u);
  EXPECT_EQ(ListenTexts(),
            (Texts{"addr:0.0.0.1, port:0", "addr:0.0.0.1, port:65535", "addr:::1, port:0"}));
}

TEST_F(Ser, SetUri_TwoMessageTypes_ShareResource) {
  ASSERT_EQ(Register(KeyOf("a", 0)), 0u);
  ASSERT_EQ(Register(KeyOf("a", 1)), 0u);
  ASSERT_EQ(Set(KeyOf("a", 0), kAddrA), 0u);
  ASSERT_EQ(Set(KeyOf("a", 1), kAddrB), 0u);
  EXPECT_EQ(ResTexts(), Texts{"a"});
  EXPECT_EQ(Unset(KeyOf("a", 0)), 0u);
  EXPECT_EQ(adapter_.resources, std::set<std::string>{"a"});
  EXPECT_EQ(Unset(KeyOf("a", 1)), 0u);
  EXPECT_EQ(adapter_.resources, std::set<std::string>{});
}

TEST_F(Ser, SetUri_64Characters_Gives0WithoutResource) {
  const CoapRpcUriKey key = KeyOf(std::string(64, 'u'));
  ASSERT_EQ(Register(key), 0u);
  EXPECT_EQ(Set(key, kAddrA), 0u);
  EXPECT_EQ(ResTexts(), Texts{});
  EXPECT_EQ(adapter_.events, Texts{"open addr:127.0.0.1, port:5683"});
  EXPECT_NE(Unset(key), 0u);  // the copy's error, but detached
  EXPECT_EQ(ListenTexts(), Texts{});
}

TEST_F(Ser, SetUri_ResourceFails_Gives0) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  adapter_.resourceResult = 1900000071;
  EXPECT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  EXPECT_EQ(ResTexts(), Texts{"a"});
  EXPECT_EQ(Host().LogsOf("COAP_RpcSerSetUri").size(), 0u);
}

TEST_F(Ser, UnsetUri_NullArgument_Gives1900001450) {
  const CoapRpcUriKey key = KeyOf("a");
  EXPECT_EQ(COAP_RpcSerUnsetUri(nullptr, &key), 1900001450u);
  EXPECT_EQ(COAP_RpcSerUnsetUri(ctx_, nullptr), 1900001450u);
  EXPECT_STREQ(COAP_RpcErrStr(1900001450), "COAP_RpcSerUnsetUri: null argument");
  EXPECT_EQ(Asserts(), (std::vector<AssertRecord>(2, {kPath, 114})));
}

TEST_F(Ser, Reopen_NullArgument_Gives1900001452AndAssertsLine1451) {
  EXPECT_EQ(COAP_RpcSerReopen(nullptr, &kAddrA), 1900001452u);
  EXPECT_EQ(COAP_RpcSerReopen(ctx_, nullptr), 1900001452u);
  EXPECT_EQ(Asserts(), (std::vector<AssertRecord>(2, {kPath, 1451})));
}

TEST_F(Ser, Reopen_NoListen_Gives1900001453) {
  adapter_.InstallExt(ctx_);
  EXPECT_EQ(COAP_RpcSerReopen(ctx_, &kAddrA), 1900001453u);
  EXPECT_EQ(adapter_.events, Texts{});
}

TEST_F(Ser, Reopen_BareListen_OpensOnceUntilItHasAnEndPoint) {
  adapter_.InstallExt(ctx_);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  adapter_.failsEndPoints = true;
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 1900000157u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  adapter_.events.clear();
  EXPECT_EQ(COAP_RpcSerReopen(ctx_, &kAddrA), 1900001454u);
  adapter_.failsEndPoints = false;
  EXPECT_EQ(COAP_RpcSerReopen(ctx_, &kAddrA), 0u);
  EXPECT_EQ(adapter_.events, Texts(2, "open addr:127.0.0.1, port:5683"));
  EXPECT_NE(FindListen(kAddrA)->endPoint, nullptr);
  EXPECT_EQ(COAP_RpcSerReopen(ctx_, &kAddrA), 0u);
  EXPECT_EQ(adapter_.events.size(), 2u) << "it has its endpoint";
}

TEST_F(Ser, UnsetUri_UnregisteredKey_Gives0) { EXPECT_EQ(Unset(KeyOf("no")), 0u); }

TEST_F(Ser, UnsetUri_NeverAttached_Gives1900001201) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(Unset(KeyOf("a")), 1900001201u);
  EXPECT_EQ(adapter_.events, Texts{});
  EXPECT_NE(Find(KeyOf("a")), nullptr);
}

TEST_F(Ser, UnsetUri_Attached_ClosesListenThenDropsResource) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  adapter_.events.clear();
  EXPECT_EQ(Unset(KeyOf("a")), 0u);
  EXPECT_EQ(adapter_.events, (Texts{"close addr:127.0.0.1, port:5683", "drop a"}));
  EXPECT_EQ(Find(KeyOf("a"))->listen, nullptr);
  EXPECT_EQ(Unset(KeyOf("a")), 1900001201u);
}

TEST_F(Ser, UnsetUri_ThenSetUri_AttachesAgain) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  ASSERT_EQ(Unset(KeyOf("a")), 0u);
  EXPECT_EQ(Set(KeyOf("a"), kAddrB), 0u);
  EXPECT_EQ(ListenTexts(), Texts{"addr:127.0.0.1, port:5684"});
  EXPECT_EQ(adapter_.resources, std::set<std::string>{"a"});
}

TEST_F(Ser, UnsetUri_ObserverNum_IsKept) {
  const CoapRpcUriKey key = KeyOf("a", 0, 1, 2);
  ASSERT_EQ(RegisterObservable(key), 0u);
  ASSERT_EQ(Set(key, kAddrA), 0u);
  Find(key)->observerNum = 3;
  EXPECT_EQ(Unset(key), 0u);
  EXPECT_EQ(Find(key)->observerNum, 3u);
}

TEST_F(Ser, Uninit_AttachedEntries_EntriesThenListensThenResources) {
  adapter_.InstallExt(ctx_);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Set(KeyOf("a"), kAddrA), 0u);
  adapter_.events.clear();
  EXPECT_EQ(COAP_RpcSerUninit(ctx_), 0u);
  EXPECT_EQ(adapter_.events, (Texts{"forget a", "close addr:127.0.0.1, port:5683", "drop a"}));
  EXPECT_EQ(ctx_->ser, nullptr);
  EXPECT_EQ(COAP_RpcSerUninit(ctx_), 0u);
}

TEST_F(Ser, ObserveDataUpdate_NullArgument_Gives1900000125) {
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(nullptr, &key, "key1", "val1"), 1900000125u);
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(ctx_, nullptr, "key1", "val1"), 1900000125u);
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(ctx_, &key, nullptr, "val1"), 1900000125u);
  EXPECT_EQ(Asserts(), (std::vector<AssertRecord>(3, {kPath, 124})));
}

TEST_F(Ser, ObserveDataUpdate_UnknownOrPlainKey_Gives1900000130) {
  adapter_.InstallChanges(ctx_);
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(ctx_, &key, "key1", "val1"), 1900000130u);
  ASSERT_EQ(Register(key), 0u);
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(ctx_, &key, "key1", "val1"), 1900000130u);
  EXPECT_EQ(adapter_.events, Texts{});
}

TEST_F(Ser, ObserveDataUpdate_RefreshesTimerThenQueuesChange) {
  adapter_.InstallChanges(ctx_);
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  ASSERT_EQ(RegisterObservable(key), 0u);
  const char val[] = "val1";
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(ctx_, &key, "key1", val), 0u);
  EXPECT_EQ(adapter_.events, (Texts{"refresh", "chg 1"}));
  EXPECT_EQ(adapter_.lastChgVal, val);
  EXPECT_TRUE(
      Host().HasLog("[CoapRpc]add uri tuple success, uri:a, msgType:0, observe:1, pktType:0.\n"));
  EXPECT_TRUE(
      Host().HasDebug("[CoapRpc]add uri tuple success, uri:a, msgType:0, observe:1, pktType:0.\n"));
}

TEST_F(Ser, ObserveDataUpdate_ChangeNotQueued_Gives0) {
  adapter_.InstallChanges(ctx_);
  adapter_.chgResult = 1900000129;
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  ASSERT_EQ(RegisterObservable(key), 0u);
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(ctx_, &key, "key1", nullptr), 0u);
}

TEST_F(Ser, ObserveDataDel_NullArgument_IsAsserted) {
  adapter_.InstallChanges(ctx_);
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  COAP_RpcSerObserveDataDel(nullptr, &key, "key1");
  COAP_RpcSerObserveDataDel(ctx_, nullptr, "key1");
  COAP_RpcSerObserveDataDel(ctx_, &key, nullptr);
  EXPECT_EQ(Asserts(), (std::vector<AssertRecord>(3, {kPath, 149})));
  EXPECT_EQ(adapter_.events, Texts{});
}

TEST_F(Ser, ObserveDataDel_UnknownOrPlainKey_DoesNothing) {
  adapter_.InstallChanges(ctx_);
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  COAP_RpcSerObserveDataDel(ctx_, &key, "key1");
  ASSERT_EQ(Register(key), 0u);
  COAP_RpcSerObserveDataDel(ctx_, &key, "key1");
  EXPECT_EQ(adapter_.events, Texts{});
}

TEST_F(Ser, ObserveDataDel_AbsentTuple_QueuesChangeWithoutRefreshOrLog) {
  adapter_.InstallChanges(ctx_);
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  ASSERT_EQ(RegisterObservable(key), 0u);
  Host().ClearLogs();
  adapter_.lastChgVal = &key;
  COAP_RpcSerObserveDataDel(ctx_, &key, "key1");
  EXPECT_EQ(adapter_.events, Texts{"chg 2"});
  EXPECT_EQ(adapter_.lastChgVal, nullptr);
  EXPECT_TRUE(Host().Logs().Records().empty());
}

}  // namespace
}  // namespace coap_rpc_test
