/* call.hpp: requests to any CoAP server, and observations of its resources.
 *
 *   node.call("127.0.0.2", "upper", "hi").then([](const Result<Answer> &answer) { ... });
 *   Result<Answer> answer = co_await node.call("127.0.0.2", "upper", "hi");
 *
 * A call is sent at once and ends exactly once: with an Answer, whatever its code, or with an Error
 * that has a status. */
#ifndef COAP_RPC_CPP_CALL_HPP
#define COAP_RPC_CPP_CALL_HPP

#include <algorithm>
#include <chrono>
#include <coroutine>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/cpp/address.hpp"
#include "coap_svc/rpc/cpp/core.hpp"

COAPRPC_BEGIN

/* CallParam is what a call has beyond peer, path and payload. */
struct CallParam {
  uint32_t method = 0;                   /* COAP_RPC_...; 0: GET without a payload, POST with one */
  std::chrono::milliseconds deadline{0}; /* from the call to its end; 0: 93 s */
  const char *query = nullptr;           /* "a=1&b"; null: none */
  std::optional<uint16_t> format = {};   /* of the payload */
  std::optional<uint16_t> accept = {};   /* wanted of the answer */
  std::vector<CoapRpcCallEtag> etags = {}, ifMatch = {};
  bool isIfNoneMatch = false;
  bool isNon = false;            /* sent once, not confirmable */
  Address from = Address({}, 0); /* local address; not valid: any */
};

/* Answer is what a server has answered, or a notification. */
struct Answer {
  uint32_t code = 0; /* class x 100 + detail: 205 is 2.05 */
  std::string payload;
  std::optional<uint16_t> format;
  std::string etag;         /* "": none */
  std::string locationPath; /* segments between slashes */
  std::chrono::seconds maxAge{60};
  std::chrono::microseconds roundTrip{0}; /* 0 for a notification */
  bool isLast = true;                     /* false: an observation goes on */

  bool isSuccess() const { return code / 100 == 2; }
};

class Node;

namespace detail {

inline Error errorOfStatus(uint32_t status) {
  switch (status) {
    case COAP_RPC_CALL_TIMEOUT:
      return {0, status, "no answer in time"};
    case COAP_RPC_CALL_CANCELLED:
      return {0, status, "cancelled"};
    case COAP_RPC_CALL_RESET:
      return {0, status, "the peer refused the message"};
    case COAP_RPC_CALL_UNREACHABLE:
      return {0, status, "nobody can be reached there"};
    default:
      return {0, status, "the instance has stopped"};
  }
}

inline void fillAnswer(const CoapRpcCallRsp &rsp, Answer &answer) {
  answer.code = rsp.code;
  if (rsp.payload) {
    answer.payload.assign(reinterpret_cast<const char *>(rsp.payload), rsp.payloadLen);
  }
  if (rsp.has & COAP_RPC_CALL_HAS_FORMAT) answer.format = static_cast<uint16_t>(rsp.contentFormat);
  answer.etag.assign(reinterpret_cast<const char *>(rsp.etag.bytes), rsp.etag.len);
  if (rsp.locationPath) answer.locationPath = rsp.locationPath;
  answer.maxAge = std::chrono::seconds(rsp.maxAge);
  answer.roundTrip = std::chrono::microseconds(rsp.rttUs);
  answer.isLast = rsp.isLast != 0;
}

// A payload of megabytes may find no memory; the call ends all the same.
inline Result<Answer> resultOf(const CoapRpcCallRsp &rsp) {
  Result<Answer> result;
  if (rsp.status != COAP_RPC_CALL_ANSWERED) {
    result = Unexpected(errorOfStatus(rsp.status));
    return result;
  }
  COAPRPC_TRY { fillAnswer(rsp, *result); }
  COAPRPC_CATCH(...) { result = Unexpected(Error::noMemory()); }
  return result;
}

// fillCall leaves out what says who hears of the answer.  Pointers into the arguments.
inline CoapRpcCall fillCall(const char *path, std::string_view payload, const CallParam &param) {
  CoapRpcCall call = {};
  const uint32_t usual = payload.empty() ? COAP_RPC_GET : COAP_RPC_POST;
  call.method = param.method != 0 ? param.method : usual;
  call.isNon = param.isNon;
  call.path = path;
  call.query = param.query;
  call.payload = payload.empty() ? nullptr : reinterpret_cast<const uint8_t *>(payload.data());
  call.payloadLen = lenOf(payload);
  if (param.format) call.has |= COAP_RPC_CALL_HAS_FORMAT;
  if (param.accept) call.has |= COAP_RPC_CALL_HAS_ACCEPT;
  if (param.isIfNoneMatch) call.has |= COAP_RPC_CALL_HAS_IF_NONE_MATCH;
  call.contentFormat = param.format.value_or(0);
  call.accept = param.accept.value_or(0);
  call.numEtags = static_cast<uint32_t>(param.etags.size());
  call.etags = param.etags.data();
  call.numIfMatch = static_cast<uint32_t>(param.ifMatch.size());
  call.ifMatch = param.ifMatch.data();
  const bool isPast = param.deadline < std::chrono::milliseconds(0);
  call.deadlineMs = isPast ? 1 : millisecondsOf(param.deadline);
  return call;
}

// CallRecord is a call or an observation under way.  A call ends with its answer, whoever takes it:
// a function, a coroutine, or `result` until somebody does.
class CallRecord final : public Record {
 public:
  explicit CallRecord(Core &core) : Record(core), fn_(core) {}

