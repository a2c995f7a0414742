/* fuzz_json.h: JSON values made from an input. */
#ifndef FUZZ_JSON_H
#define FUZZ_JSON_H

#include <jansson.h>

#include <string>
#include <vector>

#include "fuzz_support.h"

namespace fuzz {

inline json_t *NestedArrays(size_t depth) {
  json_t *value = json_array();
  for (size_t i = 0; i < depth; ++i) {
    json_t *outer = json_array();
    json_array_append_new(outer, value);
    value = outer;
  }
  return value;
}

// JsonValue makes a value of any kind, also one that cannot be printed (a text that is no UTF-8,
// arrays that are too deep), and none.
inline json_t *JsonValue(Input &input) {
  const uint8_t kind = input.Byte();
  const std::vector<uint8_t> bytes = input.Bytes(kind % 16);
  const std::string text(bytes.begin(), bytes.end());
  switch (kind / 16) {
    case 0:
      return json_stringn_nocheck(text.data(), text.size());
    case 1:
      return NestedArrays(size_t{1} << (kind % 13));
    case 2:
      return json_string(std::string(size_t{1} << (kind % 16), 'j').c_str());
    case 3:
      return nullptr;
    default:
      return json_integer(kind);
  }
}

}  // namespace fuzz

#endif /* FUZZ_JSON_H */
