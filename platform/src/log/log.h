/* log.h: the log of a host: levels, rate limit, counters, and the records themselves. */
#ifndef KESTREL_SRC_LOG_LOG_H
#define KESTREL_SRC_LOG_LOG_H

#include <cstdarg>
#include <functional>
#include <string>

#include "kst_log.h"
#include "log/log_sinks.h"
#include "log/log_sites.h"

namespace kestrel {

// Log begins with the object that the library reads the counter handle from.
class Log : public KST_LogObj {
 public:
  using Clock = uint64_t (*)();  // milliseconds, never going back

  // `param` has its defaults filled in.  Throws as LogSinks does.
  Log(const KestrelParam &param, Clock clock);
  Log(const Log &) = delete;
  Log &operator=(const Log &) = delete;

  // OnFirstDrop names what is called when a record is dropped and none was waiting to be told of.
  void OnFirstDrop(std::function<void()> onFirstDrop) { onFirstDrop_ = std::move(onFirstDrop); }

  // Count counts an occurrence at a site.
  void Count(const char *module, uint32_t line);

  // Admits decides whether a record is printed now.
  bool Admits(const char *module, uint32_t line, uint32_t level);

  // Print prints a record that was admitted.
  void Print(const char *module, uint32_t line, uint32_t level, const char *func, const char *fmt,
             va_list args) __attribute__((format(printf, 6, 0)));

  // Note prints a record of the host itself, without rate limit.
  void Note(uint32_t level, const char *module, const std::string &text);

  // NoteAt is Note for a site, rate-limited.
  void NoteAt(const char *module, uint32_t line, uint32_t level, const std::string &text);

  // TakesDebug decides whether a text of the debug channel is printed now; Debug prints one that
  // is.
  bool TakesDebug(uint32_t level);
  void Debug(uint32_t level, const char *text);

  // Syslog prints a text of the system log, without rate limit.
  void Syslog(uint32_t level, const char *text);

  // TellDropped prints how many records were dropped, for each site whose window is over, or for
  // every site when `all`.  Returns whether any site still waits.
  bool TellDropped(bool all);

  KestrelLogStat Stat() const;
  KestrelLogSite SiteAccount(const char *module, uint32_t line) const;
  uint32_t WindowMs() const { return sites_.WindowMs(); }

 private:
  bool Passes(uint32_t level) const { return level + 1 >= lowestLevel_; }
  void RenewWindow(LogSite &site);
  void Drop(LogSite &site, uint32_t level);
  void TellDroppedAt(LogSite &site);
  KestrelLogRecord Booked(KestrelLogRecord record);

  Clock clock_;
  uint32_t lowestLevel_;  // KESTREL_LEVEL_*, which are the record levels and 1
  LogSinks sinks_;
  LogSites sites_;
  LogSite debug_;  // rate limit of the debug channel
  KestrelLogStat stat_{};
  bool isDropPending_ = false;
  std::function<void()> onFirstDrop_;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_LOG_LOG_H */
