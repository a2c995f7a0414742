/* node.hpp: a Node is an instance of the library with its host, and what an application does with
 * it. */
#ifndef COAP_RPC_CPP_NODE_HPP
#define COAP_RPC_CPP_NODE_HPP

#include <kst_tmr.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "coap_svc/rpc/coap_rpc_stats.h"
#include "coap_svc/rpc/cpp/call.hpp"
#include "coap_svc/rpc/cpp/mirror.hpp"
#include "coap_svc/rpc/cpp/serve.hpp"
#include "coap_svc/rpc/cpp/table.hpp"
#include "coap_svc/rpc/cpp/task.hpp"

COAPRPC_BEGIN

/* NodeParam describes a node.  Without anything it serves 127.0.0.1, since peers are not
 * authenticated, and logs to standard error what your functions throw. */
struct NodeParam {
  const char *name = "coaprpc";            /* in log lines and display commands */
  Address listen = "127.0.0.1";            /* where paths and tables are served */
  uv_loop_s *loop = nullptr;               /* yours, which you run; null: one of its own */
  uint32_t logLevel = KESTREL_LEVEL_ERROR; /* KESTREL_LEVEL_... */
  bool logsLibrary = false;                /* the library's own lines too */
  uint64_t memLimitBytes = 0;              /* of the pool; 0: none */
  const char *console = nullptr;           /* path of a socket for kestrel-console; null: none */
};

namespace detail {

// TimerRecord calls a function again and again.
class TimerRecord final : public Record {
 public:
  TimerRecord(Core &core, Function<> *fn) : Record(core), fn_(fn) {}

  bool start(uint32_t periodMs) {
    id_ = KST_TmrStartLoop(core().tmr(), onTick, periodMs, this);
    return id_ != 0;
  }
  void goOnAlone() { isAlone_ = true; }
  void onUnreferenced() override {
    if (!isAlone_) end();
  }
  void end() {
    KST_TmrStop(core().tmr(), std::exchange(id_, 0));
    core().retire(fn_);
    core().retire(this);
  }
  ~TimerRecord() override { KST_TmrStop(core().tmr(), id_); }

 private:
  static uint32_t onTick(void *param) {
    auto *record = static_cast<TimerRecord *>(param);
    if (!record->core().isClosing()) record->fn_->run("timer");
    return 0;
  }

  uint64_t id_ = 0;
  bool isAlone_ = false;
  Function<> *fn_;
};

}  // namespace detail

/* Timer calls a function again and again until it is destroyed. */
class [[nodiscard]] Timer {
 public:
  Timer() = default;
  Timer(const Timer &) = delete;
  Timer &operator=(const Timer &) = delete;
  Timer(Timer &&) noexcept = default;
  Timer &operator=(Timer &&) noexcept = default;

  void cancel() { ref_.reset(); }
  /* detach lets it go on until its node ends. */
  void detach() && {
    if (ref_) ref_->goOnAlone();
    ref_.reset();
  }

 private:
  friend class Node;
  explicit Timer(detail::TimerRecord *record) : ref_(record) {}
  detail::Ref<detail::TimerRecord> ref_;
};

/* Node is an instance with its host.  It can be moved; what it serves, calls and hands out stays.
 * Destroying it ends all of that, and calls nobody.
 *
 * A node may be destroyed in a callback of its own when run() or turn() has called that, which then
 * returns; on a loop of yours, or a host of yours, that ends the program (std::terminate).  What a
 * node does that was moved from fails. */
class Node {
 public:
  /* make starts a node. */
  [[nodiscard]] static Result<Node> make(const NodeParam &param = {}) {
    if (!param.listen.isValid()) return Unexpected(Error::ofText("listen is not an address"));
    auto core = std::make_unique<detail::Core>();
    Kestrel *host = newHost(param);
    if (!host) return Unexpected(Error::ofText("the host did not start"));
    core->own(host, {KestrelStop, KestrelUnwatch, KestrelDelete});
    if (!core->start(initParamOf(param, host), KestrelLog(host))) return Unexpected(notStarted());
    Node node(std::move(core), param.listen);
    const bool isWatched = node.core().watch() == KESTREL_OK;
    if (!isWatched) return Unexpected(Error::ofText("the loop refused the instance's descriptor"));
    if (param.console && !node.openConsole(param.console)) {
      return Unexpected(Error::ofText("the console's socket cannot be opened"));
    }
    return node;
  }

