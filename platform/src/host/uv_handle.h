/* uv_handle.h: ownership of libuv handles.
 *
 * A handle is closed by its loop later than it is given up, so its memory belongs to the close
 * callback and not to its owner. */
#ifndef KESTREL_SRC_HOST_UV_HANDLE_H
#define KESTREL_SRC_HOST_UV_HANDLE_H

#include <uv.h>

#include <memory>

namespace kestrel {

template <typename Handle>
struct UvClose {
  void operator()(Handle *handle) const {
    uv_close(reinterpret_cast<uv_handle_t *>(handle),
             [](uv_handle_t *closed) { delete reinterpret_cast<Handle *>(closed); });
  }
};

// UvPtr owns an initialised handle and closes it.
template <typename Handle>
using UvPtr = std::unique_ptr<Handle, UvClose<Handle>>;

// NewUvHandle makes a handle with `init`, one of libuv's init functions, and `data`.
// Returns null when libuv refuses.  Throws std::bad_alloc.
template <typename Handle, typename Init>
UvPtr<Handle> NewUvHandle(void *data, Init init) {
  auto handle = std::make_unique<Handle>();
  if (init(handle.get()) != 0) return nullptr;
  handle->data = data;
  return UvPtr<Handle>(handle.release());
}

}  // namespace kestrel

#endif /* KESTREL_SRC_HOST_UV_HANDLE_H */
