/* core.hpp: what a Node consists of.  Not for applications.
 *
 * A Core owns the host, the instance and all Records.  A Record is what the C interface gets as
 * `userData`: an entry, a call, a table.  It comes from the host's pool and never moves, and is
 * referred to by any number of Refs, which are the insides of the handles that applications hold.
 *
 *   the last Ref leaves    onUnreferenced: the record ends what it stands for, or goes on by itself
 *   the record ends        retire: its Refs become empty; it is freed at once, or, when a callback
 *                          of its own is running, with the end of that
 *   the node ends          as above for all records, after the instance was stopped; no callback of
 *                          the application is called any more
 *
 * A Node that is destroyed in a callback leaves its Core to the run() or turn() that called it. */
#ifndef COAP_RPC_CPP_CORE_HPP
#define COAP_RPC_CPP_CORE_HPP

#include <kestrel.h>
#include <kst_log.h>
#include <kst_mem.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/cpp/result.hpp"

#ifdef __SANITIZE_ADDRESS__
#define COAPRPC_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define COAPRPC_ADDRESS_SANITIZER
#endif
#endif

COAPRPC_BEGIN
namespace detail {

// Link is a member of a ring, alone at first.
class Link {
 public:
  Link() = default;
  Link(const Link &) = delete;
  Link &operator=(const Link &) = delete;
  ~Link() { leave(); }

  bool isAlone() const { return next_ == this; }
  Link *next() const { return next_; }
  void leave() {
    prev_->next_ = next_;
    next_->prev_ = prev_;
    next_ = prev_ = this;
  }
  // joinBefore makes it the last of the ring that begins with `head`.  A temporary leaves the ring
  // when it ends, which gcc does not see.
#if __GNUC__ >= 12 && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
  void joinBefore(Link &head) {
    leave();
    next_ = &head;
    prev_ = head.prev_;
    prev_->next_ = head.prev_ = this;
  }
#if __GNUC__ >= 12 && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

 private:
  Link *next_ = this, *prev_ = this;
};

class Core;
class RefBase;

class Record : public Link {
 public:
  explicit Record(Core &core) : core_(core) {}
  virtual ~Record();

  Core &core() const { return core_; }
  virtual void onUnreferenced() {}

 private:
  friend class Busy;
  friend class Core;
  friend class RefBase;
  Core &core_;
  Link refs_;
  size_t size_ = 0;
  uint32_t numBusy_ = 0;  // callbacks of its own under way
  bool isRetired_ = false;
};

class RefBase : public Link {
 protected:
  RefBase() = default;
  ~RefBase() { reset(); }

  Record *record() const { return record_; }
  void point(Record *record) {
    if (record) joinBefore(record->refs_);
    record_ = record;
  }
  void take(RefBase &other) {
    Record *record = other.record_;
    other.point(nullptr);
    other.leave();
    point(record);
  }
  inline void reset();

 private:
  friend class Record;
  friend class Core;
  Record *record_ = nullptr;
};

// Ref refers to a record, or to nothing once that or its node has ended.
template <typename R>
class Ref : public RefBase {
 public:
  Ref() = default;
  explicit Ref(R *record) { point(record); }
  Ref(const Ref &other) : RefBase() { point(other.record()); }
  Ref(Ref &&other) noexcept { take(other); }
  Ref &operator=(Ref other) noexcept {
    reset();
    take(other);
    return *this;
  }
  void reset() { RefBase::reset(); }

  inline R *get() const;
  R *operator->() const { return get(); }
  explicit operator bool() const { return get() != nullptr; }
};

// Keyed is a record of a registered key.  Registrations cannot be taken back, so it stays.
class Keyed : public Record {
 public:
  // OfKeys is its place among all of them.
  struct OfKeys : Link {
    explicit OfKeys(Keyed &owner) : keyed(owner) {}
    Keyed &keyed;
  };

  Keyed(Core &core, const CoapRpcUriKey &key) : Record(core), key_(key) {}
  const CoapRpcUriKey &key() const { return key_; }
  OfKeys &ofKeys() { return ofKeys_; }

 private:
  CoapRpcUriKey key_;
  OfKeys ofKeys_{*this};
};

// Pool is memory of the host.  What is as large as a call is kept for the next one, since calls
// come and go with each request.
class Pool {
 public:
  void open(uint64_t mem) { mem_ = mem; }
  void close() {
    while (Spare *spare = first_) {
      first_ = spare->next;
      free(spare);
    }
    numSpares_ = kMaxSpares;
  }

