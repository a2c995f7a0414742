/* owned_fd.h: ownership of a descriptor. */
#ifndef KESTREL_SRC_CONSOLE_OWNED_FD_H
#define KESTREL_SRC_CONSOLE_OWNED_FD_H

#include <unistd.h>

#include <utility>

namespace kestrel {

// OwnedFd closes its descriptor; -1 means no descriptor.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) : fd_(fd) {}
  OwnedFd(OwnedFd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OwnedFd &operator=(OwnedFd &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~OwnedFd() { Close(); }

  int Get() const { return fd_; }
  bool IsOpen() const { return fd_ >= 0; }
  void Close() {
    if (IsOpen()) close(std::exchange(fd_, -1));
  }

 private:
  int fd_;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_OWNED_FD_H */
