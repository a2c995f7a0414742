/* loop.h: the event loop of a host, its own or one of the application's. */
#ifndef KESTREL_SRC_HOST_LOOP_H
#define KESTREL_SRC_HOST_LOOP_H

#include "host/uv_handle.h"
#include "kestrel.h"

namespace kestrel {

class Loop {
 public:
  // `foreign` is the application's loop, null to make one.  Throws std::runtime_error when libuv
  // refuses, and std::bad_alloc.
  explicit Loop(uv_loop_t *foreign);
  ~Loop();  // an own loop is closed; REQUIRES: the owners of its other handles are gone
  Loop(const Loop &) = delete;
  Loop &operator=(const Loop &) = delete;

  uv_loop_t *Get() { return loop_; }

  // These are KestrelRun, KestrelTurn and KestrelStop.
  uint32_t Run() { return RunAs(UV_RUN_DEFAULT); }
  uint32_t Turn() { return RunAs(UV_RUN_NOWAIT); }
  uint32_t Stop();

  // TimeoutMs is KestrelPollTimeoutMs.
  int TimeoutMs();

 private:
  uint32_t RunAs(uv_run_mode mode);
  void OpenOwn();
  void CloseOwn();

  uv_loop_t own_{};
  uv_loop_t *loop_;
  UvPtr<uv_async_t> stop_;  // null with a foreign loop
  bool isRunning_ = false;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_HOST_LOOP_H */