  static constexpr bool isOfCall(size_t size) { return size >= kMinBytes && size <= kMaxBytes; }

  // take returns null without memory.
  void *take(size_t size) {
    if (!isOfCall(size)) return KST_Malloc_(mem_, size, kMallocTag, kTagNum);
    if (!first_) return KST_Malloc_(mem_, kMaxBytes, kMallocTag, kTagNum);
    --numSpares_;
    return std::exchange(first_, first_->next);
  }

  void give(void *memory, size_t size) {
    if (!isOfCall(size) || numSpares_ == kMaxSpares) return free(memory);
    ++numSpares_;
    first_ = new (memory) Spare{first_};
  }

 private:
  struct Spare {
    Spare *next;
  };

  // As the library's own (docs/conventions.md).
  static constexpr const char *kMallocTag = "mallocRsv", *kFreeTag = "freeRsv";
  static constexpr uint32_t kTagNum = 123;
  static constexpr size_t kMinBytes = 256, kMaxBytes = 384;
  // The address sanitizer is to see the end of each.
#ifdef COAPRPC_ADDRESS_SANITIZER
  static constexpr uint32_t kMaxSpares = 0;
#else
  static constexpr uint32_t kMaxSpares = 64;
#endif

  void free(void *memory) { KST_Free_(mem_, memory, kFreeTag, kTagNum); }

  uint64_t mem_ = 0;
  Spare *first_ = nullptr;
  uint32_t numSpares_ = 0;
};

// HostFunctions is what a core of its own host needs at its end.  A program with another host does
// not have them.
struct HostFunctions {
  uint32_t (*stop)(Kestrel *);
  uint32_t (*unwatch)(Kestrel *, int);
  uint64_t (*del)(Kestrel *);
};

// Lines of the log, module "coaprpc".
enum LogSite : uint32_t { kLogThrew = 1, kLogBadReply = 2, kLogFailed = 3 };

class Core {
 public:
  Core() = default;
  Core(const Core &) = delete;
  Core &operator=(const Core &) = delete;
  ~Core() {
    isClosing_ = true;
    if (isWatching_) functions_.unwatch(host_, COAP_RpcGetIoFd(ctx_));
    COAP_RpcUninit(ctx_);
    while (!records_.isAlone()) destroy(static_cast<Record *>(records_.next()));
    pool_.close();
    if (host_) functions_.del(host_);
  }

  CoapRpcCtx *ctx() const { return ctx_; }
  Kestrel *host() const { return host_; }
  Pool &pool() { return pool_; }
  uint64_t tmr() const { return tmr_; }
  bool isClosing() const { return isClosing_; }

  // own makes a host the core's own.
  void own(Kestrel *host, const HostFunctions &functions) {
    host_ = host;
    functions_ = functions;
  }

  // start makes the instance; `log` is for what the application's code throws.
  bool start(const CoapRpcInitParam &param, uint64_t log) {
    pool_.open(param.memHandle);
    tmr_ = param.tmrHandle;
    log_ = log;
    ctx_ = COAP_RpcInit(&param);
    return ctx_ != nullptr;
  }

  // construct makes an object in the pool; null without memory.
  template <typename T, typename... Args>
  T *construct(Args &&...args) {
    static_assert(alignof(T) <= alignof(std::max_align_t),
                  "coaprpc: over-aligned types are not for callbacks: the host's pool aligns for "
                  "ordinary ones");
    void *memory = pool_.take(sizeof(T));
    if (!memory) return nullptr;
    Memory guard{pool_, memory, sizeof(T)};
    T *object = new (memory) T(std::forward<Args>(args)...);
    guard.memory = nullptr;
    return object;
  }

  // make creates a record; null without memory.
  template <typename R, typename... Args>
  R *make(Args &&...args) {
    R *record = construct<R>(std::forward<Args>(args)...);
    if (!record) return nullptr;
    record->size_ = sizeof(R);
    record->joinBefore(records_);
    return record;
  }

  // retire ends a record; null is accepted.
  void retire(Record *record) {
    if (!record || record->isRetired_) return;
    record->isRetired_ = true;
    while (!record->refs_.isAlone()) empty(static_cast<RefBase *>(record->refs_.next()));
    if (record->numBusy_ == 0) destroy(record);
  }

