#include "coap_svc/rpc/libadapter/coap_rpc_lib_ext_ops.h"

#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_async.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_block.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_cli_end.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_target.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_relation.h"

namespace {

void ReleaseSession(CoapRpcCtx *ctx, coap_session_t *session) {
  coap_rpc::Target *target = coap_rpc::FindTarget(ctx, session);
  if (target) coap_rpc::CloseTarget(ctx, target);
}

// Observers name no entry: libcoap's hooks look it up.
void ForgetEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  coap_rpc::ForgetEntryBlocks(entry);
  CoapRpcAsyncForgetEntry(ctx, entry);
}

}  // namespace

const CoapRpcLibExtOps g_coapRpcLibExtOps = {ReleaseSession, ForgetEntry, coap_rpc::RenewTargets,
                                             CoapRpcLibOpenEndPoint, CoapRpcRelationMustWait,
                                             coap_rpc::IsUnderWay};
