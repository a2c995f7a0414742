// demo_north.cpp: the serving half of the demo, which asks questions of its own as well.
//
//   demo_north [--self <address>] [--other <address>] [--files <folder of the socket>]
#include <csignal>
#include <cstdio>
#include <sstream>

#include "demo_machine.h"
#include "demo_node.h"

using namespace coaprpc;
using namespace std::chrono_literals;

namespace {

class North {
 public:
  North(Node &node, const std::string &self, const std::string &other)
      : node_(node), other_(other) {
    must(node.serve("ask", [this](const Request &request) {
      Later later = request.later();
      OnQuestion(std::string(request.payload()), later);
      return later;
    }));
    must(node.serve("note",
                    [this](std::string_view note) {
                      return std::to_string(++numNotes_) + " " + std::string(note);
                    },
                    {.listen = Address(self + ":5684")}));
    files_ = ReadFiles(kNumFiles);
    must(published_.replace(files_));
    must(published_.onConfirmed([this](uint64_t version) { OnConfirmed(version); }));
    Refresh();
    must(node.every(500ms, [this] { Refresh(); })).detach();
  }

 private:
  // A table is handed over as a whole; what differs from before is published.
  void Refresh() {
    must(interfaces_.replace(ReadInterfaces()));
    must(cpuTimes_.replace(ReadCpuTimes()));
    must(processes_.replace(ReadProcesses()));
  }

  // Some rows change, some go, some are new.  The answer is left to OnConfirmed.
  void ChangeFiles(size_t num, const Later &later) {
    size_t i = 0;
    for (auto it = files_.begin(); it != files_.end() && i < 2 * num; ++i) {
      if (i % 2 == 0) {
        it->second[0] = it->second[0] + 1;
        ++it;
      } else {
        it = files_.erase(it);
      }
    }
    for (i = 0; i < num; ++i) files_[RowKey("new" + std::to_string(i))] = {i, 0, 0, 0};
    must(published_.replace(files_));
    changed_ = later;
    changedVersion_ = published_.head();
  }

  void OnConfirmed(uint64_t version) {
    if (version < changedVersion_ || !changed_.isOpen()) return;
    Reply(std::exchange(changed_, {}), std::to_string(version));
  }

  // Asks back, and answers when all is answered.
  void AskBack(uint32_t num, const Later &later) {
    AskMany(node_, other_, "load", num, [num, later, left = num](const std::string &) mutable {
      if (--left == 0) Reply(later, std::to_string(num));
    });
  }

  // Not at once: an unacknowledged question would be repeated and kill the next process as well.
  void Die(const Later &later) {
    Reply(later, "farewell");
    must(node_.every(50ms, [] { raise(SIGKILL); })).detach();
  }

  // The asker may have given up.
  static void Reply(const Later &later, const std::string &text) {
    static_cast<void>(later.reply(text));
  }

  void OnQuestion(const std::string &question, const Later &later) {
    std::istringstream words(question);
    std::string verb;
    uint32_t num = 0;
    words >> verb >> num;
    if (verb == "load") return Reply(later, "north, load " + LoadText());
    if (verb == "ask-back") return AskBack(num, later);
    if (verb == "notes") return Reply(later, std::to_string(numNotes_));
    if (verb == "digest") return Reply(later, DigestOf(files_));
    if (verb == "change") return ChangeFiles(num, later);
    if (verb == "die") return Die(later);
    Reply(later, "what?");
  }

  PublishedTable Publish(const char *path) { return must(node_.table<RowKey, RowValue>(path)); }

  Node &node_;
  const Address other_;
  PublishedTable interfaces_ = Publish("net"), cpuTimes_ = Publish("cpu"),
                 processes_ = Publish("proc"), published_ = Publish("files");
  Rows files_;
  Later changed_;  // to be answered when all mirrors have the version
  uint64_t changedVersion_ = 0;
  uint32_t numNotes_ = 0;
};

Node *g_running;

}  // namespace

int main(int argc, char **argv) {
  const std::string self = OptionOf(argc, argv, "--self", "127.0.0.2");
  Node node = MakeDemoNode("north", self, OptionOf(argc, argv, "--files", "."));
  North north(node, self, OptionOf(argc, argv, "--other", "127.0.0.1"));
  std::printf("serving on %s\n", self.c_str());
  std::fflush(stdout);
  g_running = &node;
  std::signal(SIGTERM, [](int) { g_running->stop(); });
  std::signal(SIGINT, SIG_IGN);  // ends with the script that started it
  const bool isGood = node.run().has_value();
  std::signal(SIGTERM, SIG_DFL);  // the node is about to go
  return isGood ? 0 : 1;
}
