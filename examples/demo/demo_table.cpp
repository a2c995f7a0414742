#include "demo_table.h"

#include <cinttypes>
#include <cstdio>

std::string DigestOf(const Rows &table) {
  uint64_t hash = 0xCBF29CE484222325u;
  const auto add = [&](uint64_t number) { hash = (hash ^ number) * 0x100000001B3u; };
  for (const auto &[key, value] : table) {
    for (const char c : key.bytes) add(static_cast<uint8_t>(c));
    for (const uint64_t column : value) {
      add(column);
      add(hash >> 32);
    }
  }
  char text[64];
  std::snprintf(text, sizeof(text), "%zu rows %016" PRIx64, table.size(), hash);
  return text;
}
