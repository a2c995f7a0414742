/* coap_rpc_cli_mirror_pulls.h: the questions that a mirror has under way, and how many may be.
 *
 * A question is asked in a message without confirmation, so it is the mirror that repeats it: after
 * 500 ms, then after twice as long each time, up to 8 s, each +-25 %.  A repetition has the token
 * of the question, so that the answer to either message will do; another question has another
 * token.
 *
 *   idle     nothing is asked
 *   wanted   to be sent, or sent again, when the window allows
 *   sent     unanswered; wanted again when its time is over
 *
 * The window is how many may be sent at a time: 2 at first, one more with each answer, until an
 * answer takes much longer than the quickest did, which says that they queue up on the way, or none
 * comes.  After that one more with each window of answers, while they come quickly.  Repetitions
 * halve it, those of one window once. */
#ifndef COAP_RPC_CLI_MIRROR_PULLS_H
#define COAP_RPC_CLI_MIRROR_PULLS_H

#include <cstdint>

#include "coap_svc/rpc/coap_rpc_sync.h"

namespace coap_rpc {

enum class PullKind : uint8_t { kHello, kRange, kTail, kRegistration };
enum class PullState : uint8_t { kIdle, kWanted, kSent };

struct MirrorPull {
  uint64_t token;       // 0: not sent so far
  uint64_t since;       // it asks for what is newer,
  uint64_t until;       // up to this version
  uint64_t stop;        // where its range ends by now; the same, or less
  uint64_t headAtSend;  // the latest version known when it was sent first
  uint64_t span;        // of a range: versions in its latest page; 0: none came
  uint64_t firstMs;     // when it was sent first,
  uint64_t sentMs;      // and last
  uint64_t dueMs;       // when it is sent again
  uint32_t waitMs;
  PullKind kind;
  PullState state;
};

struct MirrorPulls {
  MirrorPull *slots;  // numSlots of them, owned
  uint32_t numSlots;
  uint32_t numSent;
  uint32_t window;
  uint32_t threshold;  // up to which the window grows with each answer
  uint32_t credit;     // answers since it grew last, above that
  uint64_t minRttMs;   // of this socket; UINT64_MAX: not known
  uint64_t halvedMs;   // what was sent before this does not halve the window again
  uint64_t numPulls;
  uint64_t numRepeats;
};

// PullTime is when something happens, and chance: 32 random bits.
struct PullTime {
  uint64_t nowMs;
  uint32_t random;
};

// Spread returns a time, give or take a part of it: 4 is +-25 %.
uint64_t Spread(uint64_t ms, uint32_t part, uint32_t random);

// PullsReset wants all questions again, with a small window: on a new socket.  PullsDrop takes them
// back.
void PullsReset(MirrorPulls &pulls);
void PullsDrop(MirrorPulls &pulls);

// AskPull makes a slot ask another question.
void AskPull(MirrorPulls &pulls, MirrorPull &pull, PullKind kind, uint64_t since, uint64_t until);

// NextPull returns a question to be sent now, or null.
MirrorPull *NextPull(const MirrorPulls &pulls);

// SendPull notes that a question goes out, with this token unless it has one.
void SendPull(MirrorPulls &pulls, MirrorPull &pull, PullTime time, uint64_t token, uint64_t head);

// FindPull returns the question that a token is of, if it is unanswered; else null.
MirrorPull *FindPull(const MirrorPulls &pulls, uint64_t token);

// AnswerPull notes that a question is answered, FailPull that it was, but has to be asked again.
void AnswerPull(MirrorPulls &pulls, MirrorPull &pull, uint64_t nowMs);
void FailPull(MirrorPulls &pulls, MirrorPull &pull);

// RepeatPulls wants those again whose time is over.  DuePull says when the next one's is.
void RepeatPulls(MirrorPulls &pulls, uint64_t nowMs);
uint64_t DuePull(const MirrorPulls &pulls);

// TimePull sets when a question that goes out now is to be repeated: for those without a slot too.
void TimePull(MirrorPull &pull, PullTime time);

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_MIRROR_PULLS_H */
