/* coap_rpc_lib_order.cpp: the order of a relation's notifications.
 *
 * Order.  Each notification has a number of 24 bits that grows (RFC 7641 section 3.4).  A relation
 * remembers the number of its freshest message and when that came.  A notification passes when its
 * number is newer or the freshest came more than 128 s ago.  An old one, and one with the same
 * number, is a copy or was overtaken: libcoap acknowledges it and nothing else happens.  This is
 * asked of each message with an Observe option, so of the first block of a payload: an old one
 * begins no fetch.  Later blocks have no number; libcoap knows them by their requests.
 *
 * The response to a registration moves the order.  It is the answer that acknowledges the request,
 * or, once the request has been acknowledged without an answer, a message whose number is not
 * newer.
 *   - Not older than the number that was known when the registration was sent, but older than the
 *     freshest: notifications have overtaken it, and it is old.
 *   - Older than both: the peer has restarted and counts again.  The order starts with its number,
 *     or the relation would be deaf for up to 128 s.  For that long, numbers near to those of the
 *     peer's former life are those of copies.  A CON notification of a restarted peer may come
 *     before its answer; while that is possible, an unknown one that is not newer is not even
 *     acknowledged, and counts when it is repeated.
 *   - An answer that tells nothing (no payload, no ETag, not 2.04) makes no notification old: what
 *     was on its way before it still counts.  It moves the order only when the peer has restarted.
 * A server that is asked for notifications and for a registration at once gives both one number, so
 * the number of an acknowledgement passes once more, as that of a notification.
 *
 * Payloads in blocks.  A first block that passes begins a payload, which replaces one that is
 * coming in.  A newer payload in one message overtakes it: it is dropped when it is whole.
 *
 * Missing.  Notifications are changes, not states: when one is dropped that is no copy of one that
 * came before, what it said is missing, although the check code of the newer one is up to date.
 * The next verification asks for everything, and so does each one after it until a registration
 * that asked is answered. */
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_order.h"

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

using Relation = CoapRpcCliRelation;

constexpr uint32_t kNumberMask = 0xFFFFFF;
constexpr uint32_t kHalfOfNumbers = 0x800000;
constexpr coap_tick_t kOrderTicks = TicksOfMs(kNotificationOrderMs);

// Numbers of a restarted peer grow in steps; longer ones may be those of copies.
constexpr uint32_t kLongestStep = 8;

constexpr uint32_t kNumSeen = 64;  // bits of Relation::seen
constexpr uint32_t kClassSuccess = 2;

// StepsFrom counts the steps from one number to another that comes after it.
uint32_t StepsFrom(uint32_t a, uint32_t b) { return (b - a) & kNumberMask; }

// IsAfter says whether number `b` is newer than `a`.
bool IsAfter(uint32_t a, uint32_t b) { return a != b && StepsFrom(a, b) < kHalfOfNumbers; }

// Notification is what a message with an Observe option says.
struct Notification {
  const coap_pdu_t *pdu;
  uint32_t number;
  coap_tick_t at;
  bool isAck;
};

bool ReadNotification(const coap_pdu_t *pdu, Notification *out) {
  coap_opt_iterator_t it;
  const coap_opt_t *opt = coap_check_option(pdu, COAP_OPTION_OBSERVE, &it);
  if (!opt) return false;
  const unsigned value = coap_decode_var_bytes(coap_opt_value(opt), coap_opt_length(opt));
  *out = {pdu, value & kNumberMask, NowTicks(), coap_pdu_get_type(pdu) == COAP_MESSAGE_ACK};
  return true;
}

bool TellsNothing(const coap_pdu_t *pdu) {
  coap_opt_iterator_t it;
  size_t size = 0;
  const uint8_t *data = nullptr;
  const bool hasPayload = coap_get_data(pdu, &size, &data) != 0 && size != 0;
  return !hasPayload && !coap_check_option(pdu, COAP_OPTION_ETAG, &it) &&
         coap_pdu_get_code(pdu) != COAP_RESPONSE_CODE_CHANGED;
}

