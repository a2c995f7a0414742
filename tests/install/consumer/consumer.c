/* The public headers are C11. */
#include <coap_svc/rpc/coap_rpc.h>
#include <coap_svc/rpc/coap_rpc_call.h>
#include <coap_svc/rpc/coap_rpc_direct.h>
#include <stddef.h>

int main(void) {
  return COAP_RpcInit(NULL) == NULL && COAP_RpcGetCallNum(NULL) == 0 &&
                 COAP_RpcGetForgottenNum(NULL) == 0
             ? 0
             : 1;
}
