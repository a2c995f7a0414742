/* json.h: the rows of a command as JSON. */
#ifndef KESTREL_TOOLS_CONSOLE_JSON_H
#define KESTREL_TOOLS_CONSOLE_JSON_H

#include "line_sink.h"

namespace console {

// JsonText is a JSON string, quotes included.
std::string JsonText(std::string_view text);

// JsonLines prints one array: an object of strings for each row, {"text": line} for any other line.
// The total at the end of a table is left out.
class JsonLines : public LineSink {
 public:
  explicit JsonLines(FILE *out) : out_(out) {}
  bool Line(std::string_view line) override;
  void End() override;

 private:
  FILE *out_;
  bool isFirst_ = true;
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_JSON_H */
