#include "test_network.h"

#include <linux/errqueue.h>

#include <arpa/inet.h>
#include <coap3/coap.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

// The socket calls, linked with --wrap.
extern "C" {
int __real_bind(int fd, const sockaddr *address, socklen_t len);
int __real_connect(int fd, const sockaddr *address, socklen_t len);
int __real_getsockname(int fd, sockaddr *address, socklen_t *len);
int __real_getpeername(int fd, sockaddr *address, socklen_t *len);
ssize_t __real_send(int fd, const void *bytes, size_t len, int flags);
ssize_t __real_sendmsg(int fd, const msghdr *message, int flags);
ssize_t __real_recv(int fd, void *bytes, size_t len, int flags);
ssize_t __real_recvmsg(int fd, msghdr *message, int flags);
int __real_close(int fd);
int __real_epoll_ctl(int epoll, int operation, int fd, epoll_event *event);
int __real_epoll_wait(int epoll, epoll_event *events, int maxEvents, int timeoutMs);
int __wrap_bind(int fd, const sockaddr *address, socklen_t len);
int __wrap_connect(int fd, const sockaddr *address, socklen_t len);
int __wrap_getsockname(int fd, sockaddr *address, socklen_t *len);
int __wrap_getpeername(int fd, sockaddr *address, socklen_t *len);
ssize_t __wrap_send(int fd, const void *bytes, size_t len, int flags);
ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags);
ssize_t __wrap_recv(int fd, void *bytes, size_t len, int flags);
ssize_t __wrap_recvmsg(int fd, msghdr *message, int flags);
int __wrap_close(int fd);
int __wrap_epoll_ctl(int epoll, int operation, int fd, epoll_event *event);
int __wrap_epoll_wait(int epoll, epoll_event *events, int maxEvents, int timeoutMs);
int __real_timerfd_settime(int fd, int flags, const itimerspec *value, itimerspec *old);
int __wrap_timerfd_settime(int fd, int flags, const itimerspec *value, itimerspec *old);
}

