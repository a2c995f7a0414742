#include "netfault_socket.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

// The system's functions, linked with --wrap.
extern "C" {
int __real_connect(int fd, const sockaddr *addr, socklen_t len);
ssize_t __real_send(int fd, const void *bytes, size_t len, int flags);
ssize_t __real_sendmsg(int fd, const msghdr *message, int flags);
int __wrap_connect(int fd, const sockaddr *addr, socklen_t len);
ssize_t __wrap_send(int fd, const void *bytes, size_t len, int flags);
ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags);
}

namespace netfault {
namespace {

SocketPolicy *g_policy = nullptr;

bool IsUnbound(int fd) {
  sockaddr_in6 own = {};
  socklen_t len = sizeof(own);
  return getsockname(fd, reinterpret_cast<sockaddr *>(&own), &len) == 0 && own.sin6_port == 0;
}

// The port is at the same place in addresses of both families.
void BindPort(int fd, int family) {
  sockaddr_in6 own = {};
  own.sin6_family = static_cast<sa_family_t>(family);
  const socklen_t len = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  for (int i = 0; i < 16; ++i) {
    own.sin6_port = htons(static_cast<uint16_t>(g_policy->port + i));
    if (bind(fd, reinterpret_cast<sockaddr *>(&own), len) == 0) return;
  }
}

bool IsRefused() {
  if (!g_policy || g_policy->sendErrno == 0) return false;
  errno = g_policy->sendErrno;
  return true;
}

}  // namespace

void SetSocketPolicy(SocketPolicy *policy) { g_policy = policy; }

bool IsPortTaken(uint16_t port, bool isIpv6) {
  sockaddr_in6 own = {};
  own.sin6_family = isIpv6 ? AF_INET6 : AF_INET;
  own.sin6_port = htons(port);
  const int fd = socket(own.sin6_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const socklen_t len = isIpv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  const bool isTaken =
      bind(fd, reinterpret_cast<sockaddr *>(&own), len) != 0 && errno == EADDRINUSE;
  close(fd);
  return isTaken;
}

}  // namespace netfault

using namespace netfault;

int __wrap_connect(int fd, const sockaddr *addr, socklen_t len) {
  const bool isInet = addr->sa_family == AF_INET || addr->sa_family == AF_INET6;
  if (g_policy && g_policy->port != 0 && isInet && IsUnbound(fd)) {
    BindPort(fd, addr->sa_family);
  }
  return __real_connect(fd, addr, len);
}

ssize_t __wrap_send(int fd, const void *bytes, size_t len, int flags) {
  return IsRefused() ? -1 : __real_send(fd, bytes, len, flags);
}

ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags) {
  return IsRefused() ? -1 : __real_sendmsg(fd, message, flags);
}
