// demo_south.cpp: the mirroring half of the demo, which leads through its steps.
//
//   demo_south [--self <address>] [--other <address>] [--files <folder of the sockets>]
//              [--console <path of kestrel-console>] [--keep <text>]
//
// With --keep it prints the text at the end and goes on, with a live table, until interrupted.
// Its status is the verdict.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <sstream>

#include "demo_machine.h"
#include "demo_node.h"
#include "demo_screen.h"

using namespace coaprpc;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t kNumCalls = 200, kNumNotes = 100, kNumChanged = 100;
constexpr auto kHeartbeat = 500ms;
constexpr double kPatience = 120;  // every wait ends when what it waits for has come
constexpr double kStartPatience = 20;
constexpr char kColumns[] = "      rx bytes       packets      tx bytes       packets";

volatile std::sig_atomic_t g_isInterrupted;

void OnSignal(int) { g_isInterrupted = 1; }

std::string operator+(const std::string &text, uint64_t number) {
  return text + std::to_string(number);
}

std::string Milliseconds(DemoClock::time_point start) {
  return std::to_string(static_cast<uint64_t>(1000 * SecondsSince(start))) + " ms";
}

// Copy is a mirror, and what it has told.
struct Copy {
  Copy(Node &node, const std::string &peer, const char *uri)
      : mirror(must(node.mirror<RowKey, RowValue>(
            peer, uri,
            {.added = [this](const RowKey &, const RowValue &) { ++numTold; },
             .changed = [this](const RowKey &, const RowValue &, const RowValue &) { ++numTold; },
             .removed = [this](const RowKey &, const RowValue &) { ++numTold; },
             .synced = [this](uint64_t) { ++numSynced; }},
            {.heartbeat = kHeartbeat}))) {}

  std::string Digest() const { return DigestOf(RowsOf(mirror)); }

  uint32_t numTold = 0, numSynced = 0;
  TableMirror mirror;
};

class South {
 public:
  South(Node &node, const std::string &other, std::string console)
      : node_(node), other_(other), console_(std::move(console)) {
    must(node.serve("ask", [this](std::string_view) {
      ++numServed_;
      return "south, load " + LoadText();
    }));
  }

  bool Run() {
    const auto start = DemoClock::now();
    if (!IsThere()) return std::puts("nobody is there"), false;
    Step("asynchronous calls, both ways", &South::CallBothWays);
    Step("posts, each answered with data", &South::PostNotes);
    Step("tables mirrored live", &South::MirrorLive);
    Step("two mirrors of one table of 10,000", &South::MirrorTwice);
    Step("delivery of a version confirmed", &South::ConfirmDelivery);
    Step("server killed and back, nothing lost", &South::SurviveKill);
    Step("display commands of both", &South::ShowTables);
    return screen_.Summary(SecondsSince(start));
  }

  void KeepRunning(const std::string &text) {
    std::printf("\n%s\n", text.c_str());
    while (!g_isInterrupted) {
      Until(1, [] { return false; });
      screen_.List("interfaces of north", kColumns, RowsOf(interfaces_.mirror));
    }
  }

 private:
  void Step(const char *title, Verdict (South::*step)()) {
    if (g_isInterrupted) return;
    screen_.BeginStep(title);
    screen_.EndStep((this->*step)());
  }

  bool Until(double seconds, const std::function<bool()> &isDone) {
    return RunUntil(node_, seconds, [&] { return g_isInterrupted || isDone(); }) &&
           !g_isInterrupted;
  }

  // Ask returns the answer of north, or nothing when there was none.
  std::string Ask(const std::string &question, std::chrono::seconds deadline = 93s) {
    std::optional<std::string> answer;
    Call call = node_.call(other_, "ask", question, {.deadline = deadline});
    call.then([&](const Result<Answer> &got) { answer = got ? got->payload : ""; });
    Until(kPatience, [&] { return answer.has_value(); });
    return answer.value_or("");
  }

  // IsThere gives north time to start.
  bool IsThere() {
    const auto start = DemoClock::now();
    while (!g_isInterrupted && SecondsSince(start) < kStartPatience) {
      if (Ask("load", 5s) != "") return true;
      Until(0.1, [] { return false; });
    }
    return false;
  }