namespace coap_rpc_test {
namespace {

constexpr uint16_t kFirstPort = 49152;
constexpr size_t kMaxWaiting = 256;  // about what the kernel's default queue holds
constexpr size_t kMaxRefused = 16;
constexpr uint64_t kDigestStart = 0xcbf29ce484222325;  // FNV-1a
constexpr uint64_t kDigestPrime = 0x100000001b3;

TestNetwork *g_network = nullptr;

enum Fate { kArrived, kLost, kRefused };

TestNetwork::Endpoint EndpointOf(const sockaddr_in &address) {
  return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

sockaddr_in AddressOf(TestNetwork::Endpoint endpoint) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(endpoint.ip);
  address.sin_port = htons(endpoint.port);
  return address;
}

int Failure(int error) {
  errno = error;
  return -1;
}

// TakeError reports what an earlier datagram came to, once.
bool TakeError(TestNetwork::Socket &socket) {
  if (socket.error == 0) return false;
  errno = std::exchange(socket.error, 0);
  return true;
}

uint32_t EventsOf(const TestNetwork::Socket &socket, uint32_t wanted) {
  const uint32_t readable = !socket.waiting.empty() || socket.error != 0 ? uint32_t{EPOLLIN} : 0;
  const uint32_t failed = socket.error != 0 ? uint32_t{EPOLLERR} : 0;
  return ((readable | EPOLLOUT) & wanted) | failed;
}

void Refuse(TestNetwork::Socket *sender, const TestNetwork::Datagram &datagram) {
  if (!sender) return;
  sender->error = ECONNREFUSED;
  if (sender->refused.size() == kMaxRefused) sender->refused.pop_front();
  sender->refused.push_back(datagram);
}

Fate FateWith(const TestNetwork::Socket *receiver) {
  if (!receiver) return kRefused;
  return receiver->waiting.size() < kMaxWaiting ? kArrived : kLost;
}

int FromSeed(void *bytes, size_t len) {
  g_network->FillRandom(bytes, len);
  return 1;
}

int FromSystem(void *bytes, size_t len) {
  std::random_device system;
  auto *out = static_cast<uint8_t *>(bytes);
  std::generate(out, out + len, [&system] { return static_cast<uint8_t>(system()); });
  return 1;
}

}  // namespace

TestNetwork::TestNetwork(uint32_t seed)
    : random_(seed), lastPort_(kFirstPort), digest_(kDigestStart) {
  g_network = this;
  coap_set_prng(FromSeed);
}

TestNetwork::~TestNetwork() {
  coap_set_prng(FromSystem);
  g_network = nullptr;
}

TestNetwork *TestNetwork::Current() { return g_network; }

void TestNetwork::Note(uint64_t value) {
  for (int i = 0; i < 64; i += 8) digest_ = (digest_ ^ (value >> i & 0xFF)) * kDigestPrime;
}

TestNetwork::Socket *TestNetwork::Find(int fd) {
  const auto found = sockets_.find(fd);
  return found != sockets_.end() ? &found->second : nullptr;
}

int TestNetwork::Bind(int fd, const sockaddr_in &address) {
  Endpoint local = EndpointOf(address);
  if (local.port == 0) local.port = FreePort(local.ip);
  if (IsHeld(local)) return Failure(EADDRINUSE);
  sockets_[fd].local = local;
  return 0;
}

int TestNetwork::Connect(int fd, const sockaddr_in &address) {
  Socket &socket = sockets_[fd];
  if (socket.local.ip == 0) socket.local.ip = INADDR_LOOPBACK;
  if (socket.local.port == 0) socket.local.port = FreePort(socket.local.ip);
  socket.peer = EndpointOf(address);
  return 0;
}

ssize_t TestNetwork::Send(Socket &socket, Endpoint to, std::string bytes) {
  if (TakeError(socket)) return -1;
  const auto len = static_cast<ssize_t>(bytes.size());
  Datagram datagram = {socket.local, to, std::move(bytes)};
  ++numSent_;
  if (carrier_) {
    carrier_(datagram);
  } else {
    Deliver(std::move(datagram));
  }
  return len;
}

void TestNetwork::Deliver(Datagram datagram) {
  Socket *receiver = ReceiverOf(datagram);
  const Fate fate = FateWith(receiver);
  numLost_ += fate == kLost;
  numRefused_ += fate == kRefused;
  Note(uint64_t{datagram.from.ip} << 32 | uint64_t{datagram.from.port} << 16 | datagram.to.port);
  Note(uint64_t{datagram.to.ip} << 32 | fate);
  for (char byte : datagram.bytes) digest_ = (digest_ ^ static_cast<uint8_t>(byte)) * kDigestPrime;
  if (fate == kRefused) Refuse(SenderOf(datagram), datagram);
  if (fate == kArrived) receiver->waiting.push_back(std::move(datagram));
}

ssize_t TestNetwork::Receive(Socket &socket, Datagram *datagram) {
  if (TakeError(socket)) return -1;
  if (socket.waiting.empty()) return Failure(EAGAIN);
  *datagram = std::move(socket.waiting.front());
  socket.waiting.pop_front();
  return static_cast<ssize_t>(datagram->bytes.size());
}

void TestNetwork::Close(int fd) {
  sockets_.erase(fd);
  watched_.erase(fd);
  for (auto &[epoll, list] : watched_) {
    std::erase_if(list, [fd](const Watched &watched) { return watched.fd == fd; });
  }
}

void TestNetwork::Watch(int epoll, int operation, int fd, const epoll_event *event) {
  std::vector<Watched> &list = watched_[epoll];
  const auto found =
      std::find_if(list.begin(), list.end(), [fd](const Watched &w) { return w.fd == fd; });
  if (operation == EPOLL_CTL_ADD) {
    list.push_back({fd, *event});
  } else if (found != list.end() && operation == EPOLL_CTL_MOD) {
    found->event = *event;
  } else if (found != list.end()) {
    list.erase(found);
  }
}

int TestNetwork::Ready(int epoll, epoll_event *events, int maxEvents) {
  int numReady = 0;
  for (const Watched &watched : watched_[epoll]) {
    const Socket *socket = Find(watched.fd);
    const uint32_t now = socket ? EventsOf(*socket, watched.event.events) : 0;
    if (now == 0 || numReady == maxEvents) continue;
    events[numReady] = watched.event;
    events[numReady++].events = now;
  }
  return numReady;
}

void TestNetwork::FillRandom(void *bytes, size_t len) {
  auto *out = static_cast<uint8_t *>(bytes);
  std::generate(out, out + len, [this] { return static_cast<uint8_t>(random_()); });
}

bool TestNetwork::IsHeld(Endpoint local) const {
  return std::any_of(sockets_.begin(), sockets_.end(),
                     [local](const auto &entry) { return entry.second.local == local; });
}

uint16_t TestNetwork::FreePort(uint32_t ip) {
  do {
    lastPort_ = lastPort_ == UINT16_MAX ? kFirstPort : static_cast<uint16_t>(lastPort_ + 1);
  } while (IsHeld({ip, lastPort_}));
  return lastPort_;
}

// A connected socket takes what its peer sent, any other what nobody is connected for.
TestNetwork::Socket *TestNetwork::ReceiverOf(const Datagram &datagram) {
  Socket *receiver = nullptr;
  for (auto &[fd, socket] : sockets_) {
    if (socket.local != datagram.to) continue;
    if (socket.peer && *socket.peer == datagram.from) return &socket;
    if (!socket.peer) receiver = &socket;
  }
  return receiver;
}

// An ICMP message reaches a connected socket, if that still exists.
TestNetwork::Socket *TestNetwork::SenderOf(const Datagram &datagram) {
  for (auto &[fd, socket] : sockets_) {
    if (socket.local == datagram.from && socket.peer && *socket.peer == datagram.to) return &socket;
  }
  return nullptr;
}

}  // namespace coap_rpc_test

