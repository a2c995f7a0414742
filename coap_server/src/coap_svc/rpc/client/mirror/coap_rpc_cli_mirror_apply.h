/* coap_rpc_cli_mirror_apply.h: changes of a page to changes of a mirror's tuples, and the callbacks
 * that tell of them. */
#ifndef COAP_RPC_CLI_MIRROR_APPLY_H
#define COAP_RPC_CLI_MIRROR_APPLY_H

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror.h"

namespace coap_rpc {

// ApplyPage applies the changes with versions above `known`: deletions first, which make room, then
// the others in order.  `reached` is up to where all are applied then.  Returns 0, or the code of
// what stopped it; the application may have closed the mirror meanwhile.
uint32_t ApplyPage(Mirror &mirror, const MirrorPage &page, uint64_t known, uint64_t *reached);

// RemoveUnmet removes the tuples that the epoch has not met.
void RemoveUnmet(Mirror &mirror);

inline bool IsSynced(const Mirror &mirror) { return mirror.state == COAP_RPC_MIRROR_SYNCED; }

// TellState and TellSynced tell the application of what is new to it.
void TellState(Mirror &mirror, uint32_t state, uint32_t code);
void TellSynced(Mirror &mirror, uint64_t version);

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_MIRROR_APPLY_H */
