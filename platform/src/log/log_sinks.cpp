/* log_sinks.cpp: records become lines of spdlog. */
#include "log/log_sinks.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <syslog.h>

#include "host/edge.h"

namespace kestrel {

namespace {

constexpr char kLinePattern[] = "%Y-%m-%d %H:%M:%S.%e [%n] %^%l%$ %v";

spdlog::level::level_enum SpdlogLevel(uint32_t level) {
  switch (level) {
    case KST_LOG_DEBUG:
      return spdlog::level::debug;
    case KST_LOG_INFO:
      return spdlog::level::info;
    case KST_LOG_WARN:
      return spdlog::level::warn;
    default:
      return spdlog::level::err;
  }
}

std::string LineOf(const KestrelLogRecord &record) {
  std::string line = record.module;
  if (record.line != 0) line += Format(":%u", record.line);
  if (*record.func != '\0') line.append(" ").append(record.func);
  return line.append(": ").append(record.text);
}

spdlog::sink_ptr NewFileSink(const KestrelParam &param) {
  return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(param.logFile, param.logFileBytes,
                                                                param.logFileCount);
}

spdlog::sink_ptr NewSyslogSink(const std::string &name) {
  return std::make_shared<spdlog::sinks::syslog_sink_mt>(name, LOG_PID, LOG_USER, false);
}

}  // namespace

LogSinks::LogSinks(const KestrelParam &param)
    : name_(param.name),
      hasSyslog_((param.logSinks & KESTREL_SINK_SYSLOG) != 0),
      callback_((param.logSinks & KESTREL_SINK_CALLBACK) != 0 ? param.logCallback : nullptr),
      callbackParam_(param.logCallbackParam),
      logger_(NewLogger({})) {
  auto &sinks = logger_->sinks();
  if ((param.logSinks & KESTREL_SINK_STDERR) != 0) {
    sinks.push_back(std::make_shared<spdlog::sinks::stderr_color_sink_mt>());
  }
  if ((param.logSinks & KESTREL_SINK_FILE) != 0) sinks.push_back(NewFileSink(param));
  if (hasSyslog_) sinks.push_back(NewSyslogSink(name_));
  logger_->set_pattern(kLinePattern);
}

// The host has decided what is printed, so the logger passes everything, and writes it out at once:
// the records before a crash are the ones that count.
std::shared_ptr<spdlog::logger> LogSinks::NewLogger(std::initializer_list<spdlog::sink_ptr> sinks) {
  auto logger = std::make_shared<spdlog::logger>(name_, sinks);
  logger->set_level(spdlog::level::trace);
  logger->flush_on(spdlog::level::trace);
  logger->set_error_handler([this](const std::string &) { ++errorCount_; });
  return logger;
}

void LogSinks::Write(const KestrelLogRecord &record) {
  if (!logger_->sinks().empty()) {
    logger_->log(SpdlogLevel(record.level), spdlog::string_view_t(LineOf(record)));
  }
  if (callback_) callback_(callbackParam_, &record);
}

void LogSinks::WriteToSyslog(const KestrelLogRecord &record) {
  if (!hasSyslog_) {
    if (!syslog_) syslog_ = NewLogger({NewSyslogSink(name_)});
    syslog_->log(SpdlogLevel(record.level), spdlog::string_view_t(LineOf(record)));
  }
  Write(record);
}

}  // namespace kestrel
