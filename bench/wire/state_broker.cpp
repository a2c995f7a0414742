/* state_broker.cpp: rows published and read through a broker on 127.0.0.1, for comparison.
 *
 *   --kind redis         each row is set in a hash and published, as a table and its observers need
 *   --kind nats          each row is published; nothing keeps it
 *   --role publisher     says "ready" and makes a round whenever it is asked to
 *   --role subscriber    asks for rounds and prints what state_read prints
 *   --readers <n>        subscribers (1)
 *   --changed <n>        rows of a round (100)
 *   --rounds <n>         (20), after a first one that is not measured
 *   --pid, --broker-pid  whose processor time is that of the rows */
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "clock.h"
#include "options.h"
#include "state.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint16_t kRedisPort = 6379, kNatsPort = 4222;
constexpr size_t kRowBytes = 2 * kRowField;
constexpr int kConnectTries = 500;

[[noreturn]] void Fail(const char *text) {
  perror(text);
  exit(1);
}

// Broker is how one of them is spoken to.  What a subscriber gets for a row has one length.
struct Broker {
  bool isRedis;

  uint16_t Port() const { return isRedis ? kRedisPort : kNatsPort; }
  std::string Subscribe(const std::string &channel) const {
    return isRedis ? "SUBSCRIBE " + channel + "\r\n" : "SUB " + channel + " 1\r\n";
  }
  std::string Publish(const std::string &channel, const std::string &bytes) const {
    const std::string len = std::to_string(bytes.size());
    if (!isRedis) return "PUB " + channel + " " + len + "\r\n" + bytes + "\r\n";
    return "*3\r\n$7\r\nPUBLISH\r\n$" + std::to_string(channel.size()) + "\r\n" + channel +
           "\r\n$" + len + "\r\n" + bytes + "\r\n";
  }
  std::string PublishRow(uint32_t index, uint64_t roundNs) const {
    const std::string key(KeyOfRow(index).bytes, kRowField);
    const std::string val(ValueOfRow(roundNs, index).bytes, kRowField);
    const std::string row = Publish("rows", key + val);
    if (!isRedis) return row;
    return "*4\r\n$4\r\nHSET\r\n$5\r\ntable\r\n$16\r\n" + key + "\r\n$16\r\n" + val + "\r\n" + row;
  }
  std::string RowHead() const {
    return isRedis ? "*3\r\n$7\r\nmessage\r\n$4\r\nrows\r\n$32\r\n" : "MSG rows 1 32\r\n";
  }
};

// Connection is a socket to the broker.
class Connection {
 public:
  explicit Connection(const Broker &broker) : fd_(Open(broker.Port())) {
    if (!broker.isRedis) Write("CONNECT {\"verbose\":false}\r\n");
  }

  int Fd() const { return fd_; }
  void Write(const std::string &bytes) const {
    size_t at = 0;
    while (at < bytes.size()) {
      const ssize_t len = send(fd_, bytes.data() + at, bytes.size() - at, 0);
      if (len <= 0) Fail("state_broker: send");
      at += static_cast<size_t>(len);
    }
  }

  // Read appends what is there to a text; it waits for the first byte unless told not to.
  void Read(std::string &text, int flags = 0) const {
    char bytes[65536];
    const ssize_t len = recv(fd_, bytes, sizeof(bytes), flags);
    if (len > 0) text.append(bytes, static_cast<size_t>(len));
    if (len == 0) Fail("state_broker: the broker has left");
  }
  void AwaitAnswer(const Broker &broker) const {
    std::string text;
    if (!broker.isRedis) Write("PING\r\n");
    const char *last = broker.isRedis ? ":1\r\n" : "PONG\r\n";
    while (text.find(last) == text.npos) Read(text);
  }

 private:
  static int Open(uint16_t port) {
    const sockaddr_in addr = Ipv4Address(kServerIpv4, port);
    for (int i = 0; i < kConnectTries; ++i) {
      const int fd = socket(AF_INET, SOCK_STREAM, 0);
      const int isOn = 1;
      setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &isOn, sizeof(isOn));
      if (connect(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof(addr)) == 0) return fd;
      close(fd);
      usleep(20'000);
    }
    Fail("state_broker: connect");
  }

  int fd_;
};

[[noreturn]] void Publish(const Broker &broker, uint32_t numChanged) {
  const Connection rounds(broker);
  const Connection rows(broker);
  rounds.Write(broker.Subscribe("go"));
  rounds.AwaitAnswer(broker);
  printf("ready\n");
  fflush(stdout);
  while (true) {
    std::string asked;
    while (asked.find("round") == asked.npos) rounds.Read(asked);
    const uint64_t nowNs = NowNs();
    std::string bytes;
    for (uint32_t i = 0; i < numChanged; ++i) bytes += broker.PublishRow(i, nowNs);
    rows.Write(bytes);
    for (std::string answers = " "; !answers.empty();) {
      answers.clear();
      rows.Read(answers, MSG_DONTWAIT);
    }
  }
}

