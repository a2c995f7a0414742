/* state_reader.h: one observer of a table whose changes have versions, over a socket of its own. */
#ifndef BENCH_WIRE_STATE_READER_H
#define BENCH_WIRE_STATE_READER_H

#include <string>
#include <vector>

#include "clock.h"
#include "datagram.h"
#include "state_page.h"

namespace coap_rpc_bench {

// RowsPerPull is what fits into a page when each version is one more than that before it.
inline constexpr uint32_t kRowsPerPull = 27;
inline constexpr uint64_t kPullAgainNs = 100'000'000;

// Reader pulls what a notification does not bring, in ranges, some of them at a time.
class Reader {
 public:
  Reader(int fd, uint32_t maxPulls, bool isPlain)
      : fd_(fd), maxPulls_(maxPulls), isPlain_(isPlain) {}

  int Fd() const { return fd_; }
  uint64_t RoundNs() const { return roundNs_; }
  uint32_t NumOfRound() const { return numOfRound_; }
  uint64_t NumRows() const { return numRows_; }
  bool IsRegistered() const { return isRegistered_; }
  bool IsIdle() const { return pulls_.empty() && nextSince_ == goal_; }

  void Register() {
    Message question(true, ++mid_);
    question.Add(kObserve, "").Add(kUriPath, kStateUri);
    if (!isPlain_) question.Add(kUriQuery, "_sync=1");
    registration_ = mid_;
    question.Send(fd_);
  }

  // ReadAll pulls everything from version 0 on.
  void ReadAll() {
    isFull_ = true;
    cursor_ = nextSince_ = 0;
    goal_ = target_;
    Fill();
  }

  void OnDatagram(const uint8_t *bytes, size_t len) {
    size_t payloadLen = 0;
    const uint8_t *payload = PayloadOf(bytes, len, &payloadLen);
    if (isPlain_) {
      OnPlain(payload, payloadLen);
      return;
    }
    const Page page = PageReader(payload, payloadLen, cursor_).Read();
    const auto mid = static_cast<uint16_t>(bytes[2] << 8 | bytes[3]);
    if (!page.isPage) return;
    if ((page.flags & kNotificationFlag) != 0) {
      OnNotification(page);
    } else if (!isRegistered_ && mid == registration_) {
      OnRegistered(page);
    } else {
      OnPull(page, mid);
    }
  }

  // AskForPages pulls the beginning of the table that often at once, and returns how many were
  // answered.
  uint32_t AskForPages(uint32_t num) {
    for (uint32_t i = 0; i < num; ++i) {
      Pull first = {0, kRowsPerPull, 0, 0};
      isFull_ = true;
      Send(first);
    }
    uint8_t bytes[2048];
    uint32_t numAnswered = 0;
    const uint64_t endNs = NowNs() + kPullAgainNs;
    while (numAnswered < num && NowNs() < endNs) numAnswered += read(fd_, bytes, 2048) > 500;
    return numAnswered;
  }

  // Repeat sends again what has had no answer for long.
  void Repeat() {
    const uint64_t nowNs = NowNs();
    for (Pull &pull : pulls_) {
      if (nowNs - pull.sentNs > kPullAgainNs) Send(pull);
    }
  }

 private:
  static constexpr uint64_t kNotificationFlag = 4;

  struct Pull {
    uint64_t since, until, sentNs;
    uint16_t mid;
  };

  void OnPlain(const uint8_t *payload, size_t len) {
    isRegistered_ = true;
    if (len < sizeof(roundNs_)) return;
    const uint64_t roundNs = RoundOf(payload);
    numOfRound_ = UINT32_MAX;
    roundNs_ = roundNs;
  }
  void OnRegistered(const Page &page) {
    isRegistered_ = true;
    replid_ = page.replid;
    cursor_ = nextSince_ = goal_ = target_ = page.head;
  }
  void OnNotification(const Page &page) {
    if (page.head > target_) target_ = page.head;
    if (!IsIdle()) return;
    if (page.from <= cursor_ && page.to > cursor_) {
      Take(page);
      cursor_ = nextSince_ = goal_ = page.to;
    }
    Start();
  }
  void Start() {
    if (cursor_ >= target_) return;
    nextSince_ = cursor_;
    goal_ = target_;
    Fill();
  }
  void OnPull(const Page &page, uint16_t mid) {
    size_t i = 0;
    while (i < pulls_.size() && pulls_[i].mid != mid) ++i;
    if (i == pulls_.size()) return;
    Take(page);
    if (page.to < pulls_[i].until) {
      pulls_[i].since = page.to;
      Send(pulls_[i]);
      return;
    }
    pulls_[i] = pulls_.back();
    pulls_.pop_back();
    Fill();
    if (!IsIdle()) return;
    cursor_ = goal_;
    isFull_ = false;
    Start();
  }
  void Take(const Page &page) {
    numRows_ += page.numRows;
    if (page.roundNs > roundNs_) {
      roundNs_ = page.roundNs;
      numOfRound_ = 0;
    }
    if (page.roundNs == roundNs_) numOfRound_ += page.numOfRound;
  }
  void Fill() {
    while (pulls_.size() < maxPulls_ && nextSince_ < goal_) {
      const uint64_t until = nextSince_ + kRowsPerPull < goal_ ? nextSince_ + kRowsPerPull : goal_;
      pulls_.push_back({nextSince_, until, 0, 0});
      Send(pulls_.back());
      nextSince_ = until;
    }
  }
  void Send(Pull &pull) {
    char id[24];
    snprintf(id, sizeof(id), "id=%llx", static_cast<unsigned long long>(replid_));
    pull.mid = ++mid_;
    pull.sentNs = NowNs();
    Message question(true, pull.mid);
    question.Add(kUriPath, kStateUri).Add(kUriQuery, "_sync=1").Add(kUriQuery, id);
    question.Add(kUriQuery, "since=" + std::to_string(pull.since));
    question.Add(kUriQuery, "until=" + std::to_string(pull.until));
    if (isFull_) question.Add(kUriQuery, "full=1");
    question.Send(fd_);
  }

  int fd_;
  uint32_t maxPulls_;
  bool isPlain_;
  bool isRegistered_ = false;
  bool isFull_ = false;
  uint16_t mid_ = 0;
  uint16_t registration_ = 0;
  uint64_t replid_ = 0;
  uint64_t cursor_ = 0;     // what it has
  uint64_t nextSince_ = 0;  // where the next range begins
  uint64_t goal_ = 0;       // where the ranges end
  uint64_t target_ = 0;     // the latest head heard of
  std::vector<Pull> pulls_;
  uint64_t roundNs_ = 0;
  uint32_t numOfRound_ = 0;
  uint64_t numRows_ = 0;
};

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_STATE_READER_H */