  void addKey(Keyed &keyed) { keyed.ofKeys().joinBefore(keys_); }

  // findKey finds a record by its key, which says of what type it is.
  template <typename R>
  R *findKey(const CoapRpcUriKey &key) const {
    for (Link *at = keys_.next(); at != &keys_; at = at->next()) {
      Keyed &keyed = static_cast<Keyed::OfKeys *>(at)->keyed;
      if (std::memcmp(&keyed.key(), &key, sizeof(key)) == 0) return static_cast<R *>(&keyed);
    }
    return nullptr;
  }

  // guarded runs code of the application.  False when it threw; the log then says what.
  template <typename Run>
  bool guarded(const char *where, Run &&run) {
    ++numRunning_;
    const bool isDone = runCaught(where, run);
    --numRunning_;
    return isDone;
  }

  void log(LogSite site, const char *where, const char *text) const {
    if (log_ == 0) return;
    KST_LogCnt(reinterpret_cast<const KST_LogObj *>(log_)->counter, kModule, site);
    if (KST_LogFirstHalf_(log_, kModule, site, KST_LOG_ERROR) != 0) return;
    KST_LogSecondHalf_(log_, kModule, site, KST_LOG_ERROR, "coaprpc", "%s: %s", where, text);
  }

  // ---- the loop ----

  // watch serves the instance's descriptor by the host's loop.
  uint32_t watch() {
    const uint32_t ret = KestrelWatch(
        host_, COAP_RpcGetIoFd(ctx_),
        [](void *ctx, int) { COAP_RpcProcIo(static_cast<CoapRpcCtx *>(ctx)); }, ctx_);
    isWatching_ = ret == KESTREL_OK;
    return ret;
  }

  // run calls a function of the host that runs its loop, and then ends the core if its node ended
  // meanwhile.
  uint32_t run(uint32_t (*runHost)(Kestrel *)) {
    if (isLooping_) return KESTREL_BUSY;
    isLooping_ = true;
    const uint32_t ret = runHost(host_);
    isLooping_ = false;
    if (isAbandoned_) delete this;
    return ret;
  }

  // abandon ends the core, now or with the run that is under way.
  void abandon() {
    isClosing_ = true;
    if (isLooping_) {
      isAbandoned_ = true;
      functions_.stop(host_);
    } else if (numRunning_ == 0) {
      delete this;
    } else {
      std::terminate();  // nobody is left to end it when the callback has returned
    }
  }

 private:
  friend class Busy;
  static constexpr const char *kModule = "coaprpc";

  struct Memory {
    Pool &pool;
    void *memory;
    size_t size;
    ~Memory() {
      if (memory) pool.give(memory, size);
    }
  };

  template <typename Run>
  bool runCaught([[maybe_unused]] const char *where, Run &run) {
#ifdef __cpp_exceptions
    try {
      run();
    } catch (const std::exception &thrown) {
      log(kLogThrew, where, thrown.what());
      return false;
    } catch (...) {
      log(kLogThrew, where, "not a std::exception");
      return false;
    }
#else
    run();
#endif
    return true;
  }

  static void empty(RefBase *ref) {
    ref->record_ = nullptr;
    ref->leave();
  }

  void destroy(Record *record) {
    while (!record->refs_.isAlone()) empty(static_cast<RefBase *>(record->refs_.next()));
    record->isRetired_ = true;
    const size_t size = record->size_;
    record->~Record();
    pool_.give(record, size);
  }

  Kestrel *host_ = nullptr;  // null: not the core's own
  HostFunctions functions_ = {};
  CoapRpcCtx *ctx_ = nullptr;
  uint64_t tmr_ = 0, log_ = 0;
  Pool pool_;
  Link records_, keys_;
  uint32_t numRunning_ = 0;  // callbacks of the application under way
  bool isWatching_ = false, isLooping_ = false, isAbandoned_ = false, isClosing_ = false;
};

inline Record::~Record() = default;

inline void RefBase::reset() {
  Record *record = std::exchange(record_, nullptr);
  leave();
  const bool isLast = record && record->refs_.isAlone();
  if (isLast && !record->core_.isClosing()) record->onUnreferenced();
}

template <typename R>
R *Ref<R>::get() const {
  Record *target = record();
  return target && !target->core().isClosing() ? static_cast<R *>(target) : nullptr;
}

// Busy keeps a record while a callback of its own is running.
class Busy {
 public:
  explicit Busy(Record &record) : record_(record) { ++record_.numBusy_; }
  ~Busy() {
    if (--record_.numBusy_ == 0 && record_.isRetired_) record_.core_.destroy(&record_);
  }
  Busy(const Busy &) = delete;
  Busy &operator=(const Busy &) = delete;

