/* datagram.h: the messages of an asker that has no CoAP library. */
#ifndef BENCH_WIRE_DATAGRAM_H
#define BENCH_WIRE_DATAGRAM_H

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "options.h"

namespace coap_rpc_bench {

inline constexpr int kETag = 4, kObserve = 6, kUriPath = 11, kUriQuery = 15, kBlock2 = 23;

// Message is a datagram in the making: a confirmable or non-confirmable GET with a token.
class Message {
 public:
  Message(bool isConfirmable, uint16_t mid)
      : bytes_{static_cast<char>(isConfirmable ? 0x41 : 0x51), 1, static_cast<char>(mid >> 8),
               static_cast<char>(mid), 0x21} {}

  // Options have to be added in the order of their numbers; up to 268 bytes each.
  Message &Add(int number, const std::string &value) {
    const int delta = number - last_;
    const auto len = static_cast<int>(value.size());
    last_ = number;
    bytes_ += static_cast<char>((delta < 13 ? delta : 13) << 4 | (len < 13 ? len : 13));
    if (delta >= 13) bytes_ += static_cast<char>(delta - 13);
    if (len >= 13) bytes_ += static_cast<char>(len - 13);
    bytes_ += value;
    return *this;
  }
  // After all options.
  Message &AddPayload(const std::string &payload) {
    bytes_ += '\xFF' + payload;
    return *this;
  }
  // A full queue at the other end is one more loss.
  void Send(int fd) const { static_cast<void>(!write(fd, bytes_.data(), bytes_.size())); }

 private:
  std::string bytes_;
  int last_ = 0;
};

inline bool IsConfirmable(const uint8_t *datagram) { return (datagram[0] >> 4 & 3) == 0; }

inline void Acknowledge(int fd, const uint8_t *datagram) {
  const uint8_t ack[] = {0x60, 0, datagram[2], datagram[3]};
  static_cast<void>(!write(fd, ack, sizeof(ack)));
}

// OpenSocket opens a socket of its own to a port of the server.
inline int OpenSocket(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  const sockaddr_in server = Ipv4Address(kServerIpv4, port);
  if (connect(fd, reinterpret_cast<const sockaddr *>(&server), sizeof(server)) == 0) return fd;
  perror("socket");
  exit(1);
}

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_DATAGRAM_H */
