/* state.h: what the programs of the state benchmark agree on: rows of 32 bytes, and how a round of
 * changes is asked for and recognised.
 *
 * A reader asks for a round with a GET of kGoUri that has a payload.  The server then changes its first rows; the
 * value of each begins with the time of the round. */
#ifndef BENCH_WIRE_STATE_H
#define BENCH_WIRE_STATE_H

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace coap_rpc_bench {

inline constexpr char kStateUri[] = "state";
inline constexpr char kGoUri[] = "go";
inline constexpr uint16_t kStatePort = 5683;
inline constexpr uint32_t kRowField = 16;  // bytes of a key, and of a value

struct RowField {
  char bytes[kRowField];
};

inline RowField KeyOfRow(uint32_t index) {
  RowField key = {};
  snprintf(key.bytes, sizeof(key.bytes), "row%010u", index);
  return key;
}

inline RowField ValueOfRow(uint64_t roundNs, uint32_t index) {
  RowField val = {};
  memcpy(val.bytes, &roundNs, sizeof(roundNs));
  memcpy(val.bytes + sizeof(roundNs), &index, sizeof(index));
  return val;
}

inline uint64_t RoundOf(const void *value) {
  uint64_t roundNs = 0;
  memcpy(&roundNs, value, sizeof(roundNs));
  return roundNs;
}

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_STATE_H */
