/* coap_rpc_cli_mirror.cpp: how a mirror comes to equal its server's set, and knows that it does.
 *
 * All that it knows of the set is one number, the cursor: it has every change up to this version.
 * It asks for what is newer (a pull), and may be told before it asks (a notification).  Answers are
 * pages, which any message may bring, late, twice or never.
 *
 *   hello     it asks for the head: at first, and after something that must not be
 *   ranges    a full sync: the versions up to `base`, the head at its beginning, are read in
 *             ranges, many at a time; the cursor is 0.  Who is finished with a range takes over
 *             half of the longest one
 *   tail      everything up to the cursor is there.  Pulls go on from it, one at a time, until a
 *             page reaches the head; then there are only heartbeats
 *
 * The rules, each of which a copy goes wrong, or never ends, without:
 *
 *   1   An answer belongs to the pull of its token.  A change is applied only when its version is
 *       above the cursor: a page of the tail may be older than what came meanwhile.
 *   2   A notification counts only when from <= cursor < to and no full sync is on.  Else it is no
 *       more than a reason to pull.
 *   3   A full sync fixes `base` with its first answer, reads all ranges of (0, base], and then the
 *       tail from base.  A key has one version up to base, so ranges may come in any order.  When
 *       deletions after base are forgotten (floor > base), it begins again.
 *   4   A full sync removes what it has not met, with the first page of its tail that reaches the
 *       head, and not before: until then a tuple may have moved from a range to the tail.
 *   5   SYNCED is only said by a page that reaches the head, which is the cursor, is not below any
 *       head heard of in this life, and has the digest of the mirror's tuples.  Another digest is
 *       an error: a full sync.
 *   6   An answer of another life, or with a head below one that was known when it was asked for,
 *       begins a full sync.  So does one that says so.  Equal values are no change to anyone.
 *   7   A pull at every heartbeat; after three without any answer the mirror is STALE and tries
 *       another socket, with growing pauses; or REFUSED, when the host does answer a ping.  It registers through each socket, and again whenever
 *       the server says that it pushes nothing.
 *
 * A trouble is what does not go away by asking again at once: an answer that is no page, a page
 * that contradicts what is known, no memory, a full sync that had to begin again.  The first one
 * since the mirror was synced costs no time; then the pauses double.  A server that keeps to the
 * protocol is asked again by the next heartbeat at the latest, any other, in the end, in 60 s.
 *
 * Bounds: numInFlight questions, maxBytes of tuples.  A callback may close the mirror, which ends
 * whatever is under way: hence isClosed after each. */
#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror.h"

#include <algorithm>
#include <utility>

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_apply.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kQuarter = 4;  // +-25 %
constexpr uint32_t kTenth = 10;   // +-10 %

uint64_t Random(Mirror &mirror) { return mirror.random(mirror.randomArg); }

uint32_t Chance(Mirror &mirror) { return static_cast<uint32_t>(Random(mirror)); }

PullTime TimeOf(Mirror &mirror, uint64_t nowMs) { return {nowMs, Chance(mirror)}; }

uint64_t NewToken(Mirror &mirror) {
  const uint64_t token = Random(mirror);
  return token != 0 ? token : 1;
}

// PauseMs is how long to wait before the n-th attempt.
uint64_t PauseMs(Mirror &mirror, uint32_t n, uint64_t maxMs) {
  if (n <= 1) return 0;
  const uint64_t ms = uint64_t{kMirrorFirstPauseMs} << std::min(n - 2, 20u);
  return std::min(Spread(std::min(ms, maxMs), kQuarter, Chance(mirror)), maxMs);
}

uint64_t HeartbeatPauseMs(const Mirror &mirror) {
  return std::clamp<uint64_t>(mirror.param.heartbeatMs, kMirrorLastRepeatMs, kMirrorLastPauseMs);
}

// The states.

uint32_t BusyState(const Mirror &mirror) {
  return mirror.isFull ? COAP_RPC_MIRROR_FULL_SYNC : COAP_RPC_MIRROR_BEHIND;
}

