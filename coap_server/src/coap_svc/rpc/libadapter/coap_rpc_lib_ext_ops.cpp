#include "coap_svc/rpc/libadapter/coap_rpc_lib_ext_ops.h"

#include <coap3/coap.h>

namespace {

void ReleaseSession(CoapRpcCtx *, coap_session_t *session) { coap_session_release(session); }

void ForgetEntry(CoapRpcCtx *, CoapRpcSerUriVtbl *) {}

}  // namespace

const CoapRpcLibExtOps g_coapRpcLibExtOps = {ReleaseSession, ForgetEntry};