using coap_rpc_test::TestNetwork;

namespace {

TestNetwork::Socket *SocketOf(int fd) {
  TestNetwork *network = TestNetwork::Current();
  return network ? network->Find(fd) : nullptr;
}

bool IsOurs(const sockaddr *address) {
  return TestNetwork::Current() && address->sa_family == AF_INET;
}

const sockaddr_in &Ipv4Of(const void *address) {
  return *static_cast<const sockaddr_in *>(address);
}

int Tell(TestNetwork::Endpoint endpoint, sockaddr *address, socklen_t *len) {
  const sockaddr_in ipv4 = coap_rpc_test::AddressOf(endpoint);
  memcpy(address, &ipv4, std::min<size_t>(*len, sizeof(ipv4)));
  *len = sizeof(ipv4);
  return 0;
}

// AddRecord adds a record about a datagram.
template <typename Record>
void AddRecord(msghdr *message, int type, const Record &record) {
  cmsghdr *control = CMSG_FIRSTHDR(message);
  control->cmsg_level = IPPROTO_IP;
  control->cmsg_type = type;
  control->cmsg_len = CMSG_LEN(sizeof(record));
  memcpy(CMSG_DATA(control), &record, sizeof(record));
  message->msg_controllen = CMSG_SPACE(sizeof(record));
}

// TellReceiver adds the record that says to which of its addresses a datagram came.
void TellReceiver(msghdr *message, uint32_t ip) {
  in_pktinfo info = {};
  info.ipi_ifindex = 1;
  info.ipi_addr.s_addr = htonl(ip);
  AddRecord(message, IP_PKTINFO, info);
}

void TellRefusal(msghdr *message) {
  sock_extended_err error = {};
  error.ee_errno = ECONNREFUSED;
  error.ee_origin = SO_EE_ORIGIN_ICMP;
  AddRecord(message, IP_RECVERR, error);
}

ssize_t Copy(const TestNetwork::Datagram &datagram, void *bytes, size_t size) {
  const size_t len = std::min(datagram.bytes.size(), size);
  memcpy(bytes, datagram.bytes.data(), len);
  return static_cast<ssize_t>(len);
}

// TakeRefused takes the first datagram of a socket's queue of errors.
ssize_t TakeRefused(TestNetwork::Socket &socket, msghdr *message) {
  if (socket.refused.empty()) {
    errno = EAGAIN;
    return -1;
  }
  const TestNetwork::Datagram datagram = std::move(socket.refused.front());
  socket.refused.pop_front();
  TellRefusal(message);
  return Copy(datagram, message->msg_iov[0].iov_base, message->msg_iov[0].iov_len);
}

}  // namespace

