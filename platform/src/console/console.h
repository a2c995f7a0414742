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
      : disp_(disp),
        socket_(std::move(socket)),
        output_(maxQueuedBytes),
        onGone_(std::move(onGone)) {}
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
  void ListHelp();

  DispService &disp_;
  OwnedFd socket_;
  ConsoleInput input_;
  ConsoleOutput output_;
  OnGone onGone_;
  UvPtr<uv_poll_t> poll_;
  UvPtr<uv_idle_t> idle_;  // active while there is work: the loop then does not wait

  std::string object_;          // for runs; empty: any
  std::optional<DispRun> run_;  // a command with pages to come
  bool isAtEnd_ = false;        // the console sends no more
  bool isBroken_ = false;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_CONSOLE_H */
