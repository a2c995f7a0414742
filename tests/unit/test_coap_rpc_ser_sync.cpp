/* test_coap_rpc_ser_sync.cpp: the functions of coap_rpc_sync.h that need no network. */
#include "coap_svc/rpc/coap_rpc_sync.h"

#include <gtest/gtest.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "synced_entry.h"
#include "test_instance.h"

namespace {

// What the system gives in place of random bytes: as many zeros; less than 0: an error.
std::optional<ssize_t> g_randomZeros;

}  // namespace

extern "C" ssize_t getrandom(void *buf, size_t len, unsigned flags) {
  if (!g_randomZeros) return syscall(SYS_getrandom, buf, len, flags);
  memset(buf, 0, len);
  errno = ENOSYS;
  return *g_randomZeros;
}

namespace coap_rpc_test {
namespace {

using Rows = std::vector<std::string>;

class SerSync : public testing::Test {
 protected:
  SerSync() : instance_(host_) {
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = 4;
    ob.tupleKeyCmp = ByText;
    const CoapRpcSerVtblReg reg = {};
    EXPECT_EQ(COAP_RpcSerRegVtbl(instance_, &key_, &reg, &ob), 0u);
    EXPECT_EQ(COAP_RpcSerRegVtbl(instance_, &plainKey_, &reg, nullptr), 0u);
  }

  uint32_t SetSync() { return COAP_RpcSerSetUriSync(instance_, &key_, nullptr); }
  uint32_t Put(const char *key, const char *val) {
    return COAP_RpcSerObserveDataUpdate(instance_, &key_, key, val);
  }
  coap_rpc::SyncSet &Set() { return Entry()->sync->set; }
  CoapRpcSerUriVtbl *Entry() { return COAP_RpcSerFindUriVtbl(instance_.Get()->ser, &key_); }

  Rows Tuples() {
    Rows rows;
    for (CoapRpcUriTuple *tuple = COAP_RpcSerGetFirstUriTuple(Entry()); tuple;
         tuple = COAP_RpcSerGetNextUriTuple(Entry(), tuple)) {
      rows.push_back(std::string(tuple->key, tuple->key + 8));
    }
    return rows;
  }

  // Source hands out rows of key and value, and then a result.
  struct Source {
    Rows rows;
    uint32_t last = COAP_RPC_SYNC_END;
    size_t at = 0;
  };
  static uint32_t Next(uint64_t userData, void *key, void *val) {
    auto &source = *reinterpret_cast<Source *>(userData);
    if (source.at == source.rows.size()) return source.last;
    const std::string &row = source.rows[source.at++];
    memcpy(key, row.data(), 4);
    memcpy(val, row.data() + 4, 4);
    return 0;
  }
  uint32_t Replace(Source source) {
    return COAP_RpcSerSyncReplace(instance_, &key_, Next, reinterpret_cast<uint64_t>(&source));
  }

