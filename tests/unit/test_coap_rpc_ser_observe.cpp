/* test_coap_rpc_ser_observe.cpp: pending changes of an observable URI and the update timer. */
#include <gtest/gtest.h>

#include "observed_entry.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

constexpr char kSerObservePath[] = "coap_server/src/coap_svc/rpc/server/coap_rpc_ser_observe";
constexpr uint32_t kNumMany = 1000;

TEST(SerTupleChg, NoObserver_QueuesNothingAndSaysSo) {
  ObservedEntry t;
  t.entry.observerNum = 0;
  EXPECT_EQ(t.Update("eth0", "1000"), 0u);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=1000"}));
  EXPECT_EQ(t.ChangeTexts(), Texts{});
  EXPECT_EQ(t.entry.updateTimer, 0u);
  const std::vector<LogRecord> records = t.host.LogsOf("COAP_RpcSerProcTupleChg");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, "COAP_RpcSerProcTupleChg observer 0\n");
  EXPECT_EQ(records[0].line, 1051u);
  EXPECT_EQ(records[0].level, 3u);
}

TEST(SerTupleChg, NoObserver_DeleteQueuesNothing) {
  ObservedEntry t;
  t.entry.observerNum = 0;
  EXPECT_EQ(t.Chg("eth0", nullptr, 2), 0u);
  EXPECT_EQ(t.ChangeTexts(), Texts{});
  EXPECT_TRUE(t.host.HasLog("COAP_RpcSerProcTupleChg observer 0\n"));
}

TEST(SerTupleChg, NoObserveRecord_QueuesNothing) {
  ObservedEntry t;
  t.entry.obVtbl = nullptr;
  EXPECT_EQ(t.Update("eth0", "1000"), 0u);
  EXPECT_EQ(t.host.Pool().NumAllocations(), 0u);
  EXPECT_EQ(t.entry.updateTimer, 0u);
}

TEST(SerTupleChg, NewKey_IsAppendedAndLogged) {
  ObservedEntry t;
  EXPECT_EQ(t.Chg("eth1", "1001", 1), 0u);
  EXPECT_EQ(t.Chg("eth0", "1000", 1), 0u);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth1=1001", "1eth0=1000"}));
  const std::vector<LogRecord> records = t.host.LogsOf("COAP_RpcSerProcTupleChg");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].text, "COAP_RpcSerProcTupleChg success\n");
  EXPECT_EQ(records[0].line, 1052u);
  EXPECT_EQ(records[0].level, 3u);
}

TEST(SerTupleChg, UpdateUpdateDelete_IsOneDeleteInTheFirstPlace) {
  ObservedEntry t;
  t.Chg("eth0", "1000", 1);
  t.Chg("eth1", "1001", 1);
  t.Chg("eth0", "2000", 1);
  t.Chg("eth0", nullptr, 2);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"2eth0=2000", "1eth1=1001"}));
  EXPECT_EQ(t.host.LogsOf("COAP_RpcSerProcTupleChg").size(), 2u) << "merges are not logged";
}

TEST(SerTupleChg, UpdateAfterDelete_BecomesUpdate) {
  ObservedEntry t;
  t.Chg("eth0", nullptr, 2);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"2eth0=...."}));
  t.Chg("eth0", "3000", 1);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=3000"}));
}

TEST(SerTupleChg, NullValue_QueuesAnUpdateAndKeepsTheSetsValue) {
  ObservedEntry t;
  t.Update("eth0", "1000");
  t.Update("eth0", nullptr);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=1000"}));
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=1000"}));
  t.Update("eth1", nullptr);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=1000", "1eth1=...."}));
}

TEST(SerTupleChg, DeleteOfAnAbsentKey_IsQueued) {
  ObservedEntry t;
  EXPECT_EQ(t.Chg("none", nullptr, 2), 0u);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"2none=...."}));
  EXPECT_NE(t.entry.updateTimer, 0u);
}

