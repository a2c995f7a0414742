/* own_network.h: a network for one process alone, with nothing but a loopback. */
#ifndef OWN_NETWORK_H
#define OWN_NETWORK_H

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace coap_rpc_test {

// SetInterfaceUp switches an interface of the present network on.
inline bool SetInterfaceUp(const char *name) {
  ifreq request = {};
  strncpy(request.ifr_name, name, IFNAMSIZ - 1);
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool isUp = fd >= 0 && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  if (fd >= 0) close(fd);
  return isUp;
}

// EnterOwnNetwork moves the process, once, to a network of its own.  Returns false, and leaves it
// where it is, when the system does not let it.
inline bool EnterOwnNetwork() {
  static const bool hasEntered =
      (unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) &&
      SetInterfaceUp("lo");
  return hasEntered;
}

}  // namespace coap_rpc_test

#endif /* OWN_NETWORK_H */
