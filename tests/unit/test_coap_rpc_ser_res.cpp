/* test_coap_rpc_ser_res.cpp: the uris for which a resource exists. */
#include "server_tables.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

class SerRes : public ServerTables {
 protected:
  void Create(const CoapRpcUriKey &key) { COAP_RpcCreateOrUpdateUriRes(ctx_, &key); }
  uint32_t TryDel(const CoapRpcUriKey &key) { return COAP_RpcTryDelUriRes(ctx_, &key); }
  CoapRpcSerUriRes *FindRes(const CoapRpcUriKey &key) {
    return COAP_RpcSerFindUriRes(Ser(), key.uri);
  }
};

TEST_F(SerRes, Uninit_NullZeroedOrTwice_IsHarmless) {
  CoapRpcSerData zeroed = {};
  EXPECT_EQ(COAP_RpcSerResourceUninit(nullptr), 0u);
  EXPECT_EQ(COAP_RpcSerResourceUninit(&zeroed), 0u);
  EXPECT_EQ(COAP_RpcSerResourceUninit(Ser()), 0u);
  EXPECT_EQ(COAP_RpcSerResourceUninit(Ser()), 0u);
}

TEST_F(SerRes, Uninit_BoundEntries_AreUnboundAndResourcesDropped) {
  ASSERT_EQ(Register(KeyOf("b")), 0u);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  Create(KeyOf("b"));
  Create(KeyOf("a"));
  adapter_.events.clear();
  EXPECT_EQ(COAP_RpcSerResourceUninit(Ser()), 0u);
  EXPECT_EQ(adapter_.events, (Texts{"drop a", "drop b"}));
  EXPECT_EQ(ResTexts(), Texts{});
  EXPECT_EQ(Find(KeyOf("a"))->resLink.next, &Find(KeyOf("a"))->resLink);
}

TEST_F(SerRes, Add_New_CopiesAll64BytesAndLogs) {
  const std::string uri(64, 'r');
  const CoapRpcSerUriRes *res = COAP_RpcSerAddUriRes(Ser(), KeyOf(uri).uri);
  ASSERT_NE(res, nullptr);
  EXPECT_EQ(UriOf(res->uri), uri);
  EXPECT_EQ(res->uriDataList.next, &res->uriDataList);
  EXPECT_TRUE(Host().HasLog("[CoapRpc]create uriRes success, uri:" + uri + ".\n"));
}

TEST_F(SerRes, Add_UriIsThere_ReturnsNullWithoutLog) {
  ASSERT_NE(COAP_RpcSerAddUriRes(Ser(), KeyOf("a").uri), nullptr);
  Host().ClearLogs();
  EXPECT_EQ(COAP_RpcSerAddUriRes(Ser(), KeyOf("a").uri), nullptr);
  EXPECT_TRUE(Host().Logs().Records().empty());
}

TEST_F(SerRes, Add_NoMemory_ReturnsNull) {
  Host().Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcSerAddUriRes(Ser(), KeyOf("a").uri), nullptr);
  EXPECT_EQ(ResTexts(), Texts{});
}

TEST_F(SerRes, FindNext_WalksInOrder) {
  for (const char *uri : {"c", "a", "ab"}) COAP_RpcSerAddUriRes(Ser(), KeyOf(uri).uri);
  EXPECT_EQ(ResTexts(), (Texts{"a", "ab", "c"}));
}

TEST_F(SerRes, Create_RegisteredKey_BindsAndMakesResource) {
  const CoapRpcUriKey key = KeyOf("a", 0, 1, 2);
  ASSERT_EQ(Register(key), 0u);
  Host().ClearLogs();
  Create(key);
  EXPECT_EQ(EntriesOf(FindRes(key)), Texts{"a/0/1/2"});
  EXPECT_TRUE(Host().HasLog("[CoapRpc]create uriRes success, uri:a.\n"));
  EXPECT_TRUE(
      Host().HasLog("[CoapRpc]bind uriRes success, uri:a, msgType:0, observe:1, pktType:2.\n"));
  ASSERT_EQ(adapter_.resourceKeys.size(), 1u);
  EXPECT_EQ(memcmp(&adapter_.resourceKeys[0], &key, 76), 0);
}

