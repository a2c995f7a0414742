/* serve.hpp: what a handler of a path gets, Request, and what it gives: a text, a Reply or a Later.
 *
 * A handler that throws, returns an Error or says what CoAP does not know is answered with 5.00;
 * the reason is in the log, not on the wire. */
#ifndef COAP_RPC_CPP_SERVE_HPP
#define COAP_RPC_CPP_SERVE_HPP

#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/cpp/address.hpp"
#include "coap_svc/rpc/cpp/core.hpp"

COAPRPC_BEGIN

/* Format holds Content-Formats, as IANA numbers them. */
struct Format {
  static constexpr uint16_t text = 0, link = 40, octets = 42, json = 50, cbor = 60;
  static constexpr uint32_t none = COAP_RPC_DIRECT_NO_FORMAT;
};

/* Option is an option of an answer: ETag, Max-Age, Location-Path or Location-Query
 * (COAP_RpcSerAddAnswerOption says what they may be). */
struct Option {
  uint32_t number;
  std::string value;
};

/* Reply is an answer.  The payload is a text or any bytes. */
struct Reply {
  uint32_t code = 0; /* class x 100 + detail; 0: 205 to GET and FETCH, 204 to the other methods */
  uint32_t format = Format::none;
  std::string payload = {};
  std::vector<Option> options = {};
};

/* ServeParam is how a path is served.  Without anything it is open to GET and POST. */
struct ServeParam {
  uint32_t methods = 0;               /* COAP_RPC_ALLOW_...; 0: GET and POST */
  uint32_t timeoutMs = 0;             /* for a Later, which is answered with 5.04 then; 0: 60,000 */
  std::optional<Address> listen = {}; /* none: the node's */
  /* Attributes in /.well-known/core (RFC 6690); null: none. */
  const char *rt = nullptr, *interfaces = nullptr, *ct = nullptr, *title = nullptr;
};

class Later;
class Request;

namespace detail {

class Entry;
class OpenRequest;

// OfEntry is a request's place among those of its entry.
struct OfEntry : Link {
  explicit OfEntry(OpenRequest &owner) : request(owner) {}
  OpenRequest &request;
};

// OpenRequest is a request whose handler has asked for a Later.  It ends with its answer.
class OpenRequest final : public Record {
 public:
  OpenRequest(Core &core, void *async, uint32_t successCode)
      : Record(core), async_(async), successCode_(successCode) {}

  void *async() const { return async_; }
  Link &ofEntry() { return ofEntry_; }

  Result<void> send(const Reply &reply) {
    const uint32_t ret = prepare(reply);
    return ret == 0 ? sendPayload(reply.payload) : check(ret);
  }

  Result<void> sendPayload(std::string_view payload) {
    const char *bytes = payload.empty() ? "" : payload.data();
    return endWith(COAP_RpcSerSendAsyncResponse(
        core().ctx(), async_, reinterpret_cast<const uint8_t *>(bytes), lenOf(payload)));
  }

  Result<void> fail(uint32_t code, const char *text) {
    return endWith(COAP_RpcSerFailAsync(core().ctx(), async_, code, text));
  }

  // Nobody can answer it any more.
  void onUnreferenced() override {
    COAP_RpcSerAbortAsyncResponse(core().ctx(), async_);
    core().retire(this);
  }

 private:
  uint32_t prepare(const Reply &reply) {
    CoapRpcCtx *ctx = core().ctx();
    const uint32_t code = reply.code != 0 ? reply.code : successCode_;
    uint32_t ret = COAP_RpcSerSetAsyncAnswer(ctx, async_, code, reply.format);
    for (const Option &option : reply.options) {
      if (ret != 0) break;
      ret = COAP_RpcSerAddAsyncAnswerOption(ctx, async_, option.number, option.value.data(),
                                            lenOf(option.value));
    }
    return ret;
  }

  Result<void> endWith(uint32_t ret) {
    if (ret == 0) core().retire(this);
    return check(ret);
  }

  void *async_;
  uint32_t successCode_;
  OfEntry ofEntry_{*this};
};

}  // namespace detail

/* Later is the answer to a request that its handler leaves open.  Copies are the same answer; when
 * the last one is destroyed, and nothing was answered, the peer gets 5.03. */
class Later {
 public:
  Later() = default;
  explicit Later(detail::OpenRequest *request) : ref_(request) {}

  /* isOpen tells whether an answer would still be sent: nobody has answered, the time is not over,
   * and neither the path nor the node has ended. */
  bool isOpen() const { return bool(ref_); }

