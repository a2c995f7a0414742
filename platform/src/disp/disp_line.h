/* disp_line.h: splits a command line into words. */
#ifndef KESTREL_SRC_DISP_DISP_LINE_H
#define KESTREL_SRC_DISP_DISP_LINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

// SplitDispLine splits at blanks and tabs; text in double quotes is one word, without the quotes.
// On failure returns none and sets `reason`.  Throws std::bad_alloc.
std::optional<std::vector<std::string>> SplitDispLine(std::string_view line, std::string &reason);

// ParseDispNumber reads a decimal u32; none for anything else.
std::optional<uint32_t> ParseDispNumber(std::string_view word);

// QuoteForReply shows operator's text in an error message: cut, and free of control characters.
std::string QuoteForReply(std::string_view text);

}  // namespace kestrel

#endif /* KESTREL_SRC_DISP_DISP_LINE_H */
