/* fd_watches.h: descriptors watched for readability. */
#ifndef KESTREL_SRC_HOST_FD_WATCHES_H
#define KESTREL_SRC_HOST_FD_WATCHES_H

#include <unordered_map>

#include "host/uv_handle.h"
#include "kestrel.h"

namespace kestrel {

class FdWatches {
 public:
  explicit FdWatches(uv_loop_t *loop) : loop_(loop) {}
  FdWatches(const FdWatches &) = delete;
  FdWatches &operator=(const FdWatches &) = delete;

  // Watch and Unwatch are KestrelWatch and KestrelUnwatch.  Watch throws std::bad_alloc.
  uint32_t Watch(int fd, KestrelFdReady ready, void *param);
  uint32_t Unwatch(int fd);

 private:
  struct FdWatch {
    int fd = -1;
    KestrelFdReady ready = nullptr;
    void *param = nullptr;
    UvPtr<uv_poll_t> handle;
  };

  static void OnReady(uv_poll_t *handle, int status, int events);

  uv_loop_t *loop_;
  std::unordered_map<int, FdWatch> watches_;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_HOST_FD_WATCHES_H */
