/* link.h: the link between two hosts, as bad as a test wants it.  The test says what time it is. */
#ifndef LINK_H
#define LINK_H

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

namespace coap_rpc_test {

// LinkQuality says what becomes of packets.  Chances are independent of each other.
struct LinkQuality {
  uint32_t lostPercent = 0;
  uint32_t twicePercent = 0;
  uint32_t latePercent = 0;  // come after packets that follow them
  uint32_t delayMs = 0;
  uint32_t jitterMs = 0;  // of the delay
  bool isUp = true;
};

// Link carries packets between two tunnels.
class Link {
 public:
  Link(int first, int second, const LinkQuality &quality)
      : tunnels_{first, second}, quality_(quality) {}

  void SetQuality(const LinkQuality &quality) { quality_ = quality; }
  void SetTunnel(size_t which, int tunnel) { tunnels_[which] = tunnel; }  // of a host's next life

  // Carry waits up to `waitMs` for packets and carries what is due.
  void Carry(uint64_t nowMs, int waitMs) {
    nowMs_ = nowMs;
    std::array<pollfd, 2> waits = {{{tunnels_[0], POLLIN, 0}, {tunnels_[1], POLLIN, 0}}};
    poll(waits.data(), waits.size(), waitMs);
    for (size_t from = 0; from < 2; ++from) Drain(from);
    while (!onTheWay_.empty() && onTheWay_.begin()->first <= nowMs_) {
      Deliver(onTheWay_.begin()->second);
      onTheWay_.erase(onTheWay_.begin());
    }
  }

  uint64_t NumLost() const { return numLost_; }
  uint64_t NumCarried() const { return numCarried_; }

 private:
  static constexpr uint32_t kLateMs = 3;

  struct Packet {
    size_t to;
    std::vector<uint8_t> bytes;
  };

  bool Chance(uint32_t percent) { return random_() % 100 < percent; }

  void Drain(size_t from) {
    std::array<uint8_t, 2048> bytes;
    ssize_t len = 0;
    while ((len = read(tunnels_[from], bytes.data(), bytes.size())) > 0) {
      Take({1 - from, {bytes.begin(), bytes.begin() + len}});
    }
  }

  void Take(const Packet &packet) {
    if (!quality_.isUp || Chance(quality_.lostPercent)) {
      ++numLost_;
      return;
    }
    if (Chance(quality_.twicePercent)) Send(packet, kLateMs);
    Send(packet, Chance(quality_.latePercent) ? kLateMs : 0);
  }

  void Send(const Packet &packet, uint32_t extraMs) {
    uint32_t ms = quality_.delayMs + extraMs;
    if (quality_.jitterMs != 0) ms += static_cast<uint32_t>(random_() % quality_.jitterMs);
    onTheWay_.emplace(nowMs_ + ms, packet);
  }

  void Deliver(const Packet &packet) {
    ++numCarried_;
    // A full queue at the other end is one more loss.
    if (write(tunnels_[packet.to], packet.bytes.data(), packet.bytes.size()) < 0) ++numLost_;
  }

  std::array<int, 2> tunnels_;
  LinkQuality quality_;
  std::mt19937 random_{31};
  std::multimap<uint64_t, Packet> onTheWay_;  // by the time when they arrive
  uint64_t nowMs_ = 0;
  uint64_t numLost_ = 0;
  uint64_t numCarried_ = 0;
};

}  // namespace coap_rpc_test

#endif /* LINK_H */