bool IsSynced(const Mirror &mirror) { return mirror.state == COAP_RPC_MIRROR_SYNCED; }

bool IsSilent(const Mirror &mirror) {
  return mirror.state == COAP_RPC_MIRROR_CONNECTING || mirror.state == COAP_RPC_MIRROR_STALE;
}

// The questions.

MirrorPull &TailPull(const Mirror &mirror) { return mirror.pulls.slots[0]; }

bool IsIdle(const MirrorPull &pull) { return pull.state == PullState::kIdle; }

void WantHello(Mirror &mirror) {
  PullsDrop(mirror.pulls);
  mirror.isFull = true;
  mirror.cursor = 0;
  mirror.numRanges = 0;
  AskPull(mirror.pulls, TailPull(mirror), PullKind::kHello, 0, UINT64_MAX);
}

// WantTail asks for what is after the cursor, unless something is being asked for already.
void WantTail(Mirror &mirror) {
  if (mirror.numRanges != 0 || !IsIdle(TailPull(mirror))) return;
  AskPull(mirror.pulls, TailPull(mirror), PullKind::kTail, mirror.cursor, UINT64_MAX);
}

// WantNews asks for what the mirror knows that it lacks.
void WantNews(Mirror &mirror) {
  WantTail(mirror);
  if (IsSynced(mirror)) TellState(mirror, COAP_RPC_MIRROR_BEHIND, 0);
}

void WantRange(Mirror &mirror, MirrorPull &pull, uint64_t since, uint64_t until) {
  AskPull(mirror.pulls, pull, PullKind::kRange, since, until);
}

// WantRanges splits the versions up to base into a range for each slot.
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

// Troubles.

void Hold(Mirror &mirror, uint64_t nowMs, uint64_t maxMs) {
  ++mirror.numTroubles;
  mirror.holdMs = nowMs + PauseMs(mirror, mirror.numTroubles, maxMs);
}

// A way that forges bits looks like a server that does not keep to the protocol, and will be good
// again: so it takes some troubles until that has longer pauses than a heartbeat.
uint64_t LongestPauseMs(const Mirror &mirror) {
  return mirror.numTroubles < kMirrorMaxDoubts ? HeartbeatPauseMs(mirror) : kMirrorLastPauseMs;
}

void Trouble(Mirror &mirror, uint32_t state, uint32_t code, uint64_t nowMs) {
  const bool isBusy = code == Code(kSiteMirrorRestarts);
  mirror.troubleCode = code;
  Hold(mirror, nowMs, isBusy ? HeartbeatPauseMs(mirror) : LongestPauseMs(mirror));
  TellState(mirror, state, code);
}

// BeginFull begins a full sync with the head of an answer.
void BeginFull(Mirror &mirror, const MirrorPage &page) {
  ++mirror.numFullSyncs;
  MirrorTableBegin(mirror.table);
  PullsDrop(mirror.pulls);
  mirror.head = page.replid == mirror.replid ? std::max(mirror.head, page.head) : page.head;
  mirror.replid = page.replid;
  mirror.base = page.head;
  mirror.cursor = 0;
  mirror.isFull = true;
  mirror.isDoubtful = false;
  mirror.toldReplid = 0;
  WantRanges(mirror);
  WantTail(mirror);
  TellState(mirror, COAP_RPC_MIRROR_FULL_SYNC, mirror.troubleCode);
}

// BeginAgain begins a full sync because the present position leads nowhere: at once the first time,
// and when that did not help with a new hello, later.
void BeginAgain(Mirror &mirror, const MirrorPage &page, uint32_t code, uint64_t nowMs) {
  Hold(mirror, nowMs, HeartbeatPauseMs(mirror));
  if (mirror.numTroubles == 1) {
    BeginFull(mirror, page);
    return;
  }
  mirror.troubleCode = code;
  mirror.head = 0;
  WantHello(mirror);
  TellState(mirror, COAP_RPC_MIRROR_BEHIND, code);
}

