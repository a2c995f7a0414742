/* watch.h: what both sides of the observe benchmarks agree on: the URI, the tuples, and the payload
 * in which they travel. */
#ifndef BENCH_WIRE_WATCH_H
#define BENCH_WIRE_WATCH_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace coap_rpc_bench {

inline constexpr char kWatchUri[] = "tuples";
inline constexpr uint16_t kWatchPort = 5683;
inline constexpr uint32_t kFieldLen = 16;
inline constexpr char kWatchValue[kFieldLen] = "value of a tupl";
inline constexpr char kCheckCodeQuery[] = "_ual-checkcode=";
inline constexpr uint32_t kStaleCode = 1;

struct Field {
  char bytes[kFieldLen];
};

inline Field KeyOfTuple(uint32_t index) {
  Field key = {};
  snprintf(key.bytes, sizeof(key.bytes), "key%08u", index);
  return key;
}

// JsonOf is the payload that numTuples changes make; IdlOf the same in messages of 32 bytes.
inline std::string JsonOf(uint32_t numTuples) {
  std::string text = "{\"data\":[";
  for (uint32_t i = 0; i < numTuples; ++i) {
    text += std::string(i != 0 ? "," : "") + "{\"key\":\"" + KeyOfTuple(i).bytes + "\",\"val\":\"" +
            kWatchValue + "\"}";
  }
  return text + "]}";
}
inline std::string IdlOf(uint32_t numTuples) {
  return std::string(4 + size_t{numTuples} * (2 + 2 * kFieldLen), 'i');
}

// CountTuples says how many are in a payload.
inline uint32_t CountTuples(const uint8_t *payload, size_t len, bool isIdl) {
  uint32_t num = 0;
  if (isIdl) {
    for (size_t i = 0; i < 4 && i < len; ++i) num |= uint32_t{payload[i]} << (8 * i);
    return num;
  }
  for (size_t i = 1; i < len; ++i) num += payload[i] == '{';
  return num;
}

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_WATCH_H */
