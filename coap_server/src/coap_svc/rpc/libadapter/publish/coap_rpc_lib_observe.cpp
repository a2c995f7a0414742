#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"

#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_check_code.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_flight.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_payload.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_observers.h"

namespace {

using namespace coap_rpc;

// ObserverQuery is the query of an observer's latest registration.  The peer asks for the later
// blocks of a notification with it, while the request stored by libcoap has none.
struct ObserverQuery {
  OSAL_AVL3_NODE node;
  const coap_pdu_t *stored;  // the observer's request as libcoap keeps it
  coap_string_t text;        // bytes after this record
};

int32_t CompareStored(const void *a, const void *b) {
  const auto pduA = reinterpret_cast<uintptr_t>(*static_cast<const coap_pdu_t *const *>(a));
  const auto pduB = reinterpret_cast<uintptr_t>(*static_cast<const coap_pdu_t *const *>(b));
  return (pduA > pduB) - (pduA < pduB);
}

using ObserverQueries = COAP_RPC_TABLE(ObserverQuery, stored, const coap_pdu_t *, CompareStored);

void ForgetQuery(CoapRpcCtx *ctx, const coap_pdu_t *stored) {
  ObserverQueries queries(ctx->lib->obsQueryTree);
  ObserverQuery *record = queries.Find(&stored);
  if (!record) return;
  queries.Remove(record);
  PoolFree(ctx->param.memHandle, record);
}

void RememberQuery(CoapRpcCtx *ctx, const coap_pdu_t *stored, const coap_string_t &query) {
  auto record = NewZeroed<ObserverQuery>(ctx->param.memHandle, query.length + 1);
  if (!record) return;
  record->stored = stored;
  record->text = {query.length, reinterpret_cast<uint8_t *>(record.get() + 1)};
  memcpy_s(record->text.s, query.length + 1, query.s, query.length);
  if (ObserverQueries(ctx->lib->obsQueryTree).Insert(record.get())) (void)record.release();
}

// QueryOfBlocks returns the query with which the peer will ask for blocks of the response.
const coap_string_t *QueryOfBlocks(const Exchange &exchange) {
  const ObserverQueries queries(exchange.ctx->lib->obsQueryTree);
  const ObserverQuery *record = queries.Find(&exchange.request);
  return record ? &record->text : exchange.query;
}

CoapRpcSerUriVtbl *FindObserved(CoapRpcCtx *ctx, coap_subscription_t *subscription,
                                const coap_session_t *session) {
  const coap_pdu_t *request = CoapRpcLibSubscriptionPdu(subscription);
  return ctx && ctx->ser && request ? COAP_RpcSerGetVtbl(ctx, request, session) : nullptr;
}

bool HasPayload(const coap_pdu_t *pdu) {
  size_t len = 0;
  const uint8_t *data = nullptr;
  return coap_get_data(pdu, &len, &data) != 0 && len != 0;
}

void AnswerWithoutPayload(coap_pdu_t *response) {
  if (coap_pdu_get_code(response) == COAP_EMPTY_CODE) {
    coap_pdu_set_code(response, COAP_RESPONSE_CODE_CREATED);
  }
}

// QueueAppTuples walks the application's data and queues each tuple as a change.
void QueueAppTuples(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  const CoapRpcSerObVtblReg *reg = entry->obVtbl;
  const CoapRpcIteratorParam param{entry->reg.userData, &entry->key,        reg->keyLen,
                                   reg->valLen,         reg->getFirstTuple, reg->getNextTuple};
  CoapRpcIterator *it = COAP_RpcNewIterator(&param, ctx);
  while (COAP_RpcIterateTupleFromApp(it, ctx) == 1) {
    if (ctx->ser->updateTuple(ctx, entry, it->keyBuf, it->valBuf) != 0) break;
  }
  COAP_RpcFreeIterator(it, ctx);
}

// Resynchronise queues the whole data for a newcomer whose check code is out of date.
void Resynchronise(const Exchange &exchange) {
  const CoapRpcMsgInfo info = COAP_RpcGetMsgInfo(exchange.request, exchange.session);
  COAP_RpcSerHandleObserveBatchUpdate(exchange.ctx, exchange.entry, exchange.response, &info,
                                      exchange.query);
}

// Publish builds a payload in the entry's format; nothing for an entry without one.
void Publish(Exchange &exchange) {
  exchange.query = QueryOfBlocks(exchange);
  if (exchange.entry->reg.payloadFormat == COAP_RPC_BYTE) {
    PublishIdl(exchange);
  } else if (exchange.entry->reg.payloadFormat == COAP_RPC_JSON) {
    PublishJson(exchange);
  }
}

}  // namespace

int COAP_RpcSerAddObserve(coap_session_t *session, coap_subscription_t *subscription, coap_proto_t,
                          coap_address_t *, coap_addr_tuple_t *, coap_bin_const_t *,
                          coap_bin_const_t *, void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  if (AddSyncObserver(ctx, session, subscription)) return 1;
  CoapRpcSerUriVtbl *entry = FindObserved(ctx, subscription, session);
  if (!entry || !entry->obVtbl) return 0;
  // Notifications are to carry no check code: only the registration itself resynchronises.
  CoapRpcLibStripQuery(subscription);
  entry->isSendingLargeBlock = 0;
  ++entry->observerNum;
  COAP_RpcSerOnObserveReq_(0, entry);
  COAP_RpcSerProcTupleForNewObserve_(ctx, entry);
  return 1;
}