// Contradict begins again because of a server that does not keep to the protocol.
void Contradict(Mirror &mirror, uint64_t nowMs) {
  ++mirror.numBad;
  mirror.head = 0;
  WantHello(mirror);
  Trouble(mirror, COAP_RPC_MIRROR_BEHIND, Code(kSiteMirrorContradiction), nowMs);
}

// FailDigest reads everything again.  Where answers came that were none, others were wrong as well:
// the pause for those was long enough.
void FailDigest(Mirror &mirror, uint64_t nowMs) {
  const uint32_t code = Code(kSiteMirrorDigest);
  ++mirror.numDigestErrors;
  WantHello(mirror);
  if (!mirror.isDoubtful) Hold(mirror, nowMs, LongestPauseMs(mirror));
  mirror.isDoubtful = false;
  mirror.troubleCode = code;
  TellState(mirror, COAP_RPC_MIRROR_BEHIND, code);
}

void Sync(Mirror &mirror) {
  mirror.numTroubles = 0;
  mirror.isDoubtful = false;
  mirror.troubleCode = 0;
  mirror.holdMs = 0;
  TellState(mirror, COAP_RPC_MIRROR_SYNCED, 0);
  TellSynced(mirror, mirror.cursor);
}

// Applying.

// ReachesHead is rule 5 but for the digest.  A page that was applied and has the greatest head has
// made that the cursor.
bool ReachesHead(const Mirror &mirror, const MirrorPage &page) {
  return (page.flags & kSyncAtHead) != 0 && page.to == page.head && page.head >= mirror.head;
}

// Check looks whether the mirror is complete with a page that was applied to the tail.
void Check(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  if (!ReachesHead(mirror, page)) return;
  if (std::exchange(mirror.isFull, false)) RemoveUnmet(mirror);
  if (mirror.isClosed) return;
  if (mirror.table.digest != page.digest) {
    FailDigest(mirror, nowMs);
  } else {
    Sync(mirror);
  }
}

// ApplyTail applies a page that begins at the cursor or before.
void ApplyTail(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  uint64_t reached = 0;
  const uint32_t code = ApplyPage(mirror, page, mirror.cursor, &reached);
  if (mirror.isClosed) return;
  mirror.cursor = std::max(mirror.cursor, reached);
  if (code != 0) {
    Trouble(mirror, COAP_RPC_MIRROR_BEHIND, code, nowMs);
  } else {
    Check(mirror, page, nowMs);
  }
}

// GoOn asks for more, until the mirror is synced with all that it has heard of.
void GoOn(Mirror &mirror) {
  if (mirror.isClosed || (IsSynced(mirror) && mirror.cursor >= mirror.head)) return;
  WantNews(mirror);
}

void EndRange(Mirror &mirror) {
  if (--mirror.numRanges != 0) return;
  mirror.cursor = mirror.base;
  WantTail(mirror);
}

void AdvanceRange(Mirror &mirror, MirrorPull &pull, uint64_t reached) {
  if (reached >= pull.stop) {
    EndRange(mirror);
  } else {
    WantRange(mirror, pull, reached, pull.stop);
  }
  if (mirror.numRanges != 0) ShareLongest(mirror);
}

// Answers.

bool HasProgress(const MirrorPull &pull, const MirrorPage &page) {
  return page.to > pull.since || page.to == pull.until ||
         ((page.flags & kSyncAtHead) != 0 && page.to == page.head);
}

// IsAnswerTo says whether a page is about what was asked.
bool IsAnswerTo(const MirrorPull &pull, const MirrorPage &page) {
  return page.from == pull.since && page.to <= pull.until && HasProgress(pull, page);
}

void TakeRange(Mirror &mirror, MirrorPull &pull, const MirrorPage &page, uint64_t nowMs) {
  if (page.floor > mirror.base) {
    BeginAgain(mirror, page, Code(kSiteMirrorRestarts), nowMs);
    return;
  }
  uint64_t reached = 0;
  const uint32_t code = ApplyPage(mirror, page, 0, &reached);
  if (mirror.isClosed) return;
  pull.span = std::max<uint64_t>(page.to - page.from, 1);
  AdvanceRange(mirror, pull, reached);
  if (code != 0) Trouble(mirror, COAP_RPC_MIRROR_BEHIND, code, nowMs);
}

