/* test_coap_rpc_ser_tuple.cpp: the tuple set of an observable URI. */
#include <gtest/gtest.h>

#include "observed_entry.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

TEST(SerTuple, AddUriTuple_New_StoresKeyAndValue) {
  ObservedEntry t;
  CoapRpcUriTuple *tuple = COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  ASSERT_NE(tuple, nullptr);
  EXPECT_EQ(memcmp(tuple->key, "eth01000", 8), 0);
  EXPECT_EQ(COAP_RpcSerFindUriTuple(&t.entry, "eth0"), tuple);
  EXPECT_EQ(t.host.Pool().LiveCount(), 1u);
}

TEST(SerTuple, AddUriTuple_New_CountsAndLogsAtLevel3) {
  ObservedEntry t;
  COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  const std::vector<LogRecord> records = t.host.LogsOf("COAP_RpcSerAddUriTuple");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text,
            "[CoapRpc]insert when add uri tuple, uri:sensors/temp, msgType:0, observe:1, "
            "pktType:0.\n");
  EXPECT_EQ(records[0].module, "logDefault");
  EXPECT_EQ(records[0].line, 1041u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(t.host.Logs().OfKind(LogKind::kCount).size(), 1u);
}

TEST(SerTuple, AddUriTuple_UriWithoutTerminator_LogsItsSixtyFourBytes) {
  ObservedEntry t;
  memset(t.entry.key.uri, 'u', sizeof(t.entry.key.uri));
  t.entry.key.msgType = 0xFFFFFFFF;
  COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  EXPECT_TRUE(t.host.HasLog("[CoapRpc]insert when add uri tuple, uri:" + std::string(64, 'u') +
                            ", msgType:4294967295, observe:1, pktType:0.\n"));
}

TEST(SerTuple, AddUriTuple_EqualKey_GivesNullAndFreesTheNewTuple) {
  ObservedEntry t;
  COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  t.host.ClearLogs();
  EXPECT_EQ(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "2000"), nullptr);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=1000"}));
  EXPECT_EQ(t.host.Pool().LiveCount(), 1u);
  EXPECT_TRUE(t.host.Logs().Records().empty());
}

TEST(SerTuple, AddUriTuple_NoMemory_GivesNull) {
  ObservedEntry t;
  t.host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000"), nullptr);
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(&t.entry), 0u);
}

TEST(SerTuple, AddUriTuple_NullValue_StoresZeroBytes) {
  ObservedEntry t;
  COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", nullptr);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=...."}));
}

TEST(SerTuple, AddUriTuple_ValLen0_IgnoresTheValue) {
  ObservedEntry t(4, 0);
  CoapRpcUriTuple *tuple = COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  ASSERT_NE(tuple, nullptr);
  EXPECT_EQ(COAP_RpcSerUpdateUriTuple(&t.ctx, &t.entry, tuple, "eth0", "2000"), 0u);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0="}));
}

TEST(SerTuple, AddUriTuple_KeyLen0_HoldsOneTuple) {
  ObservedEntry t(0, 4, [](const void *, const void *) { return 0; });
  EXPECT_NE(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "", "1000"), nullptr);
  EXPECT_EQ(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "", "2000"), nullptr);
  EXPECT_EQ(t.TupleTexts(), (Texts{"=1000"}));
}

TEST(SerTuple, AddUriTuple_LargestLengths_AreStoredWhole) {
  ObservedEntry t(65535, 65535);
  const std::string key(65535, 'k');
  const std::string val(65535, 'v');
  ASSERT_NE(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, key.data(), val.data()), nullptr);
  EXPECT_EQ(t.TupleTexts(), (Texts{key + "=" + val}));
}

TEST(SerTuple, AddUriTuple_NoObserveRecord_GivesNull) {
  ObservedEntry t;
  t.entry.obVtbl = nullptr;
  EXPECT_EQ(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000"), nullptr);
  EXPECT_EQ(COAP_RpcSerFindUriTuple(&t.entry, "eth0"), nullptr);
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(&t.entry), 0u);
  EXPECT_EQ(t.host.Pool().NumAllocations(), 0u);
}

