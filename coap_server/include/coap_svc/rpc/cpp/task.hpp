/* task.hpp: coroutines that wait for calls.
 *
 *   Task<> ask(Node &node) {
 *     Result<Answer> answer = co_await node.call("127.0.0.2", "upper", "hi");
 *     ...
 *   }
 *   node.spawn(ask(node));
 *
 * A Task begins when it is spawned or awaited, not when it is called.  Its node keeps a spawned one
 * until its end, or the node's: what it is waiting for is then cancelled, and its variables are
 * destroyed.  What a spawned one throws is in the log; what an awaited one throws reaches the one
 * that awaits it.  Awaiting one that was moved from throws a Failure.  Awaiters of calls also work
 * in coroutines of other types. */
#ifndef COAP_RPC_CPP_TASK_HPP
#define COAP_RPC_CPP_TASK_HPP

#include <coroutine>
#include <optional>
#include <utility>

#include "coap_svc/rpc/cpp/core.hpp"
#include "coap_svc/rpc/cpp/result.hpp"

COAPRPC_BEGIN

template <typename T = void>
class Task;

namespace detail {

class TaskRecord;

// PromiseBase knows who goes on at the end of a coroutine: the one that awaits it, or its record.
class PromiseBase {
 public:
  struct Final {
    bool await_ready() noexcept { return false; }
    template <typename Promise>
    inline std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> self) noexcept;
    void await_resume() noexcept {}
  };

  std::suspend_always initial_suspend() noexcept { return {}; }
  Final final_suspend() noexcept { return {}; }
  void unhandled_exception() noexcept { thrown_ = std::current_exception(); }

  void rethrow() {
#ifdef __cpp_exceptions
    if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
#endif
  }

  std::coroutine_handle<> awaiting = std::noop_coroutine();
  TaskRecord *record = nullptr;

 private:
  std::exception_ptr thrown_;
};

template <typename T>
class Promise : public PromiseBase {
 public:
  inline Task<T> get_return_object();
  template <typename U>
  void return_value(U &&value) {
    value_.emplace(std::forward<U>(value));
  }
  T take() {
    rethrow();
    return std::move(*value_);
  }

 private:
  std::optional<T> value_;
};

template <>
class Promise<void> : public PromiseBase {
 public:
  inline Task<void> get_return_object();
  void return_void() {}
  void take() { rethrow(); }
};

}  // namespace detail

template <typename T>
class [[nodiscard]] Task {
 public:
  using promise_type = detail::Promise<T>;

  Task() = default;
  Task(Task &&other) noexcept : self_(std::exchange(other.self_, nullptr)) {}
  Task &operator=(Task other) noexcept {
    std::swap(self_, other.self_);
    return *this;
  }
  ~Task() {
    if (self_) self_.destroy();
  }

  bool isValid() const { return bool(self_); } /* false: moved from */

  auto operator co_await() &&noexcept {
    struct Awaiter {
      Task task;
      bool await_ready() noexcept { return !task.self_; }
      std::coroutine_handle<> await_suspend(std::coroutine_handle<> waiter) noexcept {
        task.self_.promise().awaiting = waiter;
        return task.self_;
      }
      T await_resume() {
        if (!task.self_) detail::raise(Error::ofText("the task was moved from"));
        return task.self_.promise().take();
      }
    };
    return Awaiter{std::move(*this)};
  }

 private:
  friend promise_type;
  friend class detail::TaskRecord;
  explicit Task(std::coroutine_handle<promise_type> self) : self_(self) {}

  std::coroutine_handle<promise_type> self_;
};

namespace detail {

template <typename T>
Task<T> Promise<T>::get_return_object() {
  return Task<T>(std::coroutine_handle<Promise>::from_promise(*this));
}
inline Task<void> Promise<void>::get_return_object() {
  return Task<void>(std::coroutine_handle<Promise>::from_promise(*this));
}

// TaskRecord keeps a spawned coroutine.  The coroutine's last suspension ends both.
class TaskRecord final : public Record {
 public:
  TaskRecord(Core &core, Task<> task) : Record(core), task_(std::move(task)) {
    task_.self_.promise().record = this;
  }
  void start() {
    core().guarded("task", [this] { task_.self_.resume(); });
  }
  void end() {
    core().guarded("task", [this] { task_.self_.promise().take(); });
    core().retire(this);
  }

 private:
  Task<> task_;
};

template <typename Promise>
std::coroutine_handle<> PromiseBase::Final::await_suspend(
    std::coroutine_handle<Promise> self) noexcept {
  PromiseBase &promise = self.promise();
  const std::coroutine_handle<> next = promise.awaiting;
  if (promise.record) promise.record->end();
  return next;
}

}  // namespace detail
COAPRPC_END
#endif /* COAP_RPC_CPP_TASK_HPP */
