/* filter.h: what an operator puts after a command to have less of its output, or in another order.
 *
 *   <command> | include TEXT | sort COLUMN | columns A,B | count
 *
 * Each filter takes the lines of the one before it.  A bar between blanks begins a filter, unless
 * it is in double quotes. */
#ifndef KESTREL_TOOLS_CONSOLE_FILTER_H
#define KESTREL_TOOLS_CONSOLE_FILTER_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "line_sink.h"

namespace console {

// FilterSpec is one filter as it was typed.
struct FilterSpec {
  enum class Kind { kInclude, kSort, kColumns, kCount };
  Kind kind = Kind::kCount;
  std::vector<std::string> words;  // the text, or names of columns
};

// FilteredCommand is a line taken apart.
struct FilteredCommand {
  std::string command;
  std::vector<FilterSpec> filters;
};

// ParseFilters takes a line apart.  On failure returns none and sets `reason`.
std::optional<FilteredCommand> ParseFilters(std::string_view line, std::string &reason);

// Filter passes lines on to the next sink.
class Filter : public LineSink {
 public:
  explicit Filter(LineSink &next) : next_(next) {}
  void End() override { next_.End(); }

  // Problem is why the filter could not do its work; empty: it could.
  const std::string &Problem() const { return problem_; }

 protected:
  LineSink &next_;
  std::string problem_;
};

// Filters is a chain of filters before a sink.  Each is used for one command.
class Filters {
 public:
  Filters(const std::vector<FilterSpec> &specs, LineSink &last);

  LineSink &First() { return *first_; }

  // Problem is that of the first filter that has one; known after the end.
  std::string Problem() const;

 private:
  std::vector<std::unique_ptr<Filter>> filters_;  // the last one first
  LineSink *first_;
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_FILTER_H */
