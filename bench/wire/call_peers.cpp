/* call_peers.cpp: asynchronous calls of several peers that take turns at one URI.  It has no CoAP
 * library and makes its calls of a server started as call_rpc or call_libcoap --role server.
 *
 *   --peers <n>      addresses from 127.0.0.10 on, each with one call under way (16; at most 200)
 *   --seconds <n>    measured time (2), after a tenth of it that is not
 *   --pid <n>        the server's process
 *
 * Prints "name value" lines: calls a second, the server's processor time for each call, percentiles
 * of the time from asking to the answer, and how many calls were repeated. */
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "clock.h"
#include "latency.h"
#include "options.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint16_t kPort = 5683;
constexpr uint32_t kFirstPeerIpv4 = 0x7F00000A;
constexpr uint32_t kMaxPeers = 200;
constexpr uint64_t kRepeatNs = 1000000000;

// Peer asks from one port and takes answers at another.
struct Peer {
  int asker;
  int home;
  uint16_t mid;
  uint64_t sentNs;
};

int OpenSocket(uint32_t ipv4, uint16_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  const sockaddr_in addr = Ipv4Address(ipv4, port);
  if (bind(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof(addr)) == 0) return fd;
  perror("socket");
  exit(1);
}

class Peers {
 public:
  explicit Peers(const Options &options)
      : pid_(static_cast<pid_t>(options.Number("--pid", 0))),
        epoll_(epoll_create1(0)),
        peers_(std::min(options.Number("--peers", 16), kMaxPeers)) {
    for (size_t i = 0; i < peers_.size(); ++i) Open(i);
  }

  void Run(uint64_t measuredNs) {
    for (Peer &peer : peers_) Ask(peer);
    RunUntil(NowNs() + measuredNs / 10);
    latency_ = {};
    numRepeated_ = 0;
    const uint64_t fromNs = NowNs();
    const uint64_t fromCpu = CpuNs(pid_);
    RunUntil(fromNs + measuredNs);
    PrintRepeating(latency_, NowNs() - fromNs, pid_, CpuNs(pid_) - fromCpu, numRepeated_);
  }

 private:
  void Open(size_t i) {
    const uint32_t ipv4 = kFirstPeerIpv4 + static_cast<uint32_t>(i);
    peers_[i] = {OpenSocket(ipv4, 0), OpenSocket(ipv4, kPort), 0, 0};
    const sockaddr_in server = Ipv4Address(kAskerIpv4, kPort);
    connect(peers_[i].asker, reinterpret_cast<const sockaddr *>(&server), sizeof(server));
    Watch(peers_[i].asker, 2 * i);
    Watch(peers_[i].home, 2 * i + 1);
  }

  void Watch(int fd, uint64_t number) const {
    epoll_event event = {EPOLLIN, {.u64 = number}};
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) != 0) abort();
  }

  // Ask sends a confirmable GET of "call" with 32 bytes.
  static void Ask(Peer &peer) {
    ++peer.mid;
    peer.sentNs = NowNs();
    uint8_t request[] =
        "\x41\x01..\x21\xB4"
        "call\xFF"
        "0123456789abcdef0123456789abcdef";
    request[2] = static_cast<uint8_t>(peer.mid >> 8);
    request[3] = static_cast<uint8_t>(peer.mid);
    // A full queue at the other end is one more loss.
    static_cast<void>(!write(peer.asker, request, sizeof(request) - 1));
  }

  // Drain drops acknowledgements of requests.
  static void Drain(int fd) {
    uint8_t datagram[1500];
    while (read(fd, datagram, sizeof(datagram)) > 0) {
    }
  }

  // TakeAnswers acknowledges each POST with a 2.01 and asks again.
  void TakeAnswers(Peer &peer) {
    uint8_t datagram[1500];
    sockaddr_in from = {};
    socklen_t fromLen = sizeof(from);
    while (recvfrom(peer.home, datagram, sizeof(datagram), 0, reinterpret_cast<sockaddr *>(&from),
                    &fromLen) > 4) {
      const size_t tokenLen = datagram[0] & 0xF;
      if ((datagram[0] >> 4 & 3) != 0) continue;
      datagram[0] = static_cast<uint8_t>(0x60 | tokenLen);
      datagram[1] = 0x41;
      sendto(peer.home, datagram, 4 + tokenLen, 0, reinterpret_cast<const sockaddr *>(&from),
             fromLen);
      latency_.Add(NowNs() - peer.sentNs);
      Ask(peer);
    }
  }

  void RepeatLost(uint64_t nowNs) {
    for (Peer &peer : peers_) {
      if (nowNs - peer.sentNs < kRepeatNs) continue;
      Ask(peer);
      ++numRepeated_;
    }
  }

  void RunUntil(uint64_t endNs) {
    epoll_event events[64];
    while (NowNs() < endNs) {
      const int numReady = epoll_wait(epoll_, events, 64, 10);
      for (int i = 0; i < numReady; ++i) {
        Peer &peer = peers_[events[i].data.u64 / 2];
        if (events[i].data.u64 % 2 == 0) {
          Drain(peer.asker);
        } else {
          TakeAnswers(peer);
        }
      }
      RepeatLost(NowNs());
    }
  }

  pid_t pid_;
  int epoll_;
  std::vector<Peer> peers_;
  uint64_t numRepeated_ = 0;
  Latency latency_;
};

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  Peers peers(options);
  peers.Run(static_cast<uint64_t>(atof(options.Text("--seconds", "2")) * 1e9));
  return 0;
}
