/* test_coap_rpc_ser_uri.cpp: the table of registered server URIs. */
#include <algorithm>

#include "server_tables.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

class SerUri : public ServerTables {
 protected:
  // PublishTwoTuples makes an entry with two tuples, two pending changes and a running timer.
  CoapRpcSerUriVtbl *PublishTwoTuples(const CoapRpcUriKey &key) {
    EXPECT_EQ(RegisterObservable(key), 0u);
    CoapRpcSerUriVtbl *entry = Find(key);
    entry->observerNum = 1;
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(ctx_, &key, "key1", "val1"), 0u);
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(ctx_, &key, "key2", "val2"), 0u);
    EXPECT_EQ(COAP_RpcGetTupleSetCnt(entry), 2u);
    EXPECT_EQ(Host().Timers().Running().size(), 1u);
    return entry;
  }
};

int32_t OnRequestA(uint64_t, const CoapRpcSerReqInfo *, uint8_t *, uint32_t, uint8_t *, uint32_t) {
  return 1;
}

int32_t OnRequestB(uint64_t, const CoapRpcSerReqInfo *, uint8_t *, uint32_t, uint8_t *, uint32_t) {
  return 2;
}

uint32_t OnAsyncRequest(uint64_t, uint8_t *, uint32_t, void *) { return 0; }

CoapRpcSerVtblReg RegOf(CoapRpcSerOnRequest onRequest) {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = 2;
  reg.mode = 1;
  reg.userData = 0x1122334455667788;
  reg.onRequest = onRequest;
  reg.onAsyncRequest = OnAsyncRequest;
  return reg;
}

TEST_F(SerUri, VtblInit_InstallsSixOperations) {
  CoapRpcSerData ser = {};
  EXPECT_EQ(COAP_RpcSerVtblInit(&ser), 0u);
  EXPECT_EQ(ser.findUriVtbl, &COAP_RpcSerFindUriVtbl);
  EXPECT_EQ(ser.procTupleChg, &COAP_RpcSerProcTupleChg);
  EXPECT_EQ(ser.delTupleChgData, &COAP_RpcSerDelTupleChgData);
  EXPECT_EQ(ser.getFirstUriTuple, &COAP_RpcSerGetFirstUriTuple);
  EXPECT_EQ(ser.getNextUriTuple, &COAP_RpcSerGetNextUriTuple);
  EXPECT_EQ(ser.updateTuple, &COAP_RpcSerUpdateTuple);
  EXPECT_EQ(COAP_RpcSerVtblUninit(&ser), 0u);
  EXPECT_EQ(ser.findUriVtbl, &COAP_RpcSerFindUriVtbl);
}

TEST_F(SerUri, Uninit_NullZeroedOrTwice_IsHarmless) {
  CoapRpcSerData zeroed = {};
  EXPECT_EQ(COAP_RpcSerVtblUninit(nullptr), 0u);
  EXPECT_EQ(COAP_RpcSerUriUninit(nullptr), 0u);
  EXPECT_EQ(COAP_RpcSerUriUninit(&zeroed), 0u);
  EXPECT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(COAP_RpcSerUriUninit(Ser()), 0u);
  EXPECT_EQ(UriTexts(), Texts{});
  EXPECT_EQ(COAP_RpcSerUriUninit(Ser()), 0u);
}

TEST_F(SerUri, Register_NewKey_CopiesAndLogs) {
  CoapRpcUriKey key = KeyOf("a/b", 1, 0, 2);
  CoapRpcSerVtblReg reg = RegOf(OnRequestA);
  EXPECT_EQ(COAP_RpcUriRegSerVtbl(Ser(), &key, &reg, nullptr), 0u);
  EXPECT_TRUE(Host().HasLog(
      "[CoapRpc]add ser Vtbl reg success, uri:a/b, msgType:1, observe:0, pktType:2.\n"));
  EXPECT_TRUE(Host().HasDebug(
      "[CoapRpc]add ser Vtbl reg success, uri:a/b, msgType:1, observe:0, pktType:2.\n"));

  const CoapRpcSerUriVtbl *entry = Find(key);
  key.uri[0] = 'x';
  reg = {};
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->key.uri, "a/b");
  EXPECT_EQ(entry->reg.payloadFormat, 2);
  EXPECT_EQ(entry->reg.mode, 1);
  EXPECT_EQ(uint64_t{entry->reg.userData}, 0x1122334455667788u);
  EXPECT_TRUE(entry->reg.onRequest == OnRequestA);
  EXPECT_TRUE(entry->reg.onAsyncRequest == OnAsyncRequest);
}