  Verdict CallBothWays() {
    const auto start = DemoClock::now();
    const auto numAnswers = std::make_shared<uint32_t>(0);
    const auto last = std::make_shared<std::string>();
    AskMany(node_, other_, "load", kNumCalls, [=](const std::string &text) {
      ++*numAnswers;
      *last = text;
    });
    const bool isAnswered = Until(kPatience, [&] {
      screen_.Bar("calls to north answered", *numAnswers, kNumCalls);
      return *numAnswers == kNumCalls;
    });
    const double seconds = SecondsSince(start);
    screen_.Say("north says: " + *last);
    const bool isAsked = isAnswered && Ask("ask-back " + std::to_string(kNumCalls)) != "";
    screen_.Bar("calls from north answered", numServed_, kNumCalls);
    return {isAsked && numServed_ == kNumCalls,
            std::to_string(*numAnswers) + " calls there, " + numServed_ + " back, " +
                static_cast<uint64_t>(1e6 * seconds / kNumCalls) + " us a call"};
  }

  // Each answer has to be that of its own note: notes are taken in the order of their numbers.
  Verdict PostNotes() {
    const auto numRight = std::make_shared<uint32_t>(0);
    for (uint32_t i = 1; i <= kNumNotes; ++i) {
      const std::string number = std::to_string(i), note = "note " + number;
      node_.call(other_ + ":5684", "note", note)
          .then([numRight, expected = number + " " + note](const Result<Answer> &got) {
            *numRight += got && got->payload == expected ? 1 : 0;
          });
    }
    const bool isAnswered = Until(kPatience, [&] {
      screen_.Bar("notes answered by north", *numRight, kNumNotes);
      return *numRight == kNumNotes;
    });
    const std::string numTaken = Ask("notes");
    return {isAnswered && numTaken == std::to_string(kNumNotes),
            std::to_string(*numRight) + " notes answered, " + numTaken + " taken"};
  }

  // A table is live when its mirror was whole, and whole again after changes.
  Verdict MirrorLive() {
    constexpr uint32_t kNumShown = 3;
    const Copy *const live[] = {&interfaces_, &cpuTimes_, &processes_};
    const bool isLive = Until(kPatience, [&] {
      screen_.List("interfaces of north", kColumns, RowsOf(interfaces_.mirror));
      return std::all_of(std::begin(live), std::end(live),
                         [](const Copy *copy) { return copy->numSynced >= kNumShown; });
    });
    screen_.List("cpu times of north", "          user        system          idle       waiting",
                 RowsOf(cpuTimes_.mirror));
    screen_.List("processes of north", "         ticks           KiB", RowsOf(processes_.mirror));
    return {isLive, "net " + CountsOf(interfaces_) + "; cpu " + CountsOf(cpuTimes_) + "; proc " +
                        CountsOf(processes_)};
  }

  static std::string CountsOf(const Copy &copy) {
    return std::to_string(copy.mirror.size()) + " rows, " + copy.numSynced + " versions";
  }

  // The second one begins when the first is whole.
  Verdict MirrorTwice() {
    const auto start = DemoClock::now();
    const bool isThere = Until(kPatience, [&] {
      screen_.Bar("rows of two mirrors", NumRows(), 2 * kNumFiles);
      if (files_.mirror.isSynced() && !twin_) twin_.emplace(node_, other_, "files");
      return twin_ && twin_->mirror.isSynced();
    });
    const std::string digest = Ask("digest");
    const bool isEqual = isThere && AreEqualTo(digest);
    screen_.Say("files: " + digest + (isEqual ? ", at all three" : ", but NOT at all three"));
    return {isEqual, std::to_string(NumRows()) + " rows mirrored, by " +
                         (files_.mirror.state().numPulls + twin_->mirror.state().numPulls) +
                         " pulls, " + Milliseconds(start)};
  }

  uint64_t NumRows() const { return files_.mirror.size() + (twin_ ? twin_->mirror.size() : 0); }

  bool AreEqualTo(const std::string &digest) const {
    return files_.Digest() == digest && twin_->Digest() == digest;
  }

