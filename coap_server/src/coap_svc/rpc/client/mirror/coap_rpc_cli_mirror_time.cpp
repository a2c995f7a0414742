/* coap_rpc_cli_mirror_time.cpp: when a mirror does what: heartbeats, silence, sockets and pauses.
 *
 *   heard     something came since the last heartbeat
 *   silent    nothing did after `numSilent` heartbeats that had a question.  At the third the
 *             mirror tells it, and from then on it tries other sockets
 *
 * A server that has never answered is pinged before the third: silence with an answer to that is a
 * refusal.  Bounds: one ping for each socket. */
#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_time.h"

#include <algorithm>
#include <utility>

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_apply.h"
#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_ask.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kQuarter = 4;  // +-25 %
constexpr uint32_t kTenth = 10;   // +-10 %

// PauseMs is how long to wait before the n-th attempt.
uint64_t PauseMs(Mirror &mirror, uint32_t n, uint64_t maxMs) {
  if (n <= 1) return 0;
  const uint64_t ms = uint64_t{kMirrorFirstPauseMs} << std::min(n - 2, 20u);
  return std::min(Spread(std::min(ms, maxMs), kQuarter, Chance(mirror)), maxMs);
}

uint32_t BusyState(const Mirror &mirror) {
  return mirror.isFull ? COAP_RPC_MIRROR_FULL_SYNC : COAP_RPC_MIRROR_BEHIND;
}

bool IsSilent(const Mirror &mirror) {
  return mirror.state == COAP_RPC_MIRROR_CONNECTING || mirror.state == COAP_RPC_MIRROR_STALE;
}

// NewSocket begins from a port of its own again: what the server and the way there know of the
// former one may be what is wrong.
void NewSocket(Mirror &mirror, uint64_t nowMs) {
  ++mirror.numAttempts;
  PullsReset(mirror.pulls);
  mirror.registration.state = PullState::kIdle;
  mirror.registration.token = 0;
  mirror.registerMs = 0;
  mirror.numRegisters = 0;
  mirror.isThere = false;
  mirror.wantsSocket = true;
  mirror.hasSocket = false;
  mirror.socketMs = nowMs + 1 + PauseMs(mirror, mirror.numAttempts + 3, HeartbeatPauseMs(mirror));
}

// WantPing is for a server that has never answered: it may be there, and silent because the URI has
// no versions.
void WantPing(Mirror &mirror) { mirror.wantsPing = mirror.replid == 0; }

// IsRefusal says whether silence is a refusal.  With short heartbeats a few lost questions look
// like one as well.
bool IsRefusal(const Mirror &mirror) {
  return mirror.isThere && mirror.replid == 0 && mirror.pulls.numPulls >= kMirrorLeastRefused;
}

void GoSilent(Mirror &mirror, uint64_t nowMs) {
  const bool isRefusal = IsRefusal(mirror);
  NewSocket(mirror, nowMs);
  WantPing(mirror);
  TellState(mirror, isRefusal ? COAP_RPC_MIRROR_REFUSED : COAP_RPC_MIRROR_STALE,
            Code(isRefusal ? kSiteMirrorNoPage : kSiteMirrorSilent));
}

void CountSilence(Mirror &mirror, uint64_t nowMs) {
  const bool isAsked = std::exchange(mirror.isAsked, false);
  if (std::exchange(mirror.isHeard, false) || !isAsked) return;
  ++mirror.numSilent;
  if (mirror.numSilent + 1 == kMirrorMaxSilent) WantPing(mirror);
  if (mirror.numSilent == kMirrorMaxSilent) GoSilent(mirror, nowMs);
}

void SetHeartbeat(Mirror &mirror, uint64_t nowMs) {
  mirror.heartbeatMs = nowMs + Spread(mirror.param.heartbeatMs, kTenth, Chance(mirror));
}

void Beat(Mirror &mirror, uint64_t nowMs) {
  SetHeartbeat(mirror, nowMs);
  if (nowMs < mirror.holdMs) return;  // nothing was asked
  CountSilence(mirror, nowMs);
  WantTail(mirror);
}

// Confirm asks from the cursor.  When something else is being asked it waits for the next version
// that the mirror is synced with.
void Confirm(Mirror &mirror) {
  mirror.confirmMs = 0;
  WantTail(mirror);
}

// RetrySocket goes on where the server was silent through one more socket.
void RetrySocket(Mirror &mirror, uint64_t nowMs) {
  if (mirror.hasSocket) {
    GoSilent(mirror, nowMs);
  } else {
    NewSocket(mirror, nowMs);
  }
}