TEST_F(SerUri, Register_NewKey_StartsUnattached) {
  const CoapRpcUriKey key = KeyOf("a");
  ASSERT_EQ(Register(key), 0u);
  const CoapRpcSerUriVtbl *entry = Find(key);
  EXPECT_EQ(entry->owner, Ser());
  EXPECT_EQ(entry->listen, nullptr);
  EXPECT_EQ(entry->listenLink.next, &entry->listenLink);
  EXPECT_EQ(entry->listenLink.prev, &entry->listenLink);
  EXPECT_EQ(entry->resLink.next, &entry->resLink);
  EXPECT_EQ(entry->resLink.prev, &entry->resLink);
  EXPECT_EQ(entry->obVtbl, nullptr);
  EXPECT_EQ(entry->updateTimer, 0u);
  EXPECT_EQ(entry->observerNum, 0u);
  EXPECT_EQ(entry->isSendingLargeBlock, 0u);
  EXPECT_EQ(entry->asyncSession, nullptr);
}

TEST_F(SerUri, Register_Clock_BecomesEtag) {
  TestHost::Process().SetNowMs(0x0000018912345678);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(Find(KeyOf("a"))->etag, 0x0000018912345678u);
}

TEST_F(SerUri, Register_ClockFails_EtagIs0) {
  TestHost::Process().FailMillSecNow(7);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(Find(KeyOf("a"))->etag, 0u);
}

TEST_F(SerUri, Register_Twice_KeepsFirstAndLogsDup) {
  const CoapRpcUriKey key = KeyOf("a", 0, 1, 0);
  const CoapRpcSerVtblReg first = RegOf(OnRequestA);
  const CoapRpcSerVtblReg second = RegOf(OnRequestB);
  const CoapRpcSerObVtblReg record = ObserveRecord();
  EXPECT_EQ(COAP_RpcUriRegSerVtbl(Ser(), &key, &first, nullptr), 0u);
  Host().ClearLogs();
  EXPECT_EQ(COAP_RpcUriRegSerVtbl(Ser(), &key, &second, &record), 0u);
  EXPECT_TRUE(
      Host().HasLog("[CoapRpc]Dup uriVtbl ser reg, uri:a, msgType:0, observe:1, pktType:0.\n"));
  EXPECT_TRUE(Find(key)->reg.onRequest == OnRequestA);
  EXPECT_EQ(Find(key)->obVtbl, nullptr);
  EXPECT_EQ(UriTexts(), Texts{"a/0/1/0"});
}

TEST_F(SerUri, Register_KeysDifferInOneField_AreDifferentEntries) {
  const CoapRpcUriKey keys[] = {KeyOf("a"), KeyOf("a", 1), KeyOf("a", 0, 1), KeyOf("a", 0, 0, 1)};
  for (const CoapRpcUriKey &key : keys) EXPECT_EQ(Register(key), 0u);
  EXPECT_EQ(UriTexts(), (Texts{"a/0/0/0", "a/0/0/1", "a/0/1/0", "a/1/0/0"}));
  EXPECT_NE(Find(keys[0]), Find(keys[1]));
}

TEST_F(SerUri, Register_StrayBytesAfterTerminator_AreAnotherKey) {
  CoapRpcUriKey stray = KeyOf("a");
  stray.uri[5] = 'x';
  EXPECT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(Find(stray), nullptr);
  EXPECT_EQ(Register(stray), 0u);
  EXPECT_NE(Find(stray), Find(KeyOf("a")));
}

TEST_F(SerUri, Register_64Characters_LogsAll64) {
  const std::string uri(64, 'u');
  EXPECT_EQ(Register(KeyOf(uri)), 0u);
  EXPECT_TRUE(Host().HasLog("[CoapRpc]add ser Vtbl reg success, uri:" + uri +
                            ", msgType:0, observe:0, pktType:0.\n"));
}

TEST_F(SerUri, Register_NoMemory_Gives1900000251) {
  Host().Pool().Failures().FailOnce(1);
  EXPECT_EQ(Register(KeyOf("a", 1, 2, 0)), 1900000251u);
  ExpectError("COAP_RpcUriRegSerVtbl", 250,
              "[CoapRpc]add ser uriVtbl reg Failed, uri:a, msgType:1, observe:2, pktType:0.\n");
  EXPECT_EQ(UriTexts(), Texts{});
  EXPECT_EQ(Register(KeyOf("a", 1, 2, 0)), 0u);
}

TEST_F(SerUri, Register_NoMemoryForObserveRecord_Gives1900000251) {
  const uint64_t numLive = Host().Pool().LiveCount();
  Host().Pool().Failures().FailOnce(2);
  EXPECT_EQ(RegisterObservable(KeyOf("a", 0, 1)), 1900000251u);
  EXPECT_EQ(Host().Pool().LiveCount(), numLive);
  EXPECT_EQ(UriTexts(), Texts{});
}

