/* coap_rpc_lib_direct_link.h: link attributes of direct entries (RFC 6690).
 *
 * An entry keeps the texts that it was given, as a link has them after the equals sign.  Its
 * resource shows copies, taken when the entry is attached and when a text changes. */
#ifndef COAP_RPC_LIB_DIRECT_LINK_H
#define COAP_RPC_LIB_DIRECT_LINK_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"

namespace coap_rpc {

inline constexpr uint32_t kNumLinks = 4;
inline constexpr const char *kLinkNames[kNumLinks] = {"rt", "if", "ct", "title"};

using LinkTexts = char *[kNumLinks];  // by kind, owned; null for none

// FindLink returns the kind of a name; kNumLinks when it is not one.
uint32_t FindLink(const char *name);

bool IsLinkValue(uint32_t kind, const char *value);

// NewLinkText returns null for a null value, and without memory.
PoolPtr<char> NewLinkText(CoapRpcCtx *ctx, uint32_t kind, const char *value);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DIRECT_LINK_H */
