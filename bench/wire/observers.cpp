/* observers.cpp: observes the URI of a watch server that changes it repeatedly, from N ports.
 *
 *   --observers <n>  (1)
 *   --rounds <n>     notifications that each of them gets (4), after a first one that is not
 * measured
 *   --pid <n>        the server's process
 *
 * Prints the server's processor time for each registration, "register_cpu_us", and for each
 * notification, "notify_cpu_us", and the median of the time from the first notification of a round
 * to the last one, "round_us". */
#include <sys/epoll.h>

#include <algorithm>
#include <vector>

#include "clock.h"
#include "datagram.h"
#include "options.h"
#include "watch.h"

namespace {

using namespace coap_rpc_bench;

constexpr int kPatienceMs = 10'000;
constexpr int kSilenceMs = 50;  // no answer to a registration: it was lost

class Observers {
 public:
  Observers(uint32_t num, pid_t pid) : epoll_(epoll_create1(0)), pid_(pid) {
    for (uint32_t i = 0; i < num; ++i) {
      fds_.push_back(OpenSocket(kWatchPort));
      epoll_event event = {EPOLLIN, {.fd = fds_.back()}};
      if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fds_.back(), &event) != 0) abort();
    }
  }

  // Register has each answered before the next one asks.  Returns processor time.
  double Register() {
    const uint64_t fromNs = CpuNs(pid_);
    for (const int fd : fds_) {
      do {
        Message question(true, ++mid_);
        question.Add(kObserve, "").Add(kUriPath, kWatchUri).Send(fd);
      } while (Read(kSilenceMs) == 0);
    }
    return Share(fromNs, fds_.size());
  }

  // Round reads one notification of each observer.  Returns the time that they were spread over.
  double Round() {
    size_t numSeen = 0;
    uint64_t firstNs = 0;
    while (numSeen < fds_.size()) {
      const int numRead = Read(kPatienceMs);
      if (numRead == 0) {
        fprintf(stderr, "observers: notifications stay away\n");
        exit(1);
      }
      if (numSeen == 0) firstNs = NowNs();
      numSeen += static_cast<size_t>(numRead);
    }
    return static_cast<double>(NowNs() - firstNs) / 1000;
  }

  void Run(uint32_t numRounds) {
    printf("register_cpu_us %.2f\n", Register());
    Round();
    std::vector<double> spreads;
    const uint64_t fromNs = CpuNs(pid_);
    for (uint32_t i = 0; i < numRounds; ++i) spreads.push_back(Round());
    printf("notify_cpu_us %.2f\n", Share(fromNs, numRounds * fds_.size()));
    std::sort(spreads.begin(), spreads.end());
    printf("round_us %.1f\n", spreads[spreads.size() / 2]);
  }

 private:
  double Share(uint64_t fromNs, size_t num) const {
    return static_cast<double>(CpuNs(pid_) - fromNs) / 1000 / static_cast<double>(num);
  }

  // Read waits for datagrams, acknowledges them and says how many there were.
  int Read(int waitMs) {
    epoll_event events[64];
    const int numReady = epoll_wait(epoll_, events, 64, waitMs);
    int num = 0;
    for (int i = 0; i < numReady; ++i) {
      uint8_t bytes[2048];
      if (read(events[i].data.fd, bytes, sizeof(bytes)) < 4) continue;
      if (IsConfirmable(bytes)) Acknowledge(events[i].data.fd, bytes);
      ++num;
    }
    return num;
  }

  int epoll_;
  pid_t pid_;
  std::vector<int> fds_;
  uint16_t mid_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  Observers observers(options.Number("--observers", 1),
                      static_cast<pid_t>(options.Number("--pid", 0)));
  observers.Run(options.Number("--rounds", 4));
  return 0;
}
