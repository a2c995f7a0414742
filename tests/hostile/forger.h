/* forger.h: UDP datagrams from any address and port, many to a call of the system. */
#ifndef FORGER_H
#define FORGER_H

#include <netinet/ip.h>
#include <netinet/udp.h>

#include <vector>

#include "sender.h"

namespace coap_rpc_test {

// Forger needs the right to open raw sockets, as a process in a network of its own has.
class Forger {
 public:
  Forger(uint32_t toIp, uint16_t toPort)
      : fd_(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW)),
        to_(Ipv4SocketAddress(toIp, toPort)) {}
  ~Forger() {
    if (fd_ >= 0) close(fd_);
  }
  Forger(const Forger &) = delete;
  Forger &operator=(const Forger &) = delete;

  bool IsOpen() const { return fd_ >= 0; }

  // Add puts a datagram into the burst that Send sends; what finds no room is lost.
  void Add(uint32_t fromIp, uint16_t fromPort, const Bytes &datagram) {
    Headers headers = {};
    const auto udpLen = static_cast<uint16_t>(sizeof(udphdr) + datagram.size());
    headers.ip.version = 4;
    headers.ip.ihl = 5;
    headers.ip.ttl = 64;
    headers.ip.protocol = IPPROTO_UDP;
    headers.ip.saddr = htonl(fromIp);
    headers.ip.daddr = to_.sin_addr.s_addr;
    headers.udp.source = htons(fromPort);
    headers.udp.dest = to_.sin_port;
    headers.udp.len = htons(udpLen);  // the system fills in the rest; no sum is the sender's choice
    Bytes packet(sizeof(headers));
    memcpy(packet.data(), &headers, sizeof(headers));
    packet.insert(packet.end(), datagram.begin(), datagram.end());
    packets_.push_back(std::move(packet));
  }

  // Send returns how many have left.
  uint32_t Send() {
    std::vector<iovec> parts(packets_.size());
    std::vector<mmsghdr> messages(packets_.size());
    for (size_t i = 0; i < packets_.size(); ++i) {
      parts[i] = {packets_[i].data(), packets_[i].size()};
      messages[i].msg_hdr.msg_name = &to_;
      messages[i].msg_hdr.msg_namelen = sizeof(to_);
      messages[i].msg_hdr.msg_iov = &parts[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int num = sendmmsg(fd_, messages.data(), static_cast<unsigned>(messages.size()), 0);
    packets_.clear();
    return num > 0 ? static_cast<uint32_t>(num) : 0;
  }

 private:
  struct Headers {
    iphdr ip;
    udphdr udp;
  };

  int fd_;
  sockaddr_in to_;
  std::vector<Bytes> packets_;
};

}  // namespace coap_rpc_test

#endif /* FORGER_H */