  /* reply answers; fail does with an error, class 4 or 5, and a text for people.  Both fail when it
   * is not open, and leave it open when they fail otherwise. */
  [[nodiscard]] Result<void> reply(const Reply &reply) const {
    return ref_ ? ref_->send(reply) : Unexpected(Error::closed());
  }
  [[nodiscard]] Result<void> reply(std::string_view payload) const {
    return ref_ ? ref_->sendPayload(payload) : Unexpected(Error::closed());
  }
  [[nodiscard]] Result<void> reply(const char *payload) const {
    return reply(std::string_view(payload ? payload : ""));
  }
  [[nodiscard]] Result<void> reply(const std::string &payload) const {
    return reply(std::string_view(payload));
  }
  [[nodiscard]] Result<void> fail(uint32_t code, const std::string &text = {}) const {
    return ref_ ? ref_->fail(code, text.c_str()) : Unexpected(Error::closed());
  }

 private:
  friend class detail::Entry;
  detail::Ref<detail::OpenRequest> ref_;
};

/* Request is a view of a request, valid during its handler. */
class Request {
 public:
  Request(detail::Core &core, std::string_view payload, detail::Entry *entry = nullptr,
          void *async = nullptr)
      : core_(core), payload_(payload), entry_(entry), async_(async) {}
  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;

  std::string_view payload() const { return payload_; }
  uint32_t method() const { return head().method; }        /* COAP_RPC_GET and so on */
  uint32_t format() const { return head().contentFormat; } /* Format::none: it names none */
  uint32_t accept() const { return head().accept; }        /* likewise */
  bool isConfirmable() const { return head().isConfirmable != 0; }
  Address peer() const { return {head().peerAddr, head().peerPort}; }

  /* query is the value of the first argument `name=value`, "" for one that is the name alone. */
  std::optional<std::string> query(const char *name) const {
    char value[kMaxArgument + 1];
    if (COAP_RpcSerGetQuery(core_.ctx(), name, value, sizeof(value)) != 0) return {};
    return std::string(value);
  }

  /* option is any option of the request, the first of its number with index 0. */
  std::optional<std::string> option(uint32_t number, uint32_t index = 0) const {
    uint32_t len = 0;
    const uint32_t ret = COAP_RpcSerGetOption(core_.ctx(), number, index, nullptr, 0, &len);
    if (ret != 0 && ret != kDoesNotFit) return {};
    std::string value(len, '\0');
    COAP_RpcSerGetOption(core_.ctx(), number, index, value.data(), len, &len);
    return value;
  }

  /* later is the answer that the handler does not give now.  Only a handler that returns it may ask
   * for it; elsewhere, and without memory, it is not open. */
  inline Later later() const;

 private:
  friend class detail::Entry;
  static constexpr size_t kMaxArgument = 255;
  static constexpr uint32_t kDoesNotFit = 1900001506;

  const CoapRpcSerRequest &head() const {
    if (!head_) COAP_RpcSerGetRequest(core_.ctx(), &head_.emplace());
    return *head_;
  }

  detail::Core &core_;
  std::string_view payload_;
  detail::Entry *entry_;
  void *async_;
  mutable std::optional<CoapRpcSerRequest> head_;
  mutable bool isLaterAsked_ = false;
  mutable Later later_;
};

namespace detail {

// Room is where a synchronous answer is written.
struct Room {
  uint8_t *out;
  uint32_t size;
};

template <typename T>
inline constexpr bool isResult = false;
template <typename T>
inline constexpr bool isResult<Result<T>> = true;

template <typename T>
concept IsText = std::is_convertible_v<const T &, std::string_view> && !std::is_null_pointer_v<T>;

inline uint32_t successCodeOf(uint32_t method) {
  return method == COAP_RPC_GET || method == COAP_RPC_FETCH ? 205 : 204;
}

// A Handler answers at once or later, whichever its function does.
class Handler : public Record {
 public:
  using Record::Record;
  virtual int32_t answer(const Request &request, Room room) = 0;  // bytes; negative: failed
  virtual Later answerLater(const Request &request) = 0;
};

// Entry is a registered path.  The registration cannot be taken back, so the entry stays; what it
// serves comes and goes.  Handlers that answer at once and handlers that answer later have entries,
// and so keys, of their own.
class Entry final : public Keyed {
 public:
  static constexpr int32_t kFailed = -1;

  Entry(Core &core, const CoapRpcUriKey &key, bool isAsync) : Keyed(core, key), isAsync_(isAsync) {}

