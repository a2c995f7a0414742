// demo_north.cpp: the serving half of the demo, which asks questions of its own as well.
//
//   demo_north [--self <address>] [--other <address>] [--files <folder of log and socket>]
#include <csignal>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <vector>

#include "demo_machine.h"
#include "demo_publisher.h"
#include "demo_rpc.h"
#include "demo_sets.h"

namespace {

Kestrel *g_running;

void StopOnSignal(int) { KestrelStop(g_running); }

class North {
 public:
  North(Kestrel *host, const char *self, const char *other)
      : node_(host, "north", self, other),
        rpc_(node_, [this](const std::string &question, const Answer &answer) {
          OnQuestion(question, answer);
        }) {
    for (const DemoSet &set : kDemoSets) {
      sets_.push_back(std::make_unique<Publisher>(node_, set.uri, set.payloadFormat));
    }
  }

  bool Start() {
    bool isGood = node_.IsUp() && rpc_.Start() && notes_.Start();
    for (const auto &set : sets_) isGood = isGood && set->Start();
    if (!isGood) return false;
    sets_[kFilesJson]->Set(ReadFiles(kNumFiles));
    sets_[kFilesIdl]->Set(ReadFiles(kNumFilesIdl));
    Refresh();
    Every(node_.Host(), kRefreshMs, [this] { Refresh(); });
    return true;
  }

 private:
  static constexpr uint32_t kRefreshMs = 500, kFarewellMs = 50;

  void Refresh() {
    sets_[kInterfaces]->Set(ReadInterfaces());
    sets_[kCpuTimes]->Set(ReadCpuTimes());
    sets_[kProcesses]->Set(ReadProcesses());
  }

  // Unknown to the mirror: some rows changed, some removed, some new.
  std::string ChangeFiles(size_t num) {
    Table table = sets_[kFilesJson]->Now();
    size_t i = 0;
    for (auto it = table.begin(); it != table.end() && i < 2 * num; ++i) {
      if (i % 2 == 0) {
        ++(it++)->second[0];
      } else {
        it = table.erase(it);
      }
    }
    for (i = 0; i < num; ++i) table[MakeRowKey("new" + std::to_string(i))] = {i, 0, 0, 0};
    sets_[kFilesJson]->Set(std::move(table));
    return std::to_string(3 * num);
  }

  // Asks back, and answers when all is answered.
  void AskBack(uint32_t num, const Answer &answer) {
    const auto numAnswered = std::make_shared<uint32_t>(0);
    rpc_.AskMany("load", num, [numAnswered, num, answer](const std::string &) {
      if (++*numAnswered == num) answer(std::to_string(num));
    });
  }

  // Not at once: an unacknowledged question would be repeated and kill the next process as well.
  void Die(const Answer &answer) {
    answer("farewell");
    Every(node_.Host(), kFarewellMs, [] { raise(SIGKILL); });
  }

  void OnQuestion(const std::string &question, const Answer &answer) {
    std::istringstream words(question);
    std::string verb, rest;
    words >> verb >> std::ws;
    std::getline(words, rest);
    if (verb == "load") return answer("north, load " + LoadText());
    if (verb == "ask-back") return AskBack(static_cast<uint32_t>(std::atoi(rest.c_str())), answer);
    if (verb == "notes") return answer(std::to_string(notes_.NumNotes()));
    if (verb == "observers") return answer(std::to_string(sets_[kFilesJson]->NumObservers()));
    if (verb == "digest") return answer(DigestOf(sets_[kFilesJson]->Now()));
    if (verb == "change") return answer(ChangeFiles(std::strtoul(rest.c_str(), nullptr, 10)));
    if (verb == "die") return Die(answer);
    answer("what?");
  }

  Node node_;
  Rpc rpc_;
  PostBox notes_{node_};
  std::vector<std::unique_ptr<Publisher>> sets_;  // by DemoSetId
};

}  // namespace

int main(int argc, char **argv) {
  const char *self = ExampleOption(argc, argv, "--self", EXAMPLE_SERVER);
  const char *other = ExampleOption(argc, argv, "--other", EXAMPLE_CLIENT);
  const DemoHost host(MakeDemoHost("north", ExampleOption(argc, argv, "--files", ".")));
  if (!host) return 1;
  North north(host.get(), self, other);
  if (!north.Start()) return 1;
  std::printf("serving on %s\n", self);
  std::fflush(stdout);
  g_running = host.get();
  std::signal(SIGTERM, StopOnSignal);
  std::signal(SIGINT, SIG_IGN);  // ends with the script that started it
  const uint32_t result = KestrelRun(host.get());
  std::signal(SIGTERM, SIG_DFL);  // the host is about to go
  g_running = nullptr;
  return result == KESTREL_OK ? 0 : 1;
}
