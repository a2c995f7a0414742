#include "demo_screen.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr int kNumSteps = 7, kBarWidth = 32;
constexpr size_t kMaxRows = 6, kMaxLine = 100;
constexpr double kRedrawSeconds = 0.1;
constexpr char kBold[] = "\033[1m", kGreen[] = "\033[32m", kRed[] = "\033[31m",
               kPlain[] = "\033[0m";

__attribute__((format(printf, 1, 2))) std::string Format(const char *format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  return text;
}

}  // namespace

Screen::Screen() : isTerminal_(isatty(STDOUT_FILENO) == 1) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
}

void Screen::BeginStep(const char *title) {
  steps_.push_back({title, DemoClock::now(), 0, {false, ""}});
  std::printf("\n%s[%zu/%d] %s%s\n", Paint(kBold), steps_.size(), kNumSteps, title, Paint(kPlain));
}

void Screen::EndStep(const Verdict &verdict) {
  Settle();
  Step &step = steps_.back();
  step.verdict = verdict;
  step.seconds = SecondsSince(step.start);
  std::printf("  %s%s%s  %s\n", Paint(verdict.isGood ? kGreen : kRed),
              verdict.isGood ? "ok" : "FAILED", Paint(kPlain), verdict.counts.c_str());
}

void Screen::Say(const std::string &line) {
  Settle();
  const bool isLong = line.size() > kMaxLine;
  std::printf("  %s%s\n", line.substr(0, kMaxLine).c_str(), isLong ? "..." : "");
}

void Screen::Bar(const std::string &what, uint64_t done, uint64_t total) {
  const int filled = total != 0 ? static_cast<int>(kBarWidth * done / total) : 0;
  std::string bar(static_cast<size_t>(filled), '#');
  bar.resize(kBarWidth, '.');
  Draw(what, {Format("%-34s [%s] %" PRIu64 "/%" PRIu64, what.c_str(), bar.c_str(), done, total)});
}

void Screen::List(const std::string &title, const char *columns, const Rows &table) {
  std::vector<const Rows::value_type *> rows;
  for (const Rows::value_type &row : table) rows.push_back(&row);
  std::stable_sort(rows.begin(), rows.end(),
                   [](auto *a, auto *b) { return +a->second[0] > +b->second[0]; });
  std::vector<std::string> lines = {Format("%-24s%s", title.c_str(), columns)};
  for (size_t i = 0; i < std::min(rows.size(), kMaxRows); ++i) {
    const RowValue &value = rows[i]->second;
    lines.push_back(Format("  %-22.22s%14" PRIu64 "%14" PRIu64 "%14" PRIu64 "%14" PRIu64,
                           rows[i]->first.bytes.data(), +value[0], +value[1], +value[2],
                           +value[3]));
  }
  if (table.size() > kMaxRows) lines.push_back(Format("  ... %zu in all", table.size()));
  Draw(title, std::move(lines));
}

void Screen::Draw(const std::string &title, std::vector<std::string> lines) {
  if (title != title_) Settle();
  title_ = title;
  state_ = std::move(lines);
  if (isTerminal_ && SecondsSince(lastDraw_) >= kRedrawSeconds) Redraw();
}

void Screen::Redraw() {
  if (numDrawn_ != 0) std::printf("\033[%zuA\033[J", numDrawn_);
  for (const std::string &line : state_) std::printf("  %s\n", line.c_str());
  numDrawn_ = state_.size();
  lastDraw_ = DemoClock::now();
}

void Screen::Settle() {
  if (!state_.empty()) Redraw();
  state_.clear();
  numDrawn_ = 0;
}

bool Screen::Summary(double seconds) {
  bool isGood = steps_.size() == kNumSteps;
  std::printf("\n%ssummary%s\n", Paint(kBold), Paint(kPlain));
  for (size_t i = 0; i < steps_.size(); ++i) {
    const Step &step = steps_[i];
    isGood = isGood && step.verdict.isGood;
    std::printf("  %zu  %s%-6s%s %5.1f s  %-44s %s\n", i + 1,
                Paint(step.verdict.isGood ? kGreen : kRed), step.verdict.isGood ? "ok" : "FAILED",
                Paint(kPlain), step.seconds, step.title.c_str(), step.verdict.counts.c_str());
  }
  std::printf("  %s%s%s in %.1f s\n", Paint(isGood ? kGreen : kRed),
              isGood ? "everything worked" : "NOT everything worked", Paint(kPlain), seconds);
  return isGood;
}