void RepeatRegistration(Mirror &mirror, uint64_t nowMs) {
  MirrorPull &registration = mirror.registration;
  if (registration.state != PullState::kSent || registration.dueMs > nowMs) return;
  registration.state = PullState::kWanted;
}

bool IsDue(uint64_t atMs, uint64_t nowMs) { return atMs != 0 && atMs <= nowMs; }

// HeldUntil is when a pull goes out that is held back; UINT64_MAX: none is.
uint64_t HeldUntil(const Mirror &mirror) {
  return mirror.hasSocket && NextPull(mirror.pulls) ? mirror.holdMs : UINT64_MAX;
}

uint64_t OrNever(uint64_t atMs) { return atMs != 0 ? atMs : UINT64_MAX; }

uint64_t DueRegistration(const Mirror &mirror) {
  const bool isSent = mirror.registration.state == PullState::kSent;
  return isSent ? mirror.registration.dueMs : UINT64_MAX;
}

}  // namespace

uint64_t HeartbeatPauseMs(const Mirror &mirror) {
  return std::clamp<uint64_t>(mirror.param.heartbeatMs, kMirrorLastRepeatMs, kMirrorLastPauseMs);
}

void Hold(Mirror &mirror, uint64_t nowMs, uint64_t maxMs) {
  ++mirror.numTroubles;
  mirror.holdMs = nowMs + PauseMs(mirror, mirror.numTroubles, maxMs);
}

void CountFulls(Mirror &mirror, uint64_t nowMs) {
  if (nowMs >= mirror.calmMs) mirror.numFulls = 0;
  const uint32_t numTroubles = mirror.numFulls != 0 ? mirror.numFulls - 1 : 0;
  mirror.numTroubles = std::max(mirror.numTroubles, numTroubles);
}

void WantConfirm(Mirror &mirror, uint64_t nowMs) {
  mirror.hasToConfirm = true;
  if (mirror.confirmMs == 0) mirror.confirmMs = nowMs + 1 + Chance(mirror) % kMirrorConfirmMs;
}

void WantRegistration(Mirror &mirror, uint64_t nowMs) {
  const bool isIdle = mirror.registration.state == PullState::kIdle;
  if (!isIdle || nowMs < mirror.registerMs) return;
  ++mirror.numRegisters;
  mirror.registerMs = nowMs + PauseMs(mirror, mirror.numRegisters + 1, kMirrorLastPauseMs);
  mirror.registration.waitMs = 0;
  mirror.registration.state = PullState::kWanted;
}

void Heard(Mirror &mirror, uint64_t nowMs) {
  mirror.isHeard = true;
  mirror.heardMs = nowMs;
  mirror.numSilent = 0;
  mirror.numAttempts = 0;
  mirror.socketMs = 0;
}

void EndSilence(Mirror &mirror) {
  if (IsSilent(mirror)) TellState(mirror, BusyState(mirror), mirror.troubleCode);
}

void BeginTime(Mirror &mirror, uint64_t nowMs) {
  mirror.heardMs = nowMs;
  SetHeartbeat(mirror, nowMs);
  NewSocket(mirror, nowMs);
  mirror.socketMs = 0;
}

uint64_t MirrorDueMs(const Mirror &mirror) {
  return std::min({mirror.heartbeatMs, OrNever(mirror.confirmMs), OrNever(mirror.socketMs),
                   HeldUntil(mirror), DueRegistration(mirror), DuePull(mirror.pulls)});
}

void MirrorTick(Mirror &mirror, uint64_t nowMs) {
  RepeatPulls(mirror.pulls, nowMs);
  RepeatRegistration(mirror, nowMs);
  if (IsDue(mirror.confirmMs, nowMs)) Confirm(mirror);
  if (IsDue(mirror.socketMs, nowMs)) RetrySocket(mirror, nowMs);
  if (mirror.heartbeatMs <= nowMs) Beat(mirror, nowMs);
}

void MirrorTakePart(Mirror &mirror, uint64_t nowMs) {
  Heard(mirror, nowMs);
  EndSilence(mirror);
}

void MirrorTakePong(Mirror &mirror) { mirror.isThere = true; }

void MirrorLoseSocket(Mirror &mirror, uint64_t nowMs) {
  mirror.hasSocket = false;
  mirror.socketMs = nowMs + PauseMs(mirror, mirror.numAttempts + 2, HeartbeatPauseMs(mirror));
  TellState(mirror, COAP_RPC_MIRROR_STALE, Code(kSiteMirrorNoSocket));
}

// No silence is the server's until it was asked through the other socket.
void MirrorMove(Mirror &mirror, uint64_t nowMs) {
  NewSocket(mirror, nowMs);
  if (mirror.numSilent < kMirrorMaxSilent) mirror.socketMs = 0;
}

}  // namespace coap_rpc
