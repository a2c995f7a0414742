/* help.cpp: what is said to an operator who asks. */
#include "help.h"

#include <algorithm>

#include "escape.h"
#include "own_commands.h"
#include "watch.h"
#include "words.h"

namespace console {

namespace {

using Texts = std::vector<std::string>;

constexpr size_t kAboutAt = 40;  // the column of what is said, unless the usage is longer

std::string HelpLine(const std::string &usage, const std::string &about) {
  std::string line = "  " + Escaped(usage);
  if (about.empty()) return line;
  const size_t columns = NumColumns(line);
  line += std::string(columns + 2 < kAboutAt ? kAboutAt - columns : 2, ' ');
  return line + Escaped(about);
}

bool HasWords(const std::string &command, const Words &typed) {
  const Words words = SplitWords(command);
  if (typed.size() > words.size()) return false;
  return std::equal(typed.begin(), typed.end(), words.begin(),
                    [](const std::string &a, const std::string &b) { return b.starts_with(a); });
}

void AddOwn(const Words &typed, Texts &lines) {
  for (const OwnCommand &own : OwnCommands()) {
    if (HasWords(own.word, typed)) lines.push_back(HelpLine(own.usage, own.about));
  }
}

// WithoutRepeats drops commands that an earlier object has, too.
std::vector<HostCommand> WithoutRepeats(const std::vector<HostCommand> &commands) {
  std::vector<HostCommand> kept;
  for (const HostCommand &command : commands) {
    const auto isSame = [&](const HostCommand &one) { return one.command == command.command; };
    if (std::none_of(kept.begin(), kept.end(), isSame)) kept.push_back(command);
  }
  return kept;
}

// Matching are the commands that begin so; only the one that is meant if its words are complete.
std::vector<HostCommand> Matching(const Words &typed, const std::vector<HostCommand> &commands) {
  std::vector<HostCommand> matching;
  for (const HostCommand &command : WithoutRepeats(commands)) {
    if (SplitWords(command.command) == typed) return {command};
    if (HasWords(command.command, typed)) matching.push_back(command);
  }
  return matching;
}

void AddParams(const HostCommand &command, Texts &lines) {
  for (size_t i = 0; i < command.params.size(); ++i) {
    const std::string about = i < command.paramsAbout.size() ? command.paramsAbout[i] : "";
    lines.push_back(HelpLine("  <" + command.params[i] + ">", about));
  }
}

// HelpOnFilters is on what may stand after a bar.
Texts HelpOnFilters() {
  return {HelpLine("| include TEXT", "only lines with this text"),
          HelpLine("| sort COLUMN", "rows in the order of a column"),
          HelpLine("| columns A,B", "only these columns"),
          HelpLine("| count", "the number of lines")};
}

}  // namespace

Texts HelpOnAll(const std::vector<HostCommand> &commands) {
  Texts lines{"Commands of the console:"};
  AddOwn({}, lines);
  lines.emplace_back("After a command:");
  const Texts filters = HelpOnFilters();
  lines.insert(lines.end(), filters.begin(), filters.end());
  lines.emplace_back("Commands of the host, which may be abbreviated:");
  for (const HostCommand &command : WithoutRepeats(commands)) {
    lines.push_back(HelpLine(UsageOf(command), command.about));
  }
  return lines;
}

Texts HelpOn(std::string_view line, const std::vector<HostCommand> &commands) {
  const Words typed = SplitWords(line);
  if (!typed.empty() && typed.back() == "|") return HelpOnFilters();
  const bool isWatched = typed.size() > 2 || (typed.size() == 2 && line.ends_with(' '));
  if (isWatched && IsWatch(line)) return HelpOn(SkipWords(line, 2), commands);
  Texts lines;
  AddOwn(typed, lines);
  const auto matching = Matching(typed, commands);
  for (const HostCommand &command : matching) {
    lines.push_back(HelpLine(UsageOf(command), command.about));
  }
  if (matching.size() == 1) AddParams(matching[0], lines);
  return lines;
}

}  // namespace console