  bool isServing() const { return handler_ != nullptr; }

  uint32_t registerIt() {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    reg.mode = isAsync_ ? 1 : 0;
    reg.userData = userDataOf(this);
    reg.onRequest = onRequest;
    reg.onAsyncRequest = onAsyncRequest;
    return COAP_RpcSerRegVtbl(core().ctx(), &key(), &reg, nullptr);
  }

  // serve takes the handler, also when it fails.
  uint32_t serve(Handler *handler, const ServeParam &param, const Address &listen) {
    CoapRpcSerDirectParam direct = {};
    direct.methods = param.methods;
    direct.timeoutMs = param.timeoutMs;
    direct.onAsyncEnd = onAsyncEnd;
    uint32_t ret = COAP_RpcSerSetDirect(core().ctx(), &key(), &direct);
    if (ret == 0) ret = describe(param);
    if (ret == 0) ret = attach(core(), key(), listen);
    if (ret == 0) handler_ = handler;
    if (ret != 0) core().retire(handler);
    return ret;
  }

  uint32_t end() {
    core().retire(std::exchange(handler_, nullptr));
    return COAP_RpcSerUnsetUri(core().ctx(), &key());
  }

  // open makes the record of the request that is being handled; null without memory.
  OpenRequest *open(void *async, uint32_t method) {
    auto *request = core().make<OpenRequest>(core(), async, successCodeOf(method));
    if (request) request->ofEntry().joinBefore(open_);
    return request;
  }

  // attach serves a key at an address.  A port in use leaves a listen that serves nothing: it is
  // taken away, so that the application may try again.
  static uint32_t attach(Core &core, const CoapRpcUriKey &key, const Address &address) {
    const CoapRpcSerListenAddr listen = listenOf(address);
    const uint32_t ret = COAP_RpcSerSetUri(core.ctx(), &key, &listen);
    if (ret != kNoEndpoint) return ret;
    COAP_RpcSerSetUri(core.ctx(), &key, &listen);
    COAP_RpcSerUnsetUri(core.ctx(), &key);
    return ret;
  }

 private:
  static constexpr uint32_t kNoEndpoint = 1900000157, kInternalError = 500;

  uint32_t describe(const ServeParam &param) {
    const std::pair<const char *, const char *> attributes[] = {
        {"rt", param.rt}, {"if", param.interfaces}, {"ct", param.ct}, {"title", param.title}};
    uint32_t ret = 0;
    for (const auto &[name, value] : attributes) {
      if (ret == 0) ret = COAP_RpcSerSetLinkAttribute(core().ctx(), &key(), name, value);
    }
    return ret;
  }

  static int32_t onRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload,
                           uint32_t len, uint8_t *out, uint32_t size) {
    Entry &entry = recordOf<Entry>(userData);
    if (!entry.handler_ || entry.core().isClosing()) return kFailed;
    const Request request(entry.core(), {reinterpret_cast<char *>(payload), len});
    Handler &handler = *entry.handler_;
    Busy busy(handler);
    int32_t result = kFailed;
    entry.core().guarded(entry.key().uri, [&] { result = handler.answer(request, {out, size}); });
    return result;
  }

  static uint32_t onAsyncRequest(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    Entry &entry = recordOf<Entry>(userData);
    if (!entry.handler_ || entry.core().isClosing()) return 1;
    const Request request(entry.core(), {reinterpret_cast<char *>(payload), len}, &entry, async);
    Busy busy(*entry.handler_);
    if (!entry.isTaken(*entry.handler_, request)) entry.refuse(async);
    return 0;
  }

  // isTaken tells whether the handler has answered its request, or returned its Later.
  bool isTaken(Handler &handler, const Request &request) {
    Later later;
    if (!core().guarded(key().uri, [&] { later = handler.answerLater(request); })) return false;
    const OpenRequest *open = request.later_.ref_.get();
    const bool isTaken = request.isLaterAsked_ && later.ref_.get() == open;
    if (!isTaken) core().log(kLogBadReply, key().uri, "the handler has not returned its later()");
    return isTaken;
  }

  void refuse(void *async) {
    COAP_RpcSerFailAsync(core().ctx(), async, kInternalError, nullptr);
    core().retire(find(async));
  }

  static void onAsyncEnd(uint64_t userData, void *async, uint32_t) {
    Entry &entry = recordOf<Entry>(userData);
    entry.core().retire(entry.find(async));
  }

