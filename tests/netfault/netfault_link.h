/* netfault_link.h: the link between publisher and mirror, as bad as a scenario wants it. */
#ifndef NETFAULT_LINK_H
#define NETFAULT_LINK_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <utility>

#include "netfault_packet.h"

namespace netfault {

enum Side : uint32_t { kPublisher = 0, kMirror = 1 };
inline constexpr uint32_t kNumSides = 2;

constexpr Side Other(Side side) { return side == kPublisher ? kMirror : kPublisher; }

// Chance is how many packets of a hundred something happens to, and with what delay.
struct Chance {
  double percent = 0;
  uint32_t ms = 0;
};

// Quality says what becomes of the packets of one direction.  Chances are independent.
struct Quality {
  bool isUp = true;
  uint32_t delayMs = 5;
  uint32_t jitterMs = 0;
  Chance loss;
  Chance copy;           // a second one with the same bytes, `ms` after the first
  Chance renumbered;     // a second one with another message id, `ms` after the first
  Chance late;           // `ms` later, so that others overtake it
  Chance flip;           // a bit that the checksum finds
  Chance forge;          // a bit with a correct checksum
  Chance fragmentLoss;   // of the fragments of a datagram only
  uint32_t maxSize = 0;  // larger packets are lost; 0: none
  uint32_t loseNext = 0;
};

struct LinkCounts {
  uint64_t taken = 0, delivered = 0, lost = 0, copied = 0, delayed = 0, damaged = 0;
};

class Link {
 public:
  explicit Link(uint32_t seed) : random_(seed) {}

  // Of the packets that go to `to`.
  Quality &To(Side to) { return quality_[to]; }
  const LinkCounts &Counts(Side to) const { return counts_[to]; }

  // Take takes what the other side of `to` has sent.
  void Take(Side to, Bytes packet, uint64_t nowMs);

  // Next gives a packet that is due, in order; NextDueMs says when, UINT64_MAX: never.
  std::optional<std::pair<Side, Bytes>> Next(uint64_t nowMs);
  uint64_t NextDueMs() const;

 private:
  bool Happens(const Chance &chance);
  bool IsLost(Quality &quality, const Bytes &packet);
  void Damage(Side to, Bytes &packet);
  void Send(Side to, Bytes packet, uint64_t nowMs);

  std::array<Quality, kNumSides> quality_;
  std::array<LinkCounts, kNumSides> counts_;
  std::mt19937 random_;
  std::multimap<uint64_t, std::pair<Side, Bytes>> onTheWay_;
};

}  // namespace netfault

#endif /* NETFAULT_LINK_H */
