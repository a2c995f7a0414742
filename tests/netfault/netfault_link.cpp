#include "netfault_link.h"

namespace netfault {

// A chance that is not set draws no number: a scenario's other faults stay as they are.
bool Link::Happens(const Chance &chance) {
  return chance.percent > 0 && static_cast<double>(random_() % 10'000) < chance.percent * 100;
}

bool Link::IsLost(Quality &quality, const Bytes &packet) {
  if (quality.loseNext != 0) {
    --quality.loseNext;
    return true;
  }
  if (!quality.isUp || Happens(quality.loss)) return true;
  if (quality.maxSize != 0 && packet.size() > quality.maxSize) return true;
  const std::optional<Layout> layout = LayoutOf(packet);
  return layout && layout->isFragment && Happens(quality.fragmentLoss);
}

void Link::Damage(Side to, Bytes &packet) {
  const bool isFlipped = Happens(quality_[to].flip);
  const bool isForged = Happens(quality_[to].forge);
  if (isFlipped) FlipBit(packet, static_cast<uint32_t>(random_()));
  if (isForged) ForgeBit(packet, static_cast<uint32_t>(random_()));
  counts_[to].damaged += isFlipped + isForged;
}

void Link::Send(Side to, Bytes packet, uint64_t nowMs) {
  const Quality &quality = quality_[to];
  uint64_t due = nowMs + (quality.delayMs != 0 ? quality.delayMs : 1);
  if (quality.jitterMs != 0) due += random_() % quality.jitterMs;
  onTheWay_.emplace(due, std::pair(to, std::move(packet)));
}

void Link::Take(Side to, Bytes packet, uint64_t nowMs) {
  Quality &quality = quality_[to];
  LinkCounts &counts = counts_[to];
  ++counts.taken;
  if (IsLost(quality, packet)) {
    ++counts.lost;
    return;
  }
  if (Happens(quality.copy)) {
    Send(to, packet, nowMs + quality.copy.ms);
    ++counts.copied;
  }
  if (Happens(quality.renumbered)) {
    Bytes other = packet;
    Renumber(other);
    Send(to, std::move(other), nowMs + quality.renumbered.ms);
    ++counts.copied;
  }
  Damage(to, packet);
  const bool isLate = Happens(quality.late);
  counts.delayed += isLate;
  Send(to, std::move(packet), nowMs + (isLate ? quality.late.ms : 0));
}

uint64_t Link::NextDueMs() const {
  return onTheWay_.empty() ? UINT64_MAX : onTheWay_.begin()->first;
}

std::optional<std::pair<Side, Bytes>> Link::Next(uint64_t nowMs) {
  if (NextDueMs() > nowMs) return std::nullopt;
  std::pair<Side, Bytes> packet = std::move(onTheWay_.begin()->second);
  onTheWay_.erase(onTheWay_.begin());
  ++counts_[packet.first].delivered;
  return packet;
}

}  // namespace netfault
