/* client.cpp: what a console can ask of a host. */
#include "client.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "abbreviation.h"
#include "escape.h"
#include "interrupt.h"
#include "kestrel.h"
#include "kestrel_console.h"

namespace console {

namespace {

using Texts = std::vector<std::string>;

// What is kept of lists that a host sends.
constexpr size_t kMaxListed = 10000;
constexpr size_t kMaxErrors = 100;

template <typename Item>
void AddListed(std::vector<Item> &list, Item &&item) {
  if (list.size() < kMaxListed) list.push_back(std::move(item));
}

Texts SplitAtTabs(std::string_view text) {
  Texts parts;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('\t', at), text.size());
    parts.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  return parts;
}

HostCommand ParseCommand(std::string_view text) {
  Texts parts = SplitAtTabs(text);
  HostCommand command;
  command.object = parts[0];
  if (parts.size() > 1) command.command = parts[1];
  if (parts.size() > 2) command.params.assign(parts.begin() + 2, parts.end());
  return command;
}

// Describe puts a line of help where it belongs.
void Describe(std::vector<HostCommand> &commands, std::string_view text) {
  const Texts parts = SplitAtTabs(text);
  if (parts.size() < 3) return;
  const auto found = std::find_if(commands.begin(), commands.end(), [&](const HostCommand &one) {
    return one.object == parts[0] && one.command == parts[1];
  });
  if (found == commands.end()) return;
  found->about = parts[2];
  found->paramsAbout.assign(parts.begin() + 3, parts.end());
  found->paramsAbout.resize(found->params.size());
}

// IsUnknownUri tells the line that a host prints instead of a table of tuples.
bool IsUnknownUri(std::string_view line) {
  return line.starts_with("No oberver tupleSetTree for uri(") && line.ends_with(").");
}

Outcome OutcomeOf(unsigned long result, bool isStopped) {
  const bool isFine = result == KESTREL_OK || (isStopped && result == KESTREL_STOPPED);
  return isFine ? Outcome::kOk : Outcome::kFailed;
}

// Several is the error for an abbreviation with several meanings.
std::string Several(const std::string &line, const Texts &choices) {
  std::string text = "\"" + line + "\" may be any of: ";
  for (size_t i = 0; i < choices.size(); ++i) text += (i == 0 ? "" : ", ") + choices[i];
  return text;
}

}  // namespace

void Complain(std::string_view text) {
  std::fflush(stdout);
  const std::string line = "kestrel-console: " + Escaped(text);
  PrintLine(stderr, Palette::Of(STDERR_FILENO).Painted(line, Paint::kFailed));
}

std::string UsageOf(const HostCommand &command) {
  std::string usage = command.command;
  for (const std::string &param : command.params) usage += " <" + param + ">";
  return usage;
}

// Ask gives every reply but errors to `take` until the request is answered.
template <typename Take>
Client::Answer Client::Ask(const std::string &request, Take take) {
  if (request.find_first_of(std::string_view("\n\0", 2)) != request.npos) {
    return {Outcome::kUsage, 0, {"a command is one line"}};
  }
  Answer answer;
  isStopping_ = false;
  connection_.Ask(request);
  for (;;) {
    const Reply reply = connection_.Next();
    if (reply.kind == Reply::Kind::kLost) {
      answer.outcome = Outcome::kLost;
      answer.errors.push_back(reply.text);
      return answer;
    }
    if (reply.kind == Reply::Kind::kInterrupted) {
      ClearInterrupt();
      Stop();
    } else if (reply.tag == KESTREL_CONSOLE_END) {
      answer.result = std::strtoul(reply.text.c_str(), nullptr, 10);
      answer.outcome = OutcomeOf(answer.result, isStopping_);
      return answer;
    } else if (reply.tag == KESTREL_CONSOLE_ERROR) {
      if (answer.errors.size() < kMaxErrors) answer.errors.push_back(reply.text);
    } else if (!isStopping_) {
      take(reply);
    }
  }
}

