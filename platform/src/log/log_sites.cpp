/* log_sites.cpp: counts and rate limit of log sites. */
#include "log/log_sites.h"

#include <algorithm>
#include <limits>

namespace kestrel {

namespace {

constexpr std::string_view kOtherModule = "other";

}  // namespace

bool LogSite::HasRoom() const {
  return burst == std::numeric_limits<uint32_t>::max() || admitted < burst;
}

void LogSite::Admit() {
  ++admitted;
  ++account.printed;
}

void LogSite::Drop(uint32_t level) {
  ++dropped;
  ++account.suppressed;
  dropLevel = std::max(dropLevel, level);
}

LogSite &LogSites::Get(std::string_view module, uint32_t line) {
  const auto found = sites_.find(KeyView{module, line});
  if (found != sites_.end()) return found->second;

  const bool isOther = sites_.size() >= kMaxSites;
  Key key{std::string(isOther ? kOtherModule : module), isOther ? 0 : line};
  LogSite site;
  site.module = key.module;
  site.line = key.line;
  site.burst = burst_;
  return sites_.emplace(std::move(key), std::move(site)).first->second;
}

const LogSite *LogSites::Find(std::string_view module, uint32_t line) const {
  const auto found = sites_.find(KeyView{module, line});
  return found != sites_.end() ? &found->second : nullptr;
}

void LogSites::OpenWindow(LogSite &site, uint64_t nowMs) {
  site.windowStartMs = nowMs;
  site.admitted = 0;
  site.dropped = 0;
  site.dropLevel = 0;
}

}  // namespace kestrel
