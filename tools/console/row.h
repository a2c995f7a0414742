/* row.h: takes lines of the form "label[0]: name(value)/name(value)" apart. */
#ifndef KESTREL_TOOLS_CONSOLE_ROW_H
#define KESTREL_TOOLS_CONSOLE_ROW_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace console {

// Field is one name(value) of a line.
struct Field {
  std::string name;
  std::string value;
  size_t valueAt = 0;  // where in the line the value begins
};

using Row = std::vector<Field>;

// ParseRow splits a line into its fields.  A value may hold slashes and parentheses: it ends where
// ")/name(" begins the next field, or with the line's last parenthesis.  A line in which a name
// comes twice is not split, because one of the two must be part of a value; nor is one of more than
// 256 fields.
//
// Returns none when the line has another form.
std::optional<Row> ParseRow(std::string_view line);

// IsTotal tells the closing line of a table, " ***total 3 server uriVtbl(s) ***".
bool IsTotal(std::string_view line);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_ROW_H */
