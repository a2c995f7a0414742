/* mirror.hpp: an exact copy of a table at another host (coap_rpc_sync.h).
 *
 *   auto ports = must(node.mirror<Port, Stats>("127.0.0.2", "ports"));
 *   for (const auto &[port, stats] : ports) { ... }
 *
 * value.hpp says what keys and values may be.  Rows whose bytes the type itself refuses are not
 * shown; they are part of the copy all the same. */
#ifndef COAP_RPC_CPP_MIRROR_HPP
#define COAP_RPC_CPP_MIRROR_HPP

#include <chrono>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/cpp/address.hpp"
#include "coap_svc/rpc/cpp/core.hpp"
#include "coap_svc/rpc/cpp/value.hpp"

COAPRPC_BEGIN

/* MirrorFunctions are called while the table changes; each is optional.  The copy is whole when
 * `synced` is called, with the version that it has.  They may end the mirror. */
template <typename Key, typename Val>
struct MirrorFunctions {
  std::function<void(const Key &key, const Val &val)> added = {};
  std::function<void(const Key &key, const Val &oldVal, const Val &newVal)> changed = {};
  std::function<void(const Key &key, const Val &lastVal)> removed = {};
  std::function<void(uint64_t version)> synced = {};
  std::function<void(uint32_t state, uint32_t code)> state = {}; /* COAP_RPC_MIRROR_... */
};

/* MirrorParam is how a mirror is kept; CoapRpcMirrorParam says more. */
struct MirrorParam {
  std::chrono::milliseconds heartbeat{0}; /* the server is asked so often; 0: 30 s */
  uint32_t numInFlight = 0;               /* pages asked for at a time; 0: 16 */
  uint64_t maxBytes = 0;                  /* of memory for rows; 0: no limit */
  Address from = Address({}, 0);          /* local address; not valid: any */
};

namespace detail {

// MirrorRecord is a mirror of the C interface, and the functions that hear of it.
template <typename Key, typename Val>
class MirrorRecord final : public Record {
 public:
  MirrorRecord(Core &core, MirrorFunctions<Key, Val> functions)
      : Record(core), functions_(std::move(functions)) {}

  uint32_t open(const CoapRpcUriKey &key, const Address &peer, const MirrorParam &param) {
    const CoapRpcCallAddr addr = callAddrOf(param.from, peer);
    CoapRpcMirrorParam mirror = {};
    mirror.keyLen = Codec<Key>::size;
    mirror.valLen = Codec<Val>::size;
    mirror.numInFlight = param.numInFlight;
    mirror.heartbeatMs = millisecondsOf(param.heartbeat);
    mirror.maxBytes = param.maxBytes;
    mirror.userData = userDataOf(this);
    mirror.onAdded = onAdded;
    mirror.onChanged = onChanged;
    mirror.onRemoved = onRemoved;
    mirror.onSynced = onSynced;
    mirror.onState = onState;
    return COAP_RpcMirrorOpen(core().ctx(), &key, &addr, &mirror, &mirror_);
  }

  CoapRpcMirror *get() const { return mirror_; }

  void onUnreferenced() override {
    COAP_RpcMirrorClose(std::exchange(mirror_, nullptr));
    core().retire(this);
  }

  static std::optional<std::pair<Key, Val>> decode(const void *key, const void *val) {
    const auto *keyBytes = static_cast<const uint8_t *>(key);
    std::optional<Key> decodedKey = Codec<Key>::decode(keyBytes);
    std::optional<Val> decodedVal = Codec<Val>::decode(static_cast<const uint8_t *>(val));
    if (!decodedKey || !decodedVal) return {};
    return std::pair(std::move(*decodedKey), std::move(*decodedVal));
  }

 private:
  // tell calls one of the functions, if there is one.
  template <typename Fn, typename Call>
  void tell(const Fn &fn, Call &&call) {
    if (!fn || core().isClosing()) return;
    Busy busy(*this);
    core().guarded("mirror", call);
  }

  static void onAdded(uint64_t userData, const void *key, const void *val) {
    MirrorRecord &self = recordOf<MirrorRecord>(userData);
    self.tell(self.functions_.added, [&] { tellRow(self.functions_.added, key, val); });
  }

  static void onRemoved(uint64_t userData, const void *key, const void *val) {
    MirrorRecord &self = recordOf<MirrorRecord>(userData);
    self.tell(self.functions_.removed, [&] { tellRow(self.functions_.removed, key, val); });
  }

  template <typename Fn>
  static void tellRow(const Fn &fn, const void *key, const void *val) {
    if (const auto row = decode(key, val)) fn(row->first, row->second);
  }

