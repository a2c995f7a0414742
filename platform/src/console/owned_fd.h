/* owned_fd.h: ownership of a descriptor. */
#ifndef KESTREL_SRC_CONSOLE_OWNED_FD_H
#define KESTREL_SRC_CONSOLE_OWNED_FD_H

#include <unistd.h>

#include <utility>

namespace kestrel {

// OwnedFd closes its descriptor; -1 means no descriptor.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) : m_fd(fd) {}
  OwnedFd(OwnedFd &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  OwnedFd &operator=(OwnedFd &&other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  ~OwnedFd() { Close(); }

  int Get() const { return m_fd; }
  bool IsOpen() const { return m_fd >= 0; }
  void Close() {
    if (IsOpen()) close(std::exchange(m_fd, -1));
  }

 private:
  int m_fd;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_OWNED_FD_H */
