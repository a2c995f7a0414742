/* own_commands.cpp: the commands of the console itself. */
#include "own_commands.h"

#include <algorithm>

namespace console {

namespace {

// OwnBeginningWith gives those that begin with a word; only itself when it is one.
std::vector<std::string> OwnBeginningWith(const std::string &word) {
  std::vector<std::string> found;
  for (const OwnCommand &own : OwnCommands()) {
    if (own.word == word) return {word};
    if (std::string_view(own.word).starts_with(word)) found.emplace_back(own.word);
  }
  return found;
}

}  // namespace

const std::vector<OwnCommand> &OwnCommands() {
  static const std::vector<OwnCommand> commands = {
      {"commands", "commands", "list the host's commands"},
      {"objects", "objects", "list the host's display objects"},
      {"object", "object [<name>]", "commands are for this object; without name: for any"},
      {"watch", "watch <seconds> <command>", "repeat a command and mark what changed"},
      {"format", "format lines|json|table", "how tables are printed"},
      {"help", "help [<command>]", "what a command shows; also ? at the beginning of a word"},
      {"quit", "quit", "leave"},
  };
  return commands;
}

std::vector<Words> OwnPhrases() {
  std::vector<Words> phrases;
  for (const OwnCommand &own : OwnCommands()) phrases.push_back({own.word});
  for (const char *format : {"lines", "json", "table"}) phrases.push_back({"format", format});
  return phrases;
}

bool MayBeOwn(std::string_view line) {
  const Words words = SplitWords(line);
  if (words.empty()) return false;
  const auto found = OwnBeginningWith(words[0]);
  return found.size() == 1 && found[0] != words[0];
}

std::string ExpandOwn(std::string_view line, const std::vector<HostCommand> &commands) {
  const Words words = SplitWords(line);
  const bool isHosts = std::any_of(
      commands.begin(), commands.end(),
      [&](const HostCommand &command) { return command.command.starts_with(words[0]); });
  const auto found = OwnBeginningWith(words[0]);
  if (isHosts || found.size() != 1) return std::string(line);
  const std::string_view rest = SkipWords(line, 1);
  return found[0] + (rest.empty() ? "" : " ") + std::string(rest);
}

}  // namespace console
