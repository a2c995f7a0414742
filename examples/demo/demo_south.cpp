// demo_south.cpp: the mirroring half of the demo, which leads through its steps.
//
//   demo_south [--self <address>] [--other <address>] [--files <folder of log and sockets>]
//              [--console <path of kestrel-console>] [--keep <text>]
//
// With --keep it prints the text at the end and goes on, with a live table, until interrupted.
// Its status is the verdict.  Requests to observe go out up to a second after they are made, so
// some are made ahead of the step that shows their outcome.
#include <coap_svc/rpc/coap_rpc_ext.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <memory>
#include <sstream>

#include "demo_machine.h"
#include "demo_mirror.h"
#include "demo_rpc.h"
#include "demo_screen.h"
#include "demo_sets.h"

namespace {

constexpr uint32_t kNumCalls = 200, kNumNotes = 100, kNumChanged = 100;
constexpr uint32_t kKeepAliveSeconds = 1;
constexpr double kPatience = 120;  // every wait ends when what it waits for has come

volatile std::sig_atomic_t g_isInterrupted;

void OnSignal(int) { g_isInterrupted = 1; }

std::string operator+(const std::string &text, uint64_t number) {
  return text + std::to_string(number);
}

class South {
 public:
  South(Kestrel *host, const char *self, const char *other, std::string console)
      : host_(host),
        self_(self),
        other_(other),
        node_(host, "south", self, other),
        rpc_(node_, [](const std::string &,
                       const Answer &answer) { answer("south, load " + LoadText()); }),
        console_(std::move(console)) {
    for (const DemoSet &set : kDemoSets) {
      mirrors_.push_back(std::make_unique<Mirror>(node_, set.uri, set.payloadFormat));
    }
  }

  bool Start() {
    bool isGood = node_.IsUp() && rpc_.Start();
    for (const auto &mirror : mirrors_) isGood = isGood && mirror->Start();
    return isGood && COAP_RpcSetKeepAlive(node_.Ctx(), kKeepAliveSeconds) == 0;
  }

  bool Run() {
    const auto start = DemoClock::now();
    Step("asynchronous calls, both ways", &South::CallBothWays);
    Step("posts, each answered with data", &South::PostNotes);
    Step("observe: full set, then live changes", &South::ObserveLive);
    Step("10,000 rows, block-wise", &South::MirrorFiles);
    Step("resynchronised by check code", &South::Resynchronise);
    Step("server killed and back", &South::SurviveKill);
    Step("display commands of both", &South::ShowTables);
    return screen_.Summary(SecondsSince(start));
  }

  void KeepRunning(const char *text) {
    std::printf("\n%s\n", text);
    while (!g_isInterrupted) {
      Until(1, [] { return false; });
      screen_.Rows("interfaces of north", kColumns, Set(kInterfaces).Copy());
    }
  }

 private:
  static constexpr char kColumns[] = "      rx bytes       packets      tx bytes       packets";

  Mirror &Set(DemoSetId id) { return *mirrors_[id]; }

  void Step(const char *title, Verdict (South::*step)()) {
    if (g_isInterrupted) return;
    screen_.BeginStep(title);
    screen_.EndStep((this->*step)());
    rpc_.Forget();  // what a failed step has left refers to it
  }

  bool Until(double seconds, const std::function<bool()> &isDone) {
    return RunUntil(host_, seconds, [&] { return g_isInterrupted || isDone(); }) &&
           !g_isInterrupted;
  }

  Verdict CallBothWays() {
    const auto start = DemoClock::now();
    uint32_t numAnswers = 0;
    std::string last;
    rpc_.AskMany("load", kNumCalls, [&](std::string text) {
      ++numAnswers;
      last = std::move(text);
    });
    const bool isAnswered = Until(kPatience, [&] {
      screen_.Bar("calls to north answered", numAnswers, kNumCalls);
      return numAnswers == kNumCalls;
    });
    const double seconds = SecondsSince(start);
    screen_.Say("north says: " + last);
    const bool isAsked = isAnswered && AskBack();
    return {isAsked, std::to_string(numAnswers) + " calls there, " + rpc_.NumServed() + " back, " +
                         static_cast<uint64_t>(1e6 * seconds / kNumCalls) + " us a call"};
  }

  // North calls us and answers our question when all its calls were answered.
  bool AskBack() {
    std::string answer;
    rpc_.Ask("ask-back " + std::to_string(kNumCalls),
             [&](std::string text) { answer = std::move(text); });
    return Until(kPatience, [&] {
      screen_.Bar("calls from north answered", rpc_.NumServed(), kNumCalls);
      return !answer.empty();
    });
  }