  TestHost host_;
  TestInstance instance_;
  CoapRpcUriKey key_ = KeyOf("ports", 0, 1);
  CoapRpcUriKey plainKey_ = KeyOf("plain");
};

TEST_F(SerSync, SetUriSync_BadArguments_GiveCodes) {
  EXPECT_EQ(COAP_RpcSerSetUriSync(nullptr, &key_, nullptr), 1900001511u);
  EXPECT_EQ(COAP_RpcSerSetUriSync(instance_, nullptr, nullptr), 1900001511u);
  EXPECT_EQ(COAP_RpcSerSetUriSync(instance_, &plainKey_, nullptr), 1900001512u);
  const CoapRpcUriKey unknown = KeyOf("unknown", 0, 1);
  EXPECT_EQ(COAP_RpcSerSetUriSync(instance_, &unknown, nullptr), 1900001512u);
  const CoapRpcUriKey unobservable = KeyOf("unobservable");  // no reader would find it
  const CoapRpcSerVtblReg reg = {};
  ASSERT_EQ(COAP_RpcSerRegVtbl(instance_, &unobservable, &reg, Entry()->obVtbl), 0u);
  EXPECT_EQ(COAP_RpcSerSetUriSync(instance_, &unobservable, nullptr), 1900001512u);
}

// Each null argument is asserted, at a line of its function.
TEST_F(SerSync, NullArguments_AreAsserted) {
  CoapRpcSerSyncState state;
  const auto visit = [](uint64_t, const CoapRpcSyncPeer *) {};
  const auto linesOf = [this](auto call) {
    host_.Process().ClearAsserts();
    call();
    std::vector<uint32_t> lines;
    for (const AssertRecord &record : host_.Process().Asserts()) {
      EXPECT_EQ(record.path, "coap_server/src/coap_svc/rpc/init/coap_rpc_ser_sync");
      lines.push_back(record.line);
    }
    return lines;
  };
  using Lines = std::vector<uint32_t>;
  EXPECT_EQ(linesOf([&] { COAP_RpcSerSetUriSync(nullptr, &key_, nullptr); }), (Lines{1510}));
  EXPECT_EQ(linesOf([&] { COAP_RpcSerSetUriSync(instance_, nullptr, nullptr); }), (Lines{1510}));
  EXPECT_EQ(linesOf([&] { COAP_RpcSerSyncReplace(instance_, nullptr, Next, 0); }), (Lines{1520}));
  EXPECT_EQ(linesOf([&] { COAP_RpcSerSyncReplace(instance_, &key_, nullptr, 0); }), (Lines{1520}));
  EXPECT_EQ(linesOf([&] { COAP_RpcSerGetSyncState(instance_, nullptr, &state); }), (Lines{1530}));
  EXPECT_EQ(linesOf([&] { COAP_RpcSerGetSyncState(instance_, &key_, nullptr); }), (Lines{1530}));
  EXPECT_EQ(linesOf([&] { COAP_RpcSerVisitSyncPeers(instance_, nullptr, visit, 0); }),
            (Lines{1540}));
  EXPECT_EQ(linesOf([&] { COAP_RpcSerVisitSyncPeers(instance_, &key_, nullptr, 0); }),
            (Lines{1540}));
  EXPECT_EQ(linesOf([&] { COAP_RpcSerGetSyncState(instance_, &plainKey_, &state); }), Lines());
}

TEST_F(SerSync, SetUriSync_WithoutRandomNumbers_ChangesNothing) {
  ASSERT_EQ(Put("aaaa", "0001"), 0u);
  const size_t numBefore = host_.Pool().LiveCount();
  for (const ssize_t num : {-1, 0, 7}) {
    g_randomZeros = num;
    EXPECT_EQ(SetSync(), 1900001516u) << num;
    EXPECT_EQ(Entry()->sync, nullptr);
    EXPECT_EQ(host_.Pool().LiveCount(), numBefore);
  }
  g_randomZeros = 8;
  EXPECT_EQ(SetSync(), 0u);
  EXPECT_EQ(Set().replid, 1u);  // 0 stands for none
  g_randomZeros.reset();
  EXPECT_EQ(Tuples(), (Rows{"aaaa0001"}));
}

TEST_F(SerSync, Update_WithoutMemory_SaysThatNothingWasStored) {
  ASSERT_EQ(SetSync(), 0u);
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(Put("aaaa", "0001"), 1900000135u);
  EXPECT_EQ(Set().head, 0u);
  EXPECT_EQ(Put("aaaa", "0001"), 0u);
  EXPECT_EQ(Set().head, 1u);
}

// One that libcoap does not know, as when its URI was moved to another address.
TEST_F(SerSync, UnknownObserver_ExpiresAndHoldsNobodyBack) {
  std::vector<uint64_t> confirmed;
  CoapRpcSerSyncParam param = {};
  param.leaseMs = 1000;
  param.userData = reinterpret_cast<uint64_t>(&confirmed);
  param.onConfirmed = [](uint64_t userData, uint64_t version) {
    reinterpret_cast<std::vector<uint64_t> *>(userData)->push_back(version);
  };
  ASSERT_EQ(COAP_RpcSerSetUriSync(instance_, &key_, &param), 0u);
  Put("aaaa", "0001");
  const int sessions[2] = {};
  void *records[2] = {};
  coap_rpc::SyncObserverComes(Entry(), &sessions[0], &records[0]);
  coap_rpc::SyncPeer *heard = coap_rpc::SyncObserverComes(Entry(), &sessions[1], &records[1]);
  coap_rpc::SyncObserverHas(Entry(), heard, 1);
  host_.AdvanceMs(1000);
  EXPECT_EQ(confirmed, std::vector<uint64_t>());
  coap_rpc::SyncObserverAsks(Entry(), heard);
  host_.AdvanceMs(250);
  EXPECT_EQ(confirmed, (std::vector<uint64_t>{1}));
  EXPECT_EQ(Entry()->sync->peers.num, 1u);
  for (auto &record : records) coap_rpc::SyncRecordGoes(&record);
}

TEST_F(SerSync, Replace_BadArguments_GiveCodes) {
  EXPECT_EQ(COAP_RpcSerSyncReplace(nullptr, &key_, Next, 0), 1900001521u);
  EXPECT_EQ(COAP_RpcSerSyncReplace(instance_, nullptr, Next, 0), 1900001521u);
  EXPECT_EQ(COAP_RpcSerSyncReplace(instance_, &key_, nullptr, 0), 1900001521u);
  EXPECT_EQ(Replace({}), 1900001522u);
  EXPECT_EQ(COAP_RpcSerSyncReplace(instance_, &plainKey_, Next, 0), 1900001522u);
}

TEST_F(SerSync, Replace_PublishesTheDifferenceAlone) {
  ASSERT_EQ(SetSync(), 0u);
  for (const char *key : {"aaaa", "bbbb", "cccc", "dddd"}) Put(key, "0001");
  EXPECT_EQ(Replace({{"eeee0001", "bbbb0001", "cccc0002"}}), 0u);
  EXPECT_EQ(Tuples(), (Rows{"bbbb0001", "cccc0002", "eeee0001"}));
  EXPECT_EQ(Set().head, 8u);  // one new, one changed, two deleted
  EXPECT_EQ(Replace({{"cccc0002", "bbbb0001", "eeee0001"}}), 0u);
  EXPECT_EQ(Set().head, 8u);
}

TEST_F(SerSync, Replace_ByNothing_DeletesEverything) {
  ASSERT_EQ(SetSync(), 0u);
  for (const char *key : {"aaaa", "bbbb", "cccc"}) Put(key, "0001");
  EXPECT_EQ(Replace({}), 0u);
  EXPECT_EQ(Tuples(), Rows());
  EXPECT_EQ(Set().numTombs, 3u);
}

TEST_F(SerSync, Replace_KeyNamedTwice_GetsTheLaterValue) {
  ASSERT_EQ(SetSync(), 0u);
  EXPECT_EQ(Replace({{"aaaa0001", "aaaa0002"}}), 0u);
  EXPECT_EQ(Tuples(), (Rows{"aaaa0002"}));
}

TEST_F(SerSync, Replace_WalkThatFails_DeletesNothing) {
  ASSERT_EQ(SetSync(), 0u);
  Put("aaaa", "0001");
  EXPECT_EQ(Replace({{"bbbb0001"}, 7}), 1900001523u);
  EXPECT_EQ(Tuples(), (Rows{"aaaa0001", "bbbb0001"}));
  EXPECT_EQ(Replace({{"bbbb0001"}}), 0u);  // what the failed one met has to be met again
  EXPECT_EQ(Tuples(), (Rows{"bbbb0001"}));
}

TEST_F(SerSync, Replace_WithoutMemory_DeletesNothing) {
  ASSERT_EQ(SetSync(), 0u);
  Put("aaaa", "0001");
  for (const uint64_t n : {uint64_t{1}, uint64_t{2}}) {  // the buffer, and the tuple
    host_.Pool().Failures().FailOnce(n);
    EXPECT_EQ(Replace({{"bbbb0001"}}), 1900001524u);
    EXPECT_EQ(Tuples(), (Rows{"aaaa0001"}));
  }
}

}  // namespace
}  // namespace coap_rpc_test
