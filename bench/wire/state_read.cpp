/* state_read.cpp: observers of a table of state_serve.
 *
 *   --readers <n>    that get every change (1)
 *   --changed <n>    rows that a round changes (100)
 *   --rounds <n>     (20), after a first one that is not measured
 *   --pause <n>      milliseconds before each (0)
 *   --pulls <n>      under way at a time for each reader (16)
 *   --silent <n>     further observers, which never read what they get (0), ...
 *   --silent-ip <a>  ... at another address
 *   --full yes       one of the readers reads the whole table first
 *   --repeat <n>     no rounds: the first page, N times (0)
 *   --plain yes      the server is libcoap alone: a notification is a round
 *   --ip <address>   of the server (127.0.0.1)
 *   --pid <n>        the server's process
 *
 * Prints how long it takes from the change to the last reader, "delivered_ms" and
 * "delivered_p99_ms"; rows a second, "per_second"; the server's processor time for each changed
 * row, "row_cpu_us"; and that for each page of --repeat, "pull_cpu_us". */
#include <sys/epoll.h>

#include <algorithm>
#include <memory>

#include "latency.h"
#include "state_reader.h"

namespace {

using namespace coap_rpc_bench;

constexpr int kWaitMs = 20;
constexpr uint64_t kPatienceNs = 20'000'000'000;
constexpr int kReceiveBytes = 4 << 20;

class Readers {
 public:
  explicit Readers(const Options &options)
      : options_(options),
        isPlain_(options.Is("--plain", "yes")),
        numChanged_(options.Number("--changed", 100)),
        pid_(static_cast<pid_t>(options.Number("--pid", 0))),
        epoll_(epoll_create1(0)),
        go_(Open(nullptr)) {
    for (uint32_t i = 0; i < options.Number("--silent", 0); ++i) RegisterSilent();
    for (uint32_t i = 0; i < options.Number("--readers", 1); ++i) AddReader();
  }

  // Without readers the silent ones are left behind.
  void Run() {
    if (readers_.empty()) return;
    if (options_.Is("--full", "yes")) ReadAll();
    if (const uint32_t num = options_.Number("--repeat", 0)) {
      Repeat(num);
    } else {
      Measure(options_.Number("--rounds", 20));
    }
  }

