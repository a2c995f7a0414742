#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_pulls.h"

#include <algorithm>

#include "coap_svc/rpc/common/coap_rpc_limits.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kJitterPart = 4;
constexpr uint64_t kSlackMs = 10;  // of a round trip: what hosts take to answer

// IsQuick says whether a round trip shows no queue on the way.
bool IsQuick(const MirrorPulls &pulls, uint64_t rttMs) {
  return rttMs <= pulls.minRttMs + pulls.minRttMs / 2 + kSlackMs;
}

void Grow(MirrorPulls &pulls) {
  if (pulls.window >= pulls.numSlots) return;
  if (pulls.window >= pulls.threshold && ++pulls.credit < pulls.window) return;
  pulls.credit = 0;
  ++pulls.window;
}

// NoteRtt lets the window grow while answers come quickly.
void NoteRtt(MirrorPulls &pulls, uint64_t rttMs) {
  pulls.minRttMs = std::min(pulls.minRttMs, rttMs);
  if (IsQuick(pulls, rttMs)) {
    Grow(pulls);
  } else {
    pulls.threshold = std::min(pulls.threshold, pulls.window);
  }
}

void Halve(MirrorPulls &pulls, uint64_t nowMs) {
  pulls.window = std::max(pulls.window / 2, 1u);
  pulls.threshold = pulls.window;
  pulls.credit = 0;
  pulls.halvedMs = nowMs;
}

void Forget(MirrorPulls &pulls, MirrorPull &pull) {
  if (pull.state == PullState::kSent) --pulls.numSent;
  pull.state = PullState::kIdle;
  pull.token = 0;
}

}  // namespace

uint64_t Spread(uint64_t ms, uint32_t part, uint32_t random) {
  const uint64_t most = ms / part;
  return ms - most + random % (2 * most + 1);
}

void PullsDrop(MirrorPulls &pulls) {
  std::for_each_n(pulls.slots, pulls.numSlots, [&](MirrorPull &pull) { Forget(pulls, pull); });
}

void PullsReset(MirrorPulls &pulls) {
  std::for_each_n(pulls.slots, pulls.numSlots, [&](MirrorPull &pull) {
    if (pull.state != PullState::kIdle) FailPull(pulls, pull);
  });
  pulls.window = std::min(kMirrorFirstWindow, pulls.numSlots);
  pulls.threshold = pulls.numSlots;
  pulls.credit = 0;
  pulls.minRttMs = UINT64_MAX;
}

void AskPull(MirrorPulls &pulls, MirrorPull &pull, PullKind kind, uint64_t since, uint64_t until) {
  Forget(pulls, pull);
  pull.kind = kind;
  pull.since = since;
  pull.until = pull.stop = until;
  pull.waitMs = 0;
  pull.state = PullState::kWanted;
}

MirrorPull *NextPull(const MirrorPulls &pulls) {
  if (pulls.numSent >= pulls.window) return nullptr;
  MirrorPull *end = pulls.slots + pulls.numSlots;
  MirrorPull *found = std::find_if(
      pulls.slots, end, [](const MirrorPull &pull) { return pull.state == PullState::kWanted; });
  return found != end ? found : nullptr;
}

void TimePull(MirrorPull &pull, PullTime time) {
  const bool isFirst = pull.waitMs == 0;
  pull.waitMs = isFirst ? kMirrorFirstRepeatMs : std::min(2 * pull.waitMs, kMirrorLastRepeatMs);
  if (isFirst) pull.firstMs = time.nowMs;
  pull.sentMs = time.nowMs;
  pull.dueMs = time.nowMs + Spread(pull.waitMs, kJitterPart, time.random);
  pull.state = PullState::kSent;
}

void SendPull(MirrorPulls &pulls, MirrorPull &pull, PullTime time, uint64_t token, uint64_t head) {
  ++pulls.numPulls;
  ++pulls.numSent;
  TimePull(pull, time);
  if (pull.token != 0) {
    ++pulls.numRepeats;
    return;
  }
  pull.token = token;
  pull.headAtSend = head;
}

MirrorPull *FindPull(const MirrorPulls &pulls, uint64_t token) {
  MirrorPull *end = pulls.slots + pulls.numSlots;
  MirrorPull *found = std::find_if(pulls.slots, end, [token](const MirrorPull &pull) {
    return pull.token == token && pull.state != PullState::kIdle;
  });
  return found != end && token != 0 ? found : nullptr;
}

// The answer to a question that was repeated says nothing of the way's time: it may be to either
// message.
void AnswerPull(MirrorPulls &pulls, MirrorPull &pull, uint64_t nowMs) {
  const bool isRepeated = pull.firstMs != pull.sentMs || pull.state != PullState::kSent;
  if (!isRepeated) NoteRtt(pulls, nowMs - pull.sentMs);
  Forget(pulls, pull);
}

void FailPull(MirrorPulls &pulls, MirrorPull &pull) {
  Forget(pulls, pull);
  pull.waitMs = 0;
  pull.state = PullState::kWanted;
}

void RepeatPulls(MirrorPulls &pulls, uint64_t nowMs) {
  std::for_each_n(pulls.slots, pulls.numSlots, [&](MirrorPull &pull) {
    if (pull.state != PullState::kSent || pull.dueMs > nowMs) return;
    if (pull.sentMs >= pulls.halvedMs) Halve(pulls, nowMs);
    pull.state = PullState::kWanted;
    --pulls.numSent;
  });
}

uint64_t DuePull(const MirrorPulls &pulls) {
  uint64_t due = UINT64_MAX;
  std::for_each_n(pulls.slots, pulls.numSlots, [&due](const MirrorPull &pull) {
    if (pull.state == PullState::kSent) due = std::min(due, pull.dueMs);
  });
  return due;
}

}  // namespace coap_rpc
