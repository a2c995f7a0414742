#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"

#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "csvc_dbg.h"

void coap_rpc::LogRequest(const Exchange &exchange, const uint8_t *payload, uint32_t len) {
  const UriText uri(exchange.entry->key.uri);
  const auto *text = reinterpret_cast<const char *>(payload);
  COAP_RPC_DEBUG(exchange.ctx, "[CoapRpc]get req success, uri:%s, mode:%u, len:%u, payload:%s.\n",
                 uri.c_str(), ModeOf(exchange.entry), len, LineText(text).c_str());
  if (COAP_RpcNeedRecordDiag(exchange.ctx, uri.c_str()) == 0) return;
  CSVC_DBG_SysLog(exchange.ctx->param.dbgHandle, kDebugChannelLevel,
                  "[CoapRpc]get request success, uri:%s, len:%u, payload:%s.", uri.c_str(), len,
                  text);
}
