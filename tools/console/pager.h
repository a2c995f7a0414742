/* pager.h: pauses after each screen. */
#ifndef KESTREL_TOOLS_CONSOLE_PAGER_H
#define KESTREL_TOOLS_CONSOLE_PAGER_H

#include "printer.h"

namespace console {

// Pager prints to a terminal and asks after each screen: space for the next screen, enter for the
// next line, q to stop.
class Pager : public Printer {
 public:
  explicit Pager(FILE *out) : out_(out) {}
  bool Print(std::string_view text) override;

 private:
  bool Pause(size_t rows);

  FILE *out_;
  size_t usedRows_ = 0;  // of the screen, since the last pause
  bool isStopped_ = false;
};

// RowsOf is how many rows a line of escaped text takes on a screen.
size_t RowsOf(std::string_view text, size_t columns);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_PAGER_H */
