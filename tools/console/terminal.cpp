/* terminal.cpp: what is known of the operator's terminal. */
#include "terminal.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace console {

bool IsTerminal(int fd) { return isatty(fd) == 1; }

bool HasStyle(int fd) {
  const char *term = std::getenv("TERM");
  return IsTerminal(fd) && term && *term && std::string_view(term) != "dumb";
}

std::string EraseLine() {
  if (HasStyle(STDOUT_FILENO)) return "\r\x1b[K";
  return "\r" + std::string(GetScreenSize().columns - 1, ' ') + "\r";
}

ScreenSize GetScreenSize() {
  winsize size{};
  ScreenSize screen;
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return screen;
  if (size.ws_col > 0) screen.columns = size.ws_col;
  if (size.ws_row > 0) screen.rows = size.ws_row;
  return screen;
}

bool CanPage() { return IsTerminal(STDIN_FILENO) && IsTerminal(STDOUT_FILENO); }

size_t TableWidth(size_t asked) {
  if (asked != 0) return asked;
  return IsTerminal(STDOUT_FILENO) ? GetScreenSize().columns : 0;
}

char ReadKey() {
  termios before{};
  if (tcgetattr(STDIN_FILENO, &before) != 0) return 'q';
  termios raw = before;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
  raw.c_cc[VMIN] = 1;
  raw.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
  char key = 'q';
  ssize_t len = 0;
  do {
    len = read(STDIN_FILENO, &key, 1);
  } while (len < 0 && errno == EINTR);
  tcsetattr(STDIN_FILENO, TCSADRAIN, &before);
  return len == 1 ? key : 'q';
}

}  // namespace console
