/* mirror_world.h: a server's set and mirrors of it, on a network and a clock that exist only in the
 * test.
 *
 * The set is the real one, and so are the pages, which travel as bytes; who answers with which page
 * is written again here.  A seed decides everything that happens. */
#ifndef MIRROR_WORLD_H
#define MIRROR_WORLD_H

#include <gtest/gtest.h>
#include <xxhash.h>

#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_page.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_page.h"
#include "synced_entry.h"

namespace coap_rpc_test {

using Rows = std::map<std::string, std::string>;

// RowsSum tells tables apart without the digest of the library.
class RowsSum {
 public:
  void Add(const std::string &key, const std::string &val) { Count(1, key, val); }
  void Remove(const std::string &key, const std::string &val) { Count(~0ull, key, val); }
  bool operator==(const RowsSum &) const = default;

 private:
  void Count(uint64_t times, const std::string &key, const std::string &val) {
    num_ += times;
    sum_ += times * (std::hash<std::string>()(key + val) | 1);
  }

  uint64_t num_ = 0;
  uint64_t sum_ = 0;
};

// ServerLife is a set from its beginning to its end, with the sum of each version.
class ServerLife {
 public:
  explicit ServerLife(uint32_t minTombs, size_t pageBytes)
      : entry_(std::make_unique<SyncedEntry>(minTombs)), pageBytes_(pageBytes) {
    EXPECT_EQ(entry_->SetSync(), 0u);
    sums_.emplace(0, RowsSum());
  }

  coap_rpc::SyncSet &Set() { return entry_->Set(); }
  const Rows &Table() const { return rows_; }
  const RowsSum *SumAt(uint64_t version) const {
    const auto found = sums_.find(version);
    return found != sums_.end() ? &found->second : nullptr;
  }
  void SetPageBytes(size_t pageBytes) { pageBytes_ = pageBytes; }

  void Put(const std::string &key, const std::string &val) {
    const auto found = rows_.find(key);
    if (found != rows_.end()) sum_.Remove(key, found->second);
    rows_[key] = val;
    sum_.Add(key, val);
    EXPECT_EQ(entry_->Put(key, val), 0u);
    sums_[Set().head] = sum_;
  }
  void Delete(const std::string &key) {
    const auto found = rows_.find(key);
    if (found == rows_.end()) return;
    sum_.Remove(key, found->second);
    rows_.erase(found);
    entry_->Delete(key);
    sums_[Set().head] = sum_;
  }

  // Answer is the page for a pull, AnswerRegistration the one for a registration.
  std::string Answer(const coap_rpc::MirrorAsk &ask, bool isObserved) {
    const uint32_t flags = isObserved ? 0u : uint32_t{coap_rpc::kSyncNotObserving};
    coap_rpc::SyncSet &set = Set();
    if (ask.isHello) {
      EmptySyncPage(set, 0, flags, page_);
    } else if (ask.replid != set.replid || ask.since > set.head ||
               (!ask.isFull && ask.since < set.floor)) {
      EmptySyncPage(set, 0, flags | coap_rpc::kSyncRestart, page_);
    } else {
      CollectSyncPage(set, {ask.since, ask.until, flags}, pageBytes_, page_);
    }
    return Written();
  }
  std::string AnswerRegistration() {
    EmptySyncPage(Set(), 0, 0, page_);
    return Written();
  }

  bool HasNews() { return Set().head != notified_; }
  std::string Notification(uint32_t flags = 0) {
    CollectSyncRound(Set(), notified_, flags | coap_rpc::kSyncNotification, pageBytes_, page_);
    notified_ = Set().head;
    return Written();
  }

 private:
  std::string Written() {
    std::string bytes(SyncPageBound(page_), '\0');
    bytes.resize(WriteSyncPage(page_, reinterpret_cast<uint8_t *>(bytes.data())));
    return bytes;
  }

