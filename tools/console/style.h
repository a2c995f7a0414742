/* style.h: how changed and failed values are shown on a terminal. */
#ifndef KESTREL_TOOLS_CONSOLE_STYLE_H
#define KESTREL_TOOLS_CONSOLE_STYLE_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "row.h"

namespace console {

enum class Paint { kNone, kChanged, kFailed };

// Parts are begin and end of pieces of a text, in order.
using Parts = std::vector<std::pair<size_t, size_t>>;

// Palette turns a paint into what a terminal understands.
class Palette {
 public:
  enum class Kind {
    kPlain,  // nothing is painted
    kMono,   // changed values are shown in reverse
    kColor
  };

  explicit Palette(Kind kind = Kind::kPlain) : kind_(kind) {}

  // Of gives the palette of a descriptor: plain unless that is a terminal with styles, and without
  // colours when NO_COLOR is set and not empty.
  static Palette Of(int fd);

  // Painted wraps escaped text.
  std::string Painted(std::string_view text, Paint paint) const;

 private:
  Kind kind_;
};

// IsFailure tells a value that says of itself that something failed: an endpoint that is not open,
// timeouts, queued resends, and any counter above 0 whose name begins with fail, refuse, drop,
// timeout, reset or nack.
bool IsFailure(const Field &field);

// PaintOf is how a field of a row is painted in which the parts `changed` changed.
Paint PaintOf(const Field &field, const Parts &changed);

// PaintedLine is a line of the host, escaped, with its failed values and `changed` parts painted.
std::string PaintedLine(std::string_view line, const Parts &changed, Palette palette);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_STYLE_H */
