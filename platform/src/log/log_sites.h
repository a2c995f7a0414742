/* log_sites.h: what the log knows about each site, the pair of module and line: its counts and its
 * rate limit.
 *
 * The rate limit is a window that opens with a site's first record: up to N records are admitted
 * in it, the rest is only counted.  The time, in milliseconds, comes with every call. */
#ifndef KESTREL_SRC_LOG_LOG_SITES_H
#define KESTREL_SRC_LOG_LOG_SITES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "kestrel.h"

namespace kestrel {

struct LogSite {
  // HasRoom says whether one more record of the present window is within the limit.
  bool HasRoom() const;
  void Admit();
  void Drop(uint32_t level);

  std::string module;
  uint32_t line = 0;
  KestrelLogSite account{};
  uint32_t burst = 0;  // records admitted in a window; UINT32_MAX: all
  uint64_t windowStartMs = 0;
  uint32_t admitted = 0;   // in this window
  uint32_t dropped = 0;    // in this window
  uint32_t dropLevel = 0;  // highest level among the dropped
};

class LogSites {
 public:
  static constexpr size_t kMaxSites = 4096;

  LogSites(uint32_t windowMs, uint32_t burst) : windowMs_(windowMs), burst_(burst) {}

  // Get finds or makes a site; once kMaxSites are known, new ones share the site ("other", 0).
  // Throws std::bad_alloc.
  LogSite &Get(std::string_view module, uint32_t line);

  // Find returns null for a site never heard of.
  const LogSite *Find(std::string_view module, uint32_t line) const;

  // WindowIsOver says whether the next record opens a new window.
  bool WindowIsOver(const LogSite &site, uint64_t nowMs) const {
    return nowMs - site.windowStartMs >= windowMs_;
  }

  // OpenWindow restarts the counts.
  void OpenWindow(LogSite &site, uint64_t nowMs);

  size_t Count() const { return sites_.size(); }
  uint32_t WindowMs() const { return windowMs_; }

  template <typename Visit>
  void ForEach(Visit visit) {
    for (auto &entry : sites_) visit(entry.second);
  }

 private:
  struct KeyView {
    std::string_view module;
    uint32_t line;
  };
  struct Key {
    std::string module;
    uint32_t line;
    operator KeyView() const { return {module, line}; }
  };
  struct Hash {
    using is_transparent = void;
    size_t operator()(KeyView key) const {
      return std::hash<std::string_view>()(key.module) * 31 + key.line;
    }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(KeyView a, KeyView b) const { return a.line == b.line && a.module == b.module; }
  };

  uint32_t windowMs_;
  uint32_t burst_;
  std::unordered_map<Key, LogSite, Hash, Equal> sites_;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_LOG_LOG_SITES_H */