void TakeTail(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  ApplyTail(mirror, page, nowMs);
  GoOn(mirror);
}

// IsLost is rule 6.
bool IsLost(const Mirror &mirror, const MirrorPull &asked, const MirrorPage &page) {
  return page.replid != mirror.replid || (page.flags & kSyncRestart) != 0 ||
         page.head < asked.headAtSend;
}

void TakeAnswer(Mirror &mirror, MirrorPull &pull, const MirrorPage &page, uint64_t nowMs) {
  const MirrorPull asked = pull;
  AnswerPull(mirror.pulls, pull, nowMs);
  if (asked.kind == PullKind::kHello) {
    BeginFull(mirror, page);
  } else if (IsLost(mirror, asked, page)) {
    BeginAgain(mirror, page, Code(kSiteMirrorRestarts), nowMs);
  } else if (!IsAnswerTo(asked, page)) {
    Contradict(mirror, nowMs);
  } else {
    mirror.head = std::max(mirror.head, page.head);
    if (asked.kind == PullKind::kRange) {
      TakeRange(mirror, pull, page, nowMs);
    } else {
      TakeTail(mirror, page, nowMs);
    }
  }
}

// Register wants a registration when the server pushes nothing, though not again and again.
void Register(Mirror &mirror, uint64_t nowMs) {
  if (!IsIdle(mirror.registration) || nowMs < mirror.registerMs) return;
  ++mirror.numRegisters;
  mirror.registerMs = nowMs + PauseMs(mirror, mirror.numRegisters + 1, kMirrorLastPauseMs);
  mirror.registration.waitMs = 0;
  mirror.registration.state = PullState::kWanted;
}

// A server that pushes without having been asked through this socket has a registration of whoever
// had the port before: what it pushes is not for us.
void NoteObserving(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  if ((page.flags & kSyncNotObserving) != 0 || mirror.registration.token == 0) {
    Register(mirror, nowMs);
  } else {
    mirror.numRegisters = 0;
  }
}

// Heard notes that the server is there, whatever it says.
void Heard(Mirror &mirror, uint64_t nowMs) {
  mirror.isHeard = true;
  mirror.heardMs = nowMs;
  mirror.numSilent = 0;
  mirror.numAttempts = 0;
  mirror.socketMs = 0;
}

// EndSilence tells that the server is there, if nothing else has.
void EndSilence(Mirror &mirror) {
  if (IsSilent(mirror)) TellState(mirror, BusyState(mirror), mirror.troubleCode);
}

// Notifications.

void NoteConfirm(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  if ((page.flags & kSyncConfirm) == 0 || mirror.confirmMs != 0) return;
  mirror.confirmMs = nowMs + 1 + Chance(mirror) % kMirrorConfirmMs;
}

void TakeNews(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  NoteConfirm(mirror, page, nowMs);
  const bool follows = page.from <= mirror.cursor && mirror.cursor < page.to;
  if (follows) ApplyTail(mirror, page, nowMs);
  if (!mirror.isClosed && mirror.cursor < mirror.head) WantNews(mirror);
}

// TakeNotification is rule 2.  One of another life may be late: a pull will tell.
void TakeNotification(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  ++mirror.numNotifications;
  const bool isOfThisLife = page.replid == mirror.replid;
  if (isOfThisLife) mirror.head = std::max(mirror.head, page.head);
  if (mirror.isFull) return;
  if (isOfThisLife) {
    TakeNews(mirror, page, nowMs);
  } else {
    WantNews(mirror);
  }
}

