/* log_sinks.h: where printed records go: standard error, a rotating file, the system log, and a
 * function of the application. */
#ifndef KESTREL_SRC_LOG_LOG_SINKS_H
#define KESTREL_SRC_LOG_LOG_SINKS_H

#include <spdlog/logger.h>

#include <memory>
#include <string>

#include "kestrel.h"

namespace kestrel {

class LogSinks {
 public:
  // Opens the sinks that `param` asks for.  REQUIRES: its members are in range and its defaults
  // filled in.  Throws spdlog::spdlog_ex when a sink cannot be opened, and std::bad_alloc.
  explicit LogSinks(const KestrelParam &param);

  // Write hands a record to every sink.  Throws std::bad_alloc.
  void Write(const KestrelLogRecord &record);

  // WriteToSyslog is Write for a record that is meant for the system log whatever the sinks are.
  void WriteToSyslog(const KestrelLogRecord &record);

  uint64_t ErrorCount() const { return errorCount_; }

 private:
  std::shared_ptr<spdlog::logger> NewLogger(std::initializer_list<spdlog::sink_ptr> sinks);

  std::string name_;
  bool hasSyslog_;
  KestrelLogCallback callback_;
  void *callbackParam_;
  std::shared_ptr<spdlog::logger> logger_;
  std::shared_ptr<spdlog::logger> syslog_;  // made when first needed
  uint64_t errorCount_ = 0;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_LOG_LOG_SINKS_H */