  std::unique_ptr<SyncedEntry> entry_;
  size_t pageBytes_;
  Rows rows_;
  RowsSum sum_;
  std::map<uint64_t, RowsSum> sums_;
  uint64_t notified_ = 0;
  coap_rpc::SyncPage page_;
};

inline uint64_t DrawFrom(void *random) { return (*static_cast<std::mt19937_64 *>(random))(); }

// TestMirror is a mirror with the table that its callbacks make.
class TestMirror {
 public:
  TestMirror(uint64_t mem, CoapRpcMirrorParam param, std::mt19937_64 &random, uint64_t nowMs) {
    param.userData = reinterpret_cast<uint64_t>(this);
    param.onAdded = OnAdded;
    param.onChanged = OnChanged;
    param.onRemoved = OnRemoved;
    param.onSynced = OnSynced;
    param.onState = OnState;
    EXPECT_TRUE(MirrorInit(core, mem, param, DrawFrom, &random, nowMs));
  }
  TestMirror(const TestMirror &) = delete;
  TestMirror &operator=(const TestMirror &) = delete;
  ~TestMirror() { MirrorFree(core); }

  // Take hands it a payload as the wire side does.
  void Take(uint64_t token, const std::string &bytes, uint64_t nowMs) {
    coap_rpc::MirrorPage page;
    const uint32_t code = coap_rpc::ReadMirrorPage(reinterpret_cast<const uint8_t *>(bytes.data()),
                                                   bytes.size(), core.param, page);
    if (code == 0) {
      MirrorTakePage(core, token, page, nowMs);
    } else {
      MirrorTakeFailure(core, token, code, nowMs);
    }
  }

  // Table is what the mirror itself has.
  Rows Table() const {
    Rows rows;
    for (auto *tuple = MirrorTableFirst(core.table); tuple;
         tuple = MirrorTableNext(core.table, tuple)) {
      rows[Text(BytesOf(&tuple->key), core.param.keyLen)] =
          Text(ValOf(core.table, tuple), core.param.valLen);
    }
    return rows;
  }

  coap_rpc::Mirror core = {};
  Rows shadow;
  RowsSum sum;
  uint64_t numCallbacks = 0;
  std::vector<uint64_t> synced;
  std::vector<std::pair<uint32_t, uint32_t>> states;
  std::function<void(uint64_t version)> onSynced;
  uint64_t socket = 0;  // its latest one

 private:
  static TestMirror &Of(uint64_t userData) { return *reinterpret_cast<TestMirror *>(userData); }
  static std::string Text(const void *bytes, size_t len) {
    return std::string(static_cast<const char *>(bytes), len);
  }
  std::string Key(const void *key) const { return Text(key, core.param.keyLen); }
  std::string Val(const void *val) const { return Text(val, core.param.valLen); }

  static void OnAdded(uint64_t userData, const void *key, const void *val) {
    TestMirror &self = Of(userData);
    ++self.numCallbacks;
    EXPECT_TRUE(self.shadow.emplace(self.Key(key), self.Val(val)).second);
    self.sum.Add(self.Key(key), self.Val(val));
  }
  static void OnChanged(uint64_t userData, const void *key, const void *oldVal,
                        const void *newVal) {
    TestMirror &self = Of(userData);
    ++self.numCallbacks;
    EXPECT_EQ(self.shadow[self.Key(key)], self.Val(oldVal));
    EXPECT_NE(self.Val(oldVal), self.Val(newVal));
    self.sum.Remove(self.Key(key), self.Val(oldVal));
    self.sum.Add(self.Key(key), self.Val(newVal));
    self.shadow[self.Key(key)] = self.Val(newVal);
  }
  static void OnRemoved(uint64_t userData, const void *key, const void *val) {
    TestMirror &self = Of(userData);
    ++self.numCallbacks;
    EXPECT_EQ(self.shadow[self.Key(key)], self.Val(val));
    self.shadow.erase(self.Key(key));
    self.sum.Remove(self.Key(key), self.Val(val));
  }
  static void OnSynced(uint64_t userData, uint64_t version) {
    TestMirror &self = Of(userData);
    self.synced.push_back(version);
    if (self.onSynced) self.onSynced(version);
  }
  static void OnState(uint64_t userData, uint32_t state, uint32_t code) {
    Of(userData).states.emplace_back(state, code);
  }
};

}  // namespace coap_rpc_test

#endif /* MIRROR_WORLD_H */