  /* on starts a node on a host of another kind, which has to run it: its timers and, if it can,
   * COAP_RpcProcIo. */
  [[nodiscard]] static Result<Node> on(const CoapRpcInitParam &host, const Address &listen) {
    auto core = std::make_unique<detail::Core>();
    if (!core->start(host, host.logHandle)) return Unexpected(notStarted());
    return Node(std::move(core), listen);
  }

  Node(Node &&other) noexcept = default;
  Node &operator=(Node &&other) noexcept = default;
  ~Node() = default;

  /* isOpen is false when the node was moved from, and while it is being destroyed: what your
   * objects do with it in their destructors then fails. */
  bool isOpen() const { return core_ && !core().isClosing(); }

  /* ---- the loop: of the node itself, unless it has a loop of yours ---- */

  /* run runs the loop until stop(), for some time, or until the node is destroyed. */
  [[nodiscard]] Result<void> run() { return loop(KestrelRun); }
  [[nodiscard]] Result<void> run(std::chrono::milliseconds time) {
    Kestrel *own = host();
    Result<Timer> timer = every(time, [own] { KestrelStop(own); });
    return timer ? run() : Unexpected(timer.error());
  }
  /* stop may be called from any thread and from a signal handler. */
  void stop() {
    if (host()) KestrelStop(host());
  }

  /* For another main loop: wait until pollFd() is readable, at most pollTimeoutMs() (-1: for ever),
   * and then call turn(), which handles what is due and does not wait. */
  int pollFd() const { return host() ? KestrelPollFd(host()) : -1; }
  int pollTimeoutMs() const { return host() ? KestrelPollTimeoutMs(host()) : -1; }
  [[nodiscard]] Result<void> turn() { return loop(KestrelTurn); }

  /* every calls fn in each period, of 1 ms or more. */
  template <typename F>
  [[nodiscard]] Result<Timer> every(std::chrono::milliseconds period, F &&fn) {
    if (!isOpen()) return Unexpected(Error::closed());
    static_assert(std::is_invocable_v<std::decay_t<F> &>, "coaprpc: fn takes no argument");
    auto *function = detail::makeFunction<>(core(), std::forward<F>(fn));
    if (!function) return Unexpected(Error::noMemory());
    auto *record = core().make<detail::TimerRecord>(core(), function);
    if (!record) return failed(function, Error::noMemory());
    const uint32_t ms = std::max<uint32_t>(1, detail::millisecondsOf(period));
    if (record->start(ms)) return Timer(record);
    record->end();
    return Unexpected(Error::ofText("no timer"));
  }

  /* ---- server ---- */

  /* serve answers requests of a path by fn.
   *
   *   path   segments between slashes, not percent-encoded: 63 bytes, or three of them for each
   * that is none of the letters, digits and -._~!$'()*+,;=:@& fn     takes a const Request &, or
   * the payload alone as std::string_view.  Returns the answer: a text, a Reply, nothing, or a
   * Result of one of these; or a Later
   *
   * Fails when the path is served already, or its address cannot be. */
  template <typename F>
  [[nodiscard]] Result<void> serve(std::string_view path, F &&fn, const ServeParam &param = {}) {
    using HandlerOf = detail::HandlerOf<std::decay_t<F>>;
    if (!isOpen()) return Unexpected(Error::closed());
    const Address listen = param.listen.value_or(listen_);
    CoapRpcUriKey key = {};
    if (!fillServedKey(path, kMaxPath, key)) return Unexpected(badPath());
    if (isServed(key)) return Unexpected(Error::ofText("the path is served already"));
    key.msgType = HandlerOf::isLater ? COAP_RPC_NON : COAP_RPC_CON;
    const Result<detail::Entry *> entry = entryOf(key, HandlerOf::isLater);
    if (!entry) return Unexpected(entry.error());
    auto *handler = core().template make<HandlerOf>(core(), std::forward<F>(fn));
    if (!handler) return Unexpected(Error::noMemory());
    return check((*entry)->serve(handler, param, listen));
  }

