/* test_network.h: an IPv4 network that exists only in the test, for libcoap's UDP sockets.
 *
 * The kernel's loopback delivers a datagram when its softirq runs, picks ports at random, limits
 * the rate of its ICMP messages and has queues whose size the machine decides.  Here a datagram has
 * arrived when its send returns, ports are counted, and sockets report in the order in which they
 * were added: one seed gives one run, on any machine under any load.
 *
 * Programs that use it are linked with the target test_network, which puts it before the socket
 * calls of libcoap and of the library.  Without a TestNetwork alive the calls reach the kernel. */
#ifndef TEST_NETWORK_H
#define TEST_NETWORK_H

#include <netinet/in.h>
#include <sys/epoll.h>

#include <compare>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace coap_rpc_test {

class TestNetwork {
 public:
  // Endpoint is an address and a port in host order.
  struct Endpoint {
    uint32_t ip = 0;
    uint16_t port = 0;

    auto operator<=>(const Endpoint &) const = default;
  };

  struct Datagram {
    Endpoint from;
    Endpoint to;
    std::string bytes;
  };

  struct Socket {
    Endpoint local;
    std::optional<Endpoint> peer;  // of connect
    std::deque<Datagram> waiting;
    int error = 0;                 // reported by the next call, as an ICMP message is
    std::deque<Datagram> refused;  // the latest that such errors were about
  };

  // libcoap's random numbers come from the seed while the network lives.  One may live at a time.
  explicit TestNetwork(uint32_t seed);
  ~TestNetwork();
  TestNetwork(const TestNetwork &) = delete;
  TestNetwork &operator=(const TestNetwork &) = delete;

  // Current is the network that lives, or null.
  static TestNetwork *Current();

  // SetCarrier hands every datagram that is sent to a function in place of its receiver; Deliver
  // lets one arrive, whenever and as often as the carrier likes.  Null: at once, as without.
  using Carrier = std::function<void(const Datagram &)>;
  void SetCarrier(Carrier carrier) { carrier_ = std::move(carrier); }
  void Deliver(Datagram datagram);

  // Digest is a number of all datagrams so far, their addresses and their fate.  Note adds to it.
  uint64_t Digest() const { return digest_; }
  void Note(uint64_t value);

  uint64_t NumSent() const { return numSent_; }
  uint64_t NumLost() const { return numLost_; }        // the receiver's queue was full
  uint64_t NumRefused() const { return numRefused_; }  // nobody had the port

  // The operations of the socket calls; results and errno are theirs.
  Socket *Find(int fd);
  int Bind(int fd, const sockaddr_in &address);
  int Connect(int fd, const sockaddr_in &address);
  ssize_t Send(Socket &socket, Endpoint to, std::string bytes);
  ssize_t Receive(Socket &socket, Datagram *datagram);
  void Close(int fd);
  void Watch(int epoll, int operation, int fd, const epoll_event *event);
  int Ready(int epoll, epoll_event *events, int maxEvents);

  void FillRandom(void *bytes, size_t len);

 private:
  struct Watched {
    int fd;
    epoll_event event;
  };

  bool IsHeld(Endpoint local) const;
  uint16_t FreePort(uint32_t ip);
  Socket *ReceiverOf(const Datagram &datagram);
  Socket *SenderOf(const Datagram &datagram);

  std::map<int, Socket> sockets_;
  std::map<int, std::vector<Watched>> watched_;
  Carrier carrier_;
  std::mt19937 random_;
  uint16_t lastPort_;
  uint64_t digest_;
  uint64_t numSent_ = 0;
  uint64_t numLost_ = 0;
  uint64_t numRefused_ = 0;
};

}  // namespace coap_rpc_test

#endif /* TEST_NETWORK_H */
