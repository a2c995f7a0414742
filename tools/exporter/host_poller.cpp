/* host_poller.cpp: one host, and what is known of it. */
#include "host_poller.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

namespace exporter {

namespace {

using namespace std::chrono_literals;

constexpr int kSilenceMs = 5000;   // of a host, after which it counts as away
constexpr auto kAnswerTime = 30s;  // of a command, likewise
constexpr size_t kMaxAnswerBytes = 2 * kMaxTableBytes;
constexpr auto kRoundPeriod = 1s;
constexpr auto kListPeriod = 10s;
constexpr auto kDemandLasts = 3s;
constexpr auto kWantedLasts = 10s;
constexpr char kNotTried[] = "not connected yet";
constexpr size_t kMaxTables = 64;
constexpr size_t kMaxWanted = 32;
constexpr size_t kMaxTuples = 16;  // URIs whose tuples are shown without being asked for
constexpr size_t kNumAnswerTimes = 500;

double Quantile(const std::deque<double> &values, double part) {
  if (values.empty()) return 0;
  std::vector<double> sorted(values.begin(), values.end());
  std::sort(sorted.begin(), sorted.end());
  return sorted[static_cast<size_t>(part * static_cast<double>(sorted.size() - 1))];
}

bool IsText(const std::string &param) { return param.starts_with("pc"); }

// LineOf is what the host is asked to run: numbers are indexes at which a table begins.
std::string LineOf(const TableId &id, const std::vector<std::string> &params) {
  std::string line = id.command;
  for (const std::string &param : params) {
    line += IsText(param) ? " \"" + id.argument + "\"" : " 0";
  }
  return line;
}

size_t NumTexts(const console::HostCommand &command) {
  return static_cast<size_t>(std::count_if(command.params.begin(), command.params.end(), IsText));
}

// IsShown: a command that only shows something, by the convention of its name.
bool IsShown(const console::HostCommand &command) {
  return command.command.starts_with("disp ") && NumTexts(command) <= 1;
}

}  // namespace

HostPoller::HostPoller(std::string name, std::string path)
    : name_(std::move(name)),
      path_(std::move(path)),
      endFd_(eventfd(0, EFD_CLOEXEC)),
      connection_(kSilenceMs, console::AnswerBounds{kAnswerTime, kMaxAnswerBytes, endFd_}),
      client_(connection_, [this](std::string_view error) { lastError_ = error; }) {
  view_.name = name_;
  view_.reason = kNotTried;
  thread_ = std::thread([this] { Run(); });
}

HostPoller::~HostPoller() {
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
  }
  changed_.notify_all();
  eventfd_write(endFd_, 1);
  thread_.join();
  close(endFd_);
}

HostView HostPoller::Glance() {
  const std::lock_guard lock(mutex_);
  lastAsked_ = Clock::now();
  changed_.notify_all();
  return view_;
}

HostView HostPoller::Look(Clock::time_point deadline, const std::optional<TableId> &wanted) {
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, deadline,
                      [&] { return isStopping_ || view_.isUp || view_.reason != kNotTried; });
  const auto now = Clock::now();
  lastAsked_ = now;
  const bool isNew = wanted && !view_.tables.contains(*wanted);
  if (wanted && (wanted_.contains(*wanted) || wanted_.size() < kMaxWanted)) wanted_[*wanted] = now;
  const bool isFresh = !isNew && view_.numRounds > 0 && now - lastRound_ < kRoundPeriod;
  if (!view_.isUp || isFresh) return view_;
  changed_.notify_all();
  // A round that is under way may have passed a table that is wanted only now.
  const uint64_t due = view_.numRounds + (isNew ? 2 : 1);
  changed_.wait_until(lock, deadline, [&] {
    return isStopping_ || !view_.isUp || view_.numRounds >= due ||
           (wanted && view_.tables.contains(*wanted) && isNew);
  });
  return view_;
}

void HostPoller::Run() {
  while (WaitForWork()) {
    if (!connection_.IsOpen()) {
      Connect();
    } else if (connection_.NoticeLoss()) {
      PublishAway("the host closed the connection");
    } else {
      RoundIfAsked();
    }
  }
}

// WaitForWork waits for the next round or second.  Returns false at the end.
bool HostPoller::WaitForWork() {
  std::unique_lock lock(mutex_);
  const auto begin = Clock::now();
  changed_.wait_until(lock, begin + kRoundPeriod, [&] {
    const auto now = Clock::now();
    const bool isAsked = view_.isUp && now - lastAsked_ < kDemandLasts;
    return isStopping_ || (isAsked && now - lastRound_ >= kRoundPeriod) ||
           (!connection_.IsOpen() && view_.numRounds == 0 && view_.reason == kNotTried);
  });
  return !isStopping_;
}

void HostPoller::Connect() {
  std::string reason;
  if (!connection_.Open(path_, reason)) return PublishAway(reason);
  listedAt_ = {};
  client_.SetObject("");
  Round(Clock::now());
}

