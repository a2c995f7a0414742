/* The public headers are C11. */
#include <coap_svc/rpc/coap_rpc.h>
#include <stddef.h>

int main(void) { return COAP_RpcInit(NULL) == NULL ? 0 : 1; }
