#include "net_mirror.h"

#include <jansson.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "net_idl.h"

namespace {

struct JsonDeleter {
  void operator()(json_t *value) const { json_decref(value); }
};
using Json = std::unique_ptr<json_t, JsonDeleter>;

uint64_t NumberOf(const json_t *element, const char *name) {
  return static_cast<uint64_t>(json_integer_value(json_object_get(element, name)));
}

// NumberAt reads a little-endian number; the caller has checked the size.
size_t NumberAt(std::string_view bytes, size_t size) {
  size_t number = 0;
  for (size_t i = size; i-- > 0;) number = number << 8 | static_cast<uint8_t>(bytes[i]);
  return number;
}

}  // namespace

// The first element of a full set: what is not repeated behind it is no longer there.
void NetMirror::Put(const NetName &name, const NetCounters &counters, bool isFirst) {
  if (isFirst) {
    table_.clear();
    ++numFullSets_;
  }
  table_[name] = counters;
}

bool NetMirror::ApplyJson(std::string_view document) {
  const Json root(json_loadb(document.data(), document.size(), 0, nullptr));
  const json_t *data = json_object_get(root.get(), "data");
  if (!json_is_array(data)) return false;
  for (size_t i = 0; i < json_array_size(data); ++i) {
    const json_t *element = json_array_get(data, i);
    const char *text = json_string_value(json_object_get(element, "name"));
    if (!text) return false;
    NetName name = {};
    std::memcpy(name.data(), text, std::min(std::strlen(text), name.size() - 1));
    if (json_is_true(json_object_get(element, "gone"))) {
      Remove(name);
    } else {
      Put(name,
          {NumberOf(element, "rxBytes"), NumberOf(element, "rxPackets"),
           NumberOf(element, "txBytes"), NumberOf(element, "txPackets")},
          json_is_true(json_object_get(element, "first")));
    }
  }
  return true;
}

bool NetMirror::ApplyIdl(std::string_view document) {
  if (document.size() < 4) return false;
  size_t numLeft = NumberAt(document, 4);
  for (document.remove_prefix(4); numLeft > 0; --numLeft) {
    if (document.size() < 2) return false;
    const size_t len = NumberAt(document, 2);
    if (document.size() - 2 < len) return false;
    const std::optional<NetIdl> msg = NetIdl::Read(document.substr(2, len));
    if (!msg) return false;
    document.remove_prefix(2 + len);
    if (msg->kind & NetIdl::kIsThere) {
      Put(msg->name, msg->counters, msg->kind & NetIdl::kIsFirst);
    } else {
      Remove(msg->name);
    }
  }
  return true;
}
