/* load.cpp: asks a server over UDP, from N ports, each with one request under way.
 *
 *   --port <n>       the server's, on 127.0.0.1 (5683)
 *   --ports <n>      of ours (1)
 *   --window <n>     requests under way at once (as many as ports, at most 200)
 *   --rate <n>       open loop: requests per second, due at even distances; 0: closed loop
 *   --seconds <n>    measured time (2), after 10 % of it as warm-up
 *   --uri <text>     path of one segment; several with a number after it: --uris <n>
 *   --separate yes   requests with a token; answers are acknowledged, and acknowledgements of
 *                    requests are none
 *   --pid <n>        the server's process
 *
 * Prints "name value" lines: requests a second, percentiles of the time from sending (open loop:
 * from when the request was due) to the answer, the server's processor time for each request, and
 * how many requests were repeated because no answer came. */
#include <sys/epoll.h>
#include <unistd.h>

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "clock.h"
#include "datagram.h"
#include "latency.h"
#include "options.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint64_t kNsPerSecond = 1000000000;
constexpr uint64_t kRepeatNs = 200000000;
constexpr uint32_t kMaxWindow = 200;  // what a socket's default buffer holds
constexpr size_t kMidAt = 2;
constexpr size_t kTokenAt = 4;
constexpr size_t kTokenLen = 2;
constexpr char kPayload[] = "0123456789abcdef0123456789abcde";

// Asker is one port of ours.
struct Asker {
  int fd;
  uint16_t mid;
  bool isBusy;
  uint64_t dueNs;
  uint64_t sentNs;
};

// AppendPath adds the options of the path; `uri` has at most 12 characters.
void AppendPath(std::string &message, const std::string &uri) {
  message += static_cast<char>(0xB0 + uri.size());
  message += uri;
}

// PostOf is a confirmable POST.
std::string PostOf(const std::string &uri, size_t tokenLen) {
  std::string message = {static_cast<char>(0x40 | tokenLen), '\x02', '\0', '\0'};
  message.append(tokenLen, '\0');
  AppendPath(message, uri);
  return message + '\xFF' + kPayload;
}

class Load {
 public:
  explicit Load(const Options &options)
      : rate_(options.Number("--rate", 0)),
        pid_(static_cast<pid_t>(options.Number("--pid", 0))),
        isSeparate_(options.Is("--separate", "yes")) {
    const uint32_t numPorts = options.Number("--ports", 1);
    window_ = options.Number("--window", std::min(numPorts, kMaxWindow));
    MakeMessages(options.Text("--uri", "post"), options.Number("--uris", 0));
    epoll_ = epoll_create1(0);
    askers_.resize(numPorts);
    for (Asker &asker : askers_) Open(asker, static_cast<uint16_t>(options.Number("--port", 5683)));
  }

  void Run(uint64_t measuredNs) {
    const uint64_t warmNs = measuredNs / 10;
    startNs_ = NowNs();
    RunUntil(startNs_ + warmNs);
    latency_ = {};
    numRepeated_ = 0;
    const uint64_t fromNs = NowNs();
    const uint64_t fromCpu = CpuNs(pid_);
    RunUntil(fromNs + measuredNs);
    PrintRepeating(latency_, NowNs() - fromNs, pid_, CpuNs(pid_) - fromCpu, numRepeated_);
  }

 private:
  void MakeMessages(const std::string &uri, uint32_t numUris) {
    const size_t tokenLen = isSeparate_ ? kTokenLen : 0;
    if (numUris == 0) messages_.push_back(PostOf(uri, tokenLen));
    for (uint32_t i = 0; i < numUris; ++i) {
      messages_.push_back(PostOf(uri + std::to_string(i), tokenLen));
    }
  }

