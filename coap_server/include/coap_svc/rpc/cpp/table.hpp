/* table.hpp: a table that others mirror exactly (coap_rpc_sync.h).
 *
 *   Table<Port, Stats> ports = must(node.table<Port, Stats>("ports"));
 *   must(ports.set({1}, {0, 0}));
 *
 * value.hpp says what keys and values may be.  Who knows nothing of versions gets JSON: for a plain
 * GET [{"key":k,"value":v},...], as far as it fits, and an observer
 * {"data":[{"key":k,"value":v},...]} with what has changed, where null is the value of a row that
 * is gone. */
#ifndef COAP_RPC_CPP_TABLE_HPP
#define COAP_RPC_CPP_TABLE_HPP

#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>

#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/cpp/address.hpp"
#include "coap_svc/rpc/cpp/core.hpp"
#include "coap_svc/rpc/cpp/serve.hpp"
#include "coap_svc/rpc/cpp/value.hpp"

COAPRPC_BEGIN

/* TableParam is how a table is served; CoapRpcSerSyncParam says more of the first four. */
struct TableParam {
  std::chrono::milliseconds window{0}; /* changes are collected for so long; 0: not at all */
  uint32_t pageBytes = 0;              /* 0: 1024 */
  uint32_t minTombstones = 0;          /* 0: 1024 */
  std::chrono::milliseconds lease{0};  /* 0: 120 s */
  std::optional<Address> listen = {};  /* none: the node's */
};

namespace detail {

using VersionFunction = Function<uint64_t>;

// TableShape is what the C interface has to know of keys and values.
struct TableShape {
  uint16_t keyLen, valLen;
  CoapRpcTupleKeyCmp compare;
  CoapRpcTupleToStr keyText, valText;
  std::string (*keyJson)(const void *);
  std::string (*valJson)(const void *);
};

template <typename Key, typename Val>
constexpr TableShape shapeOf() {
  static_assert(Codec<Key>::size + Codec<Val>::size <= COAP_RPC_SYNC_MAX_TUPLE,
                "coaprpc: key and value have more than 65,000 bytes together");
  return {Codec<Key>::size,      Codec<Val>::size, compareKeys<Key>, textFunctionOf<Key>(),
          textFunctionOf<Val>(), toJson<Key>,      toJson<Val>};
}

// TableRecord is a path with a table.  Like an Entry it stays when its table has ended; another
// table of the same shape may take its place.
class TableRecord final : public Keyed {
 public:
  TableRecord(Core &core, const CoapRpcUriKey &key, const TableShape &shape)
      : Keyed(core, key), shape_(shape) {}

  bool isServing() const { return isServing_; }
  bool hasShape(const TableShape &shape) const {
    return shape.keyLen == shape_.keyLen && shape.valLen == shape_.valLen;
  }

  uint32_t registerIt() {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    reg.userData = userDataOf(this);
    reg.onRequest = onRequest;
    CoapRpcSerObVtblReg obReg = {};
    obReg.keyLen = shape_.keyLen;
    obReg.valLen = shape_.valLen;
    obReg.tupleKeyCmp = shape_.compare;
    obReg.keyToStr = shape_.keyText;
    obReg.valToStr = shape_.valText;
    obReg.buildUpdate = buildUpdate;
    obReg.buildDelete = buildDelete;
    return COAP_RpcSerRegVtbl(core().ctx(), &key(), &reg, &obReg);
  }

  // serve begins with an empty table.
  uint32_t serve(const TableParam &param, const Address &listen) {
    sync_ = {};
    sync_.windowMs = millisecondsOf(param.window);
    sync_.pageBytes = param.pageBytes;
    sync_.minTombstones = param.minTombstones;
    sync_.leaseMs = millisecondsOf(param.lease);
    sync_.userData = userDataOf(this);
    uint32_t ret = setSync();
    if (ret == 0) ret = replace(nothing, nullptr);
    if (ret == 0) ret = answerGets();
    if (ret == 0) ret = Entry::attach(core(), key(), listen);
    isServing_ = ret == 0;
    return ret;
  }

  uint32_t listenFor(VersionFunction *fn) {
    core().retire(std::exchange(confirmed_, fn));
    sync_.onConfirmed = fn ? onConfirmed : nullptr;
    return setSync();
  }

