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
 *       deletions after base are forgotten (floor > base), it begins again; so does a tail whose
 *       page has forgotten some that it was to have (floor > since).
 *   4   A full sync removes what it has not met, with the first page of its tail that reaches the
 *       head, and not before: until then a tuple may have moved from a range to the tail.
 *   5   SYNCED is only said by a page that reaches the head, which is the cursor, is not below any
 *       head heard of in this life, and has the digest of the mirror's tuples.  Another digest is
 *       an error: a full sync.
 *   6   An answer of another life, or with a head below one that was known when it was asked for,
 *       begins a full sync.  So does one that says so, unless it has only forgotten what came by
 *       notifications meanwhile.  Equal values are no change to anyone.
 *   7   A pull at every heartbeat; after three without any answer the mirror is STALE and tries
 *       another socket, with growing pauses.  It is REFUSED instead when the server has never
 *       answered, but its host does answer a ping.  It registers through each socket, and again
 *       whenever the server says that it pushes nothing.
 *
 * A pull tells the server what the mirror has, by `since`, only from a version that it was synced
 * with.  All others say that they do not (`full`).  What a full sync has led to is told by a pull
 * of its own, and so is what a server wants to be told.
 *
 * What to ask is in coap_rpc_cli_mirror_ask.cpp, when in coap_rpc_cli_mirror_time.cpp; here is what
 * the answers do.
 *
 * A trouble is what does not go away by asking again at once: an answer that is no page, a page
 * that contradicts what is known, no memory, a full sync that had to begin again.  The first one
 * since the mirror was synced costs no time; then the pauses double.  Full syncs that do not leave
 * the mirror in peace for a heartbeat are troubles too, though it is synced between them.  A server
 * that keeps to the protocol is asked again by the next heartbeat at the latest, any other, in the
 * end, in 60 s.
 *
 * Bounds: numInFlight questions, maxBytes of tuples.  A callback may close the mirror, which ends
 * whatever is under way: hence isClosed after each. */
#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror.h"

#include <algorithm>
#include <utility>

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_apply.h"
#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_ask.h"
#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_time.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace coap_rpc {
namespace {

// Troubles.

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
  ++mirror.numFulls;
  mirror.calmMs = UINT64_MAX;
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
  CountFulls(mirror, nowMs);
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
  CountFulls(mirror, nowMs);
  WantHello(mirror);
  Trouble(mirror, COAP_RPC_MIRROR_BEHIND, Code(kSiteMirrorContradiction), nowMs);
}

// FailDigest reads everything again.  Where answers came that were none, others were wrong as well:
// the pause for those was long enough, unless that happens again and again.
void FailDigest(Mirror &mirror, uint64_t nowMs) {
  const uint32_t code = Code(kSiteMirrorDigest);
  ++mirror.numDigestErrors;
  WantHello(mirror);
  CountFulls(mirror, nowMs);
  const bool isExcused = mirror.isDoubtful && mirror.numFulls < kMirrorMaxDoubts;
  if (!isExcused) Hold(mirror, nowMs, LongestPauseMs(mirror));
  mirror.isDoubtful = false;
  mirror.troubleCode = code;
  TellState(mirror, COAP_RPC_MIRROR_BEHIND, code);
}

void Sync(Mirror &mirror, uint64_t nowMs) {
  mirror.numTroubles = 0;
  mirror.isDoubtful = false;
  mirror.troubleCode = 0;
  mirror.holdMs = 0;
  mirror.calmMs = std::min(mirror.calmMs, nowMs + HeartbeatPauseMs(mirror));
  TellState(mirror, COAP_RPC_MIRROR_SYNCED, 0);
  TellSynced(mirror, mirror.cursor);
  if (mirror.hasToConfirm) WantConfirm(mirror, nowMs);
}

// Applying.

// ReachesHead is rule 5 but for the digest.  A page that was applied and has the greatest head has
// made that the cursor.
bool ReachesHead(const Mirror &mirror, const MirrorPage &page) {
  return (page.flags & kSyncAtHead) != 0 && page.to == page.head && page.head >= mirror.head;
}

// EndFull is rule 4.
void EndFull(Mirror &mirror) {
  if (!std::exchange(mirror.isFull, false)) return;
  mirror.hasToConfirm = true;
  RemoveUnmet(mirror);
}

