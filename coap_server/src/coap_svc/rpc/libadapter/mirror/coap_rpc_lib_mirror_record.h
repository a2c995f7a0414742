/* coap_rpc_lib_mirror_record.h: the records of mirrors, and the tables that find them.
 *
 * A mirror is found by its session, when a message comes, and by the time at which it is due. */
#ifndef COAP_RPC_LIB_MIRROR_RECORD_H
#define COAP_RPC_LIB_MIRROR_RECORD_H

#include <coap3/coap.h>

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"

namespace coap_rpc {

struct MirrorDue {
  uint64_t ms;
  uint64_t id;
};

}  // namespace coap_rpc

struct CoapRpcMirror {
  OSAL_AVL3_NODE node;  // in the order of time
  coap_rpc::MirrorDue due;
  OSAL_AVL3_NODE sessionNode;
  coap_session_t *session;  // owned; null for none
  CoapRpcLink link;         // on the list of all, or of the closed ones
  CoapRpcLink dirtyLink;    // alone unless something has come for it
  CoapRpcCtx *ctx;
  CoapRpcUriKey key;
  CoapRpcCallAddr addr;
  CoapRpcMirrorParam param;  // the application's; that of `core` times its callbacks
  uint32_t depth;            // above 0 while it may call back
  coap_rpc::Mirror core;
};

/* CoapRpcMirrors is the mirrors of an instance. */
struct CoapRpcMirrors {
  OSAL_AVL3_TREE dueTree;
  OSAL_AVL3_TREE sessionTree;
  CoapRpcLink list;        // in the order in which they were opened
  CoapRpcLink dirtyList;   // those that may have something to send when the turn ends
  CoapRpcLink closedList;  // to be freed when nothing uses them
  uint32_t num;            // of those on `list`
  uint64_t lastId;
  uint64_t timer;    // 0 none
  uint64_t timerMs;  // when it fires next
  bool isStopping;
};

namespace coap_rpc {

using AllMirrors = COAP_RPC_LIST(CoapRpcMirror, link);
using DirtyMirrors = COAP_RPC_LIST(CoapRpcMirror, dirtyLink);

// AddMirror puts a mirror into the tables, due at once.  TakeOffMirror takes it out of all but the
// list that it is on.
void AddMirror(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror, uint64_t nowMs);
void TakeOffMirror(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror);

// SetMirrorDue moves a mirror in the order of time.  FirstDueMirror returns the first, or null.
void SetMirrorDue(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror, uint64_t ms);
CoapRpcMirror *FirstDueMirror(CoapRpcMirrors *mirrors);

// SetMirrorSession gives a mirror another session, or none, and returns the former one, which the
// caller owns.  FindMirror returns the mirror of a session, or null.
coap_session_t *SetMirrorSession(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror,
                                 coap_session_t *session);
CoapRpcMirror *FindMirror(CoapRpcMirrors *mirrors, coap_session_t *session);

// MirrorNowMs is the time of mirrors: libcoap's clock, which is never set.
uint64_t MirrorNowMs();

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_MIRROR_RECORD_H */
