#include "net_mirror.h"

#include <jansson.h>

#include <memory>

namespace {

struct JsonDeleter {
  void operator()(json_t *value) const { json_decref(value); }
};
using Json = std::unique_ptr<json_t, JsonDeleter>;

// Number takes a number off the front of a document; false when it is shorter.
bool Number(std::string_view &bytes, size_t size, size_t &number) {
  if (bytes.size() < size) return false;
  number = TakeNumber(bytes, size);
  return true;
}

bool ReadIdl(std::string_view &document, std::vector<NetElement> &elements) {
  size_t len = 0;
  if (!Number(document, 2, len) || document.size() < len) return false;
  if (!elements.emplace_back().ReadIdl(document.substr(0, len))) return false;
  document.remove_prefix(len);
  return true;
}

}  // namespace

bool NetMirror::ApplyJson(std::string_view document) {
  const Json root(json_loadb(document.data(), document.size(), 0, nullptr));
  const json_t *data = json_object_get(root.get(), "data");
  if (!json_is_array(data)) return false;
  std::vector<NetElement> elements(json_array_size(data));
  for (size_t i = 0; i < elements.size(); ++i) {
    if (!elements[i].ReadJson(json_array_get(data, i))) return false;
  }
  Apply(elements);
  return true;
}

bool NetMirror::ApplyIdl(std::string_view document) {
  std::vector<NetElement> elements;
  size_t num = 0;
  if (!Number(document, 4, num)) return false;
  for (; num > 0; --num) {
    if (!ReadIdl(document, elements)) return false;
  }
  if (!document.empty()) return false;
  Apply(elements);
  return true;
}

bool NetMirror::IsWhole() const {
  const auto sum = table_.find(kNetSum);
  return sum != table_.end() && sum->second.rxBytes == NetSum(table_);
}

// With the first element of another full set, what has not come since is no longer there.
void NetMirror::Apply(const std::vector<NetElement> &elements) {
  for (const NetElement &element : elements) {
    if (element.set != set_) {
      table_.clear();
      set_ = element.set;
      ++numFullSets_;
    }
    if (element.isThere) {
      table_[element.name] = element.counters;
    } else {
      table_.erase(element.name);
    }
  }
}
