/* disp_service.h: the display service: runs command lines against the registered commands.
 *
 * The service knows nothing of how a line arrives: whoever takes lines from a terminal or a socket
 * calls Run with a sink. */
#ifndef KESTREL_SRC_DISP_DISP_SERVICE_H
#define KESTREL_SRC_DISP_DISP_SERVICE_H

#include <string>
#include <string_view>
#include <vector>

#include "disp/disp_call.h"
#include "disp/disp_registry.h"
#include "kestrel.h"

namespace kestrel {

class DispService {
 public:
  DispRegistry &Registry() { return m_registry; }

  // Run runs one request; results as KestrelDispRun.  Throws std::bad_alloc.
  uint32_t Run(const KestrelDispRequest &request);

  // What a running handler calls; outside a command they do nothing.
  void Print(std::string_view text);
  void SaveContext(const void *key, uint32_t keyLen, const void *counter, uint32_t counterLen);
  const void *LastContext(void *counter) const;
  bool IsRunning() const { return m_run != nullptr; }

 private:
  // Context is the position of a paged command.
  struct Context {
    bool isSet = false;
    std::vector<char> key;
    std::vector<char> counter;
  };

  // Invocation is a command with all that a call of its handler needs, copied: the handler may
  // unregister it.
  struct Invocation {
    std::string objectName;
    uint64_t objectSerial = 0;
    void *record = nullptr;
    KST_DISP_FUNC handler = nullptr;
    DispArgs args;
  };

  // RunState is what belongs to the command that runs now.
  struct RunState {
    const KestrelDispRequest &request;
    bool isStopped = false;  // the sink wants no more
    Context last;
    Context next;

    void Send(uint32_t error, std::string_view text);
    uint32_t Fail(KestrelResult result, const std::string &reason);
  };

  uint32_t Prepare(RunState &run, Invocation &invocation) const;
  uint32_t Choose(RunState &run, const std::vector<std::string> &words, DispMatch &match) const;
  uint32_t RunPages(RunState &run, const Invocation &invocation);
  bool StillRegistered(const Invocation &invocation) const;

  static uint32_t ReadArgs(RunState &run, const std::vector<std::string> &words,
                           const DispMatch &match, DispArgs &args);

  DispRegistry m_registry;
  RunState *m_run = nullptr;  // null outside a command
};

}  // namespace kestrel

#endif /* KESTREL_SRC_DISP_DISP_SERVICE_H */
