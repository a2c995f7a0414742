/* coap_rpc_cli_mirror_ask.cpp: what a mirror asks.
 *
 * Ranges take all slots; hellos and the tail, beside which nothing is asked, the first one. */
#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_ask.h"

#include <algorithm>
#include <utility>

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_apply.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"

namespace coap_rpc {
namespace {

uint64_t Random(Mirror &mirror) { return mirror.random(mirror.randomArg); }

PullTime TimeOf(Mirror &mirror, uint64_t nowMs) { return {nowMs, Chance(mirror)}; }

uint64_t NewToken(Mirror &mirror) {
  const uint64_t token = Random(mirror);
  return token != 0 ? token : 1;
}

MirrorPull &TailPull(const Mirror &mirror) { return mirror.pulls.slots[0]; }

bool IsIdle(const MirrorPull &pull) { return pull.state == PullState::kIdle; }

void WantRange(Mirror &mirror, MirrorPull &pull, uint64_t since, uint64_t until) {
  AskPull(mirror.pulls, pull, PullKind::kRange, since, until);
}

// PagesLeft guesses how many pages a range still has, from its latest one.
uint64_t PagesLeft(const MirrorPull &pull) {
  if (IsIdle(pull) || pull.span == 0) return 0;
  return (pull.stop - pull.since) / pull.span;
}

// ShareLongest gives a slot without a range the second half of the longest one.  The answer under
// way may reach into that half, which does no harm.
void ShareLongest(Mirror &mirror) {
  MirrorPull *slots = mirror.pulls.slots;
  MirrorPull *end = slots + mirror.pulls.numSlots;
  MirrorPull *free = std::find_if(slots, end, IsIdle);
  MirrorPull *longest = std::max_element(
      slots, end, [](const auto &a, const auto &b) { return PagesLeft(a) < PagesLeft(b); });
  if (free == end || PagesLeft(*longest) < kMirrorLeastSplit) return;
  const uint64_t middle = longest->since + (longest->stop - longest->since) / 2;
  WantRange(mirror, *free, middle, std::exchange(longest->stop, middle));
  free->span = longest->span;
  ++mirror.numRanges;
}

void EndRange(Mirror &mirror) {
  if (--mirror.numRanges != 0) return;
  mirror.cursor = mirror.base;
  WantTail(mirror);
}

MirrorAsk Act(MirrorAct act) {
  MirrorAsk ask = {};
  ask.act = act;
  return ask;
}

MirrorAsk NextSocket(Mirror &mirror) {
  ++mirror.numSockets;
  mirror.hasSocket = true;
  return Act(MirrorAct::kOpen);
}

MirrorAsk NextRegistration(Mirror &mirror, uint64_t nowMs) {
  MirrorPull &registration = mirror.registration;
  const bool isRepeated = registration.token != 0;
  if (!isRepeated) registration.token = NewToken(mirror);
  TimePull(registration, TimeOf(mirror, nowMs));
  MirrorAsk ask = Act(MirrorAct::kRegister);
  ask.token = registration.token;
  ask.isRepeated = isRepeated;
  return ask;
}

// Confirms says whether a question may tell the server what the mirror has: only where it has been
// told to equal the set.  Elsewhere a key may have the state before one that the cursor covers,
// since pages leave out what has changed again.
bool Confirms(const Mirror &mirror, const MirrorPull &pull) {
  return pull.kind == PullKind::kTail && mirror.toldReplid == mirror.replid &&
         pull.since == mirror.toldVersion;
}

MirrorAsk AskOf(const Mirror &mirror, const MirrorPull &pull, bool isRepeated) {
  MirrorAsk ask = {};
  ask.act = MirrorAct::kPull;
  ask.token = pull.token;
  ask.isRepeated = isRepeated;
  ask.isHello = pull.kind == PullKind::kHello;
  ask.isFull = !Confirms(mirror, pull);
  ask.replid = mirror.replid;
  ask.since = pull.since;
  ask.until = pull.until;
  return ask;
}

// NoteConfirmed: once, since a question is repeated until it is answered.
void NoteConfirmed(Mirror &mirror) {
  mirror.hasToConfirm = false;
  mirror.confirmMs = 0;
}

// AimPull lets a question of the tail that had to wait ask from where the mirror is by now.
void AimPull(const Mirror &mirror, MirrorPull &pull) {
  if (pull.kind == PullKind::kTail) pull.since = mirror.cursor;
}

MirrorAsk NextOfPulls(Mirror &mirror, uint64_t nowMs) {
  MirrorPull *pull = nowMs >= mirror.holdMs ? NextPull(mirror.pulls) : nullptr;
  if (!pull) return {};
  const bool isRepeated = pull->token != 0;
  if (!isRepeated) AimPull(mirror, *pull);
  SendPull(mirror.pulls, *pull, TimeOf(mirror, nowMs), NewToken(mirror), mirror.head);
  mirror.isAsked = true;
  const MirrorAsk ask = AskOf(mirror, *pull, isRepeated);
  if (!ask.isFull) NoteConfirmed(mirror);
  return ask;
}

bool IsWanted(const MirrorPull &pull) { return pull.state == PullState::kWanted; }

}  // namespace

uint32_t Chance(Mirror &mirror) { return static_cast<uint32_t>(Random(mirror)); }

void WantHello(Mirror &mirror) {
  PullsDrop(mirror.pulls);
  mirror.isFull = true;
  mirror.cursor = 0;
  mirror.numRanges = 0;
  AskPull(mirror.pulls, TailPull(mirror), PullKind::kHello, 0, UINT64_MAX);
}

void WantTail(Mirror &mirror) {
  if (mirror.numRanges != 0 || !IsIdle(TailPull(mirror))) return;
  AskPull(mirror.pulls, TailPull(mirror), PullKind::kTail, mirror.cursor, UINT64_MAX);
}

void WantNews(Mirror &mirror) {
  WantTail(mirror);
  if (IsSynced(mirror)) TellState(mirror, COAP_RPC_MIRROR_BEHIND, 0);
}

void WantRanges(Mirror &mirror) {
  const MirrorPulls &pulls = mirror.pulls;
  const uint64_t num = std::min<uint64_t>(pulls.numSlots, mirror.base);
  uint64_t since = 0;
  for (uint64_t i = 0; i < num; ++i) {
    const uint64_t until = since + mirror.base / num + (i < mirror.base % num ? 1 : 0);
    WantRange(mirror, pulls.slots[i], since, until);
    pulls.slots[i].span = 0;
    since = until;
  }
  mirror.numRanges = static_cast<uint32_t>(num);
}

void AdvanceRange(Mirror &mirror, MirrorPull &pull, uint64_t reached) {
  if (reached >= pull.stop) {
    EndRange(mirror);
  } else {
    WantRange(mirror, pull, reached, pull.stop);
  }
  if (mirror.numRanges != 0) ShareLongest(mirror);
}

MirrorAsk MirrorNext(Mirror &mirror, uint64_t nowMs) {
  if (mirror.isClosed) return {};
  if (std::exchange(mirror.wantsSocket, false)) return NextSocket(mirror);
  if (!mirror.hasSocket) return {};
  if (std::exchange(mirror.wantsPing, false)) return Act(MirrorAct::kPing);
  return IsWanted(mirror.registration) ? NextRegistration(mirror, nowMs)
                                       : NextOfPulls(mirror, nowMs);
}

}  // namespace coap_rpc
