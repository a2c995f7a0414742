/* escape.h: makes text of the host harmless to a terminal. */
#ifndef KESTREL_TOOLS_CONSOLE_ESCAPE_H
#define KESTREL_TOOLS_CONSOLE_ESCAPE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace console {

// Utf8Length returns the bytes of the character that `text` begins with, 0 when that is not
// well-formed UTF-8.  REQUIRES: text is not empty
size_t Utf8Length(std::string_view text);

// Escaped shows control characters, characters that change the direction of writing, and bytes
// that are not UTF-8 as \xNN, byte by byte.  Everything else stays as it is.
std::string Escaped(std::string_view text);

// EscapedForJson is the same for the inside of a JSON string: characters are shown as \uNNNN, and
// bytes that are not UTF-8 as \\xNN.
std::string EscapedForJson(std::string_view text);

// NumColumns is how many columns of a terminal escaped text takes, by the locale: wide characters
// take two, combining ones none; what only changes its style takes none.
size_t NumColumns(std::string_view text);

// Cut shortens escaped text to `columns` columns; the last character left then is "~".
std::string Cut(std::string_view text, size_t columns);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_ESCAPE_H */
