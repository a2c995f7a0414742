// net_mirror.h: a copy of another machine's interface table, built from notifications.
#ifndef NET_MIRROR_H
#define NET_MIRROR_H

#include <string_view>

#include "net_dev.h"

// NetMirror takes notifications in either format.  Apply* return false for a document that is not
// understood; what was read of it by then stays.
class NetMirror {
 public:
  bool ApplyJson(std::string_view document);
  bool ApplyIdl(std::string_view document);
  void Clear() { table_.clear(); }

  const NetTable &Table() const { return table_; }
  uint32_t NumFullSets() const { return numFullSets_; }

 private:
  void Put(const NetName &name, const NetCounters &counters, bool isFirst);
  void Remove(const NetName &name) { table_.erase(name); }

  NetTable table_;
  uint32_t numFullSets_ = 0;
};

#endif  // NET_MIRROR_H
