/* console_output.h: the replies that wait to be sent to a console. */
#ifndef KESTREL_SRC_CONSOLE_CONSOLE_OUTPUT_H
#define KESTREL_SRC_CONSOLE_CONSOLE_OUTPUT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "kestrel_console.h"

namespace kestrel {

// ConsoleOutput is a queue of bytes, bounded for what commands print.  All that adds to it throws
// std::bad_alloc.
class ConsoleOutput {
 public:
  explicit ConsoleOutput(uint64_t maxBytes) : m_maxBytes(maxBytes) {}

  // Print adds what a command printed.  Returns false when that was dropped, because so much waits
  // already; until the next End nothing of the command is taken then.
  bool Print(std::string_view text);

  // Line adds a reply of one line; control characters become "?".
  void Line(char tag, std::string_view text);

  // Command adds the description of a command.
  void Command(std::string_view object, std::string_view command, const char *const *params,
               uint32_t paramCount);

  // End adds the status line of an answer, and before it an error if output was dropped.
  void End(uint32_t result);

  // Waiting are the bytes to be sent next; Sent takes the first ones away.
  std::string_view Waiting() const { return std::string_view(m_bytes).substr(m_sent); }
  void Sent(size_t len);

 private:
  void AddPieces(char lastTag, std::string_view text);

  uint64_t m_maxBytes;
  std::string m_bytes;
  size_t m_sent = 0;  // bytes at the beginning of m_bytes that are gone
  bool m_isCut = false;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_CONSOLE_OUTPUT_H */
