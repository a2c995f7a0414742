/* console_server.h: takes consoles in, up to a number of them. */
#ifndef KESTREL_SRC_CONSOLE_CONSOLE_SERVER_H
#define KESTREL_SRC_CONSOLE_CONSOLE_SERVER_H

#include <list>

#include "console/console.h"
#include "console/unix_listener.h"
#include "log/log.h"

namespace kestrel {

class ConsoleServer {
 public:
  // The services outlive the server.
  ConsoleServer(uv_loop_t *loop, DispService &disp, Log &log)
      : loop_(loop), disp_(disp), log_(log) {}
  ConsoleServer(const ConsoleServer &) = delete;
  ConsoleServer &operator=(const ConsoleServer &) = delete;

  // Listen is KestrelDispListen.  Called once.  Throws std::bad_alloc.
  uint32_t Listen(const KestrelDispAccess &access);

 private:
  static void OnReady(uv_poll_t *handle, int status, int events);

  void AcceptSome();
  void TakeIn(OwnedFd socket);
  void TurnAway(const OwnedFd &socket, const char *reason);
  void DropOneForWantOfDescriptors();
  void Welcome(OwnedFd socket);

  uv_loop_t *loop_;
  DispService &disp_;
  Log &log_;
  uint32_t maxConsoles_ = 0;
  uint64_t maxQueuedBytes_ = 0;
  UnixListener listener_;
  OwnedFd spare_;  // given up for a moment when the process has no descriptors left
  std::list<Console> consoles_;
  UvPtr<uv_poll_t> poll_;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_CONSOLE_SERVER_H */