TEST_F(SerRes, Create_Again_RefreshesWithoutBindingTwice) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  Create(KeyOf("a"));
  Host().ClearLogs();
  Create(KeyOf("a"));
  EXPECT_EQ(adapter_.events, (Texts{"resource a", "resource a"}));
  EXPECT_EQ(EntriesOf(FindRes(KeyOf("a"))), Texts{"a/0/0/0"});
  EXPECT_TRUE(Host().Logs().Records().empty());
}

TEST_F(SerRes, Create_UnregisteredKey_LeavesNothing) {
  Create(KeyOf("a"));
  EXPECT_EQ(ResTexts(), Texts{});
  EXPECT_EQ(adapter_.events, Texts{"drop a"});
}

TEST_F(SerRes, Create_UnregisteredKey_KeepsRecordWithEntries) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  Create(KeyOf("a"));
  adapter_.events.clear();
  Create(KeyOf("a", 1));
  EXPECT_EQ(EntriesOf(FindRes(KeyOf("a"))), Texts{"a/0/0/0"});
  EXPECT_EQ(adapter_.events, Texts{});
}

TEST_F(SerRes, Create_64Characters_DoesNothing) {
  const CoapRpcUriKey key = KeyOf(std::string(64, 'u'));
  ASSERT_EQ(Register(key), 0u);
  Host().ClearLogs();
  Create(key);
  EXPECT_EQ(ResTexts(), Texts{});
  EXPECT_EQ(adapter_.events, Texts{});
  EXPECT_TRUE(Host().Logs().Records().empty());
}

TEST_F(SerRes, Create_63Characters_MakesResource) {
  const std::string uri(63, 'u');
  ASSERT_EQ(Register(KeyOf(uri)), 0u);
  Create(KeyOf(uri));
  EXPECT_EQ(ResTexts(), Texts{uri});
  EXPECT_EQ(adapter_.resources.count(uri), 1u);
}

TEST_F(SerRes, Create_NoMemoryForRecord_DoesNothing) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  Host().ClearLogs();
  Host().Pool().Failures().FailOnce(1);
  Create(KeyOf("a"));
  EXPECT_EQ(ResTexts(), Texts{});
  EXPECT_EQ(adapter_.events, Texts{});
  EXPECT_TRUE(Host().Logs().Records().empty());
}

TEST_F(SerRes, Create_StrayBytesAfterTerminator_ShareRecord) {
  CoapRpcUriKey stray = KeyOf("a");
  stray.uri[9] = 'x';
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(stray), 0u);
  Create(KeyOf("a"));
  Create(stray);
  EXPECT_EQ(ResTexts(), Texts{"a"});
  EXPECT_EQ(EntriesOf(FindRes(KeyOf("a"))).size(), 2u);
  EXPECT_EQ(TryDel(stray), 0u);
  EXPECT_EQ(EntriesOf(FindRes(KeyOf("a"))).size(), 1u);
}

TEST_F(SerRes, Create_ResourceFails_LogsAndKeepsBinding) {
  ASSERT_EQ(Register(KeyOf("a", 1, 0, 1)), 0u);
  adapter_.resourceResult = 1900000071;
  Create(KeyOf("a", 1, 0, 1));
  ExpectError("COAP_RpcCreateOrUpdateUriRes", 153,
              "[CoapRpc]add resource Failed, uri:a, msgType:1, observe:0, pktType:1.\n");
  EXPECT_EQ(EntriesOf(FindRes(KeyOf("a"))), Texts{"a/1/0/1"});

  adapter_.resourceResult = 0;
  Create(KeyOf("a", 1, 0, 1));
  EXPECT_EQ(adapter_.resources, std::set<std::string>{"a"});
}

