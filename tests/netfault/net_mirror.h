// net_mirror.h: a copy of another machine's interface table, built from notifications.
#ifndef NET_MIRROR_H
#define NET_MIRROR_H

#include <string_view>
#include <vector>

#include "net_element.h"

// NetMirror takes notifications in either format.  Apply* return false for a document that is not
// understood, of which nothing is taken.
class NetMirror {
 public:
  bool ApplyJson(std::string_view document);
  bool ApplyIdl(std::string_view document);

  // IsWhole says whether this was the server's table at the time of its last notification.  Between
  // the notifications of a set that did not fit into one it is not.
  bool IsWhole() const;

  const NetTable &Table() const { return table_; }
  uint32_t NumFullSets() const { return numFullSets_; }

 private:
  void Apply(const std::vector<NetElement> &elements);

  NetTable table_;
  uint32_t set_ = 0;  // of the last element
  uint32_t numFullSets_ = 0;
};

#endif  // NET_MIRROR_H
