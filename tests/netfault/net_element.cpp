#include "net_element.h"

#include <jansson.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr struct {
  const char *name;
  uint64_t NetCounters::*counter;
} kColumns[] = {{"rxBytes", &NetCounters::rxBytes},
                {"rxPackets", &NetCounters::rxPackets},
                {"txBytes", &NetCounters::txBytes},
                {"txPackets", &NetCounters::txPackets}};

void SetNumber(json_t *object, const char *name, uint64_t number) {
  json_object_set_new(object, name, json_integer(static_cast<json_int_t>(number)));
}

// NumberOf reads a number of an object; false when it has none of that name.
bool NumberOf(const json_t *object, const char *name, uint64_t &number) {
  const json_t *value = json_object_get(object, name);
  number = static_cast<uint64_t>(json_integer_value(value));
  return json_is_integer(value);
}

uint8_t *PutNumber(uint64_t number, size_t size, uint8_t *out) {
  for (; size > 0; --size, number >>= 8) *out++ = static_cast<uint8_t>(number);
  return out;
}

}  // namespace

uint64_t TakeNumber(std::string_view &bytes, size_t size) {
  uint64_t number = 0;
  for (size_t i = size; i-- > 0;) number = number << 8 | static_cast<uint8_t>(bytes[i]);
  bytes.remove_prefix(size);
  return number;
}

void NetElement::WriteJson(void *out) const {
  auto *object = static_cast<json_t *>(out);
  SetNumber(object, "set", set);
  json_object_set_new(object, "name", json_string(name.data()));
  if (!isThere) {
    json_object_set_new(object, "gone", json_true());
    return;
  }
  for (const auto &column : kColumns) SetNumber(object, column.name, counters.*column.counter);
}

bool NetElement::ReadJson(const void *in) {
  const auto *object = static_cast<const json_t *>(in);
  const char *text = json_string_value(json_object_get(object, "name"));
  uint64_t number = 0;
  if (!text || std::strlen(text) >= name.size() || !NumberOf(object, "set", number)) return false;
  set = static_cast<uint32_t>(number);
  name = {};
  std::copy_n(text, std::strlen(text), name.data());
  isThere = !json_object_get(object, "gone");
  return !isThere || std::all_of(std::begin(kColumns), std::end(kColumns), [&](const auto &column) {
    return NumberOf(object, column.name, counters.*column.counter);
  });
}

size_t NetElement::WriteIdl(uint8_t *out) const {
  out[0] = isThere ? 1 : 0;
  uint8_t *end = std::copy(name.begin(), name.end(), PutNumber(set, sizeof(set), out + 1));
  for (const auto &column : kColumns) {
    if (isThere) end = PutNumber(counters.*column.counter, sizeof(uint64_t), end);
  }
  return static_cast<size_t>(end - out);
}

bool NetElement::ReadIdl(std::string_view message) {
  isThere = !message.empty() && message[0] == 1;
  if (message.size() != (isThere ? kUpdateSize : kGoneSize)) return false;
  message.remove_prefix(1);
  set = static_cast<uint32_t>(TakeNumber(message, sizeof(set)));
  std::copy_n(message.data(), name.size() - 1, name.data());
  message.remove_prefix(name.size());
  for (const auto &column : kColumns) {
    if (isThere) counters.*column.counter = TakeNumber(message, sizeof(uint64_t));
  }
  return true;
}

uint64_t NetSumOf(const NetName &name, const NetCounters &counters) {
  uint64_t hash = 0xCBF29CE484222325u;
  const auto add = [&](uint64_t number) { hash = (hash ^ number) * 0x100000001B3u; };
  for (const char c : name) add(static_cast<uint8_t>(c));
  for (const auto &column : kColumns) {
    add(counters.*column.counter);
    add(hash >> 32);
  }
  return hash & INT64_MAX;  // what JSON has room for
}

uint64_t NetSum(const NetTable &table) {
  uint64_t sum = 0;
  for (const auto &[name, counters] : table) {
    if (name != kNetSum) sum ^= NetSumOf(name, counters);
  }
  return sum;
}