  /* unserve ends a path, also inside its handler.  Laters of it that are open get 5.03, or nothing
   * when nothing else is served at its address. */
  [[nodiscard]] Result<void> unserve(std::string_view path) {
    if (!isOpen()) return Unexpected(Error::closed());
    CoapRpcUriKey key = {};
    if (!fillServedKey(path, kMaxPath, key)) return Unexpected(badPath());
    for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
      key.msgType = msgType;
      detail::Entry *entry = core().template findKey<detail::Entry>(key);
      if (entry && entry->isServing()) return check(entry->end());
    }
    return Unexpected(Error::ofText("the path is not served"));
  }

  /* table publishes a table at a path of up to 32 bytes, as of serve; empty at first. */
  template <typename Key, typename Val>
  [[nodiscard]] Result<Table<Key, Val>> table(std::string_view path, const TableParam &param = {}) {
    constexpr detail::TableShape shape = detail::shapeOf<Key, Val>();
    if (!isOpen()) return Unexpected(Error::closed());
    CoapRpcUriKey key = {};
    key.observe = 1;
    if (!fillServedKey(path, kMaxTablePath, key)) return Unexpected(badPath());
    const Result<detail::TableRecord *> record = tableOf(key, shape);
    if (!record) return Unexpected(record.error());
    const uint32_t ret = (*record)->serve(param, param.listen.value_or(listen_));
    if (ret != 0) return Unexpected(Error::ofCode(ret));
    return Table<Key, Val>(*record);
  }

  /* ---- client ---- */

  /* call sends a request; see Call for how to wait for its answer.
   *
   *   path   segments between slashes, not percent-encoded */
  Call call(const Address &peer, const std::string &path, std::string_view payload = {},
            const CallParam &param = {}) {
    if (!isOpen()) return Call(Error::closed());
    if (path.find('\0') != path.npos) return Call(badPath());
    auto *record = core().template make<detail::CallRecord>(core());
    if (!record) return Call(Error::noMemory());
    detail::Ref<detail::CallRecord> ref(record);
    const CoapRpcCall call = detail::fillCall(path.c_str(), payload, param);
    const uint32_t ret = record->start(param.from, peer, call, false);
    if (ret == 0) return Call(std::move(ref));
    return Call(Error::ofCode(ret));
  }

  /* observe calls fn with the first answer and each notification, and at the end, unless you end
   * it, with an answer that isLast or an Error. */
  template <typename F>
  [[nodiscard]] Result<Observation> observe(const Address &peer, const std::string &path, F &&fn,
                                            const CallParam &param = {}) {
    detail::checkTakesAnswer<std::decay_t<F>>();
    if (!isOpen()) return Unexpected(Error::closed());
    if (path.find('\0') != path.npos) return Unexpected(badPath());
    auto *record = core().template make<detail::CallRecord>(core());
    if (!record) return Unexpected(Error::noMemory());
    detail::Ref<detail::CallRecord> ref(record);
    if (!record->giveTo(std::forward<F>(fn))) return Unexpected(Error::noMemory());
    const CoapRpcCall call = detail::fillCall(path.c_str(), {}, param);
    const uint32_t ret = record->start(param.from, peer, call, true);
    if (ret != 0) return Unexpected(Error::ofCode(ret));
    return Observation(std::move(ref));
  }

  /* mirror keeps a copy of a table at a peer, whether or not it is there. */
  template <typename Key, typename Val>
  [[nodiscard]] Result<Mirror<Key, Val>> mirror(const Address &peer, std::string_view path,
                                                MirrorFunctions<Key, Val> functions = {},
                                                const MirrorParam &param = {}) {
    static_assert(detail::shapeOf<Key, Val>().keyLen > 0);
    if (!isOpen()) return Unexpected(Error::closed());
    CoapRpcUriKey key = {};
    if (!fillKey(path, kMaxPath, key)) return Unexpected(badPath());
    using RecordOf = detail::MirrorRecord<Key, Val>;
    auto *record = core().template make<RecordOf>(core(), std::move(functions));
    if (!record) return Unexpected(Error::noMemory());
    detail::Ref<RecordOf> ref(record);
    const uint32_t ret = record->open(key, peer, param);
    if (ret != 0) return Unexpected(Error::ofCode(ret));
    return Mirror<Key, Val>(std::move(ref));
  }

  /* spawn begins a coroutine, and keeps it until its end. */
  [[nodiscard]] Result<void> spawn(Task<> task) {
    if (!isOpen() || !task.isValid()) return Unexpected(Error::closed());
    auto *record = core().template make<detail::TaskRecord>(core(), std::move(task));
    if (!record) return Unexpected(Error::noMemory());
    record->start();
    return {};
  }

  /* ---- what is below ---- */

  /* stats are the node's counters and gauges (coap_rpc_stats.h); all 0 when it is not open. */
  CoapRpcStats stats() const {
    CoapRpcStats stats = {};
    stats.size = sizeof(stats);
    if (ctx()) COAP_RpcGetStats(ctx(), &stats);
    return stats;
  }

  /* The instance and its host, for the C interface; null when it is not open, the host also for one
   * of another kind. */
  CoapRpcCtx *ctx() const { return isOpen() ? core().ctx() : nullptr; }
  Kestrel *host() const { return isOpen() ? core().host() : nullptr; }

 private:
  static constexpr size_t kMaxPath = 63, kMaxTablePath = 32;

  struct Abandon {
    void operator()(detail::Core *core) const { core->abandon(); }
  };

  Node(std::unique_ptr<detail::Core> core, const Address &listen)
      : core_(core.release()), listen_(listen) {}

  detail::Core &core() const { return *core_; }

  static Kestrel *newHost(const NodeParam &param) {
    KestrelParam host = {};
    host.name = param.name;
    host.loop = param.loop;
    host.memLimitBytes = param.memLimitBytes;
    host.logLevel = param.logLevel;
    return KestrelNew(&host, nullptr, 0);
  }

  static CoapRpcInitParam initParamOf(const NodeParam &param, Kestrel *host) {
    CoapRpcInitParam init = {};
    init.name = param.name;
    init.logEnable = param.logsLibrary;
    init.memHandle = KestrelMem(host);
    init.dispHandle = KestrelDisp(host);
    init.logHandle = param.logsLibrary ? KestrelLog(host) : 0;
    init.tmrHandle = KestrelTmr(host);
    return init;
  }

  bool openConsole(const char *path) {
    const KestrelDispAccess access = {path, 0, 0};
    return KestrelDispListen(host(), &access) == KESTREL_OK && COAP_RpcShowStats(ctx()) == 0;
  }

  static Error notStarted() {
    return Error::ofText("the instance did not start; the log says why");
  }
  static Error badPath() { return Error::ofText("the path is empty or too long, or has a NUL"); }
  static bool fillKey(std::string_view path, size_t max, CoapRpcUriKey &key) {
    if (!path.empty() && path.front() == '/') path.remove_prefix(1);
    if (path.empty() || path.size() > max || path.find('\0') != path.npos) return false;
    std::memcpy(key.uri, path.data(), path.size());
    return true;
  }

  static bool isPlain(char c) {
    const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return isLetter || (c >= '0' && c <= '9') || (c && std::strchr("-._~!$'()*+,;=:@&/", c));
  }

  // fillServedKey percent-encodes all other characters, as libcoap does with the path of a message.
  static bool fillServedKey(std::string_view path, size_t max, CoapRpcUriKey &key) {
    std::string encoded;
    for (const char c : path) {
      char text[4] = {c};
      if (c && !isPlain(c)) std::snprintf(text, sizeof(text), "%%%02X", static_cast<uint8_t>(c));
      encoded.append(text, std::max<size_t>(1, std::strlen(text)));
    }
    return fillKey(encoded, max, key);
  }

  Result<void> loop(uint32_t (*runHost)(Kestrel *)) {
    if (!isOpen()) return Unexpected(Error::closed());
    if (!host()) return Unexpected(Error::ofText("the host is not the node's own"));
    switch (core().run(runHost)) {
      case KESTREL_OK:
        return {};
      case KESTREL_BUSY:
        return Unexpected(Error::ofText("the loop is running"));
      default:
        return Unexpected(Error::ofText("the loop is not the node's own"));
    }
  }

  Unexpected failed(detail::Record *unused, const Error &error) {
    core().retire(unused);
    return Unexpected(error);
  }

  bool isServed(CoapRpcUriKey key) {
    for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
      key.msgType = msgType;
      const auto *entry = core().template findKey<detail::Entry>(key);
      if (entry && entry->isServing()) return true;
    }
    return false;
  }

  // registered returns the record of a key, which it registers if it is new.
  template <typename R, typename... Args>
  Result<R *> registered(const CoapRpcUriKey &key, Args &&...args) {
    if (R *known = core().template findKey<R>(key)) return known;
    R *record = core().template make<R>(core(), key, std::forward<Args>(args)...);
    if (!record) return Unexpected(Error::noMemory());
    const uint32_t ret = record->registerIt();
    if (ret != 0) return failed(record, Error::ofCode(ret));
    core().addKey(*record);
    return record;
  }

  Result<detail::Entry *> entryOf(const CoapRpcUriKey &key, bool isLater) {
    return registered<detail::Entry>(key, isLater);
  }

  Result<detail::TableRecord *> tableOf(const CoapRpcUriKey &key, const detail::TableShape &shape) {
    const auto record = registered<detail::TableRecord>(key, shape);
    if (!record) return record;
    if ((*record)->isServing()) return Unexpected(Error::ofText("the path has a table already"));
    if ((*record)->hasShape(shape)) return record;
    return Unexpected(Error::ofText("the path had a table with keys or values of other lengths"));
  }

  std::unique_ptr<detail::Core, Abandon> core_;
  Address listen_;
};

COAPRPC_END
#endif /* COAP_RPC_CPP_NODE_HPP */
