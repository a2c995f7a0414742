/* coap_rpc_ser_chg_index.h: finds the pending change of a tuple key without walking the list.
 *
 * The list alone says what is pending and in which order; the index is optional, made when the list
 * has grown long and omitted when there is no memory for it.  Keys are the same when
 * their bytes are. */
#ifndef COAP_RPC_SER_CHG_INDEX_H
#define COAP_RPC_SER_CHG_INDEX_H

#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

namespace coap_rpc {

using PendingChgs = COAP_RPC_LIST(CoapRpcTupleChg, chgLink);

// FindPendingChg returns the pending change whose key bytes equal `tupleKey`, or null.
CoapRpcTupleChg *FindPendingChg(CoapRpcSerUriVtbl *entry, const void *tupleKey);

// AppendPendingChg appends `chg`, whose key is filled, and makes it findable; PrependPendingChg
// puts it in front.
void AppendPendingChg(uint64_t mem, CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg);
void PrependPendingChg(uint64_t mem, CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg);

// RemovePendingChg takes a change off its list and out of the index, if there is one.
void RemovePendingChg(CoapRpcTupleChg *chg);

// DropChgIndex frees the index; the list stays.
void DropChgIndex(uint64_t mem, CoapRpcSerUriVtbl *entry);

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_CHG_INDEX_H */
