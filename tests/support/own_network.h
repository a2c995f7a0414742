/* own_network.h: a network for one process alone, with nothing but a loopback. */
#ifndef OWN_NETWORK_H
#define OWN_NETWORK_H

#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace coap_rpc_test {

// The system's record of this name is in a header that clashes with netinet/in.h.
// NOLINTBEGIN(readability-identifier-naming)
struct in6_ifreq {
  in6_addr ifr6_addr;
  uint32_t ifr6_prefixlen;
  int ifr6_ifindex;
};
// NOLINTEND(readability-identifier-naming)

// SetInterfaceUp switches an interface of the present network on, or off.
inline bool SetInterfaceUp(const char *name, bool isUp = true) {
  ifreq request = {};
  strncpy(request.ifr_name, name, IFNAMSIZ - 1);
  request.ifr_flags = isUp ? IFF_UP | IFF_RUNNING : 0;
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool isDone = fd >= 0 && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  if (fd >= 0) close(fd);
  return isDone;
}

// EnterOwnNetwork moves the process, once, to a network of its own.  Returns false, and leaves it
// where it is, when the system does not let it.
inline bool EnterOwnNetwork() {
  static const bool hasEntered =
      (unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) &&
      SetInterfaceUp("lo");
  return hasEntered;
}

// AddIpv6Address gives the loopback another address.
inline bool AddIpv6Address(const in6_addr &address) {
  in6_ifreq request = {};
  request.ifr6_addr = address;
  request.ifr6_prefixlen = 128;
  request.ifr6_ifindex = static_cast<int>(if_nametoindex("lo"));
  const int fd = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool isAdded = fd >= 0 && (ioctl(fd, SIOCSIFADDR, &request) == 0 || errno == EEXIST);
  if (fd >= 0) close(fd);
  return isAdded;
}

}  // namespace coap_rpc_test

#endif /* OWN_NETWORK_H */