void HostPoller::RoundIfAsked() {
  const auto begin = Clock::now();
  {
    const std::lock_guard lock(mutex_);
    if (begin - lastAsked_ >= kDemandLasts || begin - lastRound_ < kRoundPeriod) return;
  }
  Round(begin);
}

void HostPoller::Round(Clock::time_point begin) {
  {
    const std::lock_guard lock(mutex_);
    lastRound_ = begin;
    std::erase_if(wanted_, [&](const auto &entry) { return begin - entry.second > kWantedLasts; });
  }
  if (begin - listedAt_ >= kListPeriod && !ListCommands()) return PublishAway(lastError_);
  std::map<TableId, TablePtr> tables;
  std::vector<TableId> ids = TablesToRun();
  const size_t numLeftOut = ids.size() - std::min(ids.size(), kMaxTables);
  ids.resize(ids.size() - numLeftOut);
  for (const TableId &id : ids) {
    if (!RunTable(id, tables)) return PublishAway(lastError_);
  }
  PublishRound(std::move(tables), numLeftOut);
}

bool HostPoller::ListCommands() {
  commands_.clear();
  if (client_.Commands(commands_) != console::Outcome::kOk) return false;
  std::erase_if(commands_, [](const auto &command) { return !IsShown(command); });
  listedAt_ = Clock::now();
  return true;
}

std::vector<TableId> HostPoller::TablesToRun() const {
  std::vector<TableId> ids;
  for (const console::HostCommand &command : commands_) {
    if (NumTexts(command) == 0) ids.push_back({command.object, command.command, ""});
  }
  const std::lock_guard lock(mutex_);
  for (const auto &entry : wanted_) ids.push_back(entry.first);
  for (const console::HostCommand &command : commands_) {
    if (NumTexts(command) == 1) AddTuples(command, ids);
  }
  std::vector<TableId> different;
  for (TableId &id : ids) {
    if (std::find(different.begin(), different.end(), id) == different.end()) {
      different.push_back(std::move(id));
    }
  }
  return different;
}

// AddTuples adds a table for each observable URI that the last round saw, up to a limit.
void HostPoller::AddTuples(const console::HostCommand &command, std::vector<TableId> &ids) const {
  const auto uris = lastTables_.find({command.object, "disp server uriVtbl", ""});
  if (uris == lastTables_.end()) return;
  const Table &table = *uris->second;
  size_t count = 0;
  for (const TableRow &row : table.rows) {
    const std::string *uri = table.Value(row, "uri");
    const std::string *observe = table.Value(row, "observe");
    if (!uri || !observe || *observe != "1" || uri->find('"') != uri->npos) continue;
    if (++count > kMaxTuples) return;
    ids.push_back({command.object, command.command, *uri});
  }
}

// RunTable returns false when the host is lost.  A table that the host refuses is left out.
bool HostPoller::RunTable(const TableId &id, std::map<TableId, TablePtr> &tables) {
  const auto command = std::find_if(commands_.begin(), commands_.end(), [&](const auto &one) {
    return one.object == id.object && one.command == id.command;
  });
  if (command == commands_.end()) return true;
  const auto begin = Clock::now();
  if (client_.Object() != id.object) {
    const console::Outcome outcome = client_.SetObject(id.object);
    if (outcome != console::Outcome::kOk) return outcome != console::Outcome::kLost;
  }
  TableBuilder builder(id);
  const console::Outcome outcome = client_.Run(LineOf(id, command->params), builder);
  NoteAnswerTime(Clock::now() - begin);
  if (outcome != console::Outcome::kOk) return outcome != console::Outcome::kLost;
  const auto before = lastTables_.find(id);
  tables[id] = builder.Finish(before != lastTables_.end() ? before->second : nullptr);
  return true;
}

void HostPoller::NoteAnswerTime(Clock::duration took) {
  answerTimes_.push_back(std::chrono::duration<double>(took).count());
  if (answerTimes_.size() > kNumAnswerTimes) answerTimes_.pop_front();
}

void HostPoller::PublishRound(std::map<TableId, TablePtr> &&tables, size_t numLeftOut) {
  lastTables_ = std::move(tables);
  const std::lock_guard lock(mutex_);
  view_.isUp = true;
  view_.reason.clear();
  view_.tables = lastTables_;
  view_.numLeftOut = numLeftOut;
  view_.answerP50 = Quantile(answerTimes_, 0.5);
  view_.answerP99 = Quantile(answerTimes_, 0.99);
  ++view_.numRounds;
  changed_.notify_all();
}

// PublishAway: the tables of a host that is away are not shown any more.
void HostPoller::PublishAway(const std::string &reason) {
  lastTables_.clear();
  const std::lock_guard lock(mutex_);
  view_.isUp = false;
  view_.reason = reason;
  view_.tables.clear();
  changed_.notify_all();
}

}  // namespace exporter
