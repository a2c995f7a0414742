/* test_coap_rpc_ser_sync_order.cpp: orders of versions against a map, and what they take. */
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_order.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "test_pool.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::SyncCursor;
using coap_rpc::SyncTuple;

// Orders are two of them, which share their space.
struct Orders {
  explicit Orders(uint32_t numTuples) : tuples(numTuples) {
    EXPECT_TRUE(SyncSpaceReserve(space, pool.Handle(), numTuples));
    for (SyncTuple &tuple : tuples) Append(0, tuple);
  }
  ~Orders() {
    for (coap_rpc::SyncOrder &order : orders) SyncOrderClear(order, space);
    SyncSpaceClear(space, pool.Handle());
    EXPECT_EQ(pool.LiveCount(), 0u);
  }

  void Append(int to, SyncTuple &tuple) {
    tuple.version = ++head;
    SyncOrderAppend(orders[to], space, &tuple);
    models[to][head] = &tuple;
  }
  void Move(SyncTuple &tuple, int to) {
    const int from = models[0].count(tuple.version) != 0 ? 0 : 1;
    SyncOrderRemove(orders[from], space, &tuple);
    models[from].erase(tuple.version);
    Append(to, tuple);
  }

  void ExpectEqualAfter(uint64_t since) {
    for (int i = 0; i < 2; ++i) {
      SyncCursor cursor(orders[i], since);
      auto at = models[i].upper_bound(since);
      for (; at != models[i].end() && cursor.Get() == at->second; ++at) cursor.Advance();
      EXPECT_TRUE(at == models[i].end()) << "since " << since;
      EXPECT_EQ(cursor.Get(), nullptr) << "since " << since;
    }
  }

  TestPool pool;
  std::vector<SyncTuple> tuples;
  coap_rpc::SyncSpace space = {};
  coap_rpc::SyncOrder orders[2] = {};
  std::map<uint64_t, SyncTuple *> models[2];
  uint64_t head = 0;
};

class SerSyncOrder : public testing::TestWithParam<uint32_t> {};

// Most changes are of a few tuples, which leaves segments with little in them.
TEST_P(SerSyncOrder, RandomMoves_AgreeWithAMap) {
  const uint32_t numTuples = GetParam();
  Orders t(numTuples);
  const uint32_t numSegments = t.space.num;
  std::mt19937 random(numTuples);
  for (uint32_t step = 0; step < 20'000 && !HasFailure(); ++step) {
    const uint32_t num = step % 4 == 0 ? numTuples : (numTuples + 6) / 7;
    t.Move(t.tuples[random() % num], random() % 3 == 0 ? 1 : 0);
    if (step % 10 == 0) t.ExpectEqualAfter(random() % (t.head + 2));
  }
  t.ExpectEqualAfter(0);
  t.ExpectEqualAfter(UINT64_MAX);
  EXPECT_EQ(t.space.num, numSegments);
}

INSTANTIATE_TEST_SUITE_P(Tuples, SerSyncOrder, testing::Values(1, 2, 64, 65, 130, 1000));

TEST(SerSyncOrder, TheSpaceOfFewerTuples_IsFreed) {
  Orders t(1000);
  const uint64_t numBefore = t.pool.LiveCount();
  for (uint32_t i = 0; i < 900; ++i) SyncOrderRemove(t.orders[0], t.space, &t.tuples[i]);
  SyncSpaceTrim(t.space, t.pool.Handle(), 100);
  EXPECT_EQ(t.pool.LiveCount(), numBefore - (1000 / 29 - 100 / 29));
  SyncCursor cursor(t.orders[0], 0);
  EXPECT_EQ(cursor.Get(), &t.tuples[900]);
}

TEST(SerSyncOrder, NoMemoryForSpace_IsReported) {
  TestPool pool;
  coap_rpc::SyncSpace space = {};
  pool.Failures().FailOnce(3);
  EXPECT_FALSE(SyncSpaceReserve(space, pool.Handle(), 1));
  EXPECT_TRUE(SyncSpaceReserve(space, pool.Handle(), 1));
  SyncSpaceClear(space, pool.Handle());
  EXPECT_EQ(pool.LiveCount(), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