int COAP_RpcSerDelObserve(coap_session_t *session, coap_subscription_t *subscription, void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  if (DelSyncObserver(ctx, session, subscription)) return 1;
  CoapRpcSerUriVtbl *entry = FindObserved(ctx, subscription, session);
  if (ctx && ctx->lib) {
    ForgetQuery(ctx, CoapRpcLibSubscriptionPdu(subscription));
    NoteObserverLeaves(ctx, session, CoapRpcLibSubscriptionPdu(subscription));
  }
  if (!entry) return 0;
  if (entry->observerNum != 0) --entry->observerNum;
  if (entry->observerNum == 0) entry->isSendingLargeBlock = 0;
  COAP_RpcSerOnObserveReq_(0, entry);
  return 1;
}

uintptr_t COAP_RpcSerOnObserveReq_(uintptr_t word, CoapRpcSerUriVtbl *entry) {
  if (entry && entry->obVtbl && entry->obVtbl->onObserverNum) {
    entry->obVtbl->onObserverNum(entry->reg.userData, entry->observerNum);
  }
  return word;
}

uint32_t COAP_RpcSerProcTupleForNewObserve_(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  const CoapRpcSerData *ser = ctx->ser;
  const CoapRpcSerObVtblReg *reg = entry->obVtbl;
  uint32_t ret = 0;
  CoapRpcUriTuple *next = nullptr;
  for (CoapRpcUriTuple *tuple = ser->getFirstUriTuple(entry); tuple; tuple = next) {
    next = ser->getNextUriTuple(entry, tuple);
    const uint8_t *val = reg->valLen != 0 ? tuple->key + reg->keyLen : nullptr;
    ret = ser->procTupleChg(ctx, entry, &entry->key, tuple->key, val, COAP_RPC_CHG_UPDATE);
  }
  return ret;
}

uint32_t COAP_RpcSerNotifyObservers(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  coap_resource_t *resource = CoapRpcLibResourceOf(ctx, entry);
  if (resource) NotifyUnsynced(ctx, resource);
  return 0;
}

void coap_rpc::UpdateObserver(Exchange &exchange) {
  CoapRpcCtx *ctx = exchange.ctx;
  if (!ctx) return;
  exchange.entry = COAP_RpcSerGetVtbl(ctx, exchange.request, exchange.session);
  if (!exchange.entry) {
    COAP_RPC_LOG(ctx->log, kLogObserveUpdateNoEntry, "[CoapRpc]server get vtbl failed.\n");
    return;
  }
  uint32_t isRegister = 0;
  COAP_RpcGetObserveOption(exchange.request, &isRegister);
  // A cancel neither resynchronises nor consumes pending changes.
  if (isRegister != 0) Resynchronise(exchange);
  // A synchronous answer stands as it is; the changes stay for the next notification.
  if (HasPayload(exchange.response)) return;
  COAP_RpcSetUriPath(ctx, exchange.response, UriText(exchange.entry->key.uri).c_str());
  if (isRegister != 0) Publish(exchange);
  AnswerWithoutPayload(exchange.response);
}

uint32_t COAP_RpcSerHandleObserveBatchUpdate(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                             coap_pdu_t *response, const CoapRpcMsgInfo *info,
                                             const coap_string_t *query) {
  if (info->code != COAP_RPC_GET || !IsCheckCodeQuery(query)) return Code(kSiteBatchUpdateNoQuery);
  if (IsUpToDate(*query, entry->etag)) return Code(kSiteBatchUpdateUpToDate);
  if (!HasPayload(response)) {
    coap_add_option(response, COAP_OPTION_URI_QUERY, query->length, query->s);
  }
  if (entry->obVtbl) QueueAppTuples(ctx, entry);
  return 0;
}

void coap_rpc::NoteObserverQuery(const Exchange &exchange) {
  const auto &[ctx, entry, resource, session, request, query, response] = exchange;
  const coap_pdu_t *stored = CoapRpcLibStoredRequest(resource, session, request);
  if (!ctx || !ctx->lib || !stored || stored == request) return;
  stored = LeaveToken(exchange, stored);
  if (!stored) return;
  ForgetQuery(ctx, stored);
  if (query) RememberQuery(ctx, stored, *query);
  // A client that has begun to fetch a payload drops what it has of it when it renews the relation;
  // the URI is not to wait for it, and what was in it is pending again.
  CoapRpcLibEndPartlyFetched(session, resource, request);
  // What the peer has begun to fetch meanwhile, it fetches with this query as well.
  CoapRpcLibRenameBlocks(session, resource, request, query);
}

void CoapRpcObserveForgetQueries(CoapRpcCtx *ctx) {
  ObserverQueries queries(ctx->lib->obsQueryTree);
  queries.Drain([&](ObserverQuery *record) { ForgetQuery(ctx, record->stored); });
}