 private:
  Record &record_;
};

// A function of the application's that a record has.
template <typename... Args>
class Function : public Record {
 public:
  using Record::Record;
  virtual void call(Args... args) = 0;

  // run calls it where it must not throw.
  void run(const char *where, Args... args) {
    Busy busy(*this);
    core().guarded(where, [&] { call(std::forward<Args>(args)...); });
  }
};

template <typename F, typename... Args>
class FunctionOf final : public Function<Args...> {
 public:
  FunctionOf(Core &core, F &&fn) : Function<Args...>(core), fn_(std::move(fn)) {}
  FunctionOf(Core &core, const F &fn) : Function<Args...>(core), fn_(fn) {}
  void call(Args... args) override { fn_(std::forward<Args>(args)...); }

 private:
  F fn_;
};

// makeFunction returns null without memory.
template <typename... Args, typename F>
Function<Args...> *makeFunction(Core &core, F &&fn) {
  return core.make<FunctionOf<std::decay_t<F>, Args...>>(core, std::forward<F>(fn));
}

// FunctionBox has a function of the application's, in itself if that is small.  It must not be
// changed while the function is running.
template <typename... Args>
class FunctionBox {
 public:
  explicit FunctionBox(Core &core) : core_(core) {}
  FunctionBox(const FunctionBox &) = delete;
  FunctionBox &operator=(const FunctionBox &) = delete;
  ~FunctionBox() { clear(); }

  explicit operator bool() const { return content_ != nullptr; }
  void call(Args... args) { content_->call(std::forward<Args>(args)...); }

  // set returns false without memory; `fn` is the caller's then.
  template <typename F>
  bool set(F &&fn) {
    using ContentOf = Holder<std::decay_t<F>>;
    clear();
    size_ = sizeof(ContentOf);
    if constexpr (sizeof(ContentOf) <= sizeof(room_) &&
                  alignof(ContentOf) <= alignof(std::max_align_t)) {
      content_ = new (room_) ContentOf(std::forward<F>(fn));
    } else {
      content_ = core_.construct<ContentOf>(std::forward<F>(fn));
    }
    return content_ != nullptr;
  }

  void clear() {
    Content *content = std::exchange(content_, nullptr);
    if (!content) return;
    const bool isHere = static_cast<void *>(content) == room_;
    content->~Content();
    if (!isHere) core_.pool().give(content, size_);
  }

 private:
  struct Content {
    virtual ~Content() = default;
    virtual void call(Args... args) = 0;
  };
  template <typename F>
  struct Holder final : Content {
    explicit Holder(F &&given) : fn(std::move(given)) {}
    explicit Holder(const F &given) : fn(given) {}
    void call(Args... args) override { fn(std::forward<Args>(args)...); }
    F fn;
  };

  Core &core_;
  Content *content_ = nullptr;
  size_t size_ = 0;
  alignas(std::max_align_t) std::byte room_[6 * sizeof(void *)];
};

// recordOf is the record that a callback of the C interface was given.
template <typename R>
R &recordOf(uint64_t userData) {
  return *static_cast<R *>(reinterpret_cast<Record *>(userData));
}
inline uint64_t userDataOf(Record *record) { return reinterpret_cast<uint64_t>(record); }

// lenOf is a length for the C interface, which refuses what is far too long.
inline uint32_t lenOf(std::string_view bytes) {
  return static_cast<uint32_t>(std::min<size_t>(bytes.size(), UINT32_MAX));
}

inline uint32_t millisecondsOf(std::chrono::milliseconds time) {
  const auto most = std::chrono::milliseconds(UINT32_MAX);
  return static_cast<uint32_t>(std::clamp(time, std::chrono::milliseconds(0), most).count());
}

}  // namespace detail
COAPRPC_END
#endif /* COAP_RPC_CPP_CORE_HPP */
