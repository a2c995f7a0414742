/* pager.cpp: pauses after each screen. */
#include "pager.h"

#include <algorithm>

#include "escape.h"
#include "terminal.h"

namespace console {

namespace {

constexpr char kPrompt[] = "space: next screen, enter: next line, q: quit";
constexpr char kCtrlC = 3;
constexpr char kCtrlD = 4;

bool IsQuit(char key) { return key == 'q' || key == 'Q' || key == kCtrlC || key == kCtrlD; }

}  // namespace

size_t RowsOf(std::string_view text, size_t columns) {
  return std::max<size_t>(1, (NumColumns(text) + columns - 1) / columns);
}

bool Pager::Print(std::string_view text) {
  if (isStopped_) return false;
  const ScreenSize screen = GetScreenSize();
  const size_t rows = RowsOf(text, screen.columns);
  const size_t usableRows = screen.rows - 1;  // the last one is for the prompt
  if (usedRows_ != 0 && usedRows_ + rows > usableRows && !Pause(rows)) return false;
  usedRows_ += rows;
  return PrintLine(out_, text);
}

// Pause makes room for a line of `rows` rows; false when the operator has seen enough.
bool Pager::Pause(size_t rows) {
  std::fputs(kPrompt, out_);
  std::fflush(out_);
  const char key = ReadKey();
  std::fputs(EraseLine().c_str(), out_);
  const bool isLine = key == '\n' || key == '\r';
  usedRows_ = isLine ? usedRows_ - std::min(usedRows_, rows) : 0;
  isStopped_ = IsQuit(key);
  return !isStopped_;
}

}  // namespace console
