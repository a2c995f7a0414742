/* raw_peer.h: a UDP socket on the loopback that a test uses as the other side of CoAP.
 *
 * Nothing is sent or answered but what the test asks for. */
#ifndef RAW_PEER_H
#define RAW_PEER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "coap_message.h"

namespace coap_rpc_test {

// UdpAddress is a numeric IPv4 or IPv6 address and a port.
struct UdpAddress {
  std::string host;
  uint16_t port = 0;

  bool operator==(const UdpAddress &) const = default;
};

std::ostream &operator<<(std::ostream &out, const UdpAddress &address);

// FindFreeUdpPort returns a port that was free on `host` a moment ago; 0 when there is none.
uint16_t FindFreeUdpPort(const std::string &host = "127.0.0.1");

// HasIpv6Loopback says whether this machine has ::1.
bool HasIpv6Loopback();

// PeerDatagram is one datagram that a peer sent or received.
struct PeerDatagram {
  bool isSent = false;
  UdpAddress other;  // where to or where from
  Bytes bytes;
};

class RawPeer {
 public:
  static constexpr int kMaxTries = 200;

  // A peer at `local`; port 0 takes a free one.  A failure to bind fails the test.
  explicit RawPeer(const UdpAddress &local = {"127.0.0.1", 0});
  ~RawPeer();
  RawPeer(const RawPeer &) = delete;
  RawPeer &operator=(const RawPeer &) = delete;

  bool IsOpen() const { return fd_ >= 0; }
  const UdpAddress &Local() const { return local_; }

  // SetRemote says where Send sends to.  Without it Send answers the last sender.
  void SetRemote(const UdpAddress &remote) { remote_ = remote; }
  const UdpAddress &Remote() const { return remote_; }

  // Send sends one datagram.  Returns false, and fails the test, when the socket refuses.
  bool Send(const Bytes &datagram);
  bool Send(const CoapMessage &message) { return Send(ToBytes(message)); }

  // Receive waits for one datagram: it calls `pump`, reads the socket, and starts again until
  // something arrived or `maxTries` rounds are over (a round that finds nothing waits for the
  // socket for up to a millisecond).
  std::optional<Bytes> Receive(const std::function<void()> &pump, int maxTries = kMaxTries);

  // ReceiveMessage is Receive for a CoAP message.  A malformed datagram fails the test.
  std::optional<CoapMessage> ReceiveMessage(const std::function<void()> &pump,
                                            int maxTries = kMaxTries);

  // ReceiveNow takes a message that is there already, without waiting.
  std::optional<CoapMessage> ReceiveNow();

  // Datagrams lists what was sent and received, in order; LogText is the same for people.
  const std::vector<PeerDatagram> &Datagrams() const { return datagrams_; }
  std::string LogText() const;

 private:
  std::optional<Bytes> TryReceive(int waitMs);
  static std::optional<CoapMessage> MessageOf(const std::optional<Bytes> &datagram);

  int fd_ = -1;
  UdpAddress local_;
  UdpAddress remote_;
  std::vector<PeerDatagram> datagrams_;
};

}  // namespace coap_rpc_test

#endif /* RAW_PEER_H */