  // North answers when both mirrors have confirmed what it has changed: nothing is waited for here.
  Verdict ConfirmDelivery() {
    const auto start = DemoClock::now();
    files_.numTold = twin_->numTold = 0;
    const std::string version = Ask("change " + std::to_string(kNumChanged));
    const std::string took = Milliseconds(start);
    const uint64_t has = std::min(files_.mirror.state().version, twin_->mirror.state().version);
    screen_.Say("north says that all mirrors have version " + version + "; they have " + has);
    const bool isTold = files_.numTold == 3 * kNumChanged && twin_->numTold == 3 * kNumChanged;
    const bool isEqual = AreEqualTo(Ask("digest"));
    return {!version.empty() && std::stoull(version) <= has && isTold && isEqual,
            std::to_string(files_.numTold) + " rows differ, confirmed after " + took +
                ", mirrors " + (isEqual ? "equal" : "NOT equal")};
  }

  // North begins with the files of the disk again, so what was changed is changed back; while it is
  // away the mirrors keep what they have.
  Verdict SurviveKill() {
    const uint64_t life = files_.mirror.state().replid;
    files_.numTold = twin_->numTold = 0;
    Ask("die");
    const auto start = DemoClock::now();
    screen_.Say("north has killed itself with SIGKILL; its supervisor starts it again");
    bool isStale = false;
    uint64_t least = NumRows();
    const bool isBack = Until(kPatience, [&] {
      screen_.Bar("rows of two mirrors, meanwhile", NumRows(), 2 * kNumFiles);
      isStale = isStale || files_.mirror.state().state == COAP_RPC_MIRROR_STALE;
      least = std::min(least, NumRows());
      return IsSyncedIn(files_, life) && IsSyncedIn(*twin_, life);
    });
    const std::string took = Milliseconds(start);
    screen_.Say(std::string("the mirrors were ") + (isStale ? "stale" : "behind") +
                " meanwhile, and never had less than " + std::to_string(least / 2) + " rows");
    const bool isEqual = isBack && AreEqualTo(Ask("digest"));
    const bool isKept = least == 2 * kNumFiles && files_.numTold < kNumFiles / 2;
    return {isEqual && isKept, "whole again after " + took + ", " + files_.numTold +
                                   " rows differ, mirrors " + (isEqual ? "equal" : "NOT equal")};
  }

  static bool IsSyncedIn(const Copy &copy, uint64_t formerLife) {
    return copy.mirror.isSynced() && copy.mirror.state().replid != formerLife;
  }

  Verdict ShowTables() {
    uint32_t numTables = 0;
    for (const char *command : {"disp server sync", "disp server uriVtbl"}) {
      numTables += ShowTable("north", command);
    }
    for (const char *command : {"disp client mirror", "disp client request 0"}) {
      numTables += ShowTable("south", command);
    }
    return {numTables == 4, std::to_string(numTables) + " tables printed"};
  }

  uint32_t ShowTable(const std::string &who, const std::string &command) {
    const std::string text = OutputOf(console_ + who + ".sock " + command + " 2>&1");
    screen_.Say(who + "> " + command);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) screen_.Say("  " + line);
    return text.find("***total") != std::string::npos ? 1 : 0;
  }

  // The loop goes on meanwhile: the program may be talking to us.
  std::string OutputOf(const std::string &line) {
    std::string text;
    FILE *pipe = popen(line.c_str(), "r");
    if (!pipe) return text;
    const int fd = fileno(pipe);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    Until(kPatience, [&] {
      char part[4096];
      const ssize_t len = read(fd, part, sizeof(part));
      if (len > 0) text.append(part, static_cast<size_t>(len));
      return len == 0;
    });
    pclose(pipe);
    return text;
  }

  Node &node_;
  const std::string other_;
  const std::string console_;  // command up to the name of the socket
  Screen screen_;
  uint32_t numServed_ = 0;
  Copy interfaces_{node_, other_, "net"}, cpuTimes_{node_, other_, "cpu"},
      processes_{node_, other_, "proc"};
  Copy files_{node_, other_, "files"};
  std::optional<Copy> twin_;  // a second mirror of the same table
};

}  // namespace

int main(int argc, char **argv) {
  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
  const std::string files = OptionOf(argc, argv, "--files", ".");
  Node node = MakeDemoNode("south", OptionOf(argc, argv, "--self", "127.0.0.1"), files);
  South south(node, OptionOf(argc, argv, "--other", "127.0.0.2"),
              OptionOf(argc, argv, "--console", "kestrel-console") +
                  " --width 100 --table --socket " + files + "/");
  const bool isGood = south.Run();
  const std::string text = OptionOf(argc, argv, "--keep", "");
  if (!text.empty()) south.KeepRunning(text);
  return isGood ? 0 : 1;
}
