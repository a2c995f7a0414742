// What a server counts of its tuples, notifications and readers.
#include "flight_server.h"
#include "stats_reader.h"
#include "sync_server.h"

namespace coap_rpc_test {
namespace {

class ObserveStats : public FlightServer {
 protected:
  CoapRpcStats Now() const { return StatsOf(Ctx()); }
  CoapRpcUriStats Uri() const { return UriStatsOf(Ctx()); }
};

TEST_P(ObserveStats, TuplesAndChanges) {
  ServeRelation();
  Update("k001", "v001");
  Update("k002", "v002");
  EXPECT_EQ(Uri().tuples, 2u);
  EXPECT_EQ(Uri().changesPending, 0u);  // nobody observes
  Delete("k001");
  EXPECT_EQ(Uri().tuples, 1u);
  Register(peer_, CoapType::kCon, {1});
  EXPECT_EQ(Uri().observers, 1u);
  EXPECT_EQ(Now().observers, 1u);
  EXPECT_EQ(Now().tuples, 1u);
}

TEST_P(ObserveStats, PendingChange_HasAnAge) {
  StartRelation();
  host_.AdvanceMs(3000);
  DropWhatCame();
  app_.failing = {"k001"};
  Update("k001", "v001");
  Update("k002", "v002");
  EXPECT_EQ(Uri().changesPending, 2u);
  EXPECT_EQ(Uri().oldestPendingMs, 0u);
  host_.AdvanceMs(2500);  // the failing one stays
  EXPECT_EQ(Uri().changesPending, 1u);
  EXPECT_EQ(Uri().oldestPendingMs, 2500u);
  EXPECT_EQ(Now().oldestPendingMs, 2500u);
  EXPECT_EQ(Now().changesPending, 1u);
}

TEST_P(ObserveStats, Builder_IsACallback) {
  StartRelation();
  const CoapRpcStats before = Now();
  app_.whileBuilding = [](const std::string &) { PassNs(500); };
  Update("k001", "v001");
  Update("k002", "v002");
  NextChanges(peer_);
  EXPECT_EQ(Now().callbacks, before.callbacks + 1);
  EXPECT_EQ(Now().callbackNs, before.callbackNs + 1000);
  EXPECT_EQ(Uri().callbackMaxNs, 1000u);
}

TEST_P(ObserveStats, DeliveredNotification) {
  StartRelation();
  const uint64_t before = Now().notifications;
  Update("k001", "v001");
  NextChanges(peer_);
  Update("k001", "v002");
  NextChanges(peer_);  // the second payload settles the first
  EXPECT_EQ(Now().notifications, before + 2);
  EXPECT_EQ(Uri().notifications, before + 2);
  PassTime(2000);
  EXPECT_EQ(Now().notificationsDelivered, Now().notifications);
  EXPECT_EQ(Uri().notificationsDelivered, Now().notificationsDelivered);
  EXPECT_EQ(Now().notificationsFailed, 0u);
  EXPECT_EQ(Now().changesInFlight, 0u);
}

// What docs/log.md says of a healthy server.
TEST_P(ObserveStats, EachUpdate_LogsTwoLinesOfLevel3) {
  StartRelation();
  const auto numErrors = [this] {
    const std::vector<LogRecord> &records = host_.Logs().Records();
    return std::count_if(records.begin(), records.end(), [](const LogRecord &record) {
      return record.kind == LogKind::kSecond && record.level == 3;
    });
  };
  const auto before = numErrors();
  Update("k001", "v001");
  EXPECT_EQ(numErrors(), before + 2);
  Update("k001", "v002");  // merges with the change that is pending
  EXPECT_EQ(numErrors(), before + 3);
  NextChanges(peer_);
  Update("k001", "v003");
  EXPECT_EQ(numErrors(), before + 5);
}

INSTANTIATE_TEST_SUITE_P(All, ObserveStats, AllRelations(), RelationName);

class ConStats : public ObserveStats {};

TEST_P(ConStats, FailedNotification_PutsItsChangesBack) {
  StartRelation();
  Update("k001", "v001");
  Update("k002", "v002");
  const CoapMessage lost = Unanswered(peer_);
  EXPECT_EQ(Uri().changesInFlight, 2u);
  EXPECT_EQ(Now().changesInFlight, 2u);
  peer_.Send(Request(CoapType::kRst, 0, lost.messageId));
  Tick();
  EXPECT_EQ(Now().notificationsFailed, 1u);
  EXPECT_EQ(Now().changesPutBack, 2u);
  EXPECT_EQ(Uri().notificationsFailed, 1u);
  EXPECT_EQ(Uri().changesPutBack, 2u);
  EXPECT_EQ(Uri().changesInFlight, 0u);
  EXPECT_EQ(Uri().changesPending, 2u);
  EXPECT_EQ(Now().observers, 0u);
}

INSTANTIATE_TEST_SUITE_P(All, ConStats, Relations(COAP_RPC_CON), RelationName);

class SyncStats : public SyncServer {
 protected:
  CoapRpcStats Now() const { return StatsOf(Ctx()); }
};

TEST_F(SyncStats, PullsPagesAndFullSyncs) {
  ServeSynced();
  PullSince(peer_, 0);  // there is nothing to read
  Update("k001", "v001");
  Update("k002", "v002");
  Pull(peer_, {});  // a newcomer, who gets the head
  EXPECT_EQ(Now().syncPulls, 2u);
  EXPECT_EQ(Now().syncPages, 2u);
  EXPECT_EQ(Now().syncFull, 0u);
  PullSince(peer_, 0);
  EXPECT_EQ(Now().syncFull, 1u);
  PullSince(peer_, 1);
  EXPECT_EQ(Now().syncPulls, 4u);
  EXPECT_EQ(Now().syncPages, 4u);
  EXPECT_EQ(Now().syncFull, 1u);
  EXPECT_EQ(Now().tuples, 2u);
}

TEST_F(SyncStats, RoundsAndReaders) {
  ServeSynced();
  Ask(peer_, Registering());
  EXPECT_EQ(Now().observers, 1u);
  const uint64_t before = Now().notifications;
  Update("k001", "v001");
  EXPECT_EQ(NextNotification(peer_).code, Code(2, 5));
  EXPECT_EQ(Now().notifications, before + 1);
  EXPECT_EQ(UriStatsOf(Ctx()).notifications, before + 1);
  EXPECT_EQ(Now().syncPages, 2u);
}

// The tuples had no versions at first, and go with the record.
TEST_F(SyncStats, RecordThatIsReplaced_TakesItsTuplesAlong) {
  ServeObs(COAP_RPC_CON);
  Update("k001", "v001");
  SetSync({});
  const CoapRpcSerObVtblReg ob = ObRegOf(true);
  EXPECT_EQ(COAP_RpcSerAddUriObVtbl(Ctx(), entry_, &ob), 0u);
  EXPECT_EQ(Now().tuples, 0u);
  Update("k002", "v002");
  EXPECT_EQ(Now().tuples, 1u);
}

TEST_F(SyncStats, TuplesThatHadNoVersionsAreStillCounted) {
  ServeObs(COAP_RPC_CON);
  Update("k001", "v001");
  EXPECT_EQ(Now().tuples, 1u);
  SetSync({});
  EXPECT_EQ(Now().tuples, 1u);
  Update("k002", "v002");
  Delete("k001");
  Delete("k002");
  EXPECT_EQ(Now().tuples, 0u);
}

}  // namespace
}  // namespace coap_rpc_test
