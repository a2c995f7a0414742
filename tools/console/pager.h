/* pager.h: pauses after each screen. */
#ifndef KESTREL_TOOLS_CONSOLE_PAGER_H
#define KESTREL_TOOLS_CONSOLE_PAGER_H

#include "line_sink.h"

namespace console {

// PagedLines prints to a terminal and asks after each screen: blank for the next screen, enter for
// the next line, q to stop.
class PagedLines : public LineSink {
 public:
  explicit PagedLines(FILE *out) : out_(out) {}
  bool Line(std::string_view line) override;

 private:
  bool Pause(size_t rows);

  FILE *out_;
  size_t usedRows_ = 0;  // of the screen, since the last pause
};

// RowsOf is how many rows a line of escaped text takes on a screen.
size_t RowsOf(std::string_view text, size_t columns);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_PAGER_H */
