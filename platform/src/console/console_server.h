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
      : m_loop(loop), m_disp(disp), m_log(log) {}
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

  uv_loop_t *m_loop;
  DispService &m_disp;
  Log &m_log;
  uint32_t m_maxConsoles = 0;
  uint64_t m_maxQueuedBytes = 0;
  UnixListener m_listener;
  OwnedFd m_spare;  // given up for a moment when the process has no descriptors left
  std::list<Console> m_consoles;
  UvPtr<uv_poll_t> m_poll;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_CONSOLE_SERVER_H */
