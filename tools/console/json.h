/* json.h: the rows of a command as JSON. */
#ifndef KESTREL_TOOLS_CONSOLE_JSON_H
#define KESTREL_TOOLS_CONSOLE_JSON_H

#include <string>

#include "line_sink.h"

namespace console {

// JsonText is a JSON string, quotes included.
std::string JsonText(std::string_view text);

// JsonObject is a row as an object of strings, any other line as {"text": line}.
std::string JsonObject(std::string_view line);

// JsonLines prints one array: an object of strings for each row, {"text": line} for any other line.
// The total at the end of a table is left out.
class JsonLines : public LineSink {
 public:
  explicit JsonLines(Printer &out) : out_(out) {}
  bool Line(std::string_view line) override;
  void End() override;

 private:
  bool PrintLast(const char *after);

  Printer &out_;
  std::string last_;  // the row that is not printed yet: what follows decides about its comma
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_JSON_H */
