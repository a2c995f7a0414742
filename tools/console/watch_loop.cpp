/* watch_loop.cpp: repeats a command and shows what changed. */
#include "watch_loop.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "escape.h"
#include "interrupt.h"
#include "pager.h"
#include "terminal.h"

namespace console {

namespace {

constexpr char kClearScreen[] = "\x1b[H\x1b[2J";

using Texts = std::vector<std::string>;

std::string TimeText() {
  const time_t now = time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  char text[16];
  strftime(text, sizeof text, "%H:%M:%S", &local);
  return text;
}

void PrintRound(const std::string &head, const Texts &lines) {
  PrintLine(stdout, "--- " + head);
  for (const std::string &line : lines) PrintLine(stdout, line);
}

// ShowRound prints what the screen has room for.
void ShowRound(const std::string &head, const Texts &lines) {
  const ScreenSize screen = GetScreenSize();
  size_t freeRows = std::max<size_t>(screen.rows, 3) - 2;  // the last one: what does not fit
  std::fputs(kClearScreen, stdout);
  PrintLine(stdout, Cut(head, screen.columns));
  for (size_t i = 0; i < lines.size(); ++i) {
    const size_t rows = RowsOf(lines[i], screen.columns);
    if (rows > freeRows) {
      std::printf("... %zu more lines", lines.size() - i);
      return;
    }
    freeRows -= rows;
    PrintLine(stdout, lines[i]);
  }
}

// Sleep returns false when Ctrl-C came.
bool Sleep(uint32_t ms) {
  if (!WasInterrupted()) poll(nullptr, 0, static_cast<int>(ms));
  return !WasInterrupted();
}

// Watch holds what is compared from round to round.
class Watch {
 public:
  Watch(Client &client, const WatchTask &task) : client_(client), task_(task) {}

  Outcome Run() {
    uint32_t numShown = 0;
    for (;;) {
      const Outcome outcome = Round();
      if (outcome == Outcome::kLost && isTerminal_) {
        if (!WaitForHost()) return Outcome::kOk;
        continue;
      }
      if (outcome != Outcome::kOk || client_.WasStopped()) return outcome;
      if (++numShown == task_.count || !Sleep(task_.periodMs)) return Outcome::kOk;
    }
  }

 private:
  Outcome Round() {
    KeptLines kept;
    Filters filters(task_.command.filters, kept);
    const Outcome outcome = client_.Run(task_.command.command, filters.First());
    if (outcome != Outcome::kOk || client_.WasStopped()) return outcome;
    if (!filters.Problem().empty()) return Complain(filters.Problem()), Outcome::kFailed;
    Texts now = kept.Take();
    Show(isFirst_ ? Unmarked(now) : MarkChanges(before_, now));
    isFirst_ = false;
    before_ = std::move(now);
    return std::fflush(stdout) == 0 ? Outcome::kOk : Outcome::kNoOutput;
  }

  bool WaitForHost() {
    constexpr uint32_t kRetryMs = 500;
    std::string reason;
    do {
      if (!Sleep(kRetryMs)) return false;
    } while (!client_.Reconnect(reason));
    PrintLine(stdout, "connected again");
    return true;
  }

  void Show(const std::vector<MarkedLine> &lines) {
    const RoundHead head{TimeText(), task_.command.command};
    if (task_.style.format == Format::kJson) {
      PrintLine(stdout, RoundAsJson(head, lines));
      return;
    }
    (HasStyle(STDOUT_FILENO) ? ShowRound : PrintRound)(head.time + " " + Escaped(head.command),
                                                       RenderRound(lines, task_.style));
  }

  Client &client_;
  const WatchTask &task_;
  const bool isTerminal_ = IsTerminal(STDOUT_FILENO);
  bool isFirst_ = true;
  Texts before_;
};

}  // namespace

Outcome WatchCommand(Client &client, const WatchTask &task) {
  CatchInterrupts();
  const Outcome outcome = Watch(client, task).Run();
  if (IsTerminal(STDOUT_FILENO)) std::fputc('\n', stdout);
  ClearInterrupt();
  return outcome;
}

}  // namespace console
