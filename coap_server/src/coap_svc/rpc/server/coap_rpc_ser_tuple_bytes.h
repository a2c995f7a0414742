/* coap_rpc_ser_tuple_bytes.h: key and value bytes, which follow the header of a tuple and of a
 * change: keyLen key bytes, then valLen value bytes, at no particular alignment. */
#ifndef COAP_RPC_SER_TUPLE_BYTES_H
#define COAP_RPC_SER_TUPLE_BYTES_H

#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

namespace coap_rpc {

inline size_t TupleBytes(const CoapRpcSerObVtblReg &ob) {
  return static_cast<size_t>(ob.keyLen) + ob.valLen;
}

// CopyTupleKey and CopyTupleVal write into the bytes at `key`.  A value that is absent, or that the
// URI's tuples do not have, leaves them as they are; a copy that fails is asserted at `site`.
inline void CopyTupleKey(const CoapRpcSerObVtblReg &ob, uint8_t *key, const void *from,
                         const Site &site) {
  if (ob.keyLen != 0 && memcpy_s(key, ob.keyLen, from, ob.keyLen) != 0) Assert(site);
}

inline void CopyTupleVal(const CoapRpcSerObVtblReg &ob, uint8_t *key, const void *from,
                         const Site &site) {
  if (!from || ob.valLen == 0) return;
  if (memcpy_s(key + ob.keyLen, ob.valLen, from, ob.valLen) != 0) Assert(site);
}

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_TUPLE_BYTES_H */
