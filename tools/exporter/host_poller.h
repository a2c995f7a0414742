/* host_poller.h: one host, and what is known of it.
 *
 * Each poller has a thread of its own, which is the only one that talks to the host: so a host that
 * hangs holds up nobody else, and a command never runs more than once at a time, or more often than
 * once a second, however many viewers there are.
 *
 *   away     tries once a second to connect and to run all commands -> idle, when that succeeds
 *   idle     looks once a second whether the host is still there    -> away, or rounds when asked
 *   rounds   runs all commands once a second                        -> idle, 3 s after the last
 *                                                                      viewer
 *
 * What the host offers is listed again every 10 s and after each connect.  A host that is silent,
 * or that does not end an answer, is away: what it may send and take is bounded. */
#ifndef KESTREL_TOOLS_EXPORTER_HOST_POLLER_H
#define KESTREL_TOOLS_EXPORTER_HOST_POLLER_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "client.h"
#include "table.h"

namespace exporter {

// HostView is what is known of a host at one moment.
struct HostView {
  std::string name;
  bool isUp = false;
  std::string reason;  // why it is not up
  uint64_t numRounds = 0;
  double answerP50 = 0;  // seconds that the last commands took
  double answerP99 = 0;
  size_t numLeftOut = 0;  // tables that exist beyond the limit
  std::map<TableId, TablePtr> tables;
};

class HostPoller {
 public:
  HostPoller(std::string name, std::string path);
  ~HostPoller();
  HostPoller(const HostPoller &) = delete;
  HostPoller &operator=(const HostPoller &) = delete;

  const std::string &Name() const { return name_; }

  using Clock = std::chrono::steady_clock;

  // Look asks for rounds and returns what is known, at most a second old if the host answers until
  // the deadline.  Waits for the first try to reach the host.  A table of `wanted` is run as well,
  // for a while.
  HostView Look(Clock::time_point deadline, const std::optional<TableId> &wanted = std::nullopt);

  // Glance asks for rounds and returns what is known, without waiting.
  HostView Glance();

 private:
  void Run();
  bool WaitForWork();
  void Connect();
  void RoundIfAsked();
  void Round(Clock::time_point begin);
  bool ListCommands();
  std::vector<TableId> TablesToRun() const;
  void AddTuples(const console::HostCommand &command, std::vector<TableId> &ids) const;
  bool RunTable(const TableId &id, std::map<TableId, TablePtr> &tables);
  void NoteAnswerTime(Clock::duration took);
  void PublishRound(std::map<TableId, TablePtr> &&tables, size_t numLeftOut);
  void PublishAway(const std::string &reason);

  const std::string name_;
  const std::string path_;

  const int endFd_;  // readable when the poller is to end

  // Of the thread alone.
  console::Connection connection_;
  console::Client client_;
  std::string lastError_;
  std::vector<console::HostCommand> commands_;
  Clock::time_point listedAt_{};
  std::deque<double> answerTimes_;
  std::map<TableId, TablePtr> lastTables_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool isStopping_ = false;
  HostView view_;
  Clock::time_point lastRound_{};
  Clock::time_point lastAsked_{};
  std::map<TableId, Clock::time_point> wanted_;

  std::thread thread_;
};

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_HOST_POLLER_H */