  uint32_t replace(CoapRpcSerSyncNext handOut, void *source) {
    return COAP_RpcSerSyncReplace(core().ctx(), &key(), handOut,
                                  reinterpret_cast<uint64_t>(source));
  }

  CoapRpcSerSyncState state() const {
    CoapRpcSerSyncState state = {};
    COAP_RpcSerGetSyncState(core().ctx(), &key(), &state);
    return state;
  }

  void onUnreferenced() override {
    isServing_ = false;
    core().retire(std::exchange(confirmed_, nullptr));
    COAP_RpcSerUnsetUri(core().ctx(), &key());
  }

 private:
  uint32_t setSync() { return COAP_RpcSerSetUriSync(core().ctx(), &key(), &sync_); }

  uint32_t answerGets() {
    CoapRpcSerDirectParam direct = {};
    direct.methods = COAP_RPC_ALLOW_GET;
    return COAP_RpcSerSetDirect(core().ctx(), &key(), &direct);
  }

  static uint32_t nothing(uint64_t, void *, void *) { return COAP_RPC_SYNC_END; }

  static void onConfirmed(uint64_t userData, uint64_t version) {
    TableRecord &record = recordOf<TableRecord>(userData);
    if (record.confirmed_ && !record.core().isClosing()) {
      record.confirmed_->run(record.key().uri, version);
    }
  }

  // Listing is the JSON of the rows that an answer has room for.
  struct Listing {
    const TableShape &shape;
    size_t room;
    std::string json = "[";
    uint64_t numLeft = 0;

    void add(const void *key, const void *val) {
      if (numLeft != 0) return void(++numLeft);
      const std::string row = std::string(json.size() > 1 ? "," : "") +
                              "{\"key\":" + shape.keyJson(key) +
                              ",\"value\":" + shape.valJson(val) + "}";
      json.size() + row.size() + kTailRoom < room ? void(json += row) : void(++numLeft);
    }
    std::string end() {
      if (numLeft == 0) return json + "]";
      return json + (json.size() > 1 ? "," : "") + "{\"more\":" + std::to_string(numLeft) + "}]";
    }
    static constexpr size_t kTailRoom = 40;
  };

  // visit must not throw through the C interface: what does ends the listing.
  static uint32_t visit(uint64_t userData, const void *key, const void *val) noexcept {
    auto &listing = *reinterpret_cast<Listing *>(userData);
    COAPRPC_TRY { listing.add(key, val); }
    COAPRPC_CATCH(...) { ++listing.numLeft; }
    return 0;
  }

  static int32_t onRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *, uint32_t,
                           uint8_t *out, uint32_t size) {
    TableRecord &record = recordOf<TableRecord>(userData);
    int32_t len = Entry::kFailed;
    record.core().guarded(record.key().uri, [&] { len = record.list(out, size); });
    return len;
  }

  int32_t list(uint8_t *out, uint32_t size) {
    Listing listing{.shape = shape_, .room = size};
    COAP_RpcSerVisitTuples(core().ctx(), &key(), visit, reinterpret_cast<uint64_t>(&listing));
    COAP_RpcSerSetAnswer(core().ctx(), 205, Format::json);
    const std::string json = listing.end();
    std::copy(json.begin(), json.end(), out);
    return static_cast<int32_t>(json.size());
  }

  static uint32_t buildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
    return recordOf<TableRecord>(userData).build(key, val, out);
  }
  static uint32_t buildDelete(uint64_t userData, uint8_t *key, void *out) {
    return recordOf<TableRecord>(userData).build(key, nullptr, out);
  }

  // build fills the element of a change; null: the row is gone.
  uint32_t build(const void *rowKey, const void *val, void *out) {
    uint32_t ret = 1;
    core().guarded(key().uri, [&] {
      ret = setMember(out, "key", shape_.keyJson(rowKey));
      if (ret == 0) ret = setMember(out, "value", val ? shape_.valJson(val) : "null");
    });
    return ret;
  }
  static uint32_t setMember(void *out, const char *name, const std::string &json) {
    return COAP_RpcSerSetMember(out, name, json.data(), lenOf(json));
  }

  TableShape shape_;
  CoapRpcSerSyncParam sync_ = {};
  VersionFunction *confirmed_ = nullptr;
  bool isServing_ = false;
};

// RangeSource hands out a range of pairs, one after the other.  What the range throws waits in it.
template <typename Key, typename Val, typename Range>
class RangeSource {
 public:
  explicit RangeSource(const Range &range) : at_(std::begin(range)), end_(std::end(range)) {}

