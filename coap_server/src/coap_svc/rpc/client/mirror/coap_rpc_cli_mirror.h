/* coap_rpc_cli_mirror.h: a mirror, apart from its network and its clock.
 *
 * Whoever owns it tells it what has come and what time it is, and asks it what to send.  The story
 * is told at the head of the source file. */
#ifndef COAP_RPC_CLI_MIRROR_H
#define COAP_RPC_CLI_MIRROR_H

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_pulls.h"
#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_table.h"
#include "coap_svc/rpc/common/coap_rpc_sync_format.h"

namespace coap_rpc {

// MirrorChange is a tuple of a page; val is null for a deletion.
struct MirrorChange {
  uint64_t version;
  const uint8_t *key;
  const uint8_t *val;
};

// MirrorPage is a page whose numbers do not contradict each other: versions grow, from is not
// above to, nor to above head.  It borrows from the message.
struct MirrorPage {
  uint64_t flags;
  uint64_t replid;
  uint64_t from;
  uint64_t to;
  uint64_t head;
  uint64_t floor;
  uint64_t digest;
  size_t num;
  MirrorChange changes[kSyncMaxChanges];
};

// MirrorRandom returns 64 random bits.
typedef uint64_t (*MirrorRandom)(void *arg);

struct Mirror {
  CoapRpcMirrorParam param;  // without zeros that stand for defaults
  MirrorRandom random;
  void *randomArg;
  MirrorTable table;
  MirrorPulls pulls;
  MirrorPull registration;  // beside the pulls, in no window

  // The position.
  uint64_t replid;     // 0: not known
  uint64_t cursor;     // it has everything up to this version; 0 until all ranges are read
  uint64_t head;       // the latest version of this life that was heard of
  uint64_t base;       // head when the full sync began; 0: none has
  uint32_t numRanges;  // that are not read to their end
  bool isFull;         // a full sync is on, or wanted
  bool isDoubtful;     // an answer was none since it began, or since the mirror was synced

  // What the application was told.
  uint32_t state;
  uint32_t code;
  uint64_t toldReplid;
  uint64_t toldVersion;
  bool isClosed;  // nothing is told any more

  // Times.
  uint64_t heardMs;
  uint64_t heartbeatMs;
  uint64_t holdMs;      // no pull goes out before
  uint64_t registerMs;  // no registration does
  uint64_t confirmMs;   // when to ask in order to confirm; 0: not now
  uint64_t socketMs;    // when to try another socket; 0: no need
  uint64_t calmMs;      // when there was peace after the latest full sync

  uint32_t numBlocks;     // since there was a whole answer
  uint32_t numSilent;     // heartbeats that nothing was heard after
  uint32_t numTroubles;   // since it was synced last
  uint32_t numFulls;      // full syncs that began without a heartbeat of peace between them
  uint32_t numRegisters;  // since the server pushed last
  uint32_t numAttempts;   // sockets since the server was heard last
  uint32_t troubleCode;   // 0: none since it was synced last
  bool isAsked;           // since the last heartbeat: a pull went out,
  bool isHeard;           // and the server was heard
  bool hasSocket;
  bool wantsSocket;
  bool wantsPing;
  bool isThere;       // its host has answered a ping that was sent through this socket
  bool hasToConfirm;  // the server was not told so far what the mirror has

  uint64_t numNotifications;
  uint64_t numFullSyncs;
  uint64_t numSockets;
  uint64_t numDigestErrors;
  uint64_t numBad;
};

// MirrorInit makes a zeroed mirror ready; false without memory.  MirrorFree frees all but the
// record.
[[nodiscard]] bool MirrorInit(Mirror &mirror, uint64_t mem, const CoapRpcMirrorParam &param,
                              MirrorRandom random, void *randomArg, uint64_t nowMs);
void MirrorFree(Mirror &mirror);

// MirrorAsk is what the owner has to do.
enum class MirrorAct { kNone, kOpen, kPing, kRegister, kPull };
struct MirrorAsk {
  MirrorAct act;
  uint64_t token;
  bool isRepeated;
  bool isHello;  // asks for the head alone, with no argument
  bool isFull;   // confirms nothing
  uint64_t replid;
  uint64_t since;
  uint64_t until;  // UINT64_MAX: the head
};

// MirrorNext returns what is to be done next, and takes it as done; kNone when there is nothing.
// kOpen is another socket: what comes through former ones is not for the mirror any more.  kPing
// asks the host whether it is there, whatever it serves.
MirrorAsk MirrorNext(Mirror &mirror, uint64_t nowMs);

// MirrorDueMs says when MirrorTick has something to do.
uint64_t MirrorDueMs(const Mirror &mirror);
void MirrorTick(Mirror &mirror, uint64_t nowMs);

// MirrorTakePage takes a page that came with a token, MirrorTakeNothing a message without payload.
void MirrorTakePage(Mirror &mirror, uint64_t token, const MirrorPage &page, uint64_t nowMs);
void MirrorTakeNothing(Mirror &mirror, uint64_t token, uint64_t nowMs);

// MirrorTakePart says that parts of an answer are coming: the server is not silent.
void MirrorTakePart(Mirror &mirror, uint64_t nowMs);

// MirrorTakeBlock takes note of a part, one block; false: too many came without a page, and the
// mirror gives up its socket, with all that is coming in through it.
bool MirrorTakeBlock(Mirror &mirror, uint64_t nowMs);

// MirrorTakeFailure takes what came with a token and is no page: `code` is what the application is
// told.
void MirrorTakeFailure(Mirror &mirror, uint64_t token, uint32_t code, uint64_t nowMs);

// MirrorTakePong takes the answer to a ping.
void MirrorTakePong(Mirror &mirror);

// MirrorLoseSocket says that there is no socket to be had.
void MirrorLoseSocket(Mirror &mirror, uint64_t nowMs);

// MirrorMove says that the address of the socket is not this host's any more.
void MirrorMove(Mirror &mirror, uint64_t nowMs);

// MirrorStateOf is what an application is told.
CoapRpcMirrorState MirrorStateOf(const Mirror &mirror, uint64_t nowMs);

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_MIRROR_H */
