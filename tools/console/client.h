/* client.h: what a console can ask of a host. */
#ifndef KESTREL_TOOLS_CONSOLE_CLIENT_H
#define KESTREL_TOOLS_CONSOLE_CLIENT_H

#include <string>
#include <string_view>
#include <vector>

#include "connection.h"
#include "line_sink.h"

namespace console {

// What became of a request; the numbers are exit codes of the program.
enum class Outcome {
  kOk = 0,
  kFailed = 1,        // the host said why, on stderr
  kUsage = 2,         // the console was told something that it does not understand
  kNoConnection = 3,  // there is no host
  kLost = 4,          // the connection broke
  kNoOutput = 5       // standard output cannot be written
};

// HostCommand describes one command of a host.
struct HostCommand {
  std::string object;
  std::string command;
  std::vector<std::string> params;
};

// Complain prints an error for the operator to stderr, escaped.
void Complain(std::string_view text);

class Client {
 public:
  explicit Client(Connection &connection) : connection_(connection) {}

  // SetObject names the object that commands are for; empty: whichever has the command.
  Outcome SetObject(const std::string &name);

  // Run runs a command; its lines go to `sink`.  A sink that wants no more, and Ctrl-C, stop the
  // command, which counts as success.
  Outcome Run(const std::string &line, LineSink &sink);

  // WasStopped tells whether the last request was stopped.
  bool WasStopped() const { return isStopping_; }

  // Commands and Objects list what there is.
  Outcome Commands(std::vector<HostCommand> &commands);
  Outcome Objects(std::vector<std::string> &objects);

 private:
  template <typename Take>
  Outcome Ask(const std::string &request, Take take);
  void Stop();

  Connection &connection_;
  bool isStopping_ = false;
};

// CommandLine joins the words of a command line, with quotes where a word needs them.  Returns
// false when a word cannot be part of a line.
bool CommandLine(const std::vector<std::string> &words, std::string &line);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_CLIENT_H */