TEST_F(SerRes, Bind_MovesEntryToTheRecord) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  const CoapRpcUriKey key = KeyOf("a");
  CoapRpcSerUriRes *own = COAP_RpcSerAddUriRes(Ser(), key.uri);
  CoapRpcSerUriRes *other = COAP_RpcSerAddUriRes(Ser(), KeyOf("other").uri);
  EXPECT_EQ(COAP_RpcSerResBindUriVtbl(Ser(), other, &key), Find(key));
  EXPECT_EQ(COAP_RpcSerResBindUriVtbl(Ser(), own, &key), Find(key));
  EXPECT_EQ(EntriesOf(other), Texts{});
  EXPECT_EQ(EntriesOf(own), Texts{"a/0/0/0"});
}

TEST_F(SerRes, Bind_UnregisteredKey_ReturnsNullWithoutLog) {
  const CoapRpcUriKey key = KeyOf("a");
  CoapRpcSerUriRes *res = COAP_RpcSerAddUriRes(Ser(), key.uri);
  Host().ClearLogs();
  EXPECT_EQ(COAP_RpcSerResBindUriVtbl(Ser(), res, &key), nullptr);
  EXPECT_TRUE(Host().Logs().Records().empty());
}

TEST_F(SerRes, IsBind_FindsByWholeKey) {
  ASSERT_EQ(Register(KeyOf("a", 1)), 0u);
  Create(KeyOf("a", 1));
  const CoapRpcUriKey bound = KeyOf("a", 1);
  const CoapRpcUriKey other = KeyOf("a", 0);
  EXPECT_EQ(COAP_RpcSerResIsBindVtbl(FindRes(bound), &bound), Find(bound));
  EXPECT_EQ(COAP_RpcSerResIsBindVtbl(FindRes(bound), &other), nullptr);
}

TEST_F(SerRes, SerTryDel_HasEntries_DoesNothing) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  Create(KeyOf("a"));
  COAP_RpcSerTryDelUriRes(Ser(), FindRes(KeyOf("a")));
  EXPECT_EQ(ResTexts(), Texts{"a"});
  EXPECT_EQ(adapter_.resources, std::set<std::string>{"a"});
}

TEST_F(SerRes, UnBindAll_EmptiesRecordAndLeavesIt) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(KeyOf("a", 1)), 0u);
  Create(KeyOf("a"));
  Create(KeyOf("a", 1));
  EXPECT_EQ(EntriesOf(FindRes(KeyOf("a"))), (Texts{"a/0/0/0", "a/1/0/0"}));
  COAP_RpcSerResUnBindAllUriVtbl(nullptr, FindRes(KeyOf("a")));
  EXPECT_EQ(EntriesOf(FindRes(KeyOf("a"))), Texts{});
  EXPECT_EQ(ResTexts(), Texts{"a"});
}

TEST_F(SerRes, TryDel_NoRecord_Gives0) { EXPECT_EQ(TryDel(KeyOf("a")), 0u); }

TEST_F(SerRes, TryDel_64Characters_GivesCopyError) {
  EXPECT_NE(TryDel(KeyOf(std::string(64, 'u'))), 0u);
}

TEST_F(SerRes, TryDel_EntryNotBound_Gives1900001221) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(KeyOf("a", 1)), 0u);
  Create(KeyOf("a"));
  EXPECT_EQ(TryDel(KeyOf("a", 1)), 1900001221u);
  EXPECT_EQ(EntriesOf(FindRes(KeyOf("a"))), Texts{"a/0/0/0"});
}

TEST_F(SerRes, TryDel_LastEntry_DropsResource) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(KeyOf("a", 1)), 0u);
  Create(KeyOf("a"));
  Create(KeyOf("a", 1));
  EXPECT_EQ(TryDel(KeyOf("a")), 0u);
  EXPECT_EQ(adapter_.resources, std::set<std::string>{"a"});
  EXPECT_EQ(TryDel(KeyOf("a", 1)), 0u);
  EXPECT_EQ(adapter_.resources, std::set<std::string>{});
  EXPECT_EQ(ResTexts(), Texts{});
}

}  // namespace
}  // namespace coap_rpc_test