// TakeRegistered takes the answer to a registration: a head, of changes made before it too.
void TakeRegistered(Mirror &mirror, const MirrorPage &page) {
  if (page.replid != mirror.replid) return;
  mirror.head = std::max(mirror.head, page.head);
  if (!mirror.isFull && mirror.cursor < mirror.head) WantNews(mirror);
}

bool IsOfRegistration(const Mirror &mirror, uint64_t token) {
  return mirror.registration.token != 0 && mirror.registration.token == token;
}

// Time.

// NewSocket begins from a port of its own again: what the server and the way there know of the
// former one may be what is wrong.
void NewSocket(Mirror &mirror, uint64_t nowMs) {
  ++mirror.numAttempts;
  PullsReset(mirror.pulls);
  mirror.registration.state = PullState::kIdle;
  mirror.registration.token = 0;
  mirror.registerMs = 0;
  mirror.numRegisters = 0;
  mirror.wantsSocket = true;
  mirror.hasSocket = false;
  mirror.socketMs = nowMs + 1 + PauseMs(mirror, mirror.numAttempts + 3, HeartbeatPauseMs(mirror));
}

// WantPing is for a server that has never answered: perhaps it is there, and silent because it knows
// no versions of the URI.
void WantPing(Mirror &mirror) { mirror.wantsPing = mirror.replid == 0; }

void GoSilent(Mirror &mirror, uint64_t nowMs) {
  const bool isThere = std::exchange(mirror.isThere, false);
  NewSocket(mirror, nowMs);
  WantPing(mirror);
  TellState(mirror, isThere ? COAP_RPC_MIRROR_REFUSED : COAP_RPC_MIRROR_STALE,
            Code(isThere ? kSiteMirrorNoPage : kSiteMirrorSilent));
}

void CountSilence(Mirror &mirror, uint64_t nowMs) {
  const bool isAsked = std::exchange(mirror.isAsked, false);
  if (std::exchange(mirror.isHeard, false) || !isAsked) return;
  ++mirror.numSilent;
  if (mirror.numSilent + 1 == kMirrorMaxSilent) WantPing(mirror);
  if (mirror.numSilent == kMirrorMaxSilent) GoSilent(mirror, nowMs);
}

void Beat(Mirror &mirror, uint64_t nowMs) {
  mirror.heartbeatMs = nowMs + Spread(mirror.param.heartbeatMs, kTenth, Chance(mirror));
  if (nowMs < mirror.holdMs) return;  // nothing was asked
  CountSilence(mirror, nowMs);
  WantTail(mirror);
}

// Confirm asks from the cursor, which confirms it, as soon as no other question is under way.
void Confirm(Mirror &mirror, uint64_t nowMs) {
  const bool isBusy = !IsIdle(TailPull(mirror));
  mirror.confirmMs = isBusy ? nowMs + kMirrorConfirmMs : 0;
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

// What to send.

MirrorAsk NextRegistration(Mirror &mirror, uint64_t nowMs) {
  MirrorPull &registration = mirror.registration;
  const bool isRepeated = registration.token != 0;
  if (!isRepeated) registration.token = NewToken(mirror);
  TimePull(registration, TimeOf(mirror, nowMs));
  MirrorAsk ask = {};
  ask.act = MirrorAct::kRegister;
  ask.token = registration.token;
  ask.isRepeated = isRepeated;
  return ask;
}

MirrorAsk AskOf(const Mirror &mirror, const MirrorPull &pull, bool isRepeated) {
  MirrorAsk ask = {};
  ask.act = MirrorAct::kPull;
  ask.token = pull.token;
  ask.isRepeated = isRepeated;
  ask.isHello = pull.kind == PullKind::kHello;
  ask.isFull = pull.kind == PullKind::kRange;
  ask.replid = mirror.replid;
  ask.since = pull.since;
  ask.until = pull.until;
  return ask;
}

MirrorAsk NextOfPulls(Mirror &mirror, uint64_t nowMs) {
  MirrorPull *pull = nowMs >= mirror.holdMs ? NextPull(mirror.pulls) : nullptr;
  if (!pull) return {};
  const bool isRepeated = pull->token != 0;
  SendPull(mirror.pulls, *pull, TimeOf(mirror, nowMs), NewToken(mirror), mirror.head);
  mirror.isAsked = true;
  const bool isConfirmed = pull->kind == PullKind::kTail && pull->since == mirror.cursor;
  if (isConfirmed) mirror.confirmMs = 0;
  return AskOf(mirror, *pull, isRepeated);
}

bool IsWanted(const MirrorPull &pull) { return pull.state == PullState::kWanted; }

// HeldUntil is when a pull goes out that is held back; UINT64_MAX: none is.
uint64_t HeldUntil(const Mirror &mirror) {
  return mirror.hasSocket && NextPull(mirror.pulls) ? mirror.holdMs : UINT64_MAX;
}

uint64_t OrNever(uint64_t atMs) { return atMs != 0 ? atMs : UINT64_MAX; }

uint64_t DueRegistration(const Mirror &mirror) {
  const bool isSent = mirror.registration.state == PullState::kSent;
  return isSent ? mirror.registration.dueMs : UINT64_MAX;
}

bool InitPulls(MirrorPulls &pulls, uint64_t mem, uint32_t numSlots) {
  pulls.slots = static_cast<MirrorPull *>(PoolAlloc(mem, numSlots * sizeof(MirrorPull)));
  pulls.numSlots = numSlots;
  return pulls.slots != nullptr;
}

}  // namespace