// Check looks whether the mirror is complete with a page that was applied to the tail.
void Check(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  if (!ReachesHead(mirror, page)) return;
  EndFull(mirror);
  if (mirror.isClosed) return;
  if (mirror.table.digest != page.digest) {
    FailDigest(mirror, nowMs);
  } else {
    Sync(mirror, nowMs);
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

// Answers.

// HasProgress: a page without changes has all up to where it was asked for.
bool HasProgress(const MirrorPull &pull, const MirrorPage &page) {
  return page.num != 0 || page.to == pull.until ||
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

// HasForgotten says whether the server has forgotten deletions that a page of the tail was to have.
bool HasForgotten(const MirrorPull &asked, const MirrorPage &page) {
  return asked.kind == PullKind::kTail && page.floor > asked.since;
}

// IsLost is rule 6.
bool IsLost(const Mirror &mirror, const MirrorPull &asked, const MirrorPage &page) {
  return page.replid != mirror.replid || (page.flags & kSyncRestart) != 0 ||
         page.head < asked.headAtSend || HasForgotten(asked, page);
}

// IsOutdated says whether an answer has forgotten only what the mirror got by notifications since
// it asked, as when the question had to be repeated.
bool IsOutdated(const Mirror &mirror, const MirrorPull &asked, const MirrorPage &page) {
  return HasForgotten(asked, page) && page.floor <= mirror.cursor && page.replid == mirror.replid &&
         page.head >= asked.headAtSend;
}

// AskFromCursor asks again what was asked from before the cursor.
void AskFromCursor(Mirror &mirror, const MirrorPage &page) {
  mirror.head = std::max(mirror.head, page.head);
  WantTail(mirror);
  GoOn(mirror);
}

void TakeAnswer(Mirror &mirror, MirrorPull &pull, const MirrorPage &page, uint64_t nowMs) {
  const MirrorPull asked = pull;
  AnswerPull(mirror.pulls, pull, nowMs);
  if (asked.kind == PullKind::kHello) {
    BeginFull(mirror, page);
  } else if (IsOutdated(mirror, asked, page)) {
    AskFromCursor(mirror, page);
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

// A server that pushes without having been asked through this socket has a registration of whoever
// had the port before: what it pushes is not for us.
void NoteObserving(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  if ((page.flags & kSyncNotObserving) != 0 || mirror.registration.token == 0) {
    WantRegistration(mirror, nowMs);
  } else {
    mirror.numRegisters = 0;
  }
}

// Notifications.

void TakeNews(Mirror &mirror, const MirrorPage &page, uint64_t nowMs) {
  if ((page.flags & kSyncConfirm) != 0) WantConfirm(mirror, nowMs);
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

// EndBlocks gives up all that is coming in.
void EndBlocks(Mirror &mirror, uint64_t nowMs) {
  mirror.numBlocks = 0;
  ++mirror.numBad;
  MirrorMove(mirror, nowMs);
  Trouble(mirror, COAP_RPC_MIRROR_REFUSED, Code(kSiteMirrorBadPage), nowMs);
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
  BeginTime(mirror, nowMs);
  WantHello(mirror);
  return true;
}

void MirrorFree(Mirror &mirror) {
  PoolFree(mirror.table.mem, std::exchange(mirror.pulls.slots, nullptr));
  MirrorTableFree(mirror.table);
}

void MirrorTakePage(Mirror &mirror, uint64_t token, const MirrorPage &page, uint64_t nowMs) {
  MirrorPull *pull = FindPull(mirror.pulls, token);
  const bool isOfRegistration = IsOfRegistration(mirror, token);
  if (!pull && !isOfRegistration) return;
  mirror.numBlocks = 0;
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

// A registration that fails is only missed by the next heartbeat, whose answer says so.
void MirrorTakeFailure(Mirror &mirror, uint64_t token, uint32_t code, uint64_t nowMs) {
  MirrorPull *pull = FindPull(mirror.pulls, token);
  if (!pull && !IsOfRegistration(mirror, token)) return;
  ++mirror.numBad;
  mirror.numBlocks = 0;
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

bool MirrorTakeBlock(Mirror &mirror, uint64_t nowMs) {
  const uint32_t numPages = std::max(mirror.pulls.numSent, 1u);
  const bool isWanted = ++mirror.numBlocks <= kMirrorMaxBlocks * numPages;
  MirrorTakePart(mirror, nowMs);
  if (!isWanted) EndBlocks(mirror, nowMs);
  return isWanted;
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