// Subscriber counts the rows of the latest round.
class Subscriber {
 public:
  explicit Subscriber(const Broker &broker) : connection_(broker), head_(broker.RowHead()) {
    connection_.Write(broker.Subscribe("rows"));
    connection_.AwaitAnswer(broker);
  }

  int Fd() const { return connection_.Fd(); }
  uint64_t RoundNs() const { return roundNs_; }
  uint32_t NumOfRound() const { return numOfRound_; }

  void Read() {
    connection_.Read(text_);
    const size_t len = head_.size() + kRowBytes + 2;
    size_t at = 0;
    while (text_.size() - at >= len)
      at = text_.compare(at, head_.size(), head_) == 0 ? Take(at, len) : Skip(at);
    text_.erase(0, at);
  }

 private:
  size_t Take(size_t at, size_t len) {
    const uint64_t roundNs = RoundOf(text_.data() + at + head_.size() + kRowField);
    if (roundNs > roundNs_) numOfRound_ = 0;
    roundNs_ = std::max(roundNs, roundNs_);
    ++numOfRound_;
    return at + len;
  }
  // Skip leaves out a line that is no row.
  size_t Skip(size_t at) const {
    const size_t end = text_.find("\r\n", at);
    return end == text_.npos ? text_.size() : end + 2;
  }

  Connection connection_;
  const std::string head_;
  std::string text_;
  uint64_t roundNs_ = 0;
  uint32_t numOfRound_ = 0;
};

class Subscribers {
 public:
  Subscribers(const Broker &broker, const Options &options)
      : broker_(broker),
        rounds_(broker),
        epoll_(epoll_create1(0)),
        numChanged_(options.Number("--changed", 100)),
        publisher_(static_cast<pid_t>(options.Number("--pid", 0))),
        brokerPid_(static_cast<pid_t>(options.Number("--broker-pid", 0))) {
    const uint32_t num = options.Number("--readers", 1);
    subscribers_.reserve(num);
    for (uint32_t i = 0; i < num; ++i) {
      subscribers_.emplace_back(broker);
      epoll_event event = {EPOLLIN, {.ptr = &subscribers_.back()}};
      if (epoll_ctl(epoll_, EPOLL_CTL_ADD, subscribers_.back().Fd(), &event) != 0) abort();
    }
  }

  void Measure(uint32_t numRounds) {
    Round();
    std::vector<uint64_t> times;
    const uint64_t fromNs = Cpu();
    for (uint32_t i = 0; i < numRounds; ++i) times.push_back(Round());
    const auto cpuNs = static_cast<double>(Cpu() - fromNs);
    std::sort(times.begin(), times.end());
    const double ms = static_cast<double>(times[times.size() / 2]) / 1e6;
    const double p99 = static_cast<double>(times[times.size() * 99 / 100]) / 1e6;
    const double numRows = static_cast<double>(subscribers_.size()) * numChanged_;
    printf("delivered_ms %.3f\ndelivered_p99_ms %.3f\n", ms, p99);
    printf("per_second %.0f\n", numRows / ms * 1000);
    printf("row_cpu_us %.3f\n", cpuNs / 1000 / numRounds / numChanged_);
  }

 private:
  uint64_t Cpu() const { return CpuNs(publisher_) + CpuNs(brokerPid_); }

  bool HasAll() const {
    return std::all_of(subscribers_.begin(), subscribers_.end(), [this](const Subscriber &one) {
      return one.RoundNs() > lastRoundNs_ && one.NumOfRound() >= numChanged_;
    });
  }
  uint64_t Round() {
    rounds_.Write(broker_.Publish("go", "round"));
    while (!HasAll()) {
      epoll_event events[128];
      const int num = epoll_wait(epoll_, events, 128, 20'000);
      if (num <= 0) Fail("state_broker: rows stay away");
      for (int i = 0; i < num; ++i) static_cast<Subscriber *>(events[i].data.ptr)->Read();
    }
    lastRoundNs_ = subscribers_[0].RoundNs();
    const uint64_t took = NowNs() - lastRoundNs_;
    std::string answers;
    rounds_.Read(answers, MSG_DONTWAIT);
    return took;
  }

  const Broker &broker_;
  const Connection rounds_;
  int epoll_;
  uint32_t numChanged_;
  pid_t publisher_, brokerPid_;
  std::vector<Subscriber> subscribers_;
  uint64_t lastRoundNs_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  const Broker broker = {options.Is("--kind", "redis")};
  if (options.Is("--role", "publisher")) Publish(broker, options.Number("--changed", 100));
  Subscribers(broker, options).Measure(options.Number("--rounds", 20));
  return 0;
}
