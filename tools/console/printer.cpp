/* printer.cpp: where finished lines of text go. */
#include "printer.h"

namespace console {

bool PrintLine(FILE *out, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), out);
  std::fputc('\n', out);
  return std::ferror(out) == 0;
}

bool FilePrinter::Print(std::string_view text) { return PrintLine(out_, text); }

}  // namespace console
