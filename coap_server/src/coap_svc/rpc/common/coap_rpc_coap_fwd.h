/* coap_rpc_coap_fwd.h: names of libcoap's types, for records that hold pointers to them.
 * Only libadapter includes libcoap itself. */
#ifndef COAP_RPC_COAP_FWD_H
#define COAP_RPC_COAP_FWD_H

typedef struct coap_context_t coap_context_t;
typedef struct coap_endpoint_t coap_endpoint_t;
typedef struct coap_session_t coap_session_t;

#endif /* COAP_RPC_COAP_FWD_H */
