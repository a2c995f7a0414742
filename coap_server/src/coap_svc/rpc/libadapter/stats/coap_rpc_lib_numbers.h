/* coap_rpc_lib_numbers.h: the fields of CoapRpcStats as operators see them.
 *
 * A field has a name, and an element of an array the array's name and what it is of.  All fields
 * are listed but CoapRpcTimes, which have tables of their own, and elements that stay 0. */
#ifndef COAP_RPC_LIB_NUMBERS_H
#define COAP_RPC_LIB_NUMBERS_H

#include <cstdint>
#include <cstring>
#include <span>

#include "coap_svc/rpc/coap_rpc_stats.h"

namespace coap_rpc {

inline constexpr char kCounter[] = "counter";  // only grows
inline constexpr char kGauge[] = "gauge";
inline constexpr char kNoUnit[] = "-";

struct Number {
  const char *name;
  const char *of;    // "-" for a field that is no array
  const char *kind;  // kCounter or kGauge
  const char *unit;  // "bytes", "ns", "ms", or "-" for a plain number
  size_t at;         // in CoapRpcStats
};

// ServerNumbers has what concerns the server or both sides, ClientNumbers the client alone.
std::span<const Number> ServerNumbers();
std::span<const Number> ClientNumbers();

inline uint64_t ValueOf(const CoapRpcStats &stats, const Number &number) {
  uint64_t value = 0;
  memcpy(&value, reinterpret_cast<const uint8_t *>(&stats) + number.at, sizeof(value));
  return value;
}

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_NUMBERS_H */
