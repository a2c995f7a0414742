/* own_sockets.h: the descriptors of this process, seen from outside the library. */
#ifndef OWN_SOCKETS_H
#define OWN_SOCKETS_H

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace coap_rpc_test {

// OpenDescriptors lists them, in no order.
inline std::vector<int> OpenDescriptors() {
  std::vector<int> fds;
  DIR *dir = opendir("/proc/self/fd");
  if (!dir) return fds;
  while (const dirent *entry = readdir(dir)) {
    const int fd = atoi(entry->d_name);
    if (entry->d_name[0] != '.' && fd != dirfd(dir)) fds.push_back(fd);
  }
  closedir(dir);
  return fds;
}

// KindOf is what the system calls a descriptor: "socket:[123]", "anon_inode:[timerfd]".
inline std::string KindOf(int fd) {
  char text[256] = "";
  const ssize_t len =
      readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), text, sizeof(text) - 1);
  return std::string(text, len < 0 ? 0 : static_cast<size_t>(len));
}

using AddressOf = int (*)(int, sockaddr *, socklen_t *);

inline bool IsAtIpv4(int fd, AddressOf addressOf, uint16_t port) {
  sockaddr_in addr = {};
  socklen_t size = sizeof(addr);
  if (addressOf(fd, reinterpret_cast<sockaddr *>(&addr), &size) != 0) return false;
  return addr.sin_family == AF_INET && ntohs(addr.sin_port) == port;
}

inline int FindDescriptor(const std::function<bool(int)> &match) {
  for (const int fd : OpenDescriptors()) {
    if (match(fd)) return fd;
  }
  return -1;
}

// BoundSocket finds the IPv4 socket with a local port, ConnectedSocket the one to a remote port, -1
// for none.
inline int BoundSocket(uint16_t port) {
  return FindDescriptor([&](int fd) { return IsAtIpv4(fd, getsockname, port); });
}
inline int ConnectedSocket(uint16_t port) {
  return FindDescriptor([&](int fd) { return IsAtIpv4(fd, getpeername, port); });
}

}  // namespace coap_rpc_test

#endif /* OWN_SOCKETS_H */
