/* stats_reader.h: an instance's numbers, whole, by URI and as rows of display commands. */
#ifndef STATS_READER_H
#define STATS_READER_H

#include <map>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_stats.h"
#include "stats_clock.h"
#include "test_instance.h"

namespace coap_rpc_test {

inline CoapRpcStats StatsOf(CoapRpcCtx *ctx) {
  CoapRpcStats stats = {};
  stats.size = sizeof(stats);
  EXPECT_EQ(COAP_RpcGetStats(ctx, &stats), 0u);
  EXPECT_EQ(stats.size, sizeof(stats));
  return stats;
}

struct UriVisit {
  std::vector<std::string> uris;
  std::vector<CoapRpcUriStats> stats;

  static void On(uint64_t userData, const CoapRpcUriKey *key, const CoapRpcUriStats *stats) {
    auto &self = *reinterpret_cast<UriVisit *>(userData);
    self.uris.emplace_back(key->uri);
    self.stats.push_back(*stats);
  }
  uint32_t Run(CoapRpcCtx *ctx, const CoapRpcUriKey *after = nullptr, uint32_t maxNum = 0) {
    uint32_t num = 0;
    EXPECT_EQ(COAP_RpcVisitUriStats(ctx, after, maxNum, On, reinterpret_cast<uint64_t>(this), &num),
              0u);
    return num;
  }
};

// UriStatsOf reads the only URI of an instance.
inline CoapRpcUriStats UriStatsOf(CoapRpcCtx *ctx) {
  UriVisit visit;
  EXPECT_EQ(visit.Run(ctx), 1u);
  return visit.stats.empty() ? CoapRpcUriStats{} : visit.stats[0];
}

// NumbersOf reads the rows of "disp server stats" and "disp client stats".
inline std::map<std::string, uint64_t> NumbersOf(const std::vector<std::string> &pages) {
  std::map<std::string, uint64_t> numbers;
  for (const std::string &page : pages) {
    for (size_t at = page.find("name("); at != std::string::npos; at = page.find("name(", at + 1)) {
      const size_t end = page.find(")/value(", at);
      numbers[page.substr(at + 5, end - at - 5)] = std::stoull(page.substr(end + 8));
    }
  }
  return numbers;
}

}  // namespace coap_rpc_test

#endif /* STATS_READER_H */
