// Two instances: a client's mirror of what a server publishes.
#include <random>

#include "two_observe.h"

namespace coap_rpc_test {
namespace {

using Tuples = std::map<std::string, std::string>;

class TwoMirror : public TwoObserve, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override { Publish(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Formats, TwoMirror, testing::Values(true, false),
                         [](const auto &format) { return format.param ? "Json" : "Idl"; });

TEST_P(TwoMirror, Newcomer_GetsTheWholeSetInOnePayload) {
  Fill(20);
  StartMirror();
  EXPECT_EQ(mirror_.numPayloads, 1u);
  EXPECT_EQ(responses_.all[0].info.rspCode, 205u);
}

TEST_P(TwoMirror, ChangesOfOneSecond_ComeMergedInOnePayload) {
  Fill(5);
  StartMirror();
  for (const char *val : {"val1", "val2", "val3"}) Set("0001", val);
  Set("new1", "val4");
  Erase("0002");
  Erase("0003");
  Set("0003", "back");
  ASSERT_TRUE(IsMirrored());
  EXPECT_EQ(mirror_.numPayloads, 2u);
  EXPECT_EQ(mirror_.tuples, (Tuples{{"0000", "0000"},
                                    {"0001", "val3"},
                                    {"0003", "back"},
                                    {"0004", "0004"},
                                    {"new1", "val4"}}));
}

TEST_P(TwoMirror, SetOf60000Bytes_ComesInBlocksAndChangesAfterIt) {
  app_.padding = 47;
  Fill(1000);
  StartMirror();
  EXPECT_GE(mirror_.maxBytes, 60'000u);
  for (int round = 0; round < 3; ++round) {
    Set("0500", "new" + std::to_string(round));
    Erase("000" + std::to_string(round));
    ASSERT_TRUE(IsMirrored()) << round;
  }
}

TEST_P(TwoMirror, ChangesWhileBlocksAreFetched_AreNotLost) {
  app_.padding = 47;
  Fill(1000);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  ASSERT_TRUE(RunUntil([this] { return Entry()->isSendingLargeBlock != 0; }));
  for (int i = 0; i < 30; ++i) {
    Set("0" + std::to_string(100 + i), "late");
    Erase("0" + std::to_string(200 + i));
    Step();
  }
  ASSERT_TRUE(IsMirrored());
  EXPECT_EQ(mirror_.tuples.size(), 970u);
}

TEST_P(TwoMirror, RandomChanges_MirrorIsEqualWhenTheListHasDrained) {
  StartMirror();
  std::mt19937 random(23);
  for (int i = 0; i < 2000; ++i) {
    const std::string key = std::to_string(1000 + random() % 60);
    if (random() % 3 == 0) {
      Erase(key);
    } else {
      Set(key, std::to_string(1000 + random() % 9000));
    }
    if (random() % 4 == 0) Step();
    if (i % 500 == 499) {
      ASSERT_TRUE(IsMirrored()) << i;
    }
  }
}

TEST_P(TwoMirror, Cancel_EndsTheNotificationsAndTheSession) {
  Fill(3);
  StartMirror();
  Steps(1000);  // relations do not age
  EXPECT_TRUE(asker_.HasSession());
  EXPECT_EQ(asker_.Call(COAP_RpcCliObserveUnReq, key_, server_), 0u);
  EXPECT_FALSE(asker_.HasSession());
  ASSERT_TRUE(RunUntil([this] { return NumObservers() == 0; }));
  Set("0001", "more");
  Steps(100);
  EXPECT_EQ(mirror_.numPayloads, 1u);
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
}

TEST_P(TwoMirror, ObservedAgainAfterACancel_GetsTheWholeSetOfThen) {
  Fill(3);
  StartMirror();
  EXPECT_EQ(asker_.Call(COAP_RpcCliObserveUnReq, key_, server_), 0u);
  ASSERT_TRUE(RunUntil([this] { return NumObservers() == 0; }));
  Set("0001", "more");
  Erase("0002");
  mirror_.tuples.clear();
  StartMirror();
  EXPECT_EQ(mirror_.tuples, (Tuples{{"0000", "0000"}, {"0001", "more"}}));
}

TEST_P(TwoMirror, Verify_SendsNothingToOneWhoIsUpToDate) {
  Fill(3);
  StartMirror();
  EXPECT_EQ(COAP_RpcCliFindUriVtbl(asker_.Ctx()->cli, &key_)->checkCode, Entry()->etag);
  EXPECT_EQ(asker_.Call(COAP_RpcCliObserveReqVerify, key_, server_), 0u);
  Steps(100);
  EXPECT_EQ(app_.numWalks, 0u);
  EXPECT_EQ(mirror_.numPayloads, 1u);
  EXPECT_EQ(NumObservers(), 1u);
  Set("0001", "more");
  EXPECT_TRUE(IsMirrored());
}

TEST_P(TwoMirror, Verify_SendsEverythingToOneWhoMissedAPayload) {
  Fill(3);
  StartMirror();
  // A newer observer, who then leaves, gets what the client would have got.
  RawPeer other({"127.0.0.3", 0});
  other.SetRemote({"127.0.0.2", kCoapPort});
  CoapMessage get = Request(CoapType::kCon, kCodeGet, 7, {0x0D}).AddPath("table");
  other.Send(get.AddUint(kOptObserve, 0));
  ASSERT_TRUE(other.ReceiveMessage([this] { Step(); }));
  Set("0001", "miss");
  const auto stolen = other.ReceiveMessage([this] { Step(); });
  ASSERT_TRUE(stolen);
  other.Send(AckOf(*stolen));
  CoapMessage leave = Request(CoapType::kCon, kCodeGet, 8, {0x0D}).AddPath("table");
  other.Send(leave.AddUint(kOptObserve, 1));
  ASSERT_TRUE(RunUntil([this] { return NumObservers() == 1; }));
  EXPECT_EQ(mirror_.tuples["0001"], "0001");

  EXPECT_EQ(asker_.Call(COAP_RpcCliObserveReqVerify, key_, server_), 0u);
  ASSERT_TRUE(IsMirrored());
  EXPECT_EQ(app_.numWalks, 1u);
  EXPECT_EQ(mirror_.tuples["0001"], "miss");
}

TEST_P(TwoMirror, Batch_SendsEverythingOnceMore) {
  Fill(3);
  StartMirror();
  mirror_.tuples.clear();
  EXPECT_EQ(asker_.Call(COAP_RpcCliObserveReqBatch, key_, server_), 0u);
  ASSERT_TRUE(IsMirrored());
  EXPECT_EQ(app_.numWalks, 1u);
  EXPECT_EQ(mirror_.numPayloads, 2u);
  EXPECT_EQ(NumObservers(), 1u);
}

TEST_P(TwoMirror, BatchOf60000Bytes_ComesWhole) {
  app_.padding = 47;
  Fill(1000);
  StartMirror();
  for (int round = 0; round < 3; ++round) {
    mirror_.tuples.clear();
    EXPECT_EQ(asker_.Call(COAP_RpcCliObserveReqBatch, key_, server_), 0u);
    ASSERT_TRUE(IsMirrored()) << round;
  }
  EXPECT_EQ(app_.numWalks, 3u);
}

TEST_P(TwoMirror, RelationEndedInsideOnResponseOfABigSet_IsSafe) {
  app_.padding = 47;
  Fill(1000);
  auto take = responses_.onPayload;
  responses_.onPayload = [&](const std::string &payload) {
    take(payload);
    EXPECT_EQ(asker_.Call(COAP_RpcCliObserveUnReq, key_, server_), 0u);
  };
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  ASSERT_TRUE(RunUntil([this] { return mirror_.numPayloads == 1; }));
  ASSERT_TRUE(RunUntil([this] { return NumObservers() == 0; }));
  responses_.onPayload = take;
  mirror_.tuples.clear();
  StartMirror();
}

TEST_P(TwoMirror, UriDetachedAndAttachedInMidTransfer_IsObservedAgain) {
  app_.padding = 47;
  Fill(1000);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  ASSERT_TRUE(RunUntil([this] { return Entry()->isSendingLargeBlock != 0; }));
  Steps(5);
  server_.Detach(key_);
  Steps(5);
  server_.Attach(key_);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  EXPECT_TRUE(IsMirrored());
}

TEST_P(TwoMirror, CancelledInMidTransfer_TheUriIsFreeForTheNextObserver) {
  app_.padding = 47;
  Fill(1000);
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(asker_.Observe(key_, server_), 0u);
    ASSERT_TRUE(RunUntil([this] { return Entry()->isSendingLargeBlock != 0; })) << round;
    Steps(5);
    EXPECT_EQ(asker_.Call(COAP_RpcCliObserveUnReq, key_, server_), 0u);
    ASSERT_TRUE(RunUntil([this] { return NumObservers() == 0; })) << round;
  }
  StartMirror();
}

TEST_P(TwoMirror, ServerStoppedInMidTransfer_IsObservedAgainAfterItsRestart) {
  app_.padding = 47;
  Fill(1000);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  ASSERT_TRUE(RunUntil([this] { return Entry()->isSendingLargeBlock != 0; }));
  Steps(5);
  server_.Stop();
  Steps(100);
  server_.Start();
  server_.ServeObserve(key_, &app_, isJson_);
  Fill(1000);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  EXPECT_TRUE(IsMirrored());
}

TEST_P(TwoMirror, ClientStoppedInMidTransfer_TheUriIsFreeAfter20Seconds) {
  app_.padding = 47;
  Fill(1000);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  ASSERT_TRUE(RunUntil([this] { return Entry()->isSendingLargeBlock != 0; }));
  Steps(5);
  asker_.Stop();
  for (int i = 0; i < 210; ++i) server_.Host().AdvanceMs(kTickMs);
  EXPECT_EQ(Entry()->isSendingLargeBlock, 0u);
  asker_.Start();
  RegisterAsker();
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  EXPECT_TRUE(IsMirrored());
}

TEST_P(TwoMirror, NonTable_IsMirrored) {
  // The relation is CON; the notifications are NON, as the table's key says.
  const CoapRpcUriKey non = KeyOf("non", COAP_RPC_NON, 1);
  const CoapRpcUriKey con = KeyOf("non", COAP_RPC_CON, 1);
  ObserveApp app;
  server_.ServeObserve(non, &app, isJson_);
  asker_.Register(con, &responses_);
  EXPECT_EQ(asker_.Observe(con, server_), 0u);
  ASSERT_TRUE(RunUntil([&] { return app.observerNums.size() == 1; }));
  for (int i = 0; i < 20; ++i) {
    const std::string key = std::to_string(1000 + i % 3);
    const std::string val = std::to_string(2000 + i);
    app.data[key] = val;
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(server_.Ctx(), &non, key.data(), val.data()), 0u);
    ASSERT_TRUE(RunUntil([&] { return mirror_.tuples == app.data; })) << i;
  }
}

}  // namespace
}  // namespace coap_rpc_test
