/* terminal.h: what is known of the operator's terminal. */
#ifndef KESTREL_TOOLS_CONSOLE_TERMINAL_H
#define KESTREL_TOOLS_CONSOLE_TERMINAL_H

#include <cstddef>
#include <string>

namespace console {

struct ScreenSize {
  size_t columns = 80;
  size_t rows = 24;
};

bool IsTerminal(int fd);

// GetScreenSize asks the terminal of standard output.
ScreenSize GetScreenSize();

// HasStyle tells whether a descriptor is a terminal that understands colours and moves of the
// cursor: one whose TERM is empty or "dumb" does not.
bool HasStyle(int fd);

// EraseLine is what removes the line that the cursor is in, and puts it at its beginning.
std::string EraseLine();

// CanPage tells that somebody is there to read a screen and press a key.
bool CanPage();

// TableWidth is `asked`, or the terminal's width, or 0 without a terminal.
size_t TableWidth(size_t asked);

// ReadKey waits for one key on standard input; 'q' when there is no more input.
char ReadKey();

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_TERMINAL_H */