bool IsFirstBlock(const coap_pdu_t *pdu) {
  coap_block_t block;
  return coap_get_block(pdu, COAP_OPTION_BLOCK2, &block) != 0 && block.num == 0;
}

// IsOfFormerLife says whether a number rather belongs to what a restarted peer sent before.
bool IsOfFormerLife(const Relation &rel, const Notification &msg) {
  if (msg.at >= rel.formerUntil || IsAfter(rel.formerNumber, msg.number)) return false;
  const uint32_t step = StepsFrom(rel.number, msg.number);
  return step > kLongestStep && StepsFrom(msg.number, rel.formerNumber) < step;
}

bool IsNewer(const Relation &rel, const Notification &msg) {
  if (rel.freshest == COAP_RPC_FRESHEST_NONE || msg.at > rel.freshAt + kOrderTicks) return true;
  if (msg.number == rel.number) return rel.freshest == COAP_RPC_FRESHEST_ANSWER && !msg.isAck;
  return IsAfter(rel.number, msg.number) && !IsOfFormerLife(rel, msg);
}

// IsSince says whether a number is one that the peer can have given since the registration was
// sent, if it has not restarted.
bool IsSince(const Relation &rel, const Notification &msg) {
  return rel.wasNumbered == 0 || !IsAfter(msg.number, rel.numberSent);
}

void NotePayload(Relation *rel, const coap_pdu_t *pdu) {
  if (IsFirstBlock(pdu)) {
    ++rel->numBodies;
    rel->isBodyOld = 0;
  } else {
    rel->isBodyOld = 1;
  }
}

// NoteSeen is called with the number that is going to be the freshest.
void NoteSeen(Relation *rel, uint32_t number) {
  const uint32_t step = StepsFrom(rel->number, number);
  rel->seen = (step < kNumSeen ? rel->seen << step : 0) | 1;
}

// IsKnown says whether a number that is not newer has come before, so that this is a copy.
bool IsKnown(const Relation &rel, uint32_t number) {
  const uint32_t back = StepsFrom(number, rel.number);
  return back < kNumSeen && (rel.seen >> back & 1) != 0;
}

void Take(Relation *rel, const Notification &msg) {
  const bool isKnown = rel->freshest == COAP_RPC_FRESHEST_NOTIFICATION && rel->number == msg.number;
  NoteSeen(rel, msg.number);
  rel->freshest = msg.isAck && !isKnown ? COAP_RPC_FRESHEST_ANSWER : COAP_RPC_FRESHEST_NOTIFICATION;
  rel->number = msg.number;
  rel->freshAt = msg.at;
}

void StartAgain(Relation *rel, const Notification &msg) {
  rel->formerNumber = rel->number;
  rel->formerUntil = rel->freshAt + kOrderTicks;
  rel->seen = 0;
  Take(rel, msg);
}

int Drop(CoapRpcCliData *cli) {
  ++cli->numOldNotified;
  return kCoapRpcLibOld;
}

// DropOvertaken drops what nobody has had; what it said is missing.
int DropOvertaken(CoapRpcCliData *cli, Relation *rel) {
  rel->missing = COAP_RPC_MISSING_SOME;
  return Drop(cli);
}

int DropOld(CoapRpcCliData *cli, Relation *rel, const Notification &msg) {
  const bool isMissing =
      !TellsNothing(msg.pdu) && !IsKnown(*rel, msg.number) && !IsOfFormerLife(*rel, msg);
  return isMissing ? DropOvertaken(cli, rel) : Drop(cli);
}

void NoteAnswered(Relation *rel, const coap_pdu_t *answer) {
  rel->isAwaited = 0;
  const bool isAccepted = COAP_RESPONSE_CLASS(coap_pdu_get_code(answer)) == kClassSuccess;
  if (isAccepted && rel->missing == COAP_RPC_MISSING_ASKED) rel->missing = COAP_RPC_MISSING_NOTHING;
}