  // A value that the type refuses counts as no row: the row is then added or removed.
  static void onChanged(uint64_t userData, const void *key, const void *oldVal,
                        const void *newVal) {
    MirrorRecord &self = recordOf<MirrorRecord>(userData);
    const MirrorFunctions<Key, Val> &functions = self.functions_;
    const auto call = [&] {
      const auto before = decode(key, oldVal), after = decode(key, newVal);
      if (before && after && functions.changed) {
        functions.changed(after->first, before->second, after->second);
      } else if (before && !after && functions.removed) {
        functions.removed(before->first, before->second);
      } else if (!before && after && functions.added) {
        functions.added(after->first, after->second);
      }
    };
    const bool isHeard = functions.changed || functions.removed || functions.added;
    self.tell(isHeard, call);
  }

  static void onSynced(uint64_t userData, uint64_t version) {
    MirrorRecord &self = recordOf<MirrorRecord>(userData);
    self.tell(self.functions_.synced, [&] { self.functions_.synced(version); });
  }

  static void onState(uint64_t userData, uint32_t state, uint32_t code) {
    MirrorRecord &self = recordOf<MirrorRecord>(userData);
    self.tell(self.functions_.state, [&] { self.functions_.state(state, code); });
  }

  MirrorFunctions<Key, Val> functions_;
  CoapRpcMirror *mirror_ = nullptr;
};

}  // namespace detail

/* Mirror is a copy that this node keeps.  Destroying it ends it, and calls nobody.
 *
 * Iterators are valid until the loop runs or the mirror ends.  Rows are in the order of the bytes
 * of their keys. */
template <typename Key, typename Val>
class [[nodiscard]] Mirror {
 public:
  class Iterator;
  using value_type = std::pair<Key, Val>;

  Mirror() = default;
  Mirror(const Mirror &) = delete;
  Mirror &operator=(const Mirror &) = delete;
  Mirror(Mirror &&) noexcept = default;
  Mirror &operator=(Mirror &&) noexcept = default;

  bool isOpen() const { return bool(ref_); }

  std::optional<Val> find(const Key &key) const {
    typename detail::Codec<Key>::Bytes bytes = {};
    detail::Codec<Key>::encode(key, bytes);
    const uint8_t *row = COAP_RpcMirrorFind(get(), bytes);
    if (!row) return {};
    return detail::Codec<Val>::decode(row + detail::Codec<Key>::size);
  }

  Iterator begin() const { return Iterator(get(), COAP_RpcMirrorNext(get(), nullptr)); }
  Iterator end() const { return Iterator(); }

  /* state has where the mirror is, versions and counts (coap_rpc_sync.h); zero when it is not open.
   * isSynced tells whether it equals the table as far as its server has told. */
  CoapRpcMirrorState state() const {
    CoapRpcMirrorState state = {};
    if (get()) COAP_RpcMirrorGetState(get(), &state);
    return state;
  }
  bool isSynced() const { return state().state == COAP_RPC_MIRROR_SYNCED; }
  size_t size() const { return state().numTuples; }

 private:
  friend class Node;
  using RecordOf = detail::MirrorRecord<Key, Val>;

  explicit Mirror(detail::Ref<RecordOf> ref) : ref_(std::move(ref)) {}

  CoapRpcMirror *get() const { return ref_ ? ref_->get() : nullptr; }

  detail::Ref<RecordOf> ref_;
};

template <typename Key, typename Val>
class Mirror<Key, Val>::Iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = std::pair<Key, Val>;
  using difference_type = std::ptrdiff_t;
  using pointer = const value_type *;
  using reference = const value_type &;

  Iterator() = default;

  reference operator*() const { return *row_; }
  pointer operator->() const { return &*row_; }
  Iterator &operator++() {
    step();
    return *this;
  }
  void operator++(int) { step(); }
  bool operator==(const Iterator &other) const { return at_ == other.at_; }

 private:
  friend class Mirror;
  Iterator(const CoapRpcMirror *mirror, const uint8_t *first) : mirror_(mirror), at_(first) {
    readOrStep();
  }

  void step() {
    at_ = COAP_RpcMirrorNext(mirror_, at_);
    readOrStep();
  }

  // A row that the type refuses is passed over.
  void readOrStep() {
    for (; at_; at_ = COAP_RpcMirrorNext(mirror_, at_)) {
      row_ = RecordOf::decode(at_, at_ + detail::Codec<Key>::size);
      if (row_) return;
    }
  }

  const CoapRpcMirror *mirror_ = nullptr;
  const uint8_t *at_ = nullptr;
  std::optional<value_type> row_;
};

COAPRPC_END
#endif /* COAP_RPC_CPP_MIRROR_HPP */
