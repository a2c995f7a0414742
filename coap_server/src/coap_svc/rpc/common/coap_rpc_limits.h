/* coap_rpc_limits.h: periods, counts and sizes that the library fixes, by area.
 *
 * docs/limits.md says what each means for an application. */
#ifndef COAP_RPC_LIMITS_H
#define COAP_RPC_LIMITS_H

#include <cstddef>
#include <cstdint>

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_sync.h"

namespace coap_rpc {

// I/O task.  A tick's work is bounded so that a busy peer cannot hold the host thread.
inline constexpr uint32_t kTaskPeriodMs = 1000;
inline constexpr uint32_t kQuickPeriodMs = 100;
inline constexpr uint32_t kCallsPerServiceTick = 256;
inline constexpr uint32_t kCallsPerQuickTick = 25;
inline constexpr uint32_t kCallsWhenAsked = 32;

// I/O driven by the descriptor: a run ends when nothing waits or its time is used up.
inline constexpr uint32_t kDatagramsPerRead = 32;
inline constexpr uint32_t kIoBudgetMs = 10;

// Endpoints.  A port that cannot be bound blocks the caller for three sleeps.
inline constexpr uint32_t kEndPointAttempts = 3;
inline constexpr uint32_t kEndPointRetrySeconds = 1;

// libcoap.
inline constexpr uint32_t kLibLogLevel = 8;
inline constexpr uint32_t kBlockMode = 19;
inline constexpr uint16_t kNotifyMaxRetransmit = 4;
inline constexpr uint16_t kClientMaxRetransmit = 2;
inline constexpr uint16_t kDefaultCoapPort = 5683;

// Client side.
inline constexpr uint32_t kAgingPeriodMs = 1000;
inline constexpr uint32_t kAgingTicks = 90;
inline constexpr uint32_t kResendPeriodMs = 1001;
inline constexpr uint32_t kResendBatchSize = 20;

// Relations of the client: for how long an old notification is known by its number (RFC 7641
// section 3.4), and how long the next block of a payload may take for which a renewal waits: a
// little longer than libcoap goes on asking for it.
inline constexpr uint32_t kNotificationOrderMs = 128000;
inline constexpr uint32_t kIncomingIdleMs = 22000;

// Different warnings of input that can never work, which are logged.
inline constexpr uint32_t kMaxAdviceLines = 64;

// CON requests whose ends an application wants to be told of.
inline constexpr uint32_t kMaxOpenRequests = COAP_RPC_MAX_FOLLOWED_REQUESTS;

// Calls.  How often a message is sent again (RFC 7252 section 4.8), and how long after its Max-Age
// an observation is (RFC 7641 section 3.3.1).
inline constexpr uint8_t kCallMaxRetransmit = 4;
inline constexpr uint32_t kMaxCalls = COAP_RPC_MAX_CALLS;

// Answers to calls that are acknowledged again when they come again.
inline constexpr uint32_t kNumKnownCallAnswers = 256;
inline constexpr uint32_t kMinRenewalDelayMs = 5000;
inline constexpr uint32_t kMaxRenewalDelayMs = 15000;

// Observe.
inline constexpr uint32_t kUpdatePeriodMs = 1000;

// Changes that go back to the pending ones: how many of a URI may be pending then, and how many
// payloads in blocks may be given up in a row before their changes go nowhere.
inline constexpr uint32_t kMaxPutBackChgs = 65536;
inline constexpr uint32_t kMaxGivenUp = 10;

// Observe payloads that travel in blocks.  They silence their URI until they are released: one that
// is sent a little later, so that a request for its last block can be repeated before a newer
// payload takes its place; one that the peer no longer fetches when it is given up.
// Of the payloads that silence nothing, the oldest go when there are too many.
inline constexpr uint32_t kSentBlocksKeepMs = 900;
inline constexpr uint32_t kIdleBlocksKeepMs = 19000;
inline constexpr uint32_t kMaxSpareBlocks = 64;

// Last blocks of released payloads, for peers that ask again: libcoap's time, from when the block
// was first sent.
inline constexpr uint32_t kLastBlockKeepMs = 10000;
inline constexpr uint32_t kMaxLastBlocks = 64;

// Observers that keep versions.  One that asks nothing for more than so many ticks of its lease,
// which is the time of as many, is removed.  Pages that travel in blocks: the oldest go when there
// are too many.
inline constexpr uint32_t kSyncLeaseTicks = 4;
inline constexpr uint32_t kMaxSyncBodies = 64;

// This number of them is notified between two readings of datagrams, those who asked last first.  One
// session can register a few times with different options.
inline constexpr uint32_t kSyncPortion = 64;
inline constexpr uint32_t kSyncLatestPeers = 32;
inline constexpr uint32_t kMaxSyncRegistrations = 4;

// Mirrors.  A question without answer is repeated after twice the time before, up to a limit; what
// fails is tried again after twice the pause before, likewise.  A range is shared when it has so
// many pages left.  Nothing is repeated while a block of its answer came less than the last of
// these ago.
inline constexpr uint32_t kMaxMirrors = COAP_RPC_MAX_MIRRORS;
inline constexpr uint32_t kMirrorFirstWindow = 2;
inline constexpr uint32_t kMirrorFirstRepeatMs = 500;
inline constexpr uint32_t kMirrorLastRepeatMs = 8000;
inline constexpr uint32_t kMirrorFirstPauseMs = 500;
inline constexpr uint32_t kMirrorLastPauseMs = 60000;
inline constexpr uint32_t kMirrorMaxDoubts = 12;
inline constexpr uint32_t kMirrorMaxSilent = 3;
inline constexpr uint32_t kMirrorLeastRefused = 6;  // questions that a refusal leaves unanswered
inline constexpr uint32_t kMirrorConfirmMs = 50;
inline constexpr uint32_t kMirrorLeastSplit = 4;
inline constexpr uint32_t kMirrorBlockIdleMs = 2000;
inline constexpr uint32_t kMirrorMaxBlocks = 1024;  // for each question in flight, without a page

// Asynchronous requests.  A message with the same message id is a retransmission for this long
// (RFC 7252 section 4.8.2, EXCHANGE_LIFETIME).
inline constexpr uint32_t kExchangeLifetimeMs = 247000;

// Requests that the application has been given and not answered.  A peer has as many Message IDs.
inline constexpr uint32_t kMaxOpenAsyncOfPeer = COAP_RPC_MAX_OPEN_ASYNC_OF_PEER;
inline constexpr uint32_t kMaxOpenAsync = COAP_RPC_MAX_OPEN_ASYNC;

// Answers to one peer that libcoap has got and not sent.  The others stay with us: libcoap looks at
// all of a session's for each one that is added.
inline constexpr uint32_t kMaxAnswersInLibcoap = 32;

// Answers that one session sends in a turn of the I/O: the host's thread is not kept for longer.
inline constexpr uint32_t kMaxAnswersPerTurn = 128;

// Queued asynchronous answers to one peer: the more peers there are, the fewer, so that it is about
// kMaxWaitingInAll for all of them.  An answer in blocks counts as several.
inline constexpr uint32_t kMaxWaitingAnswers = 2048;
inline constexpr uint32_t kMaxWaitingInAll = 16384;
inline constexpr uint32_t kWaitingOfBlocks = 8;

// Answers in blocks take turns block by block: more of them at a time would all take longer, until
// the peer drops them.
inline constexpr uint32_t kMaxAnswersInBlocks = 4;
inline constexpr uint32_t kMaxAnswerInOneMessage = 1024;

// What senders with forged addresses can make the library hold.  Each session of asynchronous
// answers takes a socket.
inline constexpr uint32_t kMaxIdleSessions = 1000;
inline constexpr uint32_t kMaxAnswerSessions = 500;
inline constexpr uint32_t kAnswerSessionsPerTurn = 64;  // left free of spare ones for new peers
inline constexpr uint32_t kMaxSpareSessions = 128;
inline constexpr uint32_t kSpareSessionKeepMs = 60000;
inline constexpr uint32_t kMaxUploads = 64;
inline constexpr size_t kMaxUploadBytes = size_t{1024} * 1024;

// Direct entries.  Requests are known again for EXCHANGE_LIFETIME or NON_LIFETIME (RFC 7252 section
// 4.8.2).  A body is an answer that travels in blocks.  Answers are CON messages while fewer than
// kMaxUnacknowledged are unacknowledged, notifications included.
inline constexpr uint32_t kDirectTimeoutMs = 60000;
inline constexpr uint32_t kNonLifetimeMs = 145000;
inline constexpr uint32_t kMaxRemembered = COAP_RPC_MAX_REMEMBERED;
inline constexpr size_t kMaxRememberedBytes = COAP_RPC_MAX_REMEMBERED_BYTES;
inline constexpr uint32_t kMaxDirectPeers = 16384;  // with requests open or answers queued
inline constexpr uint32_t kMaxDirectPeersOfHost = kMaxDirectPeers / 4;
inline constexpr uint32_t kMaxUnacknowledged = 2048;
inline constexpr uint32_t kMaxBodies = 4096;
inline constexpr size_t kMaxBodyBytes = size_t{32768} * 1024;
inline constexpr uint32_t kMaxAnswerOptions = 8;  // that the application adds
inline constexpr uint32_t kMaxAnswerOptionBytes = 256;
inline constexpr size_t kMaxLinkValue = 255;

// Texts, bytes with terminator.
inline constexpr size_t kLogTextSize = 1024;
inline constexpr size_t kRecordTextSize = 1024;
inline constexpr size_t kTupleTextSize = 128;
inline constexpr size_t kAddrTextSize = 32;
inline constexpr size_t kIpTextSize = 48;  // any IPv6 address
inline constexpr size_t kSessionTextSize = 128;
inline constexpr size_t kTimeTextSize = 32;
inline constexpr size_t kFuncNameSize = 256;
inline constexpr size_t kPathTextSize = 64;
inline constexpr size_t kCheckCodeTextSize = 256;

// Memory.
inline constexpr size_t kPayloadSpareBytes = 16;
inline constexpr size_t kPayloadBufSize = 65471;
inline constexpr int32_t kMaxPayload = 65470;
inline constexpr uint32_t kMaxIdlMsg = 65465;  // the buffer less the count and one length field

}  // namespace coap_rpc

#endif /* COAP_RPC_LIMITS_H */
