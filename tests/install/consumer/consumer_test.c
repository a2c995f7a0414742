/* A test of an application's code, in C: whatever allocation fails, nothing is lost. */
#include <coap_svc/rpc/coap_rpc.h>
#include <kestrel_test.h>

int main(void) {
  KestrelTest *host = KestrelTestNew();
  const CoapRpcInitParam param = KestrelTestParam(host, "consumer");
  uint64_t num = 0;
  do {
    num = KestrelTestFailedNum(host);
    KestrelTestFailAlloc(host, num + 1);
    COAP_RpcUninit(COAP_RpcInit(&param));
  } while (KestrelTestFailedNum(host) > num);
  return num > 5 && KestrelTestDelete(host) == 0 ? 0 : 1;
}