TEST(SerTupleChg, ValLen0_IgnoresTheValue) {
  ObservedEntry t(4, 0);
  t.Update("eth0", "1000");
  t.Update("eth0", "2000");
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0="}));
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0="}));
}

TEST(SerTupleChg, KeyLen0_IsOneChange) {
  ObservedEntry t(0, 4, [](const void *, const void *) { return 0; });
  t.Update("", "1000");
  t.Update("", "2000");
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1=2000"}));
  EXPECT_EQ(t.TupleTexts(), (Texts{"=2000"}));
}

TEST(SerTupleChg, LargestLengths_AreQueuedWhole) {
  ObservedEntry t(65535, 65535);
  const std::string key(65535, 'k');
  const std::string val(65535, 'v');
  EXPECT_EQ(t.Chg(key.c_str(), val.c_str(), 1), 0u);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1" + key + "=" + val}));
}

TEST(SerTupleChg, SetMatchesByComparator_ListByBytes) {
  ObservedEntry t(4, 4, ByLetter);
  t.Update("eth0", "1000");
  t.Update("ETH0", "2000");
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=2000"}));
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=1000", "1ETH0=2000"}));
}

TEST(SerTupleChg, ChangeTree_StaysEmpty) {
  ObservedEntry t(8);
  t.QueueMany(kNumMany);
  EXPECT_EQ(t.entry.tupleChgTree.root, nullptr);
  EXPECT_EQ(t.Changes()[0]->node.parent, nullptr);
}

TEST(SerTupleChg, NoMemory_Gives1900000129) {
  ObservedEntry t;
  t.host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(t.Chg("eth0", "1000", 1), 1900000129u);
  EXPECT_EQ(t.ChangeTexts(), Texts{});
  EXPECT_EQ(t.entry.updateTimer, 0u);
}

TEST(SerTupleChg, AddTupleChgData_NoMemory_Gives1900000098) {
  ObservedEntry t;
  t.host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcSerAddTupleChgData(&t.ctx, &t.entry, "eth0", "1000", 1), 1900000098u);
  EXPECT_EQ(COAP_RpcSerAddTupleChgData(&t.ctx, &t.entry, "eth0", "1000", 1), 0u);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=1000"}));
}

TEST(SerTupleChg, MergeTupleData_Gives1WhenMergedElse0) {
  ObservedEntry t;
  EXPECT_EQ(COAP_RpcSerMergeTupleData(&t.entry, "eth0", "1000", 1), 0u);
  COAP_RpcSerAddTupleChgData(&t.ctx, &t.entry, "eth0", "1000", 1);
  EXPECT_EQ(COAP_RpcSerMergeTupleData(&t.entry, "eth0", "2000", 2), 1u);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"2eth0=2000"}));
}

TEST(SerTupleChg, FillTupleData_SetsKeyValueAndType) {
  ObservedEntry t;
  alignas(CoapRpcTupleChg) uint8_t record[sizeof(CoapRpcTupleChg) + 8] = {};
  auto *chg = reinterpret_cast<CoapRpcTupleChg *>(record);
  COAP_RpcSerFillTupleData(&t.entry, chg, "eth0", "1000", 2);
  EXPECT_EQ(memcmp(chg->key, "eth01000", 8), 0);
  EXPECT_EQ(chg->chgType, 2);
  COAP_RpcSerFillTupleData(&t.entry, chg, "eth1", nullptr, 1);
  EXPECT_EQ(memcmp(chg->key, "eth11000", 8), 0);
  EXPECT_EQ(chg->chgType, 1);
}

TEST(SerTupleChg, DelTupleChgData_UnlinksAndFrees) {
  ObservedEntry t;
  for (const char *key : {"eth0", "eth1", "eth2"}) t.Chg(key, "1000", 1);
  COAP_RpcSerDelTupleChgData(&t.ctx, t.Changes()[1]);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=1000", "1eth2=1000"}));
  EXPECT_EQ(t.host.Pool().LiveCount(), 2u);
  COAP_RpcSerDelTupleChgData(&t.ctx, nullptr);
}