  uint32_t start(const Address &from, const Address &to, CoapRpcCall call, bool isObserving) {
    const CoapRpcCallAddr addr = callAddrOf(from, to);
    call.userData = userDataOf(this);
    call.onRsp = onRsp;
    const uint32_t ret = isObserving ? COAP_RpcCallObserve(core().ctx(), &addr, &call, &id_)
                                     : COAP_RpcCall(core().ctx(), &addr, &call, &id_);
    isOpen_ = ret == 0;
    return ret;
  }

  bool hasResult() const { return result_.has_value(); }
  Result<Answer> takeResult() { return std::move(*result_); }

  // giveTo returns false without memory; `fn` is the caller's then.
  template <typename F>
  bool giveTo(F &&fn) {
    return fn_.set(std::forward<F>(fn));
  }
  void wake(std::coroutine_handle<> waiter, std::optional<Result<Answer>> &result) {
    fn_.clear();
    waiter_ = waiter;
    waiterResult_ = &result;
  }

  void goOnAlone() { isAlone_ = true; }
  void onUnreferenced() override {
    if (!isAlone_) end();
  }

  // end tells nobody.
  void end() {
    if (std::exchange(isOpen_, false)) COAP_RpcCallCancel(core().ctx(), id_);
    core().retire(this);
  }

 private:
  // What the function or the coroutine does may end the record: it stays until that has returned.
  static void onRsp(uint64_t userData, const CoapRpcCallRsp *rsp) {
    CallRecord &record = recordOf<CallRecord>(userData);
    if (!record.isOpen_ || record.core().isClosing()) return;
    Busy busy(record);
    record.isOpen_ = rsp->isLast == 0;
    const char *where = record.isOpen_ ? "observation" : "answer";
    record.core().guarded(where, [&] { record.hear(resultOf(*rsp)); });
  }

  void hear(Result<Answer> &&result) {
    const bool isTaken = fn_ || waiter_;
    if (isTaken && !isOpen_) core().retire(this);
    if (fn_) {
      fn_.call(std::move(result));
    } else if (waiter_) {
      *waiterResult_ = std::move(result);
      waiter_.resume();
    } else {
      result_ = std::move(result);
    }
  }

  uint64_t id_ = 0;
  bool isOpen_ = false, isAlone_ = false;
  FunctionBox<Result<Answer> &&> fn_;
  std::coroutine_handle<> waiter_;
  std::optional<Result<Answer>> *waiterResult_ = nullptr;
  std::optional<Result<Answer>> result_;
};

static_assert(Pool::isOfCall(sizeof(CallRecord)), "the pool keeps the memory of calls");

// takesAnswer checks what an application gives to be called with answers.
template <typename F>
constexpr void checkTakesAnswer() {
  static_assert(std::is_invocable_v<F &, Result<Answer>>,
                "coaprpc: the function takes a Result<Answer>, for example const Result<Answer> &");
}

}  // namespace detail

