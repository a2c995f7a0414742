/* log.cpp: decides on records, renders and counts them. */
#include "log/log.h"

#include <algorithm>
#include <vector>

#include "host/edge.h"

namespace kestrel {

namespace {

// OneLine drops a closing line feed and writes the other control characters as \xNN, so that a text
// from a peer can neither forge a line nor move a terminal's cursor.
std::string OneLine(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::string line;
  line.reserve(text.size());
  for (const char c : text) {
    if (IsControl(c)) {
      line += Format("\\x%02x", static_cast<unsigned>(c));
    } else {
      line += c;
    }
  }
  return line;
}

const char *TextOr(const char *text, const char *other) { return text ? text : other; }

constexpr char kNoModule[] = "-";
constexpr char kDebugModule[] = "debug";

}  // namespace

Log::Log(const KestrelParam &param, Clock clock)
    : KST_LogObj{{0, 0, 0}, HandleOf(this)},
      clock_(clock),
      lowestLevel_(param.logLevel),
      sinks_(param),
      sites_(param.logWindowMs, param.logBurst) {
  debug_.module = kDebugModule;
  debug_.burst = param.debugBurst;
}

void Log::Count(const char *module, uint32_t line) {
  ++sites_.Get(TextOr(module, kNoModule), line).account.counted;
  ++stat_.counted;
}

bool Log::Admits(const char *module, uint32_t line, uint32_t level) {
  level = std::min<uint32_t>(level, KST_LOG_ERROR);
  if (!Passes(level)) {
    ++stat_.suppressedByLevel;
    return false;
  }
  LogSite &site = sites_.Get(TextOr(module, kNoModule), line);
  RenewWindow(site);
  if (!site.HasRoom()) {
    Drop(site, level);
    return false;
  }
  site.Admit();
  return true;
}

void Log::RenewWindow(LogSite &site) {
  const uint64_t nowMs = clock_();
  if (!sites_.WindowIsOver(site, nowMs)) return;
  TellDroppedAt(site);
  sites_.OpenWindow(site, nowMs);
}

void Log::Drop(LogSite &site, uint32_t level) {
  site.Drop(level);
  ++stat_.suppressedByRate;
  if (!isDropPending_ && onFirstDrop_) onFirstDrop_();
  isDropPending_ = true;
}

void Log::Print(const char *module, uint32_t line, uint32_t level, const char *func,
                const char *fmt, va_list args) {
  const std::string text = OneLine(FormatV(fmt, args));
  sinks_.Write(Booked({KESTREL_CHANNEL_LOG, level, TextOr(module, kNoModule), line,
                       TextOr(func, ""), text.c_str()}));
}

void Log::Note(uint32_t level, const char *module, const std::string &text) {
  if (!Passes(level)) return;
  sinks_.Write(Booked({KESTREL_CHANNEL_HOST, level, module, 0, "", OneLine(text).c_str()}));
}

void Log::NoteAt(const char *module, uint32_t line, uint32_t level, const std::string &text) {
  if (!Admits(module, line, level)) return;
  sinks_.Write(Booked({KESTREL_CHANNEL_HOST, level, module, line, "", OneLine(text).c_str()}));
}

bool Log::TakesDebug(uint32_t level) {
  level = std::min<uint32_t>(level, KST_LOG_ERROR);
  if (!Passes(level)) return false;
  RenewWindow(debug_);
  if (debug_.HasRoom()) return true;
  Drop(debug_, level);
  return false;
}

void Log::Debug(uint32_t level, const char *text) {
  debug_.Admit();
  sinks_.Write(Booked({KESTREL_CHANNEL_DEBUG, level, kDebugModule, 0, "", OneLine(text).c_str()}));
}

void Log::Syslog(uint32_t level, const char *text) {
  sinks_.WriteToSyslog(
      Booked({KESTREL_CHANNEL_SYSLOG, level, "syslog", 0, "", OneLine(text).c_str()}));
}

KestrelLogRecord Log::Booked(KestrelLogRecord record) {
  record.level = std::min<uint32_t>(record.level, KST_LOG_ERROR);
  ++stat_.printed[record.level];
  return record;
}

// Sites are gathered before anything is printed: a sink that logs may add sites meanwhile.
bool Log::TellDropped(bool all) {
  const uint64_t nowMs = clock_();
  std::vector<LogSite *> ripe;
  isDropPending_ = false;
  const auto gather = [&](LogSite &site) {
    if (site.dropped == 0) return;
    if (all || sites_.WindowIsOver(site, nowMs)) {
      ripe.push_back(&site);
    } else {
      isDropPending_ = true;
    }
  };
  sites_.ForEach(gather);
  gather(debug_);
  for (LogSite *site : ripe) TellDroppedAt(*site);
  return isDropPending_;
}

void Log::TellDroppedAt(LogSite &site) {
  if (site.dropped == 0) return;
  const std::string text =
      Format("%u more records within %u ms were suppressed", site.dropped, sites_.WindowMs());
  site.dropped = 0;
  sinks_.Write(Booked(
      {KESTREL_CHANNEL_HOST, site.dropLevel, site.module.c_str(), site.line, "", text.c_str()}));
}

KestrelLogStat Log::Stat() const {
  KestrelLogStat stat = stat_;
  stat.sinkErrors = sinks_.ErrorCount();
  stat.siteCount = sites_.Count();
  return stat;
}

KestrelLogSite Log::SiteAccount(const char *module, uint32_t line) const {
  const LogSite *site = sites_.Find(module, line);
  return site ? site->account : KestrelLogSite{};
}

}  // namespace kestrel
