/* coap_rpc_cli_mirror_ask.h: what a mirror asks: hellos, ranges and the tail. */
#ifndef COAP_RPC_CLI_MIRROR_ASK_H
#define COAP_RPC_CLI_MIRROR_ASK_H

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror.h"

namespace coap_rpc {

// Chance returns 32 random bits.
uint32_t Chance(Mirror &mirror);

// WantHello drops all other questions: whatever the position was, it leads nowhere.
void WantHello(Mirror &mirror);

// WantTail asks for what is after the cursor, unless something is being asked for already; WantNews
// does so because the mirror knows that it lacks something.
void WantTail(Mirror &mirror);
void WantNews(Mirror &mirror);

// WantRanges splits the versions up to base into a range for each slot.  AdvanceRange goes on with
// the range of an answered pull from `reached`, and after the last range with the tail.
void WantRanges(Mirror &mirror);
void AdvanceRange(Mirror &mirror, MirrorPull &pull, uint64_t reached);

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_MIRROR_ASK_H */
