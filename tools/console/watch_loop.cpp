/* watch_loop.cpp: repeats a command and shows what changed. */
#include "watch_loop.h"

#include <poll.h>
#include <unistd.h>

#include <ctime>

#include "escape.h"
#include "interrupt.h"
#include "pager.h"
#include "terminal.h"

namespace console {

namespace {

constexpr char kClearScreen[] = "\x1b[H\x1b[2J";

std::string TimeText() {
  const time_t now = time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  char text[16];
  strftime(text, sizeof text, "%H:%M:%S", &local);
  return text;
}

// Highlighted shows the changed parts in reverse.
std::string Highlighted(const MarkedLine &line) {
  const std::string_view text = line.text;
  std::string shown;
  size_t at = 0;
  for (const auto &[begin, end] : line.changed) {
    shown += Escaped(text.substr(at, begin - at)) + "\x1b[7m";
    shown += Escaped(text.substr(begin, end - begin)) + "\x1b[0m";
    at = end;
  }
  return shown + Escaped(text.substr(at));
}

void PrintRound(const std::string &head, const std::vector<MarkedLine> &lines) {
  PrintLine(stdout, "--- " + head);
  for (const MarkedLine &line : lines) {
    PrintLine(stdout, std::string{line.mark, ' '} + Escaped(line.text));
  }
}

// ShowRound prints what the screen has room for.
void ShowRound(const std::string &head, const std::vector<MarkedLine> &lines) {
  const ScreenSize screen = GetScreenSize();
  size_t freeRows = screen.rows - 2;  // the last one is for what does not fit
  std::fputs(kClearScreen, stdout);
  PrintLine(stdout, Cut(head, screen.columns));
  for (size_t i = 0; i < lines.size(); ++i) {
    const size_t rows = RowsOf("  " + Escaped(lines[i].text), screen.columns);
    if (rows > freeRows) {
      std::printf("... %zu more lines", lines.size() - i);
      return;
    }
    freeRows -= rows;
    PrintLine(stdout, std::string{lines[i].mark, ' '} + Highlighted(lines[i]));
  }
}

// Sleep returns false when Ctrl-C came.
bool Sleep(uint32_t ms) {
  if (!WasInterrupted()) poll(nullptr, 0, static_cast<int>(ms));
  return !WasInterrupted();
}

Outcome WatchRounds(Client &client, const WatchRequest &request, uint32_t count) {
  const bool isScreen = IsTerminal(STDOUT_FILENO);
  std::vector<std::string> before;
  for (uint32_t round = 1;; ++round) {
    KeptLines kept;
    const Outcome outcome = client.Run(request.command, kept);
    if (outcome != Outcome::kOk || client.WasStopped()) return outcome;
    std::vector<std::string> now = kept.Take();
    const auto lines = round == 1 ? Unmarked(now) : MarkChanges(before, now);
    (isScreen ? ShowRound : PrintRound)(TimeText() + " " + Escaped(request.command), lines);
    if (std::fflush(stdout) != 0) return Outcome::kNoOutput;
    if (round == count || !Sleep(request.periodMs)) return Outcome::kOk;
    before = std::move(now);
  }
}

}  // namespace

Outcome WatchCommand(Client &client, const WatchRequest &request, uint32_t count) {
  CatchInterrupts();
  const Outcome outcome = WatchRounds(client, request, count);
  if (IsTerminal(STDOUT_FILENO)) std::fputc('\n', stdout);
  ClearInterrupt();
  return outcome;
}

}  // namespace console