TEST(SerTupleChg, UnknownKey_Gives1900000041AndKeepsTheChange) {
  ObservedEntry t;
  CoapRpcUriKey other = t.entry.key;
  other.pktType = 2;
  EXPECT_EQ(COAP_RpcSerProcTupleChg(&t.ctx, &t.entry, &other, "eth0", "1000", 1), 1900000041u);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=1000"}));
  EXPECT_EQ(COAP_RpcSerStartUriUpdateTimer(&t.ctx, &other), 1900000041u);
  EXPECT_TRUE(t.host.Timers().Running().empty());
}

TEST(SerTupleChg, NoServerSide_Gives1900000041) {
  ObservedEntry t;
  t.ctx.ser = nullptr;
  EXPECT_EQ(t.Chg("eth0", "1000", 1), 1900000041u);
  t.ctx.ser = &t.ser.data;
}

TEST(SerUpdateTuple, NullArgument_Gives1900000139) {
  ObservedEntry t;
  EXPECT_EQ(COAP_RpcSerUpdateTuple(nullptr, &t.entry, "eth0", "1000"), 1900000139u);
  EXPECT_EQ(COAP_RpcSerUpdateTuple(&t.ctx, nullptr, "eth0", "1000"), 1900000139u);
  EXPECT_EQ(COAP_RpcSerUpdateTuple(&t.ctx, &t.entry, nullptr, "1000"), 1900000139u);
  const AssertRecord expected{kSerObservePath, 138};
  EXPECT_EQ(TestHost::Process().Asserts(),
            (std::vector<AssertRecord>{expected, expected, expected}));
}

TEST(SerUpdateTuple, DoesNotRefreshTheTaskTimer) {
  ObservedEntry t;
  EXPECT_EQ(t.Update("eth0", "1000"), 0u);
  EXPECT_EQ(t.numRefreshed, 0u);
}

TEST(SerUpdateTuple, TupleWithoutMemory_IsStillQueued) {
  ObservedEntry t;
  t.host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(t.Update("eth0", "1000"), 0u);
  EXPECT_EQ(t.TupleTexts(), Texts{});
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=1000"}));
}

TEST(SerUpdateTuple, ChangeWithoutMemory_IsInTheSet) {
  ObservedEntry t;
  t.host.Pool().Failures().FailOnce(2);
  EXPECT_EQ(t.Update("eth0", "1000"), 1900000129u);
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=1000"}));
}

TEST(SerUpdateTimer, FirstChange_StartsItOnce) {
  ObservedEntry t;
  t.Chg("eth0", "1000", 1);
  t.Chg("eth1", "1000", 1);
  ASSERT_EQ(t.host.Timers().Running().size(), 1u);
  const RunningTimer &timer = t.host.Timers().Running()[0];
  EXPECT_EQ(timer.periodMs, 1000u);
  EXPECT_EQ(timer.param, &t.entry);
  EXPECT_EQ(timer.tick, &COAP_RpcSerUriUpdateHandle);
  EXPECT_EQ(timer.id, t.entry.updateTimer);
}

TEST(SerUpdateTimer, NotStarted_Gives1900000050AndIsTriedAgain) {
  ObservedEntry t;
  t.host.Timers().Failures().FailOnce(1);
  EXPECT_EQ(t.Chg("eth0", "1000", 1), 1900000050u);
  EXPECT_EQ(t.entry.updateTimer, 0u);
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=1000"}));
  EXPECT_EQ(t.Chg("eth0", "2000", 1), 0u) << "a merge starts it, too";
  EXPECT_NE(t.entry.updateTimer, 0u);
}

