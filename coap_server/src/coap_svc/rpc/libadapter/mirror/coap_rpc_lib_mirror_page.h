/* coap_rpc_lib_mirror_page.h: pages as mirrors read them (sync/coap_rpc_lib_sync_page.h tells of
 * them).
 *
 * A page is read whole before anything of it is used: an array of definite length, unsigned
 * numbers, byte strings in one piece and nothing after it. */
#ifndef COAP_RPC_LIB_MIRROR_PAGE_H
#define COAP_RPC_LIB_MIRROR_PAGE_H

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror.h"

namespace coap_rpc {

// ReadMirrorPage reads a payload.  Returns 0, or the code that a mirror's application is told: it
// is not a page, or one with errors, or its keys and values are not keyLen and valLen long.
uint32_t ReadMirrorPage(const uint8_t *payload, size_t len, const CoapRpcMirrorParam &param,
                        MirrorPage &page);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_MIRROR_PAGE_H */
