/* console.h: one operator's console, connected to the host.
 *
 * A console asks for something, the host answers piece by piece from its loop: a page of a command
 * is run when the pages before it have mostly been read.  A console that does not read is left
 * alone until it does. */
#ifndef KESTREL_SRC_CONSOLE_CONSOLE_H
#define KESTREL_SRC_CONSOLE_CONSOLE_H

#include <functional>
#include <optional>
#include <string>

#include "console/console_input.h"
#include "console/console_output.h"
#include "console/owned_fd.h"
#include "disp/disp_service.h"
#include "host/uv_handle.h"

namespace kestrel {

class Console {
 public:
  // OnGone is called when the connection is over; it deletes the console.
  using OnGone = std::function<void(const Console &)>;

  Console(DispService &disp, OwnedFd socket, uint64_t maxQueuedBytes, OnGone onGone)
      : m_disp(disp),
        m_socket(std::move(socket)),
        m_output(maxQueuedBytes),
        m_onGone(std::move(onGone)) {}
  Console(const Console &) = delete;
  Console &operator=(const Console &) = delete;

  // Open greets.  Returns false when the loop refuses.  Throws std::bad_alloc.
  bool Open(uv_loop_t *loop);

 private:
  static void OnReady(uv_poll_t *handle, int status, int events);
  static void OnIdle(uv_idle_t *handle);
  static uint32_t OnOutput(void *self, uint32_t error, const char *text, size_t len);

  template <typename Task>
  void Do(Task task);
  void Read();
  void Write();
  void Work();
  bool HasWork() const;
  bool IsOver() const;
  void Rearm();

  void Answer(const ConsoleRequest &request);
  void Refuse(const std::string &reason);
  void StartRun(const std::string &line);
  void RunPage();
  void EndRun(uint32_t result);
  void ListObjects();
  void ListCommands();

  DispService &m_disp;
  OwnedFd m_socket;
  ConsoleInput m_input;
  ConsoleOutput m_output;
  OnGone m_onGone;
  UvPtr<uv_poll_t> m_poll;
  UvPtr<uv_idle_t> m_idle;  // active while there is work: the loop then does not wait

  std::string m_object;          // for runs; empty: any
  std::optional<DispRun> m_run;  // a command with pages to come
  bool m_isAtEnd = false;        // the console sends no more
  bool m_isBroken = false;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_CONSOLE_H */