  static uint32_t next(uint64_t userData, void *key, void *val) noexcept {
    auto &source = *reinterpret_cast<RangeSource *>(userData);
    COAPRPC_TRY { return source.write(static_cast<uint8_t *>(key), static_cast<uint8_t *>(val)); }
    COAPRPC_CATCH(...) { source.thrown_ = std::current_exception(); }
    return kFailed;
  }

  void rethrow() {
#ifdef __cpp_exceptions
    if (thrown_) std::rethrow_exception(thrown_);
#endif
  }

 private:
  static constexpr uint32_t kFailed = 2;

  uint32_t write(uint8_t *keyOut, uint8_t *valOut) {
    if (at_ == end_) return COAP_RPC_SYNC_END;
    const auto &[key, val] = *at_;
    Codec<Key>::encode(key, keyOut);
    Codec<Val>::encode(val, valOut);
    ++at_;
    return 0;
  }

  decltype(std::begin(std::declval<const Range &>())) at_;
  decltype(std::end(std::declval<const Range &>())) end_;
  std::exception_ptr thrown_;
};

}  // namespace detail

/* Table is a table that this node publishes.  Destroying it ends the path; a table of the same path
 * and with keys and values of the same length may follow. */
template <typename Key, typename Val>
class [[nodiscard]] Table {
 public:
  Table() = default;
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;
  Table(Table &&) noexcept = default;
  Table &operator=(Table &&) noexcept = default;

  bool isOpen() const { return bool(ref_); }

  /* set adds or changes a row; an equal value is no change. */
  [[nodiscard]] Result<void> set(const Key &key, const Val &val) {
    if (!ref_) return Unexpected(Error::closed());
    KeyBytes keyBytes = {};
    typename detail::Codec<Val>::Bytes valBytes = {};
    detail::Codec<Key>::encode(key, keyBytes);
    detail::Codec<Val>::encode(val, valBytes);
    return check(
        COAP_RpcSerObserveDataUpdate(ref_->core().ctx(), &ref_->key(), keyBytes, valBytes));
  }

  /* erase removes a row, if there is one. */
  void erase(const Key &key) {
    if (!ref_) return;
    KeyBytes bytes = {};
    detail::Codec<Key>::encode(key, bytes);
    COAP_RpcSerObserveDataDel(ref_->core().ctx(), &ref_->key(), bytes);
  }

  /* replace makes the table equal to a range of pairs in one step, and publishes what differs.  Of
   * two pairs with the same key the later one counts.  If the range throws, so does replace, and
   * nothing was removed. */
  template <typename Range>
  [[nodiscard]] Result<void> replace(const Range &range) {
    if (!ref_) return Unexpected(Error::closed());
    using Source = detail::RangeSource<Key, Val, Range>;
    Source source(range);
    const uint32_t ret = ref_->replace(Source::next, &source);
    source.rethrow();
    return check(ret);
  }

  /* state has versions, digest, numbers of rows and observers (coap_rpc_sync.h). */
  CoapRpcSerSyncState state() const { return ref_ ? ref_->state() : CoapRpcSerSyncState{}; }
  size_t size() const { return state().numLive; }
  uint64_t head() const { return state().head; }

  /* confirmed is the version that every observer has; 0 without observers. */
  uint64_t confirmed() const { return state().confirmed; }

  /* onConfirmed calls fn with each greater version that every observer has; observers confirm soon
   * after each change from then on. */
  template <typename F>
  [[nodiscard]] Result<void> onConfirmed(F &&fn) {
    static_assert(std::is_invocable_v<std::decay_t<F> &, uint64_t>,
                  "coaprpc: the function takes a version, uint64_t");
    if (!ref_) return Unexpected(Error::closed());
    auto *function = detail::makeFunction<uint64_t>(ref_->core(), std::forward<F>(fn));
    if (!function) return Unexpected(Error::noMemory());
    return check(ref_->listenFor(function));
  }

 private:
  friend class Node;
  using KeyBytes = typename detail::Codec<Key>::Bytes;

  explicit Table(detail::TableRecord *record) : ref_(record) {}

  detail::Ref<detail::TableRecord> ref_;
};

COAPRPC_END
#endif /* COAP_RPC_CPP_TABLE_HPP */
