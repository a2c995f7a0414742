/* line_sink.h: where the lines of a command go. */
#ifndef KESTREL_TOOLS_CONSOLE_LINE_SINK_H
#define KESTREL_TOOLS_CONSOLE_LINE_SINK_H

#include <string>
#include <string_view>
#include <vector>

#include "printer.h"
#include "style.h"

namespace console {

// LineSink takes the lines of one command, and then its end.
class LineSink {
 public:
  virtual ~LineSink() = default;

  // Line takes a line as the host printed it, without line feed.  Returns false to have no more.
  virtual bool Line(std::string_view line) = 0;

  // End is called when the command is over.
  virtual void End() {}
};

// PlainLines prints each line, escaped.
class PlainLines : public LineSink {
 public:
  explicit PlainLines(Printer &out, Palette palette = Palette()) : out_(out), palette_(palette) {}
  bool Line(std::string_view line) override;

 private:
  Printer &out_;
  Palette palette_;
};

// KeptLines remembers the lines.
class KeptLines : public LineSink {
 public:
  bool Line(std::string_view line) override {
    lines_.emplace_back(line);
    return true;
  }
  std::vector<std::string> Take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_LINE_SINK_H */
