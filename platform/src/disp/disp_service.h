/* disp_service.h: the display service: runs command lines against the registered commands.
 *
 * The service knows nothing of how a line arrives.  Whoever takes lines from a terminal or a socket
 * calls Run with a sink, or Start and then Step for each page, with other work in between. */
#ifndef KESTREL_SRC_DISP_DISP_SERVICE_H
#define KESTREL_SRC_DISP_DISP_SERVICE_H

#include <string>
#include <string_view>
#include <vector>

#include "disp/disp_call.h"
#include "disp/disp_registry.h"
#include "kestrel.h"

namespace kestrel {

// DispRun is one command on its way through its pages.
class DispRun {
 public:
  // Both go where KestrelDispRequest says.
  DispRun(KestrelDispSink sink, void *sinkParam) : sink_(sink), sinkParam_(sinkParam) {}

 private:
  friend class DispService;

  // Context is the position of a paged command.
  struct Context {
    bool isSet = false;
    std::vector<char> key;
    std::vector<char> counter;
  };

  void Send(uint32_t error, std::string_view text);
  uint32_t Fail(KestrelResult result, const std::string &reason);

  KestrelDispSink sink_;
  void *sinkParam_;
  bool isStopped_ = false;  // the sink wants no more

  // The command with all that a call of its handler needs, copied: the handler may unregister it.
  std::string objectName_;
  uint64_t objectSerial_ = 0;
  void *record_ = nullptr;
  KST_DISP_FUNC handler_ = nullptr;
  DispArgs args_;

  Context last_;
  Context next_;
};

class DispService {
 public:
  // What Step returns when another page follows.
  static constexpr uint32_t kMorePages = KESTREL_MORE_PAGES;

  DispRegistry &Registry() { return registry_; }

  // Run runs one request; results as KestrelDispRun.  Throws std::bad_alloc.
  uint32_t Run(const KestrelDispRequest &request);

  // Start finds the command of a line and reads its parameters; `object` may be null.  Results as
  // KestrelDispRun, none of the pages.  Throws std::bad_alloc.
  uint32_t Start(DispRun &run, const char *line, const char *object);

  // Step runs one page of a run that was started.  The object may have been removed since the last
  // page. Returns kMorePages, KESTREL_OK after the last page, KESTREL_STOPPED, KESTREL_BUSY inside
  // a handler, or KESTREL_UNKNOWN_OBJECT.  Throws std::bad_alloc.
  uint32_t Step(DispRun &run);

  // What a running handler calls; outside a command they do nothing.
  void Print(std::string_view text);
  void SaveContext(const void *key, uint32_t keyLen, const void *counter, uint32_t counterLen);
  const void *LastContext(void *counter) const;
  bool IsRunning() const { return run_ != nullptr; }

 private:
  uint32_t Prepare(DispRun &run, std::string_view line, const char *object) const;
  uint32_t Choose(DispRun &run, const std::vector<std::string> &words, std::string_view line,
                  const char *object, DispMatch &match) const;
  bool StillRegistered(const DispRun &run) const;

  static uint32_t ReadArgs(DispRun &run, const std::vector<std::string> &words,
                           const DispMatch &match);

  DispRegistry registry_;
  DispRun *run_ = nullptr;  // null outside a command
};

}  // namespace kestrel

#endif /* KESTREL_SRC_DISP_DISP_SERVICE_H */
