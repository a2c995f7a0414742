/* fuzz_wire.cpp: what targets that receive datagrams share. */
#include "fuzz_wire.h"

#include <coap3/coap.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "fresh_memory.h"
#include "fuzz_support.h"
#include "own_network.h"
#include "test_sleep.h"

namespace fuzz {
namespace {

constexpr uint32_t kFirstRandom = 1;
constexpr size_t kTokenAt = 4;

uint32_t g_random;

int TakeRandom(void *out, size_t len) {
  auto *bytes = static_cast<uint8_t *>(out);
  for (size_t i = 0; i < len; ++i) {
    g_random = g_random * 1664525 + 1013904223;
    bytes[i] = static_cast<uint8_t>(g_random >> 24);
  }
  return 1;
}

unsigned SleepNot(unsigned) { return 0; }

// OwnNet is the first part of the addresses: any in a network of one's own, else one by process.
uint32_t OwnNet() {
  if (coap_rpc_test::EnterOwnNetwork()) return 0x7F000000;
  return 0x7F000000 | (static_cast<uint32_t>(getpid()) & 0xFFFF) << 8;
}

sockaddr_in AddressOf(uint8_t number, uint16_t port) {
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(Ipv4(number));
  return addr;
}

// CheckMarks makes sure that memory which nobody wrote is seen: all else would pass without it.
void CheckMarks() {
  void *p = coap_malloc_type(COAP_STRING, 1);
  Check(coap_rpc_test::IsFresh(p), "libcoap's memory is not marked");
  coap_free_type(COAP_STRING, p);
}

}  // namespace

void PrepareWire() {
  CheckMarks();
  g_random = kFirstRandom;
  coap_set_prng(TakeRandom);
  SetTestSleep(SleepNot);
}

void RunIo(CoapRpcCtx *ctx) {
  while (COAP_RpcProcIo(ctx) != 0) {
  }
}

uint32_t Ipv4(uint8_t number) {
  static const uint32_t net = OwnNet();
  return net | number;
}

CoapRpcIpAddr IpAddr(uint8_t number) {
  CoapRpcIpAddr addr = {};
  addr.family = COAP_RPC_IPV4;
  addr.addr.ipv4 = Ipv4(number);
  return addr;
}

Peer::Peer(uint8_t number, uint16_t port) : local_(AddressOf(number, port)) { Open(); }

void Peer::Open() {
  if (fd_ >= 0) return;
  fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const auto *addr = reinterpret_cast<const sockaddr *>(&local_);
  Check(bind(fd_, addr, sizeof(local_)) == 0, "a peer has no port");
}

void Peer::Close() {
  if (fd_ >= 0) close(std::exchange(fd_, -1));
}

void Peer::SetRemote(uint8_t number, uint16_t port) { remote_ = AddressOf(number, port); }

void Peer::Send(const Bytes &datagram) {
  const auto *addr = reinterpret_cast<const sockaddr *>(&remote_);
  // Refusals are part of the play: nobody may be there.
  (void)sendto(fd_, datagram.data(), datagram.size(), 0, addr, sizeof(remote_));
}

void Peer::SendAsAnswer(Bytes datagram, unsigned patches) {
  if (datagram.size() < kTokenAt) return Send(datagram);
  if ((patches & kPatchId) != 0) {
    datagram[2] = static_cast<uint8_t>(last_.messageId >> 8);
    datagram[3] = static_cast<uint8_t>(last_.messageId);
  }
  if ((patches & kPatchToken) != 0) {
    const size_t old = std::min<size_t>(datagram[0] & 0x0F, datagram.size() - kTokenAt);
    const auto at = datagram.begin() + kTokenAt;
    datagram.insert(datagram.erase(at, at + static_cast<ptrdiff_t>(old)), last_.token.begin(),
                    last_.token.end());
    datagram[0] = static_cast<uint8_t>((datagram[0] & 0xF0) | last_.token.size());
  }
  Send(datagram);
}

void Peer::Receive() {
  uint8_t bytes[2048];
  socklen_t len = sizeof(remote_);
  ssize_t size = 0;
  while ((size = recvfrom(fd_, bytes, sizeof(bytes), 0, reinterpret_cast<sockaddr *>(&remote_),
                          &len)) >= 0) {
    CoapMessage message;
    if (Parse(Bytes(bytes, bytes + size), &message).empty()) last_ = std::move(message);
  }
}

}  // namespace fuzz