bool MirrorInit(Mirror &mirror, uint64_t mem, const CoapRpcMirrorParam &param, MirrorRandom random,
                void *randomArg, uint64_t nowMs) {
  mirror.param = param;
  mirror.random = random;
  mirror.randomArg = randomArg;
  mirror.state = COAP_RPC_MIRROR_CONNECTING;
  const bool hasTable = MirrorTableInit(mirror.table, mem, param);
  if (!InitPulls(mirror.pulls, mem, param.numInFlight) || !hasTable) {
    MirrorFree(mirror);
    return false;
  }
  mirror.heardMs = nowMs;
  mirror.heartbeatMs = nowMs + Spread(param.heartbeatMs, kTenth, Chance(mirror));
  NewSocket(mirror, nowMs);
  mirror.socketMs = 0;
  WantHello(mirror);
  return true;
}

void MirrorFree(Mirror &mirror) {
  PoolFree(mirror.table.mem, std::exchange(mirror.pulls.slots, nullptr));
  MirrorTableFree(mirror.table);
}

MirrorAsk MirrorNext(Mirror &mirror, uint64_t nowMs) {
  if (mirror.isClosed) return {};
  if (std::exchange(mirror.wantsSocket, false)) {
    ++mirror.numSockets;
    mirror.hasSocket = true;
    MirrorAsk ask = {};
    ask.act = MirrorAct::kOpen;
    return ask;
  }
  if (!mirror.hasSocket) return {};
  if (std::exchange(mirror.wantsPing, false)) {
    MirrorAsk ask = {};
    ask.act = MirrorAct::kPing;
    return ask;
  }
  return IsWanted(mirror.registration) ? NextRegistration(mirror, nowMs)
                                       : NextOfPulls(mirror, nowMs);
}

uint64_t MirrorDueMs(const Mirror &mirror) {
  return std::min({mirror.heartbeatMs, OrNever(mirror.confirmMs), OrNever(mirror.socketMs),
                   HeldUntil(mirror), DueRegistration(mirror), DuePull(mirror.pulls)});
}

void MirrorTick(Mirror &mirror, uint64_t nowMs) {
  RepeatPulls(mirror.pulls, nowMs);
  RepeatRegistration(mirror, nowMs);
  if (IsDue(mirror.confirmMs, nowMs)) Confirm(mirror, nowMs);
  if (IsDue(mirror.socketMs, nowMs)) RetrySocket(mirror, nowMs);
  if (mirror.heartbeatMs <= nowMs) Beat(mirror, nowMs);
}

