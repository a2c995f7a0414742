/* shell.cpp: asks the operator for commands, one after the other. */
#include "shell.h"

#include <unistd.h>

#include <iostream>

#include "completion.h"
#include "history_file.h"
#include "interrupt.h"
#include "line_editor.h"
#include "session.h"
#include "terminal.h"

namespace console {

namespace {

constexpr char kHelp[] =
    "  <command>                   run a command of the host; Tab completes it\n"
    "  commands                    list the host's commands\n"
    "  objects                     list the host's display objects\n"
    "  object [<name>]             commands are for this object; without name: for any\n"
    "  watch <seconds> <command>   repeat a command and mark what changed; Ctrl-C ends it\n"
    "  format lines|json|table     how tables are printed\n"
    "  help                        this text\n"
    "  quit                        leave\n";

std::string_view Trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t\r");
  if (begin == text.npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// Shell holds what the commands of the prompt work on.
class Shell {
 public:
  Shell(Client &client, const Options &options)
      : client_(client), session_(client, options), object_(options.object) {
    catalog_.ownCommands = {
        {"commands"},        {"objects"},        {"object"},          {"watch"}, {"help"},
        {"format", "lines"}, {"format", "json"}, {"format", "table"}, {"quit"}};
    session_.OnRow([this](const Row &row) { catalog_.Remember(row); });
  }

  Outcome Execute(std::string_view line);
  Completion OnTab(std::string_view line);
  std::string Prompt() const { return object_.empty() ? "kestrel> " : "kestrel " + object_ + "> "; }

 private:
  Outcome SetFormat(std::string_view name);
  Outcome SetObject(std::string_view name);

  Client &client_;
  Session session_;
  std::string object_;
  Catalog catalog_;
};

Outcome Shell::Execute(std::string_view line) {
  const size_t blank = std::min(line.find(' '), line.size());
  const std::string_view word = line.substr(0, blank);
  const std::string_view rest = Trimmed(line.substr(blank));
  if (word == "object") return SetObject(rest);
  if (word == "format") return SetFormat(rest);
  if (line != "help") return session_.Execute(std::string(line));
  std::fputs(kHelp, stdout);
  return Outcome::kOk;
}

Outcome Shell::SetObject(std::string_view name) {
  object_ = name;
  return client_.SetObject(object_);
}

Outcome Shell::SetFormat(std::string_view name) {
  if (name == "lines") return session_.SetFormat(Format::kLines), Outcome::kOk;
  if (name == "json") return session_.SetFormat(Format::kJson), Outcome::kOk;
  if (name == "table") return session_.SetFormat(Format::kTable), Outcome::kOk;
  Complain("format is lines, json or table");
  return Outcome::kUsage;
}

// Commands may have come and gone since the last time.
Completion Shell::OnTab(std::string_view line) {
  catalog_.commands.clear();
  catalog_.objects.clear();
  client_.Commands(catalog_.commands);
  client_.Objects(catalog_.objects);
  return Complete(catalog_, line);
}

bool IsQuit(std::string_view line) { return line == "quit" || line == "exit"; }

Outcome RunOnTerminal(Shell &shell, const Options &options) {
  CatchInterrupts();
  LineEditor editor(options.useHistory ? HistoryPath() : "",
                    [&](std::string_view line) { return shell.OnTab(line); });
  std::puts("Type help for help, quit to leave.");
  for (;;) {
    editor.SetPrompt(shell.Prompt());
    const auto typed = editor.ReadLine();
    if (!typed || IsQuit(Trimmed(*typed))) return Outcome::kOk;
    if (Trimmed(*typed).empty()) continue;
    ClearInterrupt();
    if (shell.Execute(Trimmed(*typed)) == Outcome::kLost) return Outcome::kLost;
    std::fflush(stdout);
  }
}

Outcome RunOnPipe(Shell &shell) {
  Outcome last = Outcome::kOk;
  std::string line;
  while (last != Outcome::kLost && std::getline(std::cin, line) && !IsQuit(Trimmed(line))) {
    if (Trimmed(line).empty()) continue;
    const Outcome outcome = shell.Execute(Trimmed(line));
    if (outcome != Outcome::kOk) last = outcome;
  }
  return last;
}

}  // namespace

Outcome RunShell(Client &client, const Options &options) {
  Shell shell(client, options);
  return IsTerminal(STDIN_FILENO) ? RunOnTerminal(shell, options) : RunOnPipe(shell);
}

}  // namespace console
