/* coap_rpc_lib_sync.h: readers of a URI whose tuples have versions.
 *
 * A reader sends GETs with the query of coap_rpc_lib_sync_query.h and gets pages
 * (coap_rpc_lib_sync_page.h):
 *
 *   registration   Observe 0 and "_sync=1" alone: the head of a page, and notifications from then
 *                  on
 *   pull           without Observe: the changes after `since`, if the reader knows the set's life,
 *                  else the head alone.  It confirms that the reader has the set as of `since`,
 *                  unless it reads everything ("full=1")
 *   cancel         Observe 1: a pull that ends the registration
 *
 * Content-Format is 60 (CBOR) or, for a pull with Accept 50, JSON; another Accept gets 4.06, as
 * does a registration for JSON.  A query that is not understood gets 4.00.  `since` beyond the head
 * or below the floor, and another life, get a head with the flag kSyncRestart.  A page that finds
 * no memory is 5.03, to be asked for again.
 *
 * Notifications are NON, of one message and the same for all observers of a round
 * (coap_rpc_ser_sync.h); one without payload, for want of memory or because the page is longer than
 * the blocks that the observer registered for, tells no more than that there are changes.  A turn
 * of the I/O notifies a portion of them.  libcoap keeps the observers, as it does those of the
 * change list, which are told apart by their query: it is taken from the latter's stored requests.
 *
 * Bounds: observers of a resource by libcoap, of one session by kMaxSyncRegistrations, messages of
 * a turn by kSyncPortion, pages in blocks by kMaxSyncBodies. */
#ifndef COAP_RPC_LIB_SYNC_H
#define COAP_RPC_LIB_SYNC_H

#include <coap3/coap.h>

#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"

namespace coap_rpc {

// ServeSync answers a reader, or builds its notification.  False: the request is none of these.
bool ServeSync(Exchange &exchange);

// LeaveToken is for the registration of another observer, under whose token libcoap has a stored
// request.  If that is a reader's, of the same session, it ends.  Returns what is stored then, null
// without memory.
const coap_pdu_t *LeaveToken(const Exchange &exchange, const coap_pdu_t *stored);

// AddSyncObserver and DelSyncObserver count an observer that comes or goes, if it is a reader.
// False: it is none.  A reader's entry may have been detached since it came.
bool AddSyncObserver(CoapRpcCtx *ctx, const coap_session_t *session,
                     coap_subscription_t *subscription);
bool DelSyncObserver(CoapRpcCtx *ctx, const coap_session_t *session,
                     coap_subscription_t *subscription);

// NotifyUnsynced asks libcoap to notify the observers of a resource that are not readers.
void NotifyUnsynced(CoapRpcCtx *ctx, coap_resource_t *resource);

// PushSync makes it an entry's readers' turn to be notified, TellSyncRounds notifies the next
// kSyncPortion of all entries: the last step of a turn of the I/O.  DropSyncObserver makes libcoap
// forget a session's registrations.  The first and the last are operations of the server side.
uint32_t PushSync(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);
void TellSyncRounds(CoapRpcCtx *ctx);
void DropSyncObserver(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *session);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_SYNC_H */