template <typename Take>
Outcome Client::AskAndComplain(const std::string &request, Take take) {
  const Answer answer = Ask(request, take);
  for (const std::string &error : answer.errors) complain_(error);
  return answer.outcome;
}

void Client::Stop() {
  if (!isStopping_) connection_.Stop();
  isStopping_ = true;
}

Outcome Client::SetObject(const std::string &name) {
  Texts objects;
  Outcome outcome = name.empty() ? Outcome::kOk : Objects(objects);
  if (outcome != Outcome::kOk) return outcome;
  if (!name.empty() && std::find(objects.begin(), objects.end(), name) == objects.end()) {
    complain_("unknown object \"" + name + "\"");
    return Outcome::kFailed;
  }
  outcome = AskAndComplain(name.empty() ? "object" : "object " + name, [](const Reply &) {});
  if (outcome == Outcome::kOk) object_ = name;
  return outcome;
}

bool Client::Reconnect(std::string &reason) {
  if (!connection_.Reopen(reason)) return false;
  if (object_.empty()) return true;
  const Answer answer = Ask("object " + object_, [](const Reply &) {});
  if (answer.outcome != Outcome::kLost) return true;
  reason = answer.errors.back();
  return false;
}

Outcome Client::Run(const std::string &line, LineSink &sink) {
  Answer answer = RunInFull(line == abbreviated_ ? expanded_ : line, sink);
  if (answer.result == KESTREL_UNKNOWN_COMMAND) {
    answer = RunAbbreviated(line, sink, std::move(answer));
  }
  for (const std::string &error : answer.errors) complain_(error);
  sink.End();
  return answer.outcome;
}

Client::Answer Client::RunInFull(const std::string &line, LineSink &sink) {
  std::string text;
  bool isUnknownUri = false;
  Answer answer = Ask("run " + line, [&](const Reply &reply) {
    text += reply.text;
    if (reply.tag == KESTREL_CONSOLE_PIECE) return;
    isUnknownUri = IsUnknownUri(text);
    if (!isUnknownUri && !sink.Line(text)) Stop();
    if (!isUnknownUri) text.clear();
  });
  if (isUnknownUri && answer.outcome == Outcome::kOk) {
    answer.outcome = Outcome::kFailed;
    answer.errors.push_back(text);
  } else if (!text.empty() && !isStopping_) {
    sink.Line(text);
  }
  return answer;
}

Client::Answer Client::RunAbbreviated(const std::string &line, LineSink &sink, Answer &&unknown) {
  std::vector<HostCommand> commands;
  const Answer listed =
      Ask("commands", [&](const Reply &reply) { AddListed(commands, ParseCommand(reply.text)); });
  if (listed.outcome != Outcome::kOk) return listed;
  Texts texts;
  for (const HostCommand &command : commands) {
    if (object_.empty() || command.object == object_) texts.push_back(command.command);
  }
  const Expansion expansion = Expand(line, texts);
  if (!expansion.choices.empty()) {
    return {Outcome::kFailed, KESTREL_AMBIGUOUS, {Several(line, expansion.choices)}};
  }
  if (expansion.line.empty()) return std::move(unknown);
  abbreviated_ = line;
  expanded_ = expansion.line;
  return RunInFull(expanded_, sink);
}

Outcome Client::Commands(std::vector<HostCommand> &commands) {
  return AskAndComplain("commands",
                        [&](const Reply &reply) { AddListed(commands, ParseCommand(reply.text)); });
}

// A host that is older than the request refuses it, which is no error.
Outcome Client::CommandsWithHelp(std::vector<HostCommand> &commands) {
  const Outcome outcome = Commands(commands);
  if (outcome != Outcome::kOk) return outcome;
  const Answer help = Ask("help", [&](const Reply &reply) { Describe(commands, reply.text); });
  return help.outcome == Outcome::kLost ? Outcome::kLost : Outcome::kOk;
}

Outcome Client::Objects(std::vector<std::string> &objects) {
  return AskAndComplain("objects",
                        [&](const Reply &reply) { AddListed(objects, std::string(reply.text)); });
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