TEST_F(SerUri, Register_ObserveRecordWithoutComparator_Gives1900000251) {
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  const CoapRpcSerVtblReg reg = {};
  CoapRpcSerObVtblReg record = ObserveRecord();
  record.tupleKeyCmp = nullptr;
  EXPECT_EQ(COAP_RpcSerRegVtbl(ctx_, &key, &reg, &record), 1900000251u);
  EXPECT_EQ(Find(key), nullptr);
}

TEST_F(SerUri, Add_ObserveRecord_IsCopiedAndSetsAreEmpty) {
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  const CoapRpcSerVtblReg reg = {};
  CoapRpcSerObVtblReg record = ObserveRecord();
  CoapRpcSerUriVtbl *entry = COAP_RpcSerAddUriVtbl(Ser(), &key, &reg, &record);
  ASSERT_NE(entry, nullptr);
  const auto cmp = record.tupleKeyCmp;
  record = {};
  EXPECT_EQ(entry->obVtbl->keyLen, 4);
  EXPECT_EQ(entry->obVtbl->valLen, 4);
  EXPECT_TRUE(entry->obVtbl->tupleKeyCmp == cmp);
  EXPECT_EQ(entry->tupleSetTree.root, nullptr);
  EXPECT_TRUE(entry->tupleSetDesc.cmp == cmp);
  EXPECT_EQ(entry->tupleSetDesc.nodeOffset, 0);
  EXPECT_EQ(entry->tupleSetDesc.keyOffset, sizeof(CoapRpcUriTuple::node));
  EXPECT_EQ(entry->tupleChgTree.root, nullptr);
  EXPECT_TRUE(entry->tupleChgDesc.cmp == cmp);
  EXPECT_EQ(entry->tupleChgDesc.nodeOffset, offsetof(CoapRpcTupleChg, node));
  EXPECT_EQ(entry->tupleChgDesc.keyOffset, offsetof(CoapRpcTupleChg, key));
  EXPECT_EQ(entry->tupleChgList.next, &entry->tupleChgList);
  EXPECT_EQ(entry->tupleChgList.prev, &entry->tupleChgList);
}

TEST_F(SerUri, Add_KeyIsThere_ReturnsNullAndFreesAll) {
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  const CoapRpcSerVtblReg reg = {};
  const CoapRpcSerObVtblReg record = ObserveRecord();
  CoapRpcSerUriVtbl *entry = COAP_RpcSerAddUriVtbl(Ser(), &key, &reg, nullptr);
  const uint64_t numLive = Host().Pool().LiveCount();
  EXPECT_EQ(COAP_RpcSerAddUriVtbl(Ser(), &key, &reg, &record), nullptr);
  EXPECT_EQ(Host().Pool().LiveCount(), numLive);
  EXPECT_EQ(Find(key), entry);
}

TEST_F(SerUri, AddObVtbl_NullRecord_DoesNothing) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  EXPECT_EQ(COAP_RpcSerAddUriObVtbl(ctx_, Find(KeyOf("a")), nullptr), 0u);
  EXPECT_EQ(Find(KeyOf("a"))->obVtbl, nullptr);
}

TEST_F(SerUri, AddObVtbl_NoMemory_Gives1900000167) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  const CoapRpcSerObVtblReg record = ObserveRecord();
  Host().Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcSerAddUriObVtbl(ctx_, Find(KeyOf("a")), &record), 1900000167u);
  EXPECT_EQ(Find(KeyOf("a"))->obVtbl, nullptr);
  EXPECT_EQ(COAP_RpcSerAddUriObVtbl(ctx_, Find(KeyOf("a")), &record), 0u);
  EXPECT_NE(Find(KeyOf("a"))->obVtbl, nullptr);
}

TEST_F(SerUri, AddObVtbl_NoComparator_Gives1900001431) {
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  const CoapRpcSerObVtblReg record = {};
  EXPECT_EQ(COAP_RpcSerAddUriObVtbl(ctx_, Find(KeyOf("a")), &record), 1900001431u);
}

TEST_F(SerUri, AddObVtbl_Again_ReplacesRecordAndKeepsTimerId) {
  ASSERT_EQ(RegisterObservable(KeyOf("a", 0, 1)), 0u);
  CoapRpcSerUriVtbl *entry = Find(KeyOf("a", 0, 1));
  CoapRpcSerObVtblReg record = ObserveRecord();
  record.keyLen = 9;
  entry->updateTimer = 77;
  const uint64_t numLive = Host().Pool().LiveCount();
  EXPECT_EQ(COAP_RpcSerAddUriObVtbl(ctx_, entry, &record), 0u);
  EXPECT_EQ(entry->obVtbl->keyLen, 9);
  EXPECT_EQ(entry->updateTimer, 77u);
  EXPECT_EQ(Host().Pool().LiveCount(), numLive);
  entry->updateTimer = 0;
}

