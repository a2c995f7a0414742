/* client.h: what a console can ask of a host. */
#ifndef KESTREL_TOOLS_CONSOLE_CLIENT_H
#define KESTREL_TOOLS_CONSOLE_CLIENT_H

#include <functional>
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
  std::string about = {};                     // what the host says about it; empty: nothing
  std::vector<std::string> paramsAbout = {};  // as many as params, or none
};

// UsageOf is a command with its parameters, "disp client request <uniStartIndex>".
std::string UsageOf(const HostCommand &command);

// Complain prints an error for the operator to stderr, escaped.
void Complain(std::string_view text);

class Client {
 public:
  // `complain` is told what went wrong.
  using ErrorSink = std::function<void(std::string_view)>;
  explicit Client(Connection &connection, ErrorSink complain = Complain)
      : connection_(connection), complain_(std::move(complain)) {}

  // SetObject names the object that commands are for; empty: whichever has the command.  A name
  // that no object has is an error, and changes nothing.
  Outcome SetObject(const std::string &name);
  const std::string &Object() const { return object_; }

  // Run runs a command, whose words may be abbreviated; its lines go to `sink`.  A sink that wants
  // no more, and Ctrl-C, stop the command, which counts as success.  A table of a URI that the host
  // does not know is an error, although the host prints it as a line.
  Outcome Run(const std::string &line, LineSink &sink);

  // IsConnected, NoticeLoss and Descriptor are those of the connection.
  bool IsConnected() const { return connection_.IsOpen(); }
  bool NoticeLoss() { return connection_.NoticeLoss(); }
  int Descriptor() const { return connection_.Descriptor(); }

  // Reconnect connects again, for the same object.  Returns false and sets `reason` on failure.
  bool Reconnect(std::string &reason);

  // WasStopped tells whether the last request was stopped.
  bool WasStopped() const { return isStopping_; }

  // Commands and Objects list what there is, CommandsWithHelp also what is said about it.
  Outcome Commands(std::vector<HostCommand> &commands);
  Outcome CommandsWithHelp(std::vector<HostCommand> &commands);
  Outcome Objects(std::vector<std::string> &objects);

 private:
  // Answer is the end of an answer.
  struct Answer {
    Outcome outcome = Outcome::kOk;
    unsigned long result = 0;  // a KestrelResult
    std::vector<std::string> errors;
  };

  template <typename Take>
  Answer Ask(const std::string &request, Take take);
  template <typename Take>
  Outcome AskAndComplain(const std::string &request, Take take);
  Answer RunInFull(const std::string &line, LineSink &sink);
  Answer RunAbbreviated(const std::string &line, LineSink &sink, Answer &&unknown);
  void Stop();

  Connection &connection_;
  ErrorSink complain_;
  std::string object_;
  bool isStopping_ = false;
  std::string abbreviated_;  // the last abbreviated line, and what it stood for
  std::string expanded_;
};

// CommandLine joins the words of a command line, with quotes where a word needs them.  Returns
// false when a word cannot be part of a line.
bool CommandLine(const std::vector<std::string> &words, std::string &line);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_CLIENT_H */
