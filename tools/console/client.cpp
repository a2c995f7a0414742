/* client.cpp: what a console can ask of a host. */
#include "client.h"

#include <cstdlib>

#include "escape.h"
#include "interrupt.h"
#include "kestrel.h"
#include "kestrel_console.h"

namespace console {

namespace {

HostCommand ParseCommand(std::string_view text) {
  std::vector<std::string> parts;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('\t', at), text.size());
    parts.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  HostCommand command;
  command.object = parts[0];
  if (parts.size() > 1) command.command = parts[1];
  if (parts.size() > 2) command.params.assign(parts.begin() + 2, parts.end());
  return command;
}

Outcome OutcomeOf(const std::string &status, bool isStopped) {
  const unsigned long result = std::strtoul(status.c_str(), nullptr, 10);
  const bool isFine = result == KESTREL_OK || (isStopped && result == KESTREL_STOPPED);
  return isFine ? Outcome::kOk : Outcome::kFailed;
}

}  // namespace

void Complain(std::string_view text) {
  std::fflush(stdout);
  PrintLine(stderr, "kestrel-console: " + Escaped(text));
}

// Ask gives every reply to `take` until the request is answered.
template <typename Take>
Outcome Client::Ask(const std::string &request, Take take) {
  if (request.find_first_of(std::string_view("\n\0", 2)) != request.npos) {
    Complain("a command is one line");
    return Outcome::kUsage;
  }
  isStopping_ = false;
  connection_.Send(request);
  for (;;) {
    const Reply reply = connection_.Next();
    if (reply.kind == Reply::Kind::kLost) {
      Complain(reply.text);
      return Outcome::kLost;
    }
    if (reply.kind == Reply::Kind::kInterrupted) {
      ClearInterrupt();
      Stop();
    } else if (reply.tag == KESTREL_CONSOLE_END) {
      return OutcomeOf(reply.text, isStopping_);
    } else if (reply.tag == KESTREL_CONSOLE_ERROR) {
      Complain(reply.text);
    } else if (!isStopping_) {
      take(reply);
    }
  }
}

void Client::Stop() {
  if (!isStopping_) connection_.Send("stop");
  isStopping_ = true;
}

Outcome Client::SetObject(const std::string &name) {
  return Ask(name.empty() ? "object" : "object " + name, [](const Reply &) {});
}

Outcome Client::Run(const std::string &line, LineSink &sink) {
  std::string text;
  const Outcome outcome = Ask("run " + line, [&](const Reply &reply) {
    text += reply.text;
    if (reply.tag == KESTREL_CONSOLE_PIECE) return;
    if (!sink.Line(text)) Stop();
    text.clear();
  });
  if (!text.empty() && !isStopping_) sink.Line(text);
  sink.End();
  return outcome;
}

Outcome Client::Commands(std::vector<HostCommand> &commands) {
  return Ask("commands", [&](const Reply &reply) { commands.push_back(ParseCommand(reply.text)); });
}

Outcome Client::Objects(std::vector<std::string> &objects) {
  return Ask("objects", [&](const Reply &reply) { objects.push_back(reply.text); });
}

bool CommandLine(const std::vector<std::string> &words, std::string &line) {
  if (words.size() == 1) {
    line = words[0];
    return true;
  }
  for (const std::string &word : words) {
    if (word.find('"') != word.npos) return false;
    const bool needsQuotes = word.empty() || word.find_first_of(" \t") != word.npos;
    line += (line.empty() ? "" : " ") + (needsQuotes ? '"' + word + '"' : word);
  }
  return true;
}

}  // namespace console
