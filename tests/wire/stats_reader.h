/* stats_reader.h: an instance's numbers, whole, by name, by URI and as rows of display commands. */
#ifndef STATS_READER_H
#define STATS_READER_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_stats.h"
#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_numbers.h"
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

// Numbers are values by name: "bad", or "nacks.reset" for an element of an array.
using Numbers = std::map<std::string, uint64_t>;

inline std::string FullName(const std::string &name, const std::string &of) {
  return of == "-" ? name : name + "." + of;
}

inline Numbers ByName(const CoapRpcStats &stats) {
  Numbers numbers;
  for (const auto &list : {coap_rpc::ServerNumbers(), coap_rpc::ClientNumbers()}) {
    for (const coap_rpc::Number &number : list) {
      const auto added = numbers.emplace(FullName(number.name, number.of), ValueOf(stats, number));
      EXPECT_TRUE(added.second) << number.name << " twice";
    }
  }
  for (uint32_t i = 0; i < COAP_RPC_NUM_TIMES; ++i) {
    numbers["callbacks.times." + std::to_string(i)] = stats.callbackTimes.num[i];
    numbers["calls.times." + std::to_string(i)] = stats.callTimes.num[i];
  }
  return numbers;
}

// Changes are the numbers that differ, with how much they have grown; those that shrank as well, so
// that none is hidden.
using Changes = std::map<std::string, int64_t>;

inline Changes ChangesFrom(const CoapRpcStats &before, const CoapRpcStats &after) {
  Changes changes;
  const Numbers old = ByName(before);
  for (const auto &[name, value] : ByName(after)) {
    if (value != old.at(name)) changes[name] = static_cast<int64_t>(value - old.at(name));
  }
  return changes;
}

// NumbersOf reads the rows of "disp server stats" and "disp client stats".
inline Numbers NumbersOf(const std::vector<std::string> &pages) {
  const auto field = [](const std::string &page, const std::string &name, size_t at) {
    const size_t begin = page.find(name + "(", at) + name.size() + 1;
    return page.substr(begin, page.find(')', begin) - begin);
  };
  Numbers numbers;
  for (const std::string &page : pages) {
    for (size_t at = page.find("name("); at != std::string::npos; at = page.find("name(", at + 1)) {
      const std::string name = FullName(field(page, "name", at), field(page, "of", at));
      numbers[name] = std::stoull(field(page, "value", at));
    }
  }
  return numbers;
}

}  // namespace coap_rpc_test

#endif /* STATS_READER_H */
