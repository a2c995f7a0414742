/* unix_listener.h: a listening UNIX socket and its file. */
#ifndef KESTREL_SRC_CONSOLE_UNIX_LISTENER_H
#define KESTREL_SRC_CONSOLE_UNIX_LISTENER_H

#include <sys/stat.h>

#include <string>

#include "console/owned_fd.h"
#include "kestrel.h"

namespace kestrel {

// UnixListener owns the socket and removes its file, unless another has taken the path since.
class UnixListener {
 public:
  UnixListener() = default;
  ~UnixListener();
  UnixListener(const UnixListener &) = delete;
  UnixListener &operator=(const UnixListener &) = delete;

  // Open makes the file with mode 0600, which it has from its first moment on.  A file whose owner
  // is gone is replaced.  Called once.
  //
  // Returns KESTREL_OK, KESTREL_BAD_ARGUMENT when the path does not fit a socket address,
  // KESTREL_EXISTS when somebody listens there or the file is no socket, or KESTREL_SYSTEM.
  uint32_t Open(const std::string &path);

  // Accept returns the next connection, non-blocking; -1 and errno when there is none.
  OwnedFd Accept() const;

  int Fd() const { return socket_.Get(); }

 private:
  uint32_t BindAndListen(const std::string &path);

  OwnedFd socket_;
  std::string path_;     // empty until the file is ours
  struct stat file_ {};  // to know it again
};

// IsAllowedPeer tells whether the process at the other end runs as the same user or as root.
bool IsAllowedPeer(int fd);

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_UNIX_LISTENER_H */