TEST(SerUpdateTimer, Start_RunningIsSuccess) {
  ObservedEntry t;
  EXPECT_EQ(COAP_RpcSerStartUriUpdateTimer(&t.ctx, &t.entry.key), 0u);
  EXPECT_EQ(COAP_RpcSerStartUriUpdateTimer(&t.ctx, &t.entry.key), 0u);
  EXPECT_EQ(t.host.Timers().Running().size(), 1u);
}

TEST(SerUpdateTimer, Start_Failing_Gives1900000050) {
  ObservedEntry t;
  t.host.Timers().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcSerStartUriUpdateTimer(&t.ctx, &t.entry.key), 1900000050u);
}

TEST(SerUpdateTimer, Stop_ClearsTheIdAndMayBeRepeated) {
  ObservedEntry t;
  t.Chg("eth0", "1000", 1);
  COAP_RpcSerStopUriUpdateTimer(&t.entry);
  EXPECT_EQ(t.entry.updateTimer, 0u);
  EXPECT_TRUE(t.host.Timers().Running().empty());
  COAP_RpcSerStopUriUpdateTimer(&t.entry);
}

TEST(SerUpdateTimer, Tick_NotifiesWhileChangesArePending) {
  ObservedEntry t;
  t.Chg("eth0", "1000", 1);
  t.host.AdvanceMs(999);
  EXPECT_EQ(t.numNotified, 0u);
  t.host.AdvanceMs(1);
  EXPECT_EQ(t.numNotified, 1u);
  t.host.AdvanceMs(2000);
  EXPECT_EQ(t.numNotified, 3u);
  COAP_RpcSerDelTupleChgData(&t.ctx, t.Changes()[0]);
  t.host.AdvanceMs(5000);
  EXPECT_EQ(t.numNotified, 3u);
  EXPECT_EQ(t.host.Timers().Running().size(), 1u) << "idle ticks go on";
}

TEST(SerUpdateTimer, Tick_WhileABlockTransferRuns_SendsNothing) {
  ObservedEntry t;
  t.Chg("eth0", "1000", 1);
  t.entry.isSendingLargeBlock = 1;
  t.host.AdvanceMs(3000);
  EXPECT_EQ(t.numNotified, 0u);
  t.entry.isSendingLargeBlock = 0;
  t.host.AdvanceMs(1000);
  EXPECT_EQ(t.numNotified, 1u);
}

TEST(SerUpdateTimer, Tick_AlwaysGives0) {
  ObservedEntry t;
  EXPECT_EQ(COAP_RpcSerUriUpdateHandle(&t.entry), 0u);
  t.Chg("eth0", "1000", 1);
  EXPECT_EQ(COAP_RpcSerUriUpdateHandle(&t.entry), 0u);
  EXPECT_EQ(t.numNotified, 1u);
  t.ser.data.notifyObservers = nullptr;
  EXPECT_EQ(COAP_RpcSerUriUpdateHandle(&t.entry), 0u);
}

TEST(SerOrphanChgs, PendingChanges_MoveToTheRootAndAreFreedThere) {
  ObservedEntry t(8);
  t.QueueMany(kNumMany);
  CoapRpcSerOrphanChgs(&t.entry);
  EXPECT_EQ(t.ChangeTexts(), Texts{});
  EXPECT_EQ(t.entry.chgIndex, nullptr);
  EXPECT_EQ(t.host.Pool().LiveCount(), kNumMany);
  CoapRpcSerFreeOrphanChgs(&t.ctx);
  EXPECT_EQ(t.host.Pool().LiveCount(), 0u);
  CoapRpcSerFreeOrphanChgs(&t.ctx);
}

TEST(SerOrphanChgs, AnOrphan_CanBeDeletedAlone) {
  ObservedEntry t(8);
  t.QueueMany(40);
  CoapRpcTupleChg *chg = t.Changes()[7];
  CoapRpcSerOrphanChgs(&t.entry);
  COAP_RpcSerDelTupleChgData(&t.ctx, chg);
  EXPECT_EQ(t.host.Pool().LiveCount(), 39u);
}

}  // namespace
}  // namespace coap_rpc_test
