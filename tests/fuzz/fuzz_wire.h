/* fuzz_wire.h: what targets that receive datagrams share: a network of their own, peers on it, and
 * a libcoap that does the same for the same input. */
#ifndef FUZZ_WIRE_H
#define FUZZ_WIRE_H

#include <netinet/in.h>

#include <cstdint>
#include <vector>

#include "coap_message.h"
#include "coap_svc/rpc/coap_rpc_types.h"

namespace fuzz {

using coap_rpc_test::Bytes;
using coap_rpc_test::CoapMessage;

inline constexpr uint16_t kCoapPort = 5683;

// PrepareWire is called before each input: libcoap's random numbers start again, and there is no
// wait for an unavailable endpoint.
void PrepareWire();

// RunIo lets an instance take all that has arrived, however long that takes: what an input does
// must not depend on the machine's speed.
void RunIo(CoapRpcCtx *ctx);

// Ipv4 is a loopback address that no other process uses, in host byte order.
uint32_t Ipv4(uint8_t number);

CoapRpcIpAddr IpAddr(uint8_t number);

// Peer is a socket that never waits.
class Peer {
 public:
  Peer(uint8_t number, uint16_t port);
  ~Peer() { Close(); }
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;

  // SetRemote says where Send sends to, until something is received from elsewhere.
  void SetRemote(uint8_t number, uint16_t port);

  void Send(const Bytes &datagram);
  void Send(const CoapMessage &message) { Send(ToBytes(message)); }

  // SendAsAnswer puts the id, the token, or both, of the message that came last into a datagram.
  enum Patch { kPatchId = 1, kPatchToken = 2 };
  void SendAsAnswer(Bytes datagram, unsigned patches);

  // Receive takes what has arrived.
  void Receive();

  // Last is the last message that arrived.
  const CoapMessage &Last() const { return last_; }

  // Close leaves nobody at the peer's port; Open takes it again.
  void Close();
  void Open();

 private:
  sockaddr_in local_;
  sockaddr_in remote_ = {};
  int fd_ = -1;
  CoapMessage last_;
};

}  // namespace fuzz

#endif /* FUZZ_WIRE_H */
