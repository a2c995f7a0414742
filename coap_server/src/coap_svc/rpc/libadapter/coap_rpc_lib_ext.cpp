#include "coap_svc/rpc/libadapter/coap_rpc_lib_ext.h"

#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_end.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_relation.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_parts.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_answer_session.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync.h"

const CoapRpcLibExtOps g_coapRpcLibExtOps = {
    .forgetEntry = CoapRpcPartsForgetEntry,
    .renewSource = coap_rpc::RenewAnswerSessions,
    .openEndPoint = CoapRpcLibOpenEndPoint,
    .mustWait = CoapRpcRelationMustWait,
    .isUnderWay = coap_rpc::IsUnderWay,
    .pushSync = coap_rpc::PushSync,
    .dropSyncObserver = coap_rpc::DropSyncObserver,
    .runSoon = CoapRpcLibRunSoon,
};