  // find goes through the open requests, oldest first: they end in this order when none is
  // answered.
  OpenRequest *find(void *async) {
    for (Link *at = open_.next(); at != &open_; at = at->next()) {
      OpenRequest &request = static_cast<OfEntry *>(at)->request;
      if (request.async() == async) return &request;
    }
    return nullptr;
  }

  bool isAsync_;
  Handler *handler_ = nullptr;
  Link open_;
};

// SyncReply writes what a handler has returned as the answer to the request that is being handled.
// Each function returns the answer's length, negative for a failure.
class SyncReply {
 public:
  SyncReply(Core &core, const Request &request, Room room)
      : core_(core), request_(request), room_(room) {}

  template <typename T>
  int32_t write(const T &value) const {
    if constexpr (isResult<T>) {
      return value ? writeValue(value) : failed(value.error().what());
    } else if constexpr (IsText<T>) {
      return isNull(value) ? failed("the answer is a null pointer") : writeText(value);
    } else {
      return writeReply(value);
    }
  }

 private:
  template <typename T>
  int32_t writeValue(const Result<T> &value) const {
    if constexpr (std::is_void_v<T>)
      return 0;
    else
      return write(*value);
  }

  template <typename T>
  static bool isNull(const T &text) {
    if constexpr (std::is_pointer_v<T>) return text == nullptr;
    return false;
  }

  int32_t writeText(std::string_view text) const {
    if (text.size() >= room_.size) return failed("the answer is too long");
    std::copy(text.begin(), text.end(), room_.out);
    return static_cast<int32_t>(text.size());
  }

  int32_t writeReply(const Reply &reply) const {
    const uint32_t code = reply.code != 0 ? reply.code : successCodeOf(request_.method());
    uint32_t ret = COAP_RpcSerSetAnswer(core_.ctx(), code, reply.format);
    for (const Option &option : reply.options) {
      if (ret != 0) break;
      ret = COAP_RpcSerAddAnswerOption(core_.ctx(), option.number, option.value.data(),
                                       lenOf(option.value));
    }
    return ret == 0 ? writeText(reply.payload) : failed(COAP_RpcErrStr(ret));
  }

  int32_t failed(const char *why) const {
    core_.log(kLogBadReply, "answer", why);
    return Entry::kFailed;
  }

  Core &core_;
  const Request &request_;
  Room room_;
};

template <typename F>
decltype(auto) callHandler(F &fn, const Request &request) {
  constexpr bool takesRequest = std::is_invocable_v<F &, const Request &>;
  static_assert(takesRequest || std::is_invocable_v<F &, std::string_view>,
                "coaprpc: a handler takes a const Request &, or the payload as std::string_view");
  if constexpr (takesRequest) {
    return fn(request);
  } else if constexpr (std::is_invocable_v<F &, std::string_view>) {
    return fn(request.payload());
  }
}

template <typename T>
struct ReplyKind {
  static constexpr bool isOk = std::is_void_v<T> || IsText<T> || std::is_same_v<T, Reply>;
};
template <typename T>
struct ReplyKind<Result<T>> : ReplyKind<T> {};

template <typename F>
class HandlerOf final : public Handler {
 public:
  using Returned = std::remove_cvref_t<decltype(callHandler(std::declval<F &>(),
                                                            std::declval<const Request &>()))>;
  static constexpr bool isLater = std::is_same_v<Returned, Later>;
  static_assert(isLater || ReplyKind<Returned>::isOk,
                "coaprpc: a handler returns a text, a Reply, nothing, a Result of one of these, or "
                "a Later");

  HandlerOf(Core &core, F &&fn) : Handler(core), fn_(std::move(fn)) {}
  HandlerOf(Core &core, const F &fn) : Handler(core), fn_(fn) {}

  int32_t answer(const Request &request, Room room) override {
    if constexpr (isLater || !ReplyKind<Returned>::isOk) {
      return Entry::kFailed;
    } else if constexpr (std::is_void_v<Returned>) {
      callHandler(fn_, request);
      return 0;
    } else {
      return SyncReply(core(), request, room).write(callHandler(fn_, request));
    }
  }

  Later answerLater(const Request &request) override {
    if constexpr (isLater) return callHandler(fn_, request);
    return {};
  }

 private:
  F fn_;
};

}  // namespace detail

inline Later Request::later() const {
  if (!entry_ || isLaterAsked_) return later_;
  later_ = Later(entry_->open(async_, method()));
  isLaterAsked_ = later_.isOpen();
  return later_;
}

COAPRPC_END
#endif /* COAP_RPC_CPP_SERVE_HPP */
