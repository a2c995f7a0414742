#include "demo_table.h"

#include <jansson.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct JsonDeleter {
  void operator()(json_t *value) const { json_decref(value); }
};
using Json = std::unique_ptr<json_t, JsonDeleter>;

size_t NumColumns(const RowValue &value) {
  size_t num = value.size();
  while (num > 0 && value[num - 1] == 0) --num;
  return num;
}

uint8_t *WriteNumber(uint64_t number, uint8_t *out) {
  for (; number >= 0x80; number >>= 7) *out++ = static_cast<uint8_t>(number | 0x80);
  *out++ = static_cast<uint8_t>(number);
  return out;
}

bool ReadNumber(std::string_view &bytes, uint64_t &number) {
  number = 0;
  for (uint32_t shift = 0; shift < 64 && !bytes.empty(); shift += 7) {
    const auto byte = static_cast<uint8_t>(bytes.front());
    bytes.remove_prefix(1);
    number |= uint64_t{byte & 0x7Fu} << shift;
    if (byte < 0x80) return true;
  }
  return false;
}

// Fixed reads a little-endian number of `size` bytes off the front; the caller checked the size.
size_t Fixed(std::string_view &bytes, size_t size) {
  size_t number = 0;
  for (size_t i = size; i-- > 0;) number = number << 8 | static_cast<uint8_t>(bytes[i]);
  bytes.remove_prefix(size);
  return number;
}

// With the first row of another full set, what has not come since is no longer there.
void Apply(const Row &row, CopiedTable &copy) {
  if (row.set != copy.set) {
    copy.rows.clear();
    copy.set = row.set;
    ++copy.numFullSets;
  }
  if (row.isThere) {
    copy.rows[row.key] = row.value;
  } else {
    copy.rows.erase(row.key);
  }
}

}  // namespace

RowKey MakeRowKey(std::string_view text) {
  RowKey key = {};
  std::copy_n(text.data(), std::min(text.size(), key.size() - 1), key.data());
  return key;
}

std::string DigestOf(const Table &table) {
  uint64_t hash = 0xCBF29CE484222325u;
  const auto add = [&](const void *bytes, size_t len) {
    for (size_t i = 0; i < len; ++i) {
      hash = (hash ^ static_cast<const uint8_t *>(bytes)[i]) * 0x100000001B3u;
    }
  };
  for (const auto &[key, value] : table) {
    add(key.data(), key.size());
    add(value.data(), sizeof(value));
  }
  char text[64];
  std::snprintf(text, sizeof(text), "%zu rows %016" PRIx64, table.size(), hash);
  return text;
}

void Row::WriteJson(void *out) const {
  auto *element = static_cast<json_t *>(out);
  json_object_set_new(element, "s", json_integer(set));
  json_object_set_new(element, "k", json_string(key.data()));
  if (!isThere) return;
  json_t *columns = json_array();
  for (size_t i = 0; i < NumColumns(value); ++i) {
    json_array_append_new(columns, json_integer(static_cast<json_int_t>(value[i])));
  }
  json_object_set_new(element, "v", columns);
}

bool Row::ReadJson(const void *in) {
  const auto *element = static_cast<const json_t *>(in);
  const char *text = json_string_value(json_object_get(element, "k"));
  if (!text) return false;
  key = MakeRowKey(text);
  const json_t *columns = json_object_get(element, "v");
  isThere = json_is_array(columns);
  set = static_cast<uint32_t>(json_integer_value(json_object_get(element, "s")));
  for (size_t i = 0; i < std::min(json_array_size(columns), value.size()); ++i) {
    value[i] = static_cast<uint64_t>(json_integer_value(json_array_get(columns, i)));
  }
  return true;
}

uint32_t Row::WriteIdl(uint8_t *out) const {
  uint8_t *end = out;
  *end++ = isThere ? 1 : 0;
  end = std::copy_n(key.data(), std::strlen(key.data()) + 1, WriteNumber(set, end));
  for (size_t i = 0; isThere && i < NumColumns(value); ++i) end = WriteNumber(value[i], end);
  return static_cast<uint32_t>(end - out);
}

bool Row::ReadIdl(std::string_view bytes) {
  uint64_t there = 0;
  uint64_t number = 0;
  if (!ReadNumber(bytes, there) || !ReadNumber(bytes, number)) return false;
  isThere = there == 1;
  set = static_cast<uint32_t>(number);
  const size_t end = bytes.find('\0');
  if (end == std::string_view::npos) return false;
  key = MakeRowKey(bytes.substr(0, end));
  bytes.remove_prefix(end + 1);
  for (size_t i = 0; i < value.size() && !bytes.empty(); ++i) {
    if (!ReadNumber(bytes, value[i])) return false;
  }
  return bytes.empty();
}

int ApplyJson(std::string_view document, CopiedTable &copy) {
  const Json root(json_loadb(document.data(), document.size(), 0, nullptr));
  const json_t *data = json_object_get(root.get(), "data");
  if (!json_is_array(data)) return -1;
  for (size_t i = 0; i < json_array_size(data); ++i) {
    Row row;
    if (!row.ReadJson(json_array_get(data, i))) return -1;
    Apply(row, copy);
  }
  return static_cast<int>(json_array_size(data));
}

int ApplyIdl(std::string_view document, CopiedTable &copy) {
  if (document.size() < 4) return -1;
  const size_t num = Fixed(document, 4);
  for (size_t i = 0; i < num; ++i) {
    if (document.size() < 2) return -1;
    const size_t len = Fixed(document, 2);
    Row row;
    if (document.size() < len || !row.ReadIdl(document.substr(0, len))) return -1;
    document.remove_prefix(len);
    Apply(row, copy);
  }
  return document.empty() ? static_cast<int>(num) : -1;
}