/* Call is a request under way; destroying it cancels it, and nobody is told.
 *
 *   std::move(call).then(fn)   calls fn once, with the Result; the call goes on by itself.  So does
 *                              node.call(...).then(fn)
 *   call.then(fn)              likewise, but destroying `call` still cancels
 *   co_await std::move(call)   is the Result; destroying the coroutine cancels
 *
 * The latest of several has the answer alone.  fn may destroy the call, and its Node.  It is called
 * inside then() if the call has ended by then, as one does that could not be sent: what it throws
 * there, then() throws. */
class [[nodiscard]] Call {
 public:
  Call() = default;
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;
  Call(Call &&) noexcept = default;
  Call &operator=(Call &&) noexcept = default;

  /* isOpen tells whether the answer is still to come, or to be taken. */
  bool isOpen() const { return bool(ref_) || error_; }
  void cancel() { *this = Call(); }

  template <typename F>
  void then(F &&fn) && {
    if (ref_) ref_->goOnAlone();
    take(std::forward<F>(fn));
    ref_.reset();
  }

  template <typename F>
  void then(F &&fn) & {
    take(std::forward<F>(fn));
  }

  class Awaiter;
  inline Awaiter operator co_await() &&;

 private:
  friend class Node;
  explicit Call(detail::Ref<detail::CallRecord> ref) : ref_(std::move(ref)) {}
  explicit Call(const Error &error) : error_(error) {}

  bool isOver() const { return !ref_ || ref_->hasResult(); }

  // takeResult is for a call that is over.
  Result<Answer> takeResult() {
    Result<Answer> result =
        ref_ ? ref_->takeResult() : Unexpected(error_.value_or(Error::closed()));
    error_.reset();
    if (ref_) ref_->end();
    return result;
  }

  template <typename F>
  void take(F &&fn) {
    detail::checkTakesAnswer<std::decay_t<F>>();
    if (isOver()) return void(fn(takeResult()));
    if (ref_->giveTo(std::forward<F>(fn))) return;
    ref_->end();
    fn(Result<Answer>(Unexpected(Error::noMemory())));
  }

  detail::Ref<detail::CallRecord> ref_;
  std::optional<Error> error_;  // it could not be sent
};

class Call::Awaiter {
 public:
  explicit Awaiter(Call call) : call_(std::move(call)) {}

  bool await_ready() {
    if (call_.isOver()) result_ = call_.takeResult();
    return result_.has_value();
  }
  void await_suspend(std::coroutine_handle<> waiter) { call_.ref_->wake(waiter, result_); }
  Result<Answer> await_resume() { return std::move(*result_); }

 private:
  Call call_;
  std::optional<Result<Answer>> result_;
};

inline Call::Awaiter Call::operator co_await() && { return Awaiter(std::move(*this)); }

/* Observation is an observation under way (coap_rpc_call.h); destroying it ends it, and the server
 * is told. */
class [[nodiscard]] Observation {
 public:
  Observation() = default;
  Observation(const Observation &) = delete;
  Observation &operator=(const Observation &) = delete;
  Observation(Observation &&) noexcept = default;
  Observation &operator=(Observation &&) noexcept = default;

  bool isOpen() const { return bool(ref_); }
  void cancel() { ref_.reset(); }

  /* detach lets it go on until it ends by itself, or its node does. */
  void detach() && {
    if (ref_) ref_->goOnAlone();
    ref_.reset();
  }

 private:
  friend class Node;
  explicit Observation(detail::Ref<detail::CallRecord> ref) : ref_(std::move(ref)) {}

  detail::Ref<detail::CallRecord> ref_;
};

COAPRPC_END
#endif /* COAP_RPC_CPP_CALL_HPP */