void MirrorTakePage(Mirror &mirror, uint64_t token, const MirrorPage &page, uint64_t nowMs) {
  MirrorPull *pull = FindPull(mirror.pulls, token);
  const bool isOfRegistration = IsOfRegistration(mirror, token);
  if (!pull && !isOfRegistration) return;
  Heard(mirror, nowMs);
  if (isOfRegistration) mirror.registration.state = PullState::kIdle;
  if (pull) {
    NoteObserving(mirror, page, nowMs);
    TakeAnswer(mirror, *pull, page, nowMs);
  } else if ((page.flags & kSyncNotification) != 0) {
    TakeNotification(mirror, page, nowMs);
  } else {
    TakeRegistered(mirror, page);
  }
  EndSilence(mirror);
}

void MirrorTakeNothing(Mirror &mirror, uint64_t token, uint64_t nowMs) {
  if (!IsOfRegistration(mirror, token)) {
    MirrorTakeFailure(mirror, token, Code(kSiteMirrorNoPage), nowMs);
    return;
  }
  Heard(mirror, nowMs);
  ++mirror.numNotifications;
  if (!mirror.isFull) WantNews(mirror);
  EndSilence(mirror);
}

void MirrorTakePart(Mirror &mirror, uint64_t nowMs) { Heard(mirror, nowMs); }

// A registration that fails is only missed by the next heartbeat, whose answer says so.
void MirrorTakeFailure(Mirror &mirror, uint64_t token, uint32_t code, uint64_t nowMs) {
  MirrorPull *pull = FindPull(mirror.pulls, token);
  if (!pull && !IsOfRegistration(mirror, token)) return;
  ++mirror.numBad;
  Heard(mirror, nowMs);
  if (pull) {
    FailPull(mirror.pulls, *pull);
    mirror.isDoubtful = true;
    const bool isBusy = code == Code(kSiteMirrorRestarts);
    Trouble(mirror, isBusy ? COAP_RPC_MIRROR_BEHIND : COAP_RPC_MIRROR_REFUSED, code, nowMs);
  } else {
    mirror.registration.state = PullState::kIdle;
    if (!mirror.isFull) WantNews(mirror);
  }
  EndSilence(mirror);
}

void MirrorLoseSocket(Mirror &mirror, uint64_t nowMs) {
  mirror.hasSocket = false;
  mirror.socketMs = nowMs + PauseMs(mirror, mirror.numAttempts + 2, HeartbeatPauseMs(mirror));
  TellState(mirror, COAP_RPC_MIRROR_STALE, Code(kSiteMirrorNoSocket));
}

void MirrorTakePong(Mirror &mirror) { mirror.isThere = true; }

// No silence is the server's until it was asked through the other socket.
void MirrorMove(Mirror &mirror, uint64_t nowMs) {
  NewSocket(mirror, nowMs);
  if (mirror.numSilent < kMirrorMaxSilent) mirror.socketMs = 0;
}

CoapRpcMirrorState MirrorStateOf(const Mirror &mirror, uint64_t nowMs) {
  CoapRpcMirrorState state = {};
  state.state = mirror.state;
  state.code = mirror.code;
  state.replid = mirror.replid;
  state.version = mirror.cursor;
  state.head = mirror.head;
  state.syncedVersion = mirror.toldVersion;
  state.digest = mirror.table.digest;
  state.numTuples = mirror.table.num;
  state.bytes = MirrorTableBytes(mirror.table);
  state.silentMs = nowMs > mirror.heardMs ? nowMs - mirror.heardMs : 0;
  state.numPulls = mirror.pulls.numPulls;
  state.numRepeats = mirror.pulls.numRepeats;
  state.numNotifications = mirror.numNotifications;
  state.numFullSyncs = mirror.numFullSyncs;
  state.numRegistrations = mirror.numSockets;
  state.numDigestErrors = mirror.numDigestErrors;
  state.numBadMessages = mirror.numBad;
  state.numInFlight = mirror.pulls.numSent;
  state.window = mirror.pulls.window;
  return state;
}

}  // namespace coap_rpc
