// net_server.h: what the two servers of the observe example have in common.
#ifndef NET_SERVER_H
#define NET_SERVER_H

#include <cstdint>

// NetServe publishes this machine's network interfaces and their counters, once a second, for so
// many seconds (0: until a signal comes).  `payloadFormat` is COAP_RPC_JSON or COAP_RPC_BYTE.
// Returns the status of the program.
int NetServe(const char *name, const char *uri, uint8_t payloadFormat, uint32_t seconds);

#endif  // NET_SERVER_H
