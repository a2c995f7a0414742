/* sender.h: a UDP socket that sends fast and remembers nothing. */
#ifndef SENDER_H
#define SENDER_H

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "coap_message.h"

namespace coap_rpc_test {

inline sockaddr_in Ipv4SocketAddress(uint32_t ipv4, uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(ipv4);
  address.sin_port = htons(port);
  return address;
}

class Sender {
 public:
  // A sender at an address of the loopback; port 0 takes a free one.
  Sender(uint32_t fromIp, uint16_t fromPort, uint32_t toIp, uint16_t toPort)
      : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    const sockaddr_in from = Ipv4SocketAddress(fromIp, fromPort);
    const sockaddr_in to = Ipv4SocketAddress(toIp, toPort);
    isOpen_ = bind(fd_, reinterpret_cast<const sockaddr *>(&from), sizeof(from)) == 0 &&
              connect(fd_, reinterpret_cast<const sockaddr *>(&to), sizeof(to)) == 0;
    EXPECT_TRUE(isOpen_) << strerror(errno);
  }
  ~Sender() { close(fd_); }
  Sender(const Sender &) = delete;
  Sender &operator=(const Sender &) = delete;

  // Send may lose the datagram when the other side's buffer is full, as a network does.
  void Send(const Bytes &datagram) { send(fd_, datagram.data(), datagram.size(), 0); }
  void Send(const CoapMessage &message) { Send(ToBytes(message)); }

  // Receive returns the next queued datagram; empty if there is none.
  Bytes Receive() {
    Bytes datagram(2000);
    const ssize_t len = recv(fd_, datagram.data(), datagram.size(), 0);
    datagram.resize(len > 0 ? static_cast<size_t>(len) : 0);
    return datagram;
  }

  // Discard throws away what waits.  Returns how much it was.
  uint32_t Discard() {
    uint32_t num = 0;
    uint8_t byte = 0;
    while (recv(fd_, &byte, sizeof(byte), 0) >= 0 || errno == ECONNREFUSED) ++num;
    return num;
  }

 private:
  int fd_;
  bool isOpen_ = false;
};

}  // namespace coap_rpc_test

#endif /* SENDER_H */
