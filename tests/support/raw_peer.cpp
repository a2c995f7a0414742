/* raw_peer.cpp: a UDP socket on the loopback that a test uses as the other side of CoAP. */
#include "raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

namespace coap_rpc_test {
namespace {

constexpr size_t kMaxDatagramLen = 65535;

// SocketAddress is a UdpAddress in the form of the socket calls; len 0: not an address.
struct SocketAddress {
  sockaddr_storage storage = {};
  socklen_t len = 0;

  sockaddr *Get() { return reinterpret_cast<sockaddr *>(&storage); }
};

SocketAddress ToSocketAddress(const UdpAddress &address) {
  SocketAddress out;
  auto *ipv4 = reinterpret_cast<sockaddr_in *>(&out.storage);
  auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(&out.storage);
  if (inet_pton(AF_INET, address.host.c_str(), &ipv4->sin_addr) == 1) {
    ipv4->sin_family = AF_INET;
    ipv4->sin_port = htons(address.port);
    out.len = sizeof *ipv4;
  } else if (inet_pton(AF_INET6, address.host.c_str(), &ipv6->sin6_addr) == 1) {
    ipv6->sin6_family = AF_INET6;
    ipv6->sin6_port = htons(address.port);
    out.len = sizeof *ipv6;
  }
  return out;
}

UdpAddress ToUdpAddress(const SocketAddress &address) {
  char host[INET6_ADDRSTRLEN] = "";
  if (address.storage.ss_family == AF_INET) {
    const auto *ipv4 = reinterpret_cast<const sockaddr_in *>(&address.storage);
    inet_ntop(AF_INET, &ipv4->sin_addr, host, sizeof host);
    return {host, ntohs(ipv4->sin_port)};
  }
  const auto *ipv6 = reinterpret_cast<const sockaddr_in6 *>(&address.storage);
  inet_ntop(AF_INET6, &ipv6->sin6_addr, host, sizeof host);
  return {host, ntohs(ipv6->sin6_port)};
}

// OpenSocket returns a bound, non-blocking socket, or -1 with errno set.
int OpenSocket(const UdpAddress &local) {
  SocketAddress address = ToSocketAddress(local);
  const int fd = socket(address.storage.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0 || bind(fd, address.Get(), address.len) == 0) return fd;
  const int error = errno;
  close(fd);
  errno = error;
  return -1;
}

UdpAddress LocalOf(int fd) {
  SocketAddress address;
  address.len = sizeof address.storage;
  getsockname(fd, address.Get(), &address.len);
  return ToUdpAddress(address);
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const UdpAddress &address) {
  const bool isIpv6 = address.host.find(':') != std::string::npos;
  return out << (isIpv6 ? "[" : "") << address.host << (isIpv6 ? "]:" : ":") << address.port;
}

// The kernel gives ports from 32,768 on to sockets that ask for any, those of other tests too.
// Tests that run at the same time begin far from each other.
uint16_t FindFreeUdpPort(const std::string &host) {
  constexpr uint32_t kFirst = 10'000, kNum = 22'000, kStride = 37, kMaxAttempts = 100;
  static uint32_t next = static_cast<uint32_t>(getpid()) * kStride;
  for (uint32_t i = 0; i < kMaxAttempts; ++i) {
    const auto port = static_cast<uint16_t>(kFirst + next++ % kNum);
    const int fd = OpenSocket({host, port});
    if (fd < 0) continue;
    close(fd);
    return port;
  }
  return 0;
}

bool HasIpv6Loopback() { return FindFreeUdpPort("::1") != 0; }

RawPeer::RawPeer(const UdpAddress &local) : fd_(OpenSocket(local)) {
  if (fd_ < 0) {
    ADD_FAILURE() << "cannot bind " << local << ": " << std::strerror(errno);
  } else {
    local_ = LocalOf(fd_);
  }
}

RawPeer::~RawPeer() {
  if (fd_ >= 0) close(fd_);
}

bool RawPeer::Send(const Bytes &datagram) {
  SocketAddress to = ToSocketAddress(remote_);
  const ssize_t len = sendto(fd_, datagram.data(), datagram.size(), 0, to.Get(), to.len);
  if (len != static_cast<ssize_t>(datagram.size())) {
    ADD_FAILURE() << "cannot send to " << remote_ << ": " << std::strerror(errno);
    return false;
  }
  datagrams_.push_back({true, remote_, datagram});
  return true;
}

std::optional<Bytes> RawPeer::Receive(const std::function<void()> &pump, int maxTries) {
  std::optional<Bytes> datagram;
  for (int i = 0; i < maxTries && !datagram; ++i) {
    if (pump) pump();
    datagram = TryReceive(1);
  }
  return datagram;
}

std::optional<CoapMessage> RawPeer::ReceiveMessage(const std::function<void()> &pump,
                                                   int maxTries) {
  return MessageOf(Receive(pump, maxTries));
}

std::optional<CoapMessage> RawPeer::ReceiveNow() { return MessageOf(TryReceive(0)); }

std::optional<CoapMessage> RawPeer::MessageOf(const std::optional<Bytes> &datagram) {
  if (!datagram) return std::nullopt;
  CoapMessage message;
  const std::string error = Parse(*datagram, &message);
  if (error.empty()) return message;
  ADD_FAILURE() << "malformed datagram received: " << error << ": " << HexText(*datagram);
  return std::nullopt;
}

std::optional<Bytes> RawPeer::TryReceive(int waitMs) {
  pollfd readable = {fd_, POLLIN, 0};
  if (poll(&readable, 1, waitMs) <= 0) return std::nullopt;
  Bytes datagram(kMaxDatagramLen);
  SocketAddress from;
  from.len = sizeof from.storage;
  const ssize_t len = recvfrom(fd_, datagram.data(), datagram.size(), 0, from.Get(), &from.len);
  if (len < 0) return std::nullopt;  // for example the echo of a port that nobody listens on
  datagram.resize(static_cast<size_t>(len));
  const UdpAddress sender = ToUdpAddress(from);
  if (remote_.port == 0) remote_ = sender;
  datagrams_.push_back({false, sender, datagram});
  return datagram;
}

std::string RawPeer::LogText() const {
  std::ostringstream text;
  for (const PeerDatagram &datagram : datagrams_) {
    CoapMessage message;
    const std::string error = Parse(datagram.bytes, &message);
    text << (datagram.isSent ? "to " : "from ") << datagram.other << ": ";
    if (error.empty()) {
      text << message << "\n";
    } else {
      text << error << ": " << HexText(datagram.bytes) << "\n";
    }
  }
  return text.str();
}

}  // namespace coap_rpc_test
