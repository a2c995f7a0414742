/* resync.cpp: asks a watch server with a full table whether a check code is up to date, and times
 * the answers: with the code of the present table (nothing is sent) and with another one (the whole
 * table is sent, and fetched block by block).
 *
 *   --repeats <n>    questions of each kind (5)
 *   --pid <n>        the server's process
 *
 * Prints the medians of the time from question to last block, "match_us" and "stale_us", and of the
 * server's processor time, "match_cpu_us" and "stale_cpu_us". */
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "clock.h"
#include "datagram.h"
#include "options.h"
#include "watch.h"

namespace {

using namespace coap_rpc_bench;

constexpr int kSilenceMs = 1100;  // a table that travels in blocks silences its URI for so long

// Answer is what resync wants to know of a datagram.
struct Answer {
  bool hasPayload = false;
  uint64_t etag = 0;
  bool hasMore = false;
};

uint64_t Number(const uint8_t *bytes, size_t len) {
  uint64_t number = 0;
  for (size_t i = 0; i < len; ++i) number = number << 8 | bytes[i];
  return number;
}

Answer Parse(const uint8_t *bytes, size_t size) {
  Answer answer;
  int number = 0;
  for (size_t at = 4u + (bytes[0] & 15); at < size;) {
    if (bytes[at] == 0xFF) {
      answer.hasPayload = true;
      break;
    }
    int delta = bytes[at] >> 4;
    size_t len = bytes[at++] & 15;
    if (delta == 13) delta += bytes[at++];
    if (len == 13) len += bytes[at++];
    number += delta;
    if (number == kETag) answer.etag = Number(bytes + at, len);
    if (number == kBlock2) answer.hasMore = (Number(bytes + at, len) & 8) != 0;
    at += len;
  }
  return answer;
}

class Asker {
 public:
  explicit Asker(pid_t pid) : fd_(OpenSocket(kWatchPort)), pid_(pid) {}

  struct Cost {
    double us;
    double cpuUs;
  };

  // Ask asks with a check code and fetches the table if it comes.
  Cost Ask(uint64_t checkCode, bool isConfirmable) {
    const std::string query = kCheckCodeQuery + std::to_string(checkCode);
    const uint64_t fromNs = NowNs();
    const uint64_t fromCpu = CpuNs(pid_);
    Message question(isConfirmable, ++mid_);
    question.Add(kObserve, "").Add(kUriPath, kWatchUri).Add(kUriQuery, query);
    Answer answer = Exchange(question);
    if (answer.etag != 0) etag_ = answer.etag;
    hasTable_ = answer.hasPayload;
    for (uint32_t block = 1; answer.hasMore; ++block) {
      Message next(true, ++mid_);
      next.Add(kUriPath, kWatchUri).Add(kUriQuery, query).Add(kBlock2, BlockValue(block));
      answer = Exchange(next);
    }
    return {static_cast<double>(NowNs() - fromNs) / 1000,
            static_cast<double>(CpuNs(pid_) - fromCpu) / 1000};
  }

  uint64_t ETag() const { return etag_; }
  bool HasTable() const { return hasTable_; }

  // Rest waits until the server would send again, and acknowledges what it sends by itself.
  void Rest() {
    pollfd poll = {fd_, POLLIN, 0};
    while (::poll(&poll, 1, kSilenceMs) == 1) Read();
  }

 private:
  static std::string BlockValue(uint32_t block) {
    const uint32_t value = block << 4 | 6;
    return {static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
  }

  Answer Read() {
    uint8_t bytes[2048];
    const ssize_t len = read(fd_, bytes, sizeof(bytes));
    if (len < 4) return {};
    if (IsConfirmable(bytes)) Acknowledge(fd_, bytes);
    return Parse(bytes, static_cast<size_t>(len));
  }

  Answer Exchange(const Message &message) {
    message.Send(fd_);
    pollfd poll = {fd_, POLLIN, 0};
    if (::poll(&poll, 1, 60000) == 1) return Read();
    fprintf(stderr, "resync: no answer\n");
    exit(1);
  }

  int fd_;
  pid_t pid_;
  uint16_t mid_ = 0x100;
  uint64_t etag_ = 0;
  bool hasTable_ = false;
};

double MedianOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Report(const char *name, const std::vector<Asker::Cost> &costs) {
  std::vector<double> us;
  std::vector<double> cpuUs;
  for (const Asker::Cost &cost : costs) {
    us.push_back(cost.us);
    cpuUs.push_back(cost.cpuUs);
  }
  printf("%s_us %.1f\n%s_cpu_us %.1f\n", name, MedianOf(us), name, MedianOf(cpuUs));
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  Asker asker(static_cast<pid_t>(options.Number("--pid", 0)));
  const uint32_t numRepeats = options.Number("--repeats", 5);
  std::vector<Asker::Cost> stale;
  std::vector<Asker::Cost> match;
  asker.Ask(kStaleCode, false);  // the first one registers as well
  for (uint32_t i = 0; i < numRepeats; ++i) {
    asker.Rest();
    stale.push_back(asker.Ask(kStaleCode, false));
    if (!asker.HasTable()) {
      fprintf(stderr, "resync: no table\n");
      return 1;
    }
    match.push_back(asker.Ask(asker.ETag(), true));
  }
  Report("stale", stale);
  Report("match", match);
  return 0;
}