  // Each answer has to be that of its own note: notes are taken in the order of their numbers.
  Verdict PostNotes() {
    uint32_t numRight = 0;
    std::string last;
    for (uint32_t i = 1; i <= kNumNotes; ++i) {
      const std::string number = std::to_string(i), note = "note " + number;
      poster_.Post(kNotePort, kNotePath, note,
                   [&, expected = number + " " + note](std::string text) {
                     numRight += text == expected ? 1 : 0;
                     last = std::move(text);
                   });
    }
    const bool isAnswered = Until(kPatience, [&] {
      screen_.Bar("notes answered by north", numRight, kNumNotes);
      return numRight == kNumNotes;
    });
    poster_.Forget();  // what is open refers to this call
    screen_.Say("north says: " + last);
    const std::string numTaken = rpc_.AskAndWait("notes");
    return {isAnswered && numTaken == std::to_string(kNumNotes),
            std::to_string(kNumNotes) + " notes sent, " + numRight + " answered, " + numTaken +
                " taken"};
  }

  Verdict ObserveLive() {
    constexpr uint32_t kNumShown = 3;  // the full set and two changes
    const DemoSetId live[] = {kInterfaces, kCpuTimes, kProcesses};
    const auto numWith = [&](uint32_t num) {
      return std::count_if(std::begin(live), std::end(live),
                           [&](DemoSetId id) { return Set(id).NumDocuments() >= num; });
    };
    for (const DemoSetId id : live) Set(id).Observe();
    const bool isThere = Until(kPatience, [&] {
      screen_.Bar("full sets arrived", static_cast<uint64_t>(numWith(1)), std::size(live));
      return numWith(1) == std::ssize(live);
    });
    Set(kFilesJson).Observe();  // ahead
    Set(kFilesIdl).Observe();
    screen_.Rows("cpu times of north", "          user        system          idle       waiting",
                 Set(kCpuTimes).Copy());
    screen_.Rows("processes of north", "         ticks           KiB", Set(kProcesses).Copy());
    const bool isLive = isThere && Until(kPatience, [&] {
                          screen_.Rows("interfaces of north", kColumns, Set(kInterfaces).Copy());
                          return numWith(kNumShown) == std::ssize(live);
                        });
    return {isLive, CountsOf(Set(kInterfaces)) + "; " + CountsOf(Set(kCpuTimes)) + "; " +
                        CountsOf(Set(kProcesses))};
  }

  static std::string CountsOf(const Mirror &mirror) {
    return mirror.Uri() + " " + mirror.Copy().size() + " rows, " + mirror.NumDocuments() + " docs";
  }

  Verdict MirrorFiles() {
    Mirror &json = Set(kFilesJson), &idl = Set(kFilesIdl);
    const auto start = DemoClock::now();
    bool isAsked = false;
    const bool isThere = Until(kPatience, [&] {
      screen_.Bar("rows mirrored, JSON and IDL", json.Copy().size() + idl.Copy().size(),
                  kNumFiles + kNumFilesIdl);
      if (!isAsked && json.Copy().size() == kNumFiles) {
        isAsked = true;
        askedAt_ = DemoClock::now();
        numRowsAsked_ = json.NumRows();
        json.Verify();  // ahead
      }
      return isAsked && idl.Copy().size() == kNumFilesIdl;
    });
    const bool isEqual = isThere && IsEqualToNorth(json);
    screen_.Say("files: " + DigestOf(json.Copy()) + (isEqual ? ", as at north" : ""));
    return {isEqual && idl.NumDocuments() > 1,
            "JSON " + std::to_string(json.NumBytes() / 1024) + " KiB in " + json.NumDocuments() +
                " document, IDL " + idl.NumBytes() / 1024 + " KiB in " + idl.NumDocuments() + ", " +
                Milliseconds(start)};
  }

  static std::string Milliseconds(DemoClock::time_point start) {
    return std::to_string(static_cast<uint64_t>(1000 * SecondsSince(start))) + " ms";
  }

  bool IsEqualToNorth(const Mirror &mirror) {
    std::string digest;
    Until(kPatience, [&] { return !(digest = rpc_.AskAndWait("digest")).empty(); });
    return DigestOf(mirror.Copy()) == digest;
  }

  Verdict Resynchronise() {
    Mirror &files = Set(kFilesJson);
    const bool isStale = ChangeBehindBack();
    const uint64_t numRowsBefore = files.NumRows();
    const uint32_t numSetsBefore = files.NumFullSets();
    if (isStale) files.Verify();
    const bool isSent =
        isStale && Until(kPatience, [&] {
          screen_.Bar("changed: the full set is sent", files.NumRows() - numRowsBefore, kNumFiles);
          return files.NumFullSets() > numSetsBefore;
        });
    const bool isEqual = isSent && IsEqualToNorth(files);
    return {isEqual, "unchanged: " + std::to_string(numRowsUnchanged_) +
                         " rows sent; changed: " + (files.NumRows() - numRowsBefore) +
                         " rows, mirror " + (isEqual ? "equal" : "NOT equal")};
  }

