/* words.h: the words of a line that an operator types. */
#ifndef KESTREL_TOOLS_CONSOLE_WORDS_H
#define KESTREL_TOOLS_CONSOLE_WORDS_H

#include <string>
#include <string_view>
#include <vector>

namespace console {

using Words = std::vector<std::string>;

// SplitWords splits at blanks and tabs, and does not look at quotes.
Words SplitWords(std::string_view line);

// FirstWord is the first of them; empty: there is none.
std::string_view FirstWord(std::string_view line);

// SkipWords is what follows the first `count` words of a line, without blanks before it.
std::string_view SkipWords(std::string_view line, size_t count);

// Trimmed is a text without blanks, tabs and carriage returns at its ends.
std::string_view Trimmed(std::string_view text);

// Unquoted is a text without the quotes around it, if it has them.
std::string Unquoted(std::string_view text);

std::string Lower(std::string_view text);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_WORDS_H */
