/* line_sink.cpp: where the lines of a command go. */
#include "line_sink.h"

#include "escape.h"

namespace console {

bool PrintLine(FILE *out, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), out);
  std::fputc('\n', out);
  return std::ferror(out) == 0;
}

bool PlainLines::Line(std::string_view line) { return PrintLine(out_, Escaped(line)); }

}  // namespace console