  // While a second observer is there, changes go to it alone: our mirror stands still.
  bool ChangeBehindBack() {
    Node rivalNode(host_, "rival", self_, other_);
    Mirror rival(rivalNode, kDemoSets[kFilesJson].uri, kDemoSets[kFilesJson].payloadFormat);
    if (!rivalNode.IsUp() || !rival.Start() || !WaitInSilence(rival)) return false;
    const bool isThere = Until(kPatience, [&] { return rpc_.AskAndWait("observers") == "2"; });
    const std::string numChanged = rpc_.AskAndWait("change " + std::to_string(kNumChanged));
    const std::string digest = rpc_.AskAndWait("digest");
    const bool isTaken =
        isThere && Until(kPatience, [&] {
          screen_.Bar("a second observer takes all", rival.Copy().size(), kNumFiles);
          return DigestOf(rival.Copy()) == digest;
        });
    rival.Leave();
    const bool isStale = !IsEqualToNorth(Set(kFilesJson));
    screen_.Say(numChanged + " rows changed without the mirror's knowledge; it is " +
                (isStale ? "stale" : "NOT stale"));
    return isTaken && isStale;
  }

  // The question went out up to a second after it was asked, and a notification would have come
  // within another.  The second observer is announced so that it is there right after that.
  bool WaitInSilence(Mirror &rival) {
    constexpr double kSilence = 2.2, kAhead = 1;
    bool isAnnounced = false;
    Until(kPatience, [&] {
      const double seconds = std::min(SecondsSince(askedAt_), kSilence);
      screen_.Bar("nothing changed: seconds of silence", static_cast<uint64_t>(seconds), 2);
      if (!isAnnounced && seconds >= kSilence - kAhead) {
        isAnnounced = true;
        rival.Observe();
      }
      return seconds >= kSilence;
    });
    numRowsUnchanged_ = Set(kFilesJson).NumRows() - numRowsAsked_;
    const bool isSilent = numRowsUnchanged_ == 0;
    screen_.Say(isSilent ? "asked with the present check code: no document came"
                         : "asked with the present check code, yet a document came");
    return isSilent;
  }

  Verdict SurviveKill() {
    Mirror &files = Set(kFilesJson);
    const uint32_t numBefore = files.NumDisconnects();
    rpc_.AskAndWait("die");
    const auto start = DemoClock::now();
    screen_.Say("north has killed itself with SIGKILL; its supervisor starts it again");
    const bool isNoticed = Until(kPatience, [&] {
      screen_.Bar("seconds until the keep-alive tells", static_cast<uint64_t>(SecondsSince(start)),
                  8);
      return files.NumDisconnects() > numBefore;
    });
    const std::string noticed = Milliseconds(start);
    screen_.Say(isNoticed ? "onDisconnect after " + noticed + ": observing again"
                          : "onDisconnect was not called");
    const bool isEqual = isNoticed && MirrorAgain() && IsEqualToNorth(files);
    return {isEqual, "noticed after " + noticed + ", " + DigestOf(files.Copy()) + " after " +
                         Milliseconds(start) + ", mirror " + (isEqual ? "equal" : "NOT equal")};
  }

  // A server that is still away is reported again; then everything is asked for again.
  bool MirrorAgain() {
    Mirror &files = Set(kFilesJson);
    uint32_t numSeen = 0;
    return Until(kPatience, [&] {
      if (files.NumDisconnects() != numSeen) {
        numSeen = files.NumDisconnects();
        for (const auto &mirror : mirrors_) mirror->BeginAgain();
      }
      screen_.Bar("rows mirrored again", files.Copy().size(), kNumFiles);
      return files.Copy().size() == kNumFiles && !Set(kInterfaces).Copy().empty();
    });
  }

  Verdict ShowTables() {
    uint32_t numTables = 0;
    for (const char *command : {"disp server listen", "disp server uriVtbl"}) {
      numTables += ShowTable("north", command);
    }
    for (const char *command : {"disp client session 0", "disp client request 0"}) {
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

  Kestrel *const host_;
  const std::string self_, other_;
  Screen screen_;
  Node node_;
  Rpc rpc_;
  Caller poster_{node_};
  const std::string console_;                     // command up to the name of the socket
  std::vector<std::unique_ptr<Mirror>> mirrors_;  // by DemoSetId
  DemoClock::time_point askedAt_;                 // when the files were verified ahead
  uint64_t numRowsAsked_ = 0;                     // how many rows had come by then
  uint64_t numRowsUnchanged_ = 0;                 // how many came although nothing had changed
};

}  // namespace

int main(int argc, char **argv) {
  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
  const std::string files = ExampleOption(argc, argv, "--files", ".");
  const DemoHost host(MakeDemoHost("south", files));
  if (!host) return 1;
  South south(host.get(), ExampleOption(argc, argv, "--self", EXAMPLE_CLIENT),
              ExampleOption(argc, argv, "--other", EXAMPLE_SERVER),
              ExampleOption(argc, argv, "--console", "kestrel-console") +
                  (" --width 100 --table --socket " + files + "/"));
  if (!south.Start()) return 1;
  const bool isGood = south.Run();
  if (const char *text = ExampleOption(argc, argv, "--keep", nullptr)) south.KeepRunning(text);
  return isGood ? 0 : 1;
}
