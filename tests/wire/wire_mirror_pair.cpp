// Two instances: a server's table with versions, and mirrors of it.
#include "coap_svc/rpc/coap_rpc_stats.h"
#include "mirror_pair.h"

namespace coap_rpc_test {
namespace {

class MirrorPair : public TwoInstances {
 protected:
  void Serve(const CoapRpcSerSyncParam &param = {}) { source_.Serve(server_, param); }
  void OpenCopy(uint32_t heartbeatMs = 0) { copy_.Open(asker_, server_, heartbeatMs); }
  bool BecomesEqual(int maxSteps = kMaxSteps) {
    return RunUntil([this] { return copy_.IsEqual(); }, maxSteps);
  }
  void Restart(const CoapRpcSerSyncParam &param = {}) {
    server_.Stop();
    server_.Start();
    Serve(param);
  }
  ~MirrorPair() override { copy_.Close(); }

  Source source_{4, 8};
  Copy copy_{source_};
};

TEST_F(MirrorPair, Newcomer_ReadsEverything) {
  Serve();
  source_.Fill(3000);
  OpenCopy();
  ASSERT_TRUE(BecomesEqual());
  EXPECT_EQ(copy_.numAdded, 3000u);
  EXPECT_EQ(copy_.synced, (std::vector<uint64_t>{3000}));
  EXPECT_EQ(copy_.State().numFullSyncs, 1u);
}

TEST_F(MirrorPair, EmptyTable_IsSyncedAtZero) {
  Serve();
  OpenCopy();
  ASSERT_TRUE(BecomesEqual());
  EXPECT_EQ(copy_.synced, (std::vector<uint64_t>{0}));
}

TEST_F(MirrorPair, Changes_ArePushed) {
  Serve();
  source_.Fill(10);
  OpenCopy();
  ASSERT_TRUE(BecomesEqual());
  Steps(3);  // the registration
  const uint64_t numPulls = copy_.State().numPulls;
  source_.Put("0003", "new");
  source_.Delete("0004");
  source_.Put("more", "more");
  ASSERT_TRUE(BecomesEqual(5));
  EXPECT_EQ(copy_.numChanged, 1u);
  EXPECT_EQ(copy_.numRemoved, 1u);
  EXPECT_EQ(copy_.State().numPulls, numPulls);
}

TEST_F(MirrorPair, MoreChangesThanANotificationHolds_ArePulled) {
  Serve();
  source_.Fill(1000);
  OpenCopy();
  ASSERT_TRUE(BecomesEqual());
  for (uint32_t i = 0; i < 500; ++i) source_.Put(Source::Name(i), "changed");
  ASSERT_TRUE(BecomesEqual(50));
  EXPECT_EQ(copy_.State().numFullSyncs, 1u);
}

TEST_F(MirrorPair, ServerRestarts_OnlyTheDifferenceIsTold) {
  Serve();
  source_.Fill(200);
  OpenCopy(1000);
  ASSERT_TRUE(BecomesEqual());
  source_.rows.erase("0007");
  source_.rows["0008"] = "other...";
  source_.rows["0999"] = "new.....";
  Restart();
  ASSERT_TRUE(BecomesEqual());
  EXPECT_EQ(copy_.numAdded, 201u);
  EXPECT_EQ(copy_.numChanged, 1u);
  EXPECT_EQ(copy_.numRemoved, 1u);
  Steps(20);
  EXPECT_EQ(source_.State().numObservers, 1u);
}

TEST_F(MirrorPair, ServerThatIsAwayForLong_IsFoundAgain) {
  Serve();
  source_.Fill(20);
  OpenCopy(1000);
  ASSERT_TRUE(BecomesEqual());
  server_.Stop();
  server_.Start();
  EXPECT_TRUE(RunUntil([&] { return copy_.State().state == COAP_RPC_MIRROR_STALE; }));
  EXPECT_EQ(copy_.Table(), source_.rows);
  Steps(600);
  Serve();
  ASSERT_TRUE(BecomesEqual(100));
}

TEST_F(MirrorPair, ServerThatComesLater_IsFound) {
  OpenCopy(1000);
  Steps(100);
  Serve();
  source_.Fill(5);
  ASSERT_TRUE(BecomesEqual(200));
}

TEST_F(MirrorPair, UriWithoutVersions_Refuses_UntilItHasThem) {
  CoapRpcSerVtblReg reg = {};
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = 4;
  ob.valLen = 8;
  ob.tupleKeyCmp = ObserveApp::KeyCmp;
  ASSERT_EQ(COAP_RpcSerRegVtbl(server_.Ctx(), &source_.Key(), &reg, &ob), 0u);
  server_.Attach(source_.Key());
  OpenCopy(1000);
  EXPECT_TRUE(RunUntil([&] { return copy_.State().state == COAP_RPC_MIRROR_REFUSED; }, 100));
  EXPECT_EQ(copy_.State().code, 1900001619u);
  Steps(300);
  EXPECT_EQ(copy_.State().state, uint32_t{COAP_RPC_MIRROR_REFUSED});
  CoapRpcSerSyncParam param = {};
  EXPECT_EQ(COAP_RpcSerSetUriSync(server_.Ctx(), &source_.Key(), &param), 0u);
  EXPECT_TRUE(RunUntil([&] { return copy_.State().state == COAP_RPC_MIRROR_SYNCED; }, 100));
}

TEST_F(MirrorPair, TheVersionThatAMirrorHas_IsConfirmed) {
  static uint64_t confirmed;
  confirmed = 0;
  CoapRpcSerSyncParam param = {};
  param.onConfirmed = [](uint64_t, uint64_t version) { confirmed = version; };
  Serve(param);
  source_.Fill(5);
  OpenCopy();
  ASSERT_TRUE(BecomesEqual());
  Steps(5);
  source_.Put("0001", "x");
  EXPECT_TRUE(RunUntil([&] { return confirmed == 6; }, 10));
}

TEST_F(MirrorPair, ManyMirrors_OfOneUri) {
  Serve();
  source_.Fill(100);
  Copy second(source_);
  Copy third(source_);
  OpenCopy();
  second.Open(asker_, server_);
  third.Open(server_, server_);  // a server may mirror itself
  ASSERT_TRUE(RunUntil([&] { return copy_.IsEqual() && second.IsEqual() && third.IsEqual(); }));
  Steps(5);
  EXPECT_EQ(source_.State().numObservers, 3u);
  source_.Put("0001", "y");
  ASSERT_TRUE(RunUntil([&] { return copy_.IsEqual() && second.IsEqual() && third.IsEqual(); }, 5));
}

TEST_F(MirrorPair, LeaseThatEnds_IsTakenAgain) {
  CoapRpcSerSyncParam param = {};
  param.leaseMs = 1000;
  Serve(param);
  OpenCopy(10'000);
  ASSERT_TRUE(BecomesEqual());
  Steps(20);
  EXPECT_EQ(source_.State().numObservers, 0u);
  source_.Put("0001", "x");
  EXPECT_FALSE(copy_.IsEqual());
  ASSERT_TRUE(BecomesEqual(115));  // the heartbeat
  Steps(3);
  EXPECT_EQ(source_.State().numObservers, 1u);
}

TEST_F(MirrorPair, DisplayCommand_ShowsThem) {
  Serve();
  source_.Fill(3);
  OpenCopy();
  ASSERT_TRUE(BecomesEqual());
  const std::vector<std::string> lines = asker_.Host().RunCommand("disp client mirror");
  ASSERT_EQ(lines.size(), 2u);
  const std::string start = "client mirror[  0]: uri(table)/server(127.0.0.2:5683)/state(synced)/";
  EXPECT_EQ(lines[0].substr(0, start.size()), start);
  EXPECT_NE(lines[0].find("/version(3)/head(3)/tuples(3)/"), std::string::npos);
  EXPECT_EQ(lines[1], " ***total 1 client mirror(s) ***\n");
}

struct Shape {
  const char *name;
  uint16_t keyLen;
  uint16_t valLen;
  uint32_t num;
};

class MirrorShapes : public TwoInstances, public testing::WithParamInterface<Shape> {};

TEST_P(MirrorShapes, TuplesOfAnyLength_Arrive) {
  const Shape &shape = GetParam();
  Source source(shape.keyLen, shape.valLen);
  Copy copy(source);
  source.Serve(server_, {});
  source.Fill(shape.num);
  copy.Open(asker_, server_);
  ASSERT_TRUE(RunUntil([&] { return copy.IsEqual(); }));
  source.Put("0001", "changed");
  source.Delete("0000");
  ASSERT_TRUE(RunUntil([&] { return copy.IsEqual(); }));
  EXPECT_EQ(copy.State().numFullSyncs, 1u);
}

INSTANTIATE_TEST_SUITE_P(Shapes, MirrorShapes,
                         testing::Values(Shape{"NoValue", 4, 0, 50}, Shape{"Small", 4, 1, 50},
                                         Shape{"Page", 8, 900, 20}, Shape{"InBlocks", 16, 3000, 10},
                                         Shape{"Longest", 500, 64'500, 2}),
                         [](const auto &shape) { return shape.param.name; });

// What a mirror that missed changes reads is little more than these.
class MirrorResume : public MirrorPair {
 protected:
  static constexpr uint32_t kNumChanges = 1000;
  static constexpr uint32_t kTupleBytes = 32;
  static constexpr uint32_t kChangeBytes = 3 + kTupleBytes;  // with its version and two lengths

  CoapRpcStats Stats() {
    CoapRpcStats stats = {};
    stats.size = sizeof(stats);
    EXPECT_EQ(COAP_RpcGetStats(asker_.Ctx(), &stats), 0u);
    return stats;
  }

  Source wide_{16, 16};
  Copy wideCopy_{wide_};
};

TEST_F(MirrorResume, AfterManyMissedChanges_ReadsThemAlone) {
  CoapRpcSerSyncParam param = {};
  param.leaseMs = 1000;  // nothing is pushed after that
  wide_.Serve(server_, param);
  wide_.Fill(5000);
  wideCopy_.Open(asker_, server_);
  ASSERT_TRUE(RunUntil([&] { return wideCopy_.IsEqual(); }));
  ASSERT_TRUE(RunUntil([&] { return wide_.State().numObservers == 0; }));
  const CoapRpcStats before = Stats();
  for (uint32_t i = 0; i < kNumChanges; ++i) wide_.Put(Source::Name(3 * i), "new");
  ASSERT_TRUE(RunUntil([&] { return wideCopy_.IsEqual(); }));
  const CoapRpcStats after = Stats();
  const uint64_t in = after.in.bytes - before.in.bytes;
  const uint64_t out = after.out.bytes - before.out.bytes;
  printf("%u changes of %u bytes: %llu bytes of CoAP came, %llu went\n", kNumChanges, kTupleBytes,
         static_cast<unsigned long long>(in), static_cast<unsigned long long>(out));
  EXPECT_LE(10 * in, 12u * kNumChanges * kTupleBytes);
  EXPECT_LE(10 * (in + out), 12u * kNumChanges * kChangeBytes);
  wideCopy_.Close();
}

}  // namespace
}  // namespace coap_rpc_test
