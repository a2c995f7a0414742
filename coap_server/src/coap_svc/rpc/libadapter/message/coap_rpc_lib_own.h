/* coap_rpc_lib_own.h: ownership of what libcoap allocates. */
#ifndef COAP_RPC_LIB_OWN_H
#define COAP_RPC_LIB_OWN_H

#include <coap3/coap.h>

#include <memory>

namespace coap_rpc {

struct CoapStringDeleter {
  void operator()(coap_string_t *s) const { coap_delete_string(s); }
};

// CoapString owns a text of libcoap's; the text is NUL-terminated.
using CoapString = std::unique_ptr<coap_string_t, CoapStringDeleter>;

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_OWN_H */