 private:
  int Open(const char *from) const {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBytes, sizeof(kReceiveBytes));
    const sockaddr_in own = Ipv4Address(from ? ntohl(inet_addr(from)) : INADDR_ANY, 0);
    const sockaddr_in server =
        Ipv4Address(ntohl(inet_addr(options_.Text("--ip", "127.0.0.1"))), kStatePort);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&own), sizeof(own)) == 0 &&
        connect(fd, reinterpret_cast<const sockaddr *>(&server), sizeof(server)) == 0) {
      return fd;
    }
    perror("state_read: socket");
    exit(1);
  }

  void RegisterSilent() {
    const int fd = Open(options_.Text("--silent-ip", nullptr));
    Reader silent(fd, 0, isPlain_);
    AwaitRegistration(silent);
  }
  void AddReader() {
    const int fd = Open(nullptr);
    readers_.push_back(std::make_unique<Reader>(fd, options_.Number("--pulls", 16), isPlain_));
    AwaitRegistration(*readers_.back());
    epoll_event event = {EPOLLIN, {.ptr = readers_.back().get()}};
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) != 0) abort();
  }
  static void AwaitRegistration(Reader &reader) {
    for (int i = 0; !reader.IsRegistered(); ++i) {
      if (i == 100) Fail("a registration has no answer");
      reader.Register();
      for (int tries = 0; tries < 50 && !reader.IsRegistered(); ++tries) {
        usleep(200);
        ReadAllOf(reader);
      }
    }
  }
  [[noreturn]] static void Fail(const char *text) {
    fprintf(stderr, "state_read: %s\n", text);
    exit(1);
  }

  static void ReadAllOf(Reader &reader) {
    uint8_t bytes[2048];
    ssize_t len = 0;
    while ((len = read(reader.Fd(), bytes, sizeof(bytes))) >= 4) {
      if (IsConfirmable(bytes)) Acknowledge(reader.Fd(), bytes);
      reader.OnDatagram(bytes, static_cast<size_t>(len));
    }
  }

  void Turn() {
    epoll_event events[256];
    const int num = epoll_wait(epoll_, events, 256, kWaitMs);
    for (int i = 0; i < num; ++i) ReadAllOf(*static_cast<Reader *>(events[i].data.ptr));
    if (num != 0) return;
    for (const auto &reader : readers_) reader->Repeat();
  }

  template <typename IsDone>
  void TurnUntil(IsDone isDone, const char *what) {
    const uint64_t endNs = NowNs() + kPatienceNs;
    while (!isDone()) {
      if (NowNs() > endNs) Fail(what);
      Turn();
    }
  }

  bool HasRound(const Reader &reader) const {
    return reader.RoundNs() > lastRoundNs_ && reader.NumOfRound() >= numChanged_;
  }

  // Round returns how long it took until the last reader had it.
  uint64_t Round() {
    usleep(1000 * options_.Number("--pause", 0));
    Message(true, ++goMid_).Add(kUriPath, kGoUri).AddPayload("now").Send(go_);
    const auto isDone = [this] {
      return std::all_of(readers_.begin(), readers_.end(),
                         [this](const auto &reader) { return HasRound(*reader); });
    };
    TurnUntil(isDone, "changes stay away");
    const uint64_t nowNs = NowNs();
    lastRoundNs_ = readers_[0]->RoundNs();
    TurnUntil([this] { return AreIdle(); }, "pulls without an end");
    uint8_t bytes[64];
    while (read(go_, bytes, sizeof(bytes)) > 0) {
    }
    return nowNs - lastRoundNs_;
  }
  bool AreIdle() const {
    return std::all_of(readers_.begin(), readers_.end(),
                       [](const auto &reader) { return reader->IsIdle(); });
  }

  void Measure(uint32_t numRounds) {
    Round();
    std::vector<uint64_t> times;
    const uint64_t fromNs = CpuNs(pid_);
    for (uint32_t i = 0; i < numRounds; ++i) times.push_back(Round());
    const auto cpuNs = static_cast<double>(CpuNs(pid_) - fromNs);
    std::sort(times.begin(), times.end());
    const auto at = [&](size_t percent) {
      return static_cast<double>(times[(times.size() - 1) * percent / 100]) / 1e6;
    };
    const double numRows = static_cast<double>(readers_.size()) * numChanged_;
    printf("delivered_ms %.3f\ndelivered_p99_ms %.3f\n", at(50), at(99));
    printf("per_second %.0f\n", numRows / at(50) * 1000);
    if (pid_ != 0) printf("row_cpu_us %.3f\n", cpuNs / 1000 / numRounds / numChanged_);
  }

  void ReadAll() {
    Reader &reader = *readers_[0];
    const uint64_t fromNs = NowNs();
    reader.ReadAll();
    TurnUntil([&] { return reader.IsIdle(); }, "the table has no end");
    const double ms = static_cast<double>(NowNs() - fromNs) / 1e6;
    const auto numRows = static_cast<double>(reader.NumRows());
    printf("full_rows %.0f\nfull_ms %.1f\nfull_per_second %.0f\n", numRows, ms,
           numRows / ms * 1000);
  }

  // Repeat asks for a page of the table again and again; libcoap alone answers any GET.
  void Repeat(uint32_t num) {
    Reader &reader = *readers_[0];
    uint32_t numDone = 0;
    const uint64_t fromNs = CpuNs(pid_);
    while (numDone < num) numDone += reader.AskForPages(options_.Number("--pulls", 16));
    printf("pull_cpu_us %.3f\n", static_cast<double>(CpuNs(pid_) - fromNs) / 1000 / numDone);
  }

  const Options &options_;
  bool isPlain_;
  uint32_t numChanged_;
  pid_t pid_;
  int epoll_;
  int go_;
  uint16_t goMid_ = 0;
  uint64_t lastRoundNs_ = 0;
  std::vector<std::unique_ptr<Reader>> readers_;
};

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  Readers(options).Run();
  return 0;
}
