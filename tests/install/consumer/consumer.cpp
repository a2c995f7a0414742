// The public headers are C++17 as well.
#include <coap_svc/rpc/coap_rpc.h>

int main() { return !COAP_RpcInit(nullptr) ? 0 : 1; }
