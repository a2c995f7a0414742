/* fd_watches.cpp: one poll handle of the loop for each watched descriptor. */
#include "host/fd_watches.h"

namespace kestrel {

uint32_t FdWatches::Watch(int fd, KestrelFdReady ready, void *param) {
  if (fd < 0 || !ready) return KESTREL_BAD_ARGUMENT;
  const auto [entry, isNew] = watches_.try_emplace(fd);
  if (!isNew) return KESTREL_EXISTS;

  FdWatch &watch = entry->second;
  watch.fd = fd;
  watch.ready = ready;
  watch.param = param;
  try {
    watch.handle = NewUvHandle<uv_poll_t>(
        &watch, [&](uv_poll_t *handle) { return uv_poll_init(loop_, handle, fd); });
  } catch (...) {
    watches_.erase(entry);
    throw;
  }
  if (watch.handle && uv_poll_start(watch.handle.get(), UV_READABLE, OnReady) == 0) {
    return KESTREL_OK;
  }
  watches_.erase(entry);
  return KESTREL_SYSTEM;
}

uint32_t FdWatches::Unwatch(int fd) {
  return watches_.erase(fd) != 0 ? KESTREL_OK : KESTREL_NOT_FOUND;
}

// A socket with a pending error makes libuv end the watch.  Reading is what tells and clears such
// an error (on UDP an unreachable peer is no reason to stop), so the watch goes on.
void FdWatches::OnReady(uv_poll_t *handle, int status, int) {
  const auto *watch = static_cast<const FdWatch *>(handle->data);
  const KestrelFdReady ready = watch->ready;
  void *param = watch->param;
  if (status < 0) uv_poll_start(handle, UV_READABLE, OnReady);
  ready(param, watch->fd);
}

}  // namespace kestrel
