/* host_support.h: what the tests of the reference host share. */
#ifndef HOST_SUPPORT_H
#define HOST_SUPPORT_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kestrel.h"

namespace host_test {

struct HostDeleter {
  void operator()(Kestrel *host) const { KestrelDelete(host); }
};
using HostPtr = std::unique_ptr<Kestrel, HostDeleter>;

// LogLine is a copy of one printed record.
struct LogLine {
  uint32_t channel;
  uint32_t level;
  std::string module;
  uint32_t line;
  std::string func;
  std::string text;
};

// LogLines records what a host prints.  It outlives the host.
class LogLines {
 public:
  // Param describes a host that prints everything, and only here.
  KestrelParam Param();

  static void OnRecord(void *self, const KestrelLogRecord *record);

  const std::vector<LogLine> &All() const { return lines_; }
  std::vector<std::string> Texts() const;

 private:
  std::vector<LogLine> lines_;
};

// TurnUntil runs the host's loop, waiting in between, until `isDone`; it gives up
// after minutes.
// Returns the last result of `isDone`.
bool TurnUntil(Kestrel *host, const std::function<bool()> &isDone);

// LogOnce takes one record through the steps of the log; returns whether it was printed.
bool LogOnce(uint64_t log, uint32_t line, uint32_t level, const char *text);

}  // namespace host_test

#endif /* HOST_SUPPORT_H */
