/* lifecycle_c.c: make an instance on the reference host and take it down again. */
#include <coap_svc/rpc/coap_rpc.h>
#include <kestrel.h>
#include <stdio.h>

int main(void) {
  KestrelParam hostParam = {0};
  char error[256];
  hostParam.name = "lifecycle";
  Kestrel *host = KestrelNew(&hostParam, error, sizeof(error));
  if (!host) {
    fprintf(stderr, "no host: %s\n", error);
    return 1;
  }

  CoapRpcInitParam param = {0};
  param.name = "lifecycle";
  param.logEnable = 1;
  param.memHandle = KestrelMem(host);
  param.dispHandle = KestrelDisp(host);
  param.logHandle = KestrelLog(host);
  param.tmrHandle = KestrelTmr(host);
  CoapRpcCtx *ctx = COAP_RpcInit(&param);
  if (!ctx) {
    fprintf(stderr, "the instance did not start, see the log\n");
    KestrelDelete(host);
    return 1;
  }
  printf("instance is up\n");

  COAP_RpcUninit(ctx);
  const uint64_t leaked = KestrelDelete(host);
  printf("instance is down, %llu allocations left\n", (unsigned long long)leaked);
  return leaked == 0 ? 0 : 1;
}
