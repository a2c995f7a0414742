/* kestrel_param.h: what an instance on the reference host is made with. */
#ifndef KESTREL_PARAM_H
#define KESTREL_PARAM_H

#include "coap_svc/rpc/coap_rpc.h"
#include "kestrel.h"

namespace coap_rpc_test {

// ParamOn has the host's services but its log.
inline CoapRpcInitParam ParamOn(Kestrel *host, const char *name) {
  CoapRpcInitParam param = {};
  param.name = name;
  param.memHandle = KestrelMem(host);
  param.dispHandle = KestrelDisp(host);
  param.tmrHandle = KestrelTmr(host);
  return param;
}

}  // namespace coap_rpc_test

#endif /* KESTREL_PARAM_H */
