/* main.cpp: the operator's console. */
#include <clocale>

#include "client.h"
#include "options.h"
#include "session.h"
#include "shell.h"

namespace {

using console::Outcome;

// FitsOnLine complains when the words of the command line make no line for the host.
bool FitsOnLine(const std::vector<std::string> &words, std::string &line) {
  if (console::CommandLine(words, line)) return true;
  console::Complain("a word of a command cannot have double quotes");
  return false;
}

Outcome RunCommand(console::Client &client, const console::Options &options) {
  std::string line;
  if (!FitsOnLine(options.command, line)) return Outcome::kUsage;
  console::Session session(client, options);
  return session.Execute(line);
}

Outcome Run(const console::Options &options) {
  const int timeoutMs = options.timeoutS != 0 ? static_cast<int>(options.timeoutS) * 1000 : -1;
  console::Connection connection(timeoutMs);
  std::string reason;
  if (!connection.Open(options.socket, reason)) {
    console::Complain("cannot connect to " + options.socket + ": " + reason);
    return Outcome::kNoConnection;
  }
  console::Client client(connection);
  if (!options.object.empty()) {
    const Outcome outcome = client.SetObject(options.object);
    if (outcome != Outcome::kOk) return outcome;
  }
  return options.command.empty() ? console::RunShell(client, options) : RunCommand(client, options);
}

}  // namespace

int main(int argc, char **argv) {
  std::setlocale(LC_CTYPE, "");
  int exitCode = 0;
  const auto options = console::ParseOptions(argc, argv, exitCode);
  return options ? static_cast<int>(Run(*options)) : exitCode;
}
