/* table.hpp: a table that others mirror exactly (coap_rpc_sync.h).
 *
 *   Table<Port, Stats> ports = must(node.table<Port, Stats>("ports"));
 *   must(ports.set({1}, {0, 0}));
 *
 * value.hpp says what keys and values may be.  Observers that know nothing of versions get the
 * changes too: messages of the key's bytes followed by the value's, or, for a deletion, the key's.
 */
#ifndef COAP_RPC_CPP_TABLE_HPP
#define COAP_RPC_CPP_TABLE_HPP

#include <chrono>
#include <cstring>
#include <optional>

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
};

template <typename Key, typename Val>
constexpr TableShape shapeOf() {
  static_assert(Codec<Key>::size + Codec<Val>::size <= COAP_RPC_SYNC_MAX_TUPLE,
                "coaprpc: key and value have more than 65,000 bytes together");
  return {Codec<Key>::size, Codec<Val>::size, compareKeys<Key>, textFunctionOf<Key>(),
          textFunctionOf<Val>()};
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
    reg.payloadFormat = COAP_RPC_BYTE;
    reg.userData = userDataOf(this);
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

  static uint32_t nothing(uint64_t, void *, void *) { return COAP_RPC_SYNC_END; }

  static void onConfirmed(uint64_t userData, uint64_t version) {
    TableRecord &record = recordOf<TableRecord>(userData);
    if (record.confirmed_ && !record.core().isClosing()) {
      record.confirmed_->run(record.key().uri, version);
    }
  }

  static uint32_t buildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
    const TableShape &shape = recordOf<TableRecord>(userData).shape_;
    auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(out);
    std::memcpy(msg->buf, key, shape.keyLen);
    std::memcpy(msg->buf + shape.keyLen, val, shape.valLen);
    msg->len = uint32_t{shape.keyLen} + shape.valLen;
    return 0;
  }

  static uint32_t buildDelete(uint64_t userData, uint8_t *key, void *out) {
    const TableShape &shape = recordOf<TableRecord>(userData).shape_;
    auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(out);
    std::memcpy(msg->buf, key, shape.keyLen);
    msg->len = shape.keyLen;
    return 0;
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
