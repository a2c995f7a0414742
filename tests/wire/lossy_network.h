/* lossy_network.h: the network of a test that loses, repeats, delays and so reorders datagrams.
 *
 * A seed decides the fate of each one; they arrive when the test moves the network's time. */
#ifndef LOSSY_NETWORK_H
#define LOSSY_NETWORK_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <utility>

#include "test_network.h"

namespace coap_rpc_test {

class LossyNetwork {
 public:
  struct Faults {
    uint32_t lossPercent = 30;
    uint32_t copyPercent = 10;  // of what is not lost; a copy has a delay of its own
    uint64_t longestMs = 100'000;
  };

  struct Counts {
    uint64_t sent = 0;
    uint64_t lost = 0;
    uint64_t copied = 0;
    uint64_t arrived = 0;
    uint64_t overtaken = 0;  // arrived after one that was sent later

    void Expect(const Faults &faults) const {
      EXPECT_NEAR(Percent(lost, sent), faults.lossPercent, 3);
      EXPECT_NEAR(Percent(copied, sent - lost), faults.copyPercent, 3);
      EXPECT_GT(Percent(overtaken, arrived), 20);
    }
    static double Percent(uint64_t part, uint64_t all) {
      return 100.0 * static_cast<double>(part) / static_cast<double>(all);
    }
  };

  // Datagrams to `server` and all others are two directions, each with its faults.
  LossyNetwork(uint32_t seed, uint32_t server, Faults toServer, Faults toClient)
      : network_(seed), random_(~seed), server_(server), ways_{{toServer, {}}, {toClient, {}}} {
    network_.SetCarrier([this](const TestNetwork::Datagram &datagram) { Carry(datagram); });
  }

  void AdvanceMs(uint64_t ms) {
    nowMs_ += ms;
    while (!onTheWay_.empty() && onTheWay_.begin()->first <= nowMs_) {
      const auto first = onTheWay_.extract(onTheWay_.begin());
      Way &way = WayOf(first.mapped().datagram);
      ++way.counts.arrived;
      way.counts.overtaken += first.mapped().number < way.latest;
      way.latest = std::max(way.latest, first.mapped().number);
      network_.Deliver(first.mapped().datagram);
    }
  }

  bool IsEmpty() const { return onTheWay_.empty(); }
  const Counts &ToServer() const { return ways_[0].counts; }
  const Counts &ToClient() const { return ways_[1].counts; }
  uint64_t NumRefused() const { return network_.NumRefused(); }
  uint64_t Digest() const { return network_.Digest(); }

 private:
  struct Carried {
    uint64_t number;
    TestNetwork::Datagram datagram;
  };
  struct Way {
    Faults faults;
    Counts counts;
    uint64_t latest = 0;
  };

  Way &WayOf(const TestNetwork::Datagram &datagram) {
    return ways_[datagram.to.ip == server_ ? 0 : 1];
  }
  uint64_t Below(uint64_t limit) { return random_() % limit; }

  // Half of all datagrams arrive at once, one in twenty whenever.
  uint64_t DelayMs(const Faults &faults) {
    const uint64_t which = Below(20);
    if (which < 10) return 0;
    if (which < 16) return Below(1000);
    return Below(which < 19 ? 10'000 : faults.longestMs);
  }

  void Carry(const TestNetwork::Datagram &datagram) {
    Way &way = WayOf(datagram);
    const uint64_t number = ++way.counts.sent;
    if (Below(100) < way.faults.lossPercent) {
      ++way.counts.lost;
      return;
    }
    const bool isCopied = Below(100) < way.faults.copyPercent;
    way.counts.copied += isCopied;
    for (int num = isCopied ? 2 : 1; num != 0; --num) {
      onTheWay_.emplace(nowMs_ + DelayMs(way.faults), Carried{number, datagram});
    }
  }

  TestNetwork network_;
  std::mt19937 random_;
  const uint32_t server_;
  Way ways_[2];
  uint64_t nowMs_ = 0;
  std::multimap<uint64_t, Carried> onTheWay_;
};

}  // namespace coap_rpc_test

#endif /* LOSSY_NETWORK_H */
