/* loop.cpp: the event loop of a host. */
#include "host/loop.h"

#include <stdexcept>

namespace kestrel {

Loop::Loop(uv_loop_t *foreign) : m_loop(foreign != nullptr ? foreign : &m_own) {
  if (foreign == nullptr) OpenOwn();
}

Loop::~Loop() {
  if (m_loop == &m_own) CloseOwn();
}

void Loop::OpenOwn() {
  if (uv_loop_init(&m_own) != 0) throw std::runtime_error("cannot make an event loop");
  try {
    m_stop = NewUvHandle<uv_async_t>(nullptr, [this](uv_async_t *handle) {
      return uv_async_init(&m_own, handle, [](uv_async_t *stop) { uv_stop(stop->loop); });
    });
  } catch (...) {
    CloseOwn();
    throw;
  }
  if (m_stop == nullptr) {
    CloseOwn();
    throw std::runtime_error("cannot make a handle in the event loop");
  }
}

// Handles that are closing leave the loop only when it runs.
void Loop::CloseOwn() {
  m_stop.reset();
  uv_run(&m_own, UV_RUN_DEFAULT);
  uv_loop_close(&m_own);
}

uint32_t Loop::RunAs(uv_run_mode mode) {
  if (m_loop != &m_own) return KESTREL_FOREIGN_LOOP;
  if (m_isRunning) return KESTREL_BUSY;
  m_isRunning = true;
  uv_run(m_loop, mode);
  m_isRunning = false;
  return KESTREL_OK;
}

uint32_t Loop::Stop() {
  if (m_stop == nullptr) return KESTREL_FOREIGN_LOOP;
  uv_async_send(m_stop.get());
  return KESTREL_OK;
}

// libuv counts the timeout from the loop's time, which stands still between turns.
int Loop::TimeoutMs() {
  if (m_loop == &m_own && !m_isRunning) uv_update_time(m_loop);
  return uv_backend_timeout(m_loop);
}

}  // namespace kestrel
