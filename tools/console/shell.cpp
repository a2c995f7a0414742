/* shell.cpp: asks the operator for commands, one after the other. */
#include "shell.h"

#include <unistd.h>

#include <iostream>

#include "completion.h"
#include "help.h"
#include "history_file.h"
#include "interrupt.h"
#include "line_editor.h"
#include "own_commands.h"
#include "session.h"
#include "terminal.h"
#include "words.h"

namespace console {

namespace {

// Shell holds what the commands of the prompt work on.
class Shell {
 public:
  Shell(Client &client, const Options &options) : client_(client), session_(client, options) {
    catalog_.ownCommands = OwnPhrases();
    session_.OnRow([this](const Row &row) { catalog_.Remember(row); });
  }

  Outcome Execute(std::string_view line);
  Completion OnTab(std::string_view line);
  std::vector<std::string> OnQuestion(std::string_view line);
  std::string Prompt() const {
    return client_.Object().empty() ? "kestrel> " : "kestrel " + client_.Object() + "> ";
  }

  // Attend looks after the connection while nothing runs.  Returns what became of it, or "".
  std::string Attend();

  // Connect makes sure that there is a host to talk to.
  bool Connect();

  int Descriptor() const { return client_.Descriptor(); }

 private:
  Outcome SetFormat(std::string_view name);

  Client &client_;
  Session session_;
  Catalog catalog_;
};

constexpr char kAgain[] = "connected again";

Outcome Shell::Execute(std::string_view typed) {
  const std::string line = session_.InFull(std::string(typed));
  const std::string_view word = FirstWord(line);
  const std::string_view rest = Trimmed(SkipWords(line, 1));
  if (IsQuestion(line)) return session_.Execute(line);
  if (word == "object") return client_.SetObject(std::string(rest));
  if (word == "format") return SetFormat(rest);
  return session_.Execute(line);
}

std::string Shell::Attend() {
  if (client_.NoticeLoss()) return "kestrel-console: the host closed the connection";
  std::string reason;
  return client_.IsConnected() || !client_.Reconnect(reason) ? "" : kAgain;
}

bool Shell::Connect() {
  std::string reason;
  if (client_.IsConnected()) return true;
  const bool isBack = client_.Reconnect(reason);
  isBack ? (void)std::puts(kAgain) : Complain("cannot connect: " + reason);
  return isBack;
}

Outcome Shell::SetFormat(std::string_view name) {
  constexpr std::pair<std::string_view, Format> kFormats[] = {
      {"lines", Format::kLines}, {"json", Format::kJson}, {"table", Format::kTable}};
  for (const auto &[full, format] : kFormats) {
    if (name.empty() || !full.starts_with(name)) continue;
    session_.SetFormat(format);
    return Outcome::kOk;
  }
  Complain("format is lines, json or table");
  return Outcome::kUsage;
}

// Commands may have come and gone since the last time.
Completion Shell::OnTab(std::string_view line) {
  catalog_.commands.clear();
  catalog_.objects.clear();
  if (!client_.IsConnected()) return {};
  client_.Commands(catalog_.commands);
  client_.Objects(catalog_.objects);
  return Complete(catalog_, line);
}

// Help is for the words of commands: in a parameter a question mark is a character.
std::vector<std::string> Shell::OnQuestion(std::string_view line) {
  std::vector<HostCommand> commands;
  if (!client_.IsConnected() || client_.CommandsWithHelp(commands) != Outcome::kOk) return {};
  return HelpOn(line, commands);
}

bool IsQuit(std::string_view line) { return line == "quit" || line == "exit" || line == "q"; }

LineEditor::Hooks HooksOf(Shell &shell) {
  return {[&](std::string_view line) { return shell.OnTab(line); },
          [&](std::string_view line) { return shell.OnQuestion(line); },
          [&] { return shell.Attend(); }, [&] { return shell.Descriptor(); }};
}

// A host that goes ends no session: the operator stays, and is told when it is back.
Outcome RunOnTerminal(Shell &shell, const Options &options) {
  CatchInterrupts();
  LineEditor editor(options.useHistory ? HistoryPath() : "", HooksOf(shell));
  std::puts("Type help or ? for help, quit to leave.");
  for (;;) {
    editor.SetPrompt(shell.Prompt());
    const auto typed = editor.ReadLine();
    if (!typed || IsQuit(Trimmed(*typed))) return Outcome::kOk;
    if (Trimmed(*typed).empty()) continue;
    ClearInterrupt();
    if (shell.Connect()) shell.Execute(Trimmed(*typed));
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