TEST_F(SerUri, AddObVtbl_Again_DropsTuplesAndChanges) {
  const CoapRpcUriKey key = KeyOf("a", 0, 1);
  CoapRpcSerUriVtbl *entry = PublishTwoTuples(key);
  const CoapRpcSerObVtblReg record = ObserveRecord();
  EXPECT_EQ(COAP_RpcSerAddUriObVtbl(ctx_, entry, &record), 0u);
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(entry), 0u);
  EXPECT_EQ(entry->tupleChgList.next, &entry->tupleChgList);
  EXPECT_EQ(Host().Timers().Running().size(), 1u);
}

TEST_F(SerUri, Find_Among10000_TakesAtMost20Levels) {
  Host().Logs().SuppressBelow(4);
  ctx_->param.dbgHandle = 0;
  for (uint32_t i = 0; i < 10000; ++i) ASSERT_EQ(Register(KeyOf("uri/" + std::to_string(i))), 0u);
  uint32_t numLevels = 0;
  for (const auto *entry = COAP_RpcSerFindFirstUriVtbl(Ser()); entry;
       entry = COAP_RpcSerFindNextUriVtbl(Ser(), &entry->key)) {
    uint32_t level = 1;
    for (const OSAL_AVL3_NODE *node = entry->node.parent; node; node = node->parent) ++level;
    numLevels = std::max(numLevels, level);
  }
  EXPECT_GE(numLevels, 14u);
  EXPECT_LE(numLevels, 20u);  // 1.45 times the binary logarithm
}

TEST_F(SerUri, FindNext_KeyNotPresent_GivesNextGreater) {
  EXPECT_EQ(COAP_RpcSerFindFirstUriVtbl(Ser()), nullptr);
  ASSERT_EQ(Register(KeyOf("c")), 0u);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  const CoapRpcUriKey between = KeyOf("b");
  const CoapRpcUriKey last = KeyOf("c");
  EXPECT_EQ(COAP_RpcSerFindFirstUriVtbl(Ser()), Find(KeyOf("a")));
  EXPECT_EQ(COAP_RpcSerFindNextUriVtbl(Ser(), &between), Find(KeyOf("c")));
  EXPECT_EQ(COAP_RpcSerFindNextUriVtbl(Ser(), &last), nullptr);
}

TEST_F(SerUri, Del_Attached_UnlinksAndLeavesListenAndResource) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcSerListenAddr addr = Ipv4Addr(0x7f000001, 5683);
  ASSERT_EQ(Register(key), 0u);
  ASSERT_EQ(Set(key, addr), 0u);
  adapter_.events.clear();
  COAP_RpcSerDelUriVtbl(Ser(), Find(key));
  EXPECT_EQ(Find(key), nullptr);
  EXPECT_EQ(adapter_.events, Texts{});
  EXPECT_EQ(EntriesOf(FindListen(addr)), Texts{});
  EXPECT_EQ(EntriesOf(COAP_RpcSerFindFirstUriRes(Ser())), Texts{});
}

TEST_F(SerUri, Del_Observed_FreesTuplesAndRecordAndStopsTimer) {
  const uint64_t numLive = Host().Pool().LiveCount();
  COAP_RpcSerDelUriVtbl(Ser(), PublishTwoTuples(KeyOf("a", 0, 1)));
  EXPECT_TRUE(Host().Timers().Running().empty());
  EXPECT_EQ(Host().Pool().LiveCount(), numLive + 2);  // the pending changes

  EXPECT_EQ(COAP_RpcSerUriUninit(Ser()), 0u);
  EXPECT_EQ(Host().Pool().LiveCount(), numLive);
}

TEST_F(SerUri, Del_WithAdapter_IsForgotten) {
  adapter_.InstallExt(ctx_);
  ASSERT_EQ(Register(KeyOf("a")), 0u);
  ASSERT_EQ(Register(KeyOf("b")), 0u);
  COAP_RpcSerDelUriVtbl(Ser(), Find(KeyOf("a")));
  EXPECT_EQ(adapter_.events, (Texts{"forget a"}));
  COAP_RpcSerDelUriVtbl(Ser(), Find(KeyOf("b")));
  EXPECT_EQ(adapter_.events, (Texts{"forget a", "forget b"}));
}

}  // namespace
}  // namespace coap_rpc_test
