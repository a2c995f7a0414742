/* loop.cpp: the event loop of a host. */
#include "host/loop.h"

#include <stdexcept>

namespace kestrel {

Loop::Loop(uv_loop_t *foreign) : loop_(foreign ? foreign : &own_) {
  if (!foreign) OpenOwn();
}

Loop::~Loop() {
  if (loop_ == &own_) CloseOwn();
}

void Loop::OpenOwn() {
  if (uv_loop_init(&own_) != 0) throw std::runtime_error("cannot make an event loop");
  try {
    stop_ = NewUvHandle<uv_async_t>(nullptr, [this](uv_async_t *handle) {
      return uv_async_init(&own_, handle, [](uv_async_t *stop) { uv_stop(stop->loop); });
    });
  } catch (...) {
    CloseOwn();
    throw;
  }
  if (!stop_) {
    CloseOwn();
    throw std::runtime_error("cannot make a handle in the event loop");
  }
}

// Handles that are closing leave the loop only when it runs.
void Loop::CloseOwn() {
  stop_.reset();
  uv_run(&own_, UV_RUN_DEFAULT);
  uv_loop_close(&own_);
}

uint32_t Loop::RunAs(uv_run_mode mode) {
  if (loop_ != &own_) return KESTREL_FOREIGN_LOOP;
  if (isRunning_) return KESTREL_BUSY;
  isRunning_ = true;
  uv_run(loop_, mode);
  isRunning_ = false;
  return KESTREL_OK;
}

uint32_t Loop::Stop() {
  if (!stop_) return KESTREL_FOREIGN_LOOP;
  uv_async_send(stop_.get());
  return KESTREL_OK;
}

// libuv counts the timeout from the loop's time, which stands still between turns.
int Loop::TimeoutMs() {
  if (loop_ == &own_ && !isRunning_) uv_update_time(loop_);
  return uv_backend_timeout(loop_);
}

}  // namespace kestrel
