/* netfault_socket.h: the sockets of the node that runs, under the bench's control.
 *
 * Programs that use it are linked with --wrap for connect, send and sendmsg. */
#ifndef NETFAULT_SOCKET_H
#define NETFAULT_SOCKET_H

#include <cstdint>

namespace netfault {

struct SocketPolicy {
  int sendErrno = 0;  // UDP sends fail with it; 0: they work
  uint16_t port = 0;  // an unbound UDP socket that connects gets it, or the next free one; 0: any
};

// SetSocketPolicy names the policy of all sockets until the next call; null: the system's own.
void SetSocketPolicy(SocketPolicy *policy);

// IsPortTaken tells whether a UDP socket of the present namespace has a port.
bool IsPortTaken(uint16_t port, bool isIpv6);

}  // namespace netfault

#endif /* NETFAULT_SOCKET_H */