int OrderAnswer(CoapRpcCliData *cli, Relation *rel, const Notification &msg) {
  const bool isFirst = rel->freshest == COAP_RPC_FRESHEST_NONE;
  const bool isOlder =
      !isFirst && IsAfter(msg.number, rel->number) && msg.at <= rel->freshAt + kOrderTicks;
  const bool isSilent = TellsNothing(msg.pdu);
  NoteAnswered(rel, msg.pdu);
  if (isOlder && IsSince(*rel, msg)) {
    return isSilent ? int{kCoapRpcLibFresh} : DropOvertaken(cli, rel);
  }
  if (isOlder) {
    StartAgain(rel, msg);
  } else if (isFirst || !isSilent) {
    Take(rel, msg);
  }
  if (!isSilent) NotePayload(rel, msg.pdu);
  return kCoapRpcLibFresh;
}

int OrderNotification(CoapRpcCliData *cli, Relation *rel, const Notification &msg) {
  if (!IsNewer(*rel, msg)) return DropOld(cli, rel, msg);
  const bool isFirst = rel->freshest == COAP_RPC_FRESHEST_NONE;
  if (TellsNothing(msg.pdu) && !isFirst) return kCoapRpcLibBeside;
  Take(rel, msg);
  NotePayload(rel, msg.pdu);
  return isFirst ? kCoapRpcLibFresh : kCoapRpcLibBeside;
}

// PassUnnumbered passes a response of a peer that does not observe, or not any more.
int PassUnnumbered(Relation *rel, const coap_pdu_t *pdu) {
  NoteAnswered(rel, pdu);
  if (IsFirstBlock(pdu)) NotePayload(rel, pdu);
  return kCoapRpcLibFresh;
}

// OrderSeparate orders a message that may be the separate response to a registration: one that is
// not newer is, and after one that is nothing is waited for.
int OrderSeparate(CoapRpcCliData *cli, Relation *rel, const Notification &msg) {
  if (!IsNewer(*rel, msg)) return OrderAnswer(cli, rel, msg);
  NoteAnswered(rel, msg.pdu);
  return OrderNotification(cli, rel, msg);
}

// IsTooEarly says whether a message may be that of a restarted peer whose answer to the
// registration was lost, so that the order cannot be known before that is answered.
bool IsTooEarly(const Relation &rel, const Notification &msg) {
  return coap_pdu_get_type(msg.pdu) == COAP_MESSAGE_CON && !TellsNothing(msg.pdu) &&
         !IsNewer(rel, msg) && !IsSince(rel, msg) && !IsKnown(rel, msg.number) &&
         !IsOfFormerLife(rel, msg);
}

int OrderWhileAwaited(CoapRpcCliData *cli, Relation *rel, const Notification &msg,
                      const coap_session_t *session) {
  if (CoapRpcLibIsUnacknowledged(session, msg.pdu) == 0) return OrderSeparate(cli, rel, msg);
  return IsTooEarly(*rel, msg) ? int{kCoapRpcLibEarly} : OrderNotification(cli, rel, msg);
}

int Order(CoapRpcCliData *cli, Relation *rel, const Notification &msg, coap_session_t *session,
          const coap_pdu_t *sent) {
  if (sent) return OrderAnswer(cli, rel, msg);
  if (rel->isAwaited != 0 && !msg.isAck) return OrderWhileAwaited(cli, rel, msg, session);
  return OrderNotification(cli, rel, msg);
}

}  // namespace

int OrderResponse(CoapRpcCliData *cli, Relation *rel, coap_session_t *session,
                  const coap_pdu_t *sent, const coap_pdu_t *received) {
  Notification msg;
  if (!ReadNotification(received, &msg)) return PassUnnumbered(rel, received);
  return Order(cli, rel, msg, session, sent);
}

bool IsOvertaken(CoapRpcCliData *cli, Relation *rel, const coap_pdu_t *received) {
  if (CoapRpcLibIsBody(received) == 0 || rel->isBodyOld == 0) return false;
  DropOvertaken(cli, rel);
  return true;
}

void AwaitAnswer(Relation *rel) {
  rel->isAwaited = 1;
  rel->wasNumbered = rel->freshest != COAP_RPC_FRESHEST_NONE ? 1 : 0;
  rel->numberSent = rel->number;
  rel->heldFor = 0;
}

}  // namespace coap_rpc
