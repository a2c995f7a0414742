// Bytes of a host, or of something else, into the operator's console: its connection, the
// requests that it makes, how it shows the answers, and what it completes from them.  An input is a
// number of requests (each a byte and a line), an empty line, and what the host sends.
#include <sys/socket.h>

#include <thread>

#include "completion.h"
#include "connection.h"
#include "console_peer.h"
#include "escape.h"
#include "fuzz_support.h"
#include "json.h"
#include "own_commands.h"
#include "session.h"
#include "table.h"

namespace fuzz {
namespace {

using console::Client;
using console::Connection;
using console::KeptLines;

constexpr int kMaxRequests = 8;
constexpr int kForEver = -1;  // a host that says nothing more closes

FILE *NullFile() {
  static FILE *file = fopen("/dev/null", "w");
  Check(file != nullptr, "there is no /dev/null");
  return file;
}

// FakeHost sends its bytes to the one console that connects, and takes whatever comes.
class FakeHost {
 public:
  FakeHost(int listener, std::vector<uint8_t> bytes)
      : bytes_(std::move(bytes)), thread_([this, listener] { Serve(listener); }) {}
  ~FakeHost() { thread_.join(); }
  FakeHost(const FakeHost &) = delete;
  FakeHost &operator=(const FakeHost &) = delete;

 private:
  void Serve(int listener) {
    const int fd = accept(listener, nullptr, nullptr);
    send(fd, bytes_.data(), bytes_.size(), MSG_NOSIGNAL);
    shutdown(fd, SHUT_WR);
    char taken[4096];
    while (recv(fd, taken, sizeof(taken), 0) > 0) {
    }
    close(fd);
  }

  std::vector<uint8_t> bytes_;
  std::thread thread_;
};

struct Request {
  uint8_t kind;
  std::string line;
};

std::vector<Request> TakeRequests(Input &input) {
  std::vector<Request> requests;
  while (!input.IsEmpty() && requests.size() < kMaxRequests) {
    const uint8_t kind = input.Byte();
    if (kind == '\n') break;
    requests.push_back({kind, input.Line()});
  }
  return requests;
}

// Operator makes the requests.
class Operator {
 public:
  explicit Operator(Connection &connection) : client_(connection) {
    catalog_.ownCommands = {{"objects"}, {"object"}, {"watch"}};
    options_.usePager = false;
  }

  void Make(const Request &request) {
    switch (request.kind % 8) {
      case 0:
        return (void)client_.Objects(catalog_.objects);
      case 1:
        return (void)client_.Commands(catalog_.commands);
      case 2:
        return (void)client_.SetObject(request.line);
      case 3:
        return RunInSession(request.line, console::Format::kLines);
      case 4:
        return RunInSession(request.line, console::Format::kJson);
      case 5:
        return RunInSession(request.line, console::Format::kTable);
      case 6:
        return Watch(request);
      default:
        Complete(request.line);
    }
  }

 private:
  void RunInSession(const std::string &line, console::Format format) {
    if (console::IsWatch(line) || console::MayBeOwn(line)) return;  // watch runs by the clock
    options_.format = format;
    options_.width = line.size() % 100;
    console::Session session(client_, options_);
    session.OnRow([this](const console::Row &row) { catalog_.Remember(row); });
    session.Execute(line);
  }

  // Watch compares the answer with that of the round before.
  void Watch(const Request &request) {
    std::string reason;
    const std::string line = "watch " + request.line;
    if (console::IsWatch(line)) console::ParseWatch(line, reason);
    KeptLines lines;
    client_.Run(request.line, lines);
    std::vector<std::string> now = lines.Take();
    for (const console::MarkedLine &marked : console::MarkChanges(before_, now)) Show(marked);
    before_ = std::move(now);
  }

  static void Show(const console::MarkedLine &line) {
    size_t at = 0;
    for (const auto &[begin, end] : line.changed) {
      Check(at <= begin && begin <= end && end <= line.text.size(), "a change is not in its line");
      at = end;
    }
  }

  void Complete(const std::string &typed) {
    const console::Completion completion = console::Complete(catalog_, typed);
    Check(completion.insert.empty() || completion.choices.empty(), "inserted and shown");
  }

  Client client_;
  console::Options options_;
  console::Catalog catalog_;
  std::vector<std::string> before_;
};

// CheckEscaped: whatever the host sends, nothing of it may move an operator's terminal.
void CheckEscaped(const std::vector<uint8_t> &bytes) {
  const std::string shown =
      console::Escaped({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
  for (const char c : shown) {
    Check(static_cast<uint8_t>(c) >= 0x20 && c != 0x7F, "a control character is shown");
  }
}

// Quiet keeps the console's output away; the fuzzer's own goes on.
void Quiet() {
  stdout = NullFile();
  stderr = NullFile();
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const host_test::TempFolder folder;
  static const int listener = host_test::BindUnix(folder.Socket(), true);
  FILE *const out = stdout;
  FILE *const err = stderr;
  fuzz::Quiet();
  fuzz::Input input(data, size);
  const std::vector<fuzz::Request> requests = fuzz::TakeRequests(input);
  std::vector<uint8_t> bytes = input.Bytes(size);
  fuzz::CheckEscaped(bytes);
  {
    fuzz::FakeHost host(listener, std::move(bytes));
    console::Connection connection(fuzz::kForEver);
    std::string reason;
    if (connection.Open(folder.Socket(), reason)) {
      fuzz::Operator user(connection);
      for (const fuzz::Request &request : requests) user.Make(request);
    }
  }
  stdout = out;
  stderr = err;
  return 0;
}
