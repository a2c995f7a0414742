/* delay.cpp: a way to a server of this host that takes its time.
 *
 *   --port <n>         where one client sends to (5689)
 *   --server-port <n>  (5688)
 *   --delay-us <n>     of each datagram, either way (5000)
 *
 * Prints "ready", and carries datagrams until it is ended.  Nothing is lost as long as the sockets
 * have room. */
#include <poll.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <vector>

#include "clock.h"
#include "options.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint64_t kNsPerUs = 1000;
constexpr uint64_t kNsPerSecond = 1000000000;
constexpr size_t kMaxDatagram = 65536;

struct Datagram {
  uint64_t dueNs;
  int from;
  std::vector<char> bytes;
};

sockaddr_in LocalAddress(const Options &options, const char *name, uint16_t otherwise) {
  return Ipv4Address(kServerIpv4, static_cast<uint16_t>(options.Number(name, otherwise)));
}

int NewSocket() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int numBytes = 1 << 22;
  if (fd < 0) abort();
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &numBytes, sizeof(numBytes));
  return fd;
}

// Way is both directions.  Whoever sent to the front last is the client.
class Way {
 public:
  explicit Way(const Options &options)
      : delayNs_(options.Number("--delay-us", 5000) * kNsPerUs),
        front_(NewSocket()),
        back_(NewSocket()) {
    const sockaddr_in own = LocalAddress(options, "--port", 5689);
    const sockaddr_in server = LocalAddress(options, "--server-port", 5688);
    if (bind(front_, reinterpret_cast<const sockaddr *>(&own), sizeof(own)) != 0) abort();
    if (connect(back_, reinterpret_cast<const sockaddr *>(&server), sizeof(server)) != 0) abort();
  }

  void Step() {
    pollfd io[] = {{front_, POLLIN, 0}, {back_, POLLIN, 0}};
    const uint64_t nowNs = NowNs();
    const uint64_t dueNs = queue_.empty() ? nowNs + kNsPerSecond : queue_.front().dueNs;
    const uint64_t leftNs = dueNs > nowNs ? dueNs - nowNs : 0;
    const timespec left = {static_cast<time_t>(leftNs / kNsPerSecond),
                           static_cast<long>(leftNs % kNsPerSecond)};
    ppoll(io, 2, &left, nullptr);
    TakeAll(front_);
    TakeAll(back_);
    SendDue();
  }

 private:
  void TakeAll(int fd) {
    char bytes[kMaxDatagram];
    for (;;) {
      sockaddr_in from = {};
      socklen_t fromLen = sizeof(from);
      const ssize_t len =
          recvfrom(fd, bytes, sizeof(bytes), 0, reinterpret_cast<sockaddr *>(&from), &fromLen);
      if (len < 0) return;
      if (fd == front_) client_ = from;
      queue_.push_back({NowNs() + delayNs_, fd, std::vector<char>(bytes, bytes + len)});
    }
  }
  void SendDue() {
    for (; !queue_.empty() && queue_.front().dueNs <= NowNs(); queue_.pop_front()) {
      const std::vector<char> &bytes = queue_.front().bytes;
      if (queue_.front().from == front_) {
        send(back_, bytes.data(), bytes.size(), 0);
      } else {
        sendto(front_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&client_),
               sizeof(client_));
      }
    }
  }

  const uint64_t delayNs_;
  const int front_;
  const int back_;
  sockaddr_in client_ = {};
  std::deque<Datagram> queue_;
};

}  // namespace

int main(int argc, char **argv) {
  Way way(Options(argc, argv));
  printf("ready\n");
  fflush(stdout);
  for (;;) way.Step();
}
