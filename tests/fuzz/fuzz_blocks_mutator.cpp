// fuzz_blocks_mutator.cpp: changes plays of equal steps without tearing a step apart: faults with
// bodies take several datagrams that fit together, so most new plays repeat, move or vary whole
// steps.
#include <algorithm>
#include <cstring>
#include <random>

#include "fuzz_blocks.h"

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize,
                                          unsigned seed);
extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t *first, size_t firstSize,
                                            const uint8_t *second, size_t secondSize, uint8_t *out,
                                            size_t maxSize, unsigned seed);

namespace fuzz {
namespace {

using StepBytes = std::vector<uint8_t>;
using Play = std::vector<StepBytes>;

Play PlayOf(const uint8_t *data, size_t size) {
  Play play;
  for (size_t at = 0; at < size; at += kStepLen) {
    StepBytes step(data + at, data + std::min(size, at + kStepLen));
    step.resize(kStepLen);
    play.push_back(step);
  }
  return play;
}

size_t Store(const Play &play, uint8_t *out, size_t maxSize) {
  const size_t numSteps = std::min({play.size(), maxSize / kStepLen, size_t{kMaxSteps}});
  for (size_t i = 0; i < numSteps; ++i) memcpy(out + i * kStepLen, play[i].data(), kStepLen);
  return numSteps * kStepLen;
}

class Mutator {
 public:
  Mutator(Play play, unsigned seed) : play_(std::move(play)), random_(seed) {}

  const Play &Mutate() {
    for (uint32_t left = 1 + Below(4); left != 0; --left) MutateOnce();
    return play_;
  }

  uint32_t Below(size_t end) { return static_cast<uint32_t>(random_() % end); }

 private:
  void MutateOnce() {
    if (play_.empty()) return Insert();
    switch (Below(8)) {
      case 0:
        return Insert();
      case 1:
      case 2:
        return Repeat();
      case 3:
        return Move();
      case 4:
        return Remove();
      default:
        return Vary(&AnyStep());
    }
  }

  StepBytes &AnyStep() { return play_[Below(play_.size())]; }
  ptrdiff_t AnyPlace() { return static_cast<ptrdiff_t>(Below(play_.size() + 1)); }

  // Insert makes a step whose arguments are mostly the usual ones.
  void Insert() {
    constexpr uint8_t kNumKinds = 16;
    StepBytes step(kStepLen);
    step[0] = static_cast<uint8_t>(Below(kNumKinds));
    step[1] = static_cast<uint8_t>(Below(4) & Below(4));
    for (uint32_t left = Below(4); left != 0; --left) Vary(&step);
    play_.insert(play_.begin() + AnyPlace(), step);
  }

  void Repeat() {
    StepBytes step = AnyStep();
    if (Below(4) != 0) Vary(&step);
    play_.insert(play_.begin() + AnyPlace(), step);
  }

  void Move() { std::swap(AnyStep(), AnyStep()); }

  void Remove() { play_.erase(play_.begin() + static_cast<ptrdiff_t>(Below(play_.size()))); }

  void Vary(StepBytes *step) {
    uint8_t *byte = &(*step)[Below(kStepLen)];
    switch (Below(4)) {
      case 0:  // few bits: most are flags
        *byte = static_cast<uint8_t>(Below(256) & Below(256));
        return;
      case 1:
        *byte = static_cast<uint8_t>(Below(8));
        return;
      case 2:
        *byte = static_cast<uint8_t>(*byte ^ 1u << Below(8));
        return;
      default:
        *byte = static_cast<uint8_t>(*byte + (Below(2) != 0 ? 1 : -1));
        return;
    }
  }

  Play play_;
  std::minstd_rand random_;
};

}  // namespace
}  // namespace fuzz

size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned seed) {
  using namespace fuzz;
  return Store(Mutator(PlayOf(data, size), seed).Mutate(), data, maxSize);
}

// The first part of one play, and the second part of another.
size_t LLVMFuzzerCustomCrossOver(const uint8_t *first, size_t firstSize, const uint8_t *second,
                                 size_t secondSize, uint8_t *out, size_t maxSize, unsigned seed) {
  using namespace fuzz;
  Play play = PlayOf(first, firstSize);
  const Play other = PlayOf(second, secondSize);
  Mutator random({}, seed);
  play.resize(random.Below(play.size() + 1));
  play.insert(play.end(), other.begin() + static_cast<ptrdiff_t>(random.Below(other.size() + 1)),
              other.end());
  return Store(play, out, maxSize);
}