  void Open(Asker &asker, uint16_t port) {
    asker = {OpenSocket(port), 0, false, 0, 0};
    epoll_event event = {EPOLLIN, {.ptr = &asker}};
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, asker.fd, &event) != 0) abort();
    idle_.push_back(&asker);
  }

  // Start sends the next request that is due, if one is and a port is free.
  bool Start(uint64_t nowNs) {
    if (idle_.empty() || askers_.size() - idle_.size() >= window_) return false;
    const uint64_t dueNs = rate_ != 0 ? startNs_ + numStarted_ * kNsPerSecond / rate_ : nowNs;
    if (dueNs > nowNs) return false;
    Asker &asker = *idle_.front();
    idle_.pop_front();
    asker.isBusy = true;
    asker.dueNs = dueNs;
    message_ = &messages_[(numStarted_++ * kUriStride) % messages_.size()];
    Send(asker, nowNs);
    return true;
  }

  void Send(Asker &asker, uint64_t nowNs) {
    ++asker.mid;
    asker.sentNs = nowNs;
    SetNumber(kMidAt, asker.mid);
    if (isSeparate_) SetNumber(kTokenAt, asker.mid);
    // A full queue at the other end is one more loss.
    static_cast<void>(!write(asker.fd, message_->data(), message_->size()));
  }

  void SetNumber(size_t at, uint16_t number) {
    (*message_)[at] = static_cast<char>(number >> 8);
    (*message_)[at + 1] = static_cast<char>(number);
  }

  static bool HasNumber(const uint8_t *answer, size_t at, uint16_t number) {
    return answer[at] == number >> 8 && answer[at + 1] == (number & 0xFF);
  }

  // IsAnswer says whether a message answers an asker's request; a separate one is acknowledged.
  bool IsAnswer(const Asker &asker, const uint8_t *answer, ssize_t len) const {
    if (!isSeparate_) return len >= 4 && HasNumber(answer, kMidAt, asker.mid);
    if (len < 6 || !IsConfirmable(answer)) return false;
    Acknowledge(asker.fd, answer);
    return HasNumber(answer, kTokenAt, asker.mid);
  }

  void Read(Asker &asker) {
    uint8_t answer[1500];
    ssize_t len = 0;
    while ((len = read(asker.fd, answer, sizeof(answer))) > 0) {
      if (!IsAnswer(asker, answer, len) || !asker.isBusy) continue;
      latency_.Add(NowNs() - asker.dueNs);
      asker.isBusy = false;
      idle_.push_back(&asker);
    }
  }

  void RepeatLost(uint64_t nowNs) {
    if (nowNs - checkedNs_ < kRepeatNs / 10) return;
    checkedNs_ = nowNs;
    for (Asker &asker : askers_) {
      if (!asker.isBusy || nowNs - asker.sentNs < kRepeatNs) continue;
      Send(asker, nowNs);
      ++numRepeated_;
    }
  }

  // An open loop wakes up for what is due next; it does not sleep when that is near.
  int WaitMs(uint64_t nowNs) const {
    if (rate_ == 0 || idle_.empty()) return 10;
    const uint64_t dueNs = startNs_ + numStarted_ * kNsPerSecond / rate_;
    return dueNs > nowNs + 2000000 ? static_cast<int>((dueNs - nowNs) / 1000000) - 1 : 0;
  }

  void RunUntil(uint64_t endNs) {
    epoll_event events[64];
    for (uint64_t nowNs = NowNs(); nowNs < endNs; nowNs = NowNs()) {
      while (Start(nowNs)) nowNs = NowNs();
      const int numReady = epoll_wait(epoll_, events, 64, WaitMs(nowNs));
      for (int i = 0; i < numReady; ++i) Read(*static_cast<Asker *>(events[i].data.ptr));
      RepeatLost(NowNs());
    }
  }

  static constexpr uint64_t kUriStride = 7919;  // goes through the URIs in an order of its own

  uint64_t rate_;
  pid_t pid_;
  bool isSeparate_;
  uint32_t window_ = 1;
  int epoll_ = -1;
  std::vector<std::string> messages_;
  std::string *message_ = nullptr;
  std::vector<Asker> askers_;
  std::deque<Asker *> idle_;
  uint64_t startNs_ = 0;
  uint64_t checkedNs_ = 0;
  uint64_t numStarted_ = 0;
  uint64_t numRepeated_ = 0;
  Latency latency_;
};

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  Load load(options);
  load.Run(static_cast<uint64_t>(atof(options.Text("--seconds", "2")) * 1e9));
  return 0;
}
