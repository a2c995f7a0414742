/* line_sink.cpp: where the lines of a command go. */
#include "line_sink.h"

namespace console {

bool PlainLines::Line(std::string_view line) { return out_.Print(PaintedLine(line, {}, palette_)); }

}  // namespace console
