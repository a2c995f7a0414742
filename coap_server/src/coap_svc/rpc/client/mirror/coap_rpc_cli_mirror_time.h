/* coap_rpc_cli_mirror_time.h: when a mirror does what: heartbeats, silence, sockets and pauses. */
#ifndef COAP_RPC_CLI_MIRROR_TIME_H
#define COAP_RPC_CLI_MIRROR_TIME_H

#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror.h"

namespace coap_rpc {

// BeginTime begins with a socket and a heartbeat.
void BeginTime(Mirror &mirror, uint64_t nowMs);

// Heard notes that the server is there, whatever it says.  EndSilence tells so, if nothing else
// has.
void Heard(Mirror &mirror, uint64_t nowMs);
void EndSilence(Mirror &mirror);

// Hold counts a trouble: no pull goes out for a while, which doubles up to maxMs; not at all for
// the first one.
void Hold(Mirror &mirror, uint64_t nowMs, uint64_t maxMs);

// CountFulls makes the full syncs that followed each other troubles, before another is counted.
void CountFulls(Mirror &mirror, uint64_t nowMs);

// HeartbeatPauseMs is the longest pause before a server that keeps to the protocol is asked.
uint64_t HeartbeatPauseMs(const Mirror &mirror);

// WantRegistration wants a registration, though not again and again.
void WantRegistration(Mirror &mirror, uint64_t nowMs);

// WantConfirm asks soon from where the mirror is synced, which tells the server what it has.
void WantConfirm(Mirror &mirror, uint64_t nowMs);

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_MIRROR_TIME_H */
