/* printer.h: where finished lines of text go: to a file, or to a screen that pauses. */
#ifndef KESTREL_TOOLS_CONSOLE_PRINTER_H
#define KESTREL_TOOLS_CONSOLE_PRINTER_H

#include <cstdio>
#include <string_view>

namespace console {

class Printer {
 public:
  virtual ~Printer() = default;

  // Print writes one line of escaped text.  Returns false to have no more.
  virtual bool Print(std::string_view text) = 0;
};

// FilePrinter writes to a file; false when that fails.
class FilePrinter : public Printer {
 public:
  explicit FilePrinter(FILE *out) : out_(out) {}
  bool Print(std::string_view text) override;

 private:
  FILE *out_;
};

// PrintLine writes one line; false when the output cannot be written.
bool PrintLine(FILE *out, std::string_view text);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_PRINTER_H */