int __wrap_bind(int fd, const sockaddr *address, socklen_t len) {
  if (!IsOurs(address)) return __real_bind(fd, address, len);
  return TestNetwork::Current()->Bind(fd, Ipv4Of(address));
}

int __wrap_connect(int fd, const sockaddr *address, socklen_t len) {
  if (!IsOurs(address)) return __real_connect(fd, address, len);
  return TestNetwork::Current()->Connect(fd, Ipv4Of(address));
}

int __wrap_getsockname(int fd, sockaddr *address, socklen_t *len) {
  const TestNetwork::Socket *socket = SocketOf(fd);
  return socket ? Tell(socket->local, address, len) : __real_getsockname(fd, address, len);
}

int __wrap_getpeername(int fd, sockaddr *address, socklen_t *len) {
  const TestNetwork::Socket *socket = SocketOf(fd);
  if (!socket) return __real_getpeername(fd, address, len);
  return socket->peer ? Tell(*socket->peer, address, len) : coap_rpc_test::Failure(ENOTCONN);
}

ssize_t __wrap_send(int fd, const void *bytes, size_t len, int flags) {
  TestNetwork::Socket *socket = SocketOf(fd);
  if (!socket) return __real_send(fd, bytes, len, flags);
  if (!socket->peer) return coap_rpc_test::Failure(EDESTADDRREQ);
  return TestNetwork::Current()->Send(*socket, *socket->peer,
                                      std::string(static_cast<const char *>(bytes), len));
}

ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags) {
  TestNetwork::Socket *socket = SocketOf(fd);
  if (!socket) return __real_sendmsg(fd, message, flags);
  const iovec &part = message->msg_iov[0];
  return TestNetwork::Current()->Send(
      *socket, coap_rpc_test::EndpointOf(Ipv4Of(message->msg_name)),
      std::string(static_cast<const char *>(part.iov_base), part.iov_len));
}

ssize_t __wrap_recv(int fd, void *bytes, size_t len, int flags) {
  TestNetwork::Socket *socket = SocketOf(fd);
  if (!socket) return __real_recv(fd, bytes, len, flags);
  TestNetwork::Datagram datagram;
  if (TestNetwork::Current()->Receive(*socket, &datagram) < 0) return -1;
  return Copy(datagram, bytes, len);
}

ssize_t __wrap_recvmsg(int fd, msghdr *message, int flags) {
  TestNetwork::Socket *socket = SocketOf(fd);
  if (!socket) return __real_recvmsg(fd, message, flags);
  if ((flags & MSG_ERRQUEUE) != 0) return TakeRefused(*socket, message);
  TestNetwork::Datagram datagram;
  if (TestNetwork::Current()->Receive(*socket, &datagram) < 0) return -1;
  Tell(datagram.from, static_cast<sockaddr *>(message->msg_name), &message->msg_namelen);
  TellReceiver(message, datagram.to.ip);
  return Copy(datagram, message->msg_iov[0].iov_base, message->msg_iov[0].iov_len);
}

int __wrap_close(int fd) {
  if (TestNetwork::Current()) TestNetwork::Current()->Close(fd);
  return __real_close(fd);
}

int __wrap_epoll_ctl(int epoll, int operation, int fd, epoll_event *event) {
  if (!SocketOf(fd)) return __real_epoll_ctl(epoll, operation, fd, event);
  TestNetwork::Current()->Watch(epoll, operation, fd, event);
  return 0;
}

int __wrap_epoll_wait(int epoll, epoll_event *events, int maxEvents, int timeoutMs) {
  if (!TestNetwork::Current()) return __real_epoll_wait(epoll, events, maxEvents, timeoutMs);
  return TestNetwork::Current()->Ready(epoll, events, maxEvents);
}

// libcoap's timer, which follows the real clock, only wakes a program that waits for it.
int __wrap_timerfd_settime(int fd, int flags, const itimerspec *value, itimerspec *old) {
  if (!TestNetwork::Current()) return __real_timerfd_settime(fd, flags, value, old);
  return 0;
}