TEST(SerTuple, AddUriTuple_NoComparator_GivesNull) {
  ObservedEntry t(4, 4, nullptr);
  EXPECT_EQ(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000"), nullptr);
  EXPECT_EQ(COAP_RpcSerFindUriTuple(&t.entry, "eth0"), nullptr);
  EXPECT_EQ(t.host.Pool().NumAllocations(), 0u);
}

TEST(SerTuple, UpdateUriTuple_Value_IsOverwrittenAndLogged) {
  ObservedEntry t;
  CoapRpcUriTuple *tuple = COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  EXPECT_EQ(COAP_RpcSerUpdateUriTuple(&t.ctx, &t.entry, tuple, "eth0", "2000"), 0u);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=2000"}));
  const std::vector<LogRecord> records = t.host.LogsOf("COAP_RpcSerUpdateUriTuple");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text,
            "[CoapRpc]update when add uri tuple, uri:sensors/temp, msgType:0, observe:1, "
            "pktType:0.\n");
  EXPECT_EQ(records[0].line, 1042u);
  EXPECT_EQ(records[0].level, 3u);
}

TEST(SerTuple, UpdateUriTuple_NullValue_KeepsTheOldOneAndLogs) {
  ObservedEntry t;
  CoapRpcUriTuple *tuple = COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  EXPECT_EQ(COAP_RpcSerUpdateUriTuple(&t.ctx, &t.entry, tuple, "eth0", nullptr), 0u);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=1000"}));
  EXPECT_EQ(t.host.LogsOf("COAP_RpcSerUpdateUriTuple").size(), 1u);
}

TEST(SerTuple, ProcUpdateTuple_EqualButDifferentKeyBytes_KeepsTheStoredKey) {
  ObservedEntry t(4, 4, ByLetter);
  EXPECT_EQ(COAP_RpcSerProcUpdateTuple(&t.ctx, &t.entry, nullptr, "eth0", "1000"), 0u);
  EXPECT_EQ(COAP_RpcSerProcUpdateTuple(&t.ctx, &t.entry, nullptr, "ETH0", "2000"), 0u);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=2000"}));
}

TEST(SerTuple, ProcUpdateTuple_NoMemory_Gives0) {
  ObservedEntry t;
  t.host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcSerProcUpdateTuple(&t.ctx, &t.entry, nullptr, "eth0", "1000"), 0u);
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(&t.entry), 0u);
}

TEST(SerTuple, ProcDelTuple_Present_IsRemovedAndFreed) {
  ObservedEntry t;
  COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth1", "1001");
  COAP_RpcSerProcDelTuple(&t.ctx, &t.entry, nullptr, "eth0");
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth1=1001"}));
  EXPECT_EQ(t.host.Pool().LiveCount(), 1u);
}

TEST(SerTuple, ProcDelTuple_Absent_ChangesNothing) {
  ObservedEntry t;
  COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  COAP_RpcSerProcDelTuple(&t.ctx, &t.entry, nullptr, "eth9");
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=1000"}));
}

TEST(SerTuple, GetFirstAndNext_GiveKeyOrder) {
  ObservedEntry t;
  for (const char *key : {"lo..", "eth1", "wlan", "eth0"}) {
    COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, key, "1000");
  }
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=1000", "eth1=1000", "lo..=1000", "wlan=1000"}));
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(&t.entry), 4u);
}

TEST(SerTuple, GetNextUriTuple_OfNull_IsNull) {
  ObservedEntry t;
  EXPECT_EQ(COAP_RpcSerGetNextUriTuple(&t.entry, nullptr), nullptr);
  EXPECT_EQ(COAP_RpcSerGetFirstUriTuple(&t.entry), nullptr);
}

TEST(SerTuple, DelAllUriTuple_EmptiesTheSet) {
  ObservedEntry t;
  for (const char *key : {"eth2", "eth1", "eth0"}) {
    COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, key, "1000");
  }
  COAP_RpcSerDelAllUriTuple(&t.ctx, &t.entry);
  EXPECT_EQ(COAP_RpcGetTupleSetCnt(&t.entry), 0u);
  EXPECT_EQ(t.host.Pool().LiveCount(), 0u);
  COAP_RpcSerDelAllUriTuple(&t.ctx, &t.entry);
}

TEST(SerTuple, Tuples_OneAllocationEach_NodeThenKeyThenValue) {
  ObservedEntry t(7, 3);
  COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "1234567", "abc");
  EXPECT_EQ(t.host.Pool().LiveCount(), 1u);
  EXPECT_EQ(t.host.Pool().LiveBytes(), sizeof(OSAL_AVL3_NODE) + 7 + 3);
}

}  // namespace
}  // namespace coap_rpc_test
