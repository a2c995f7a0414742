/* coap_rpc_lib_direct_data.h: the records of the room for direct entries. */
#ifndef COAP_RPC_LIB_DIRECT_DATA_H
#define COAP_RPC_LIB_DIRECT_DATA_H

#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_link.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_once.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_options.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"
#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

namespace coap_rpc {

inline constexpr uint32_t kNumHostCounts = 4096;

// ReplyHead is what an answer says before its payload.
struct ReplyHead {
  uint8_t code;     // as on the wire
  uint16_t format;  // COAP_RPC_DIRECT_NO_FORMAT for none
};

// DirectOptions are the options of a request that the room looks for, found in one walk.
struct DirectOptions {
  bool isObserve;
  bool hasETag;
  bool isLaterBlock;  // Block2 asks for another block than the first
  uint8_t unwanted;   // classes of answers, as No-Response says it
};

// DirectRequest is a request on its way to its answer.
struct DirectRequest {
  const Exchange &exchange;
  OnceId id;
  DirectOptions options;
};

// DirectEntry is what the room knows of an entry; the entry owns it.
struct DirectEntry {
  CoapRpcLink link;      // on Direct's entryList
  CoapRpcLink openList;  // DirectAsync, the oldest first
  CoapRpcSerUriVtbl *entry;
  CoapRpcSerDirectParam param;  // without zeros that stand for defaults
  LinkTexts links;
};

// DirectCall is the request for which a callback is running.
struct DirectCall {
  const Exchange &exchange;
  ReplyHead head;
  uintptr_t async;        // handle; 0 for a synchronous request
  ReplyOptions *options;  // of a synchronous one, owned; null for none
};

}  // namespace coap_rpc

// CoapRpcDirect is the room's record.
struct CoapRpcDirect {
  CoapRpcLink entryList;  // DirectEntry
  uint32_t numLeft;       // entries that have left it
  coap_rpc::DirectCall *calling;
  OSAL_AVL3_TREE asyncTree;    // DirectAsync by handle, owned
  OSAL_AVL3_TREE peerTree;     // DirectPeer by session, owned
  CoapRpcLink queuedPeerList;  // those with answers to send
  CoapRpcLink idlePeerList;    // those without requests, kept until the next tick
  uint32_t numIdlePeers;
  CoapRpcLink closedList;  // DirectAsync whose listen is closed, until the application is told
  uint32_t numPeers;
  uint16_t numPeersOfHosts[coap_rpc::kNumHostCounts];  // by a hash of their addresses
  uint32_t numOpenOfHosts[coap_rpc::kNumHostCounts];   // requests that are not answered
  uint32_t numQueued;
  uint32_t numUnacknowledged;  // messages of libcoap's, while a turn sends answers
  CoapRpcLink bodyList;        // payloads owned by libcoap, the oldest first
  uint32_t numBodies;
  size_t numBodyBytes;
  coap_rpc::OnceCache once;
};

namespace coap_rpc {

inline DirectEntry *DirectEntryOf(const CoapRpcSerUriVtbl *entry) {
  return static_cast<DirectEntry *>(entry->lib.direct);
}

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DIRECT_DATA_H */
