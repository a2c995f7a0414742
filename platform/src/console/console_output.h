/* console_output.h: replies queued for a console. */
#ifndef KESTREL_SRC_CONSOLE_CONSOLE_OUTPUT_H
#define KESTREL_SRC_CONSOLE_CONSOLE_OUTPUT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel_console.h"

namespace kestrel {

// ConsoleOutput is a queue of bytes, bounded for what commands print.  All that adds to it throws
// std::bad_alloc.
class ConsoleOutput {
 public:
  explicit ConsoleOutput(uint64_t maxBytes) : maxBytes_(maxBytes) {}

  // Print adds what a command printed.  Returns false when that was dropped, because so much waits
  // already; until the next End nothing of the command is taken then.
  bool Print(std::string_view text);

  // Line adds a reply of one line; control characters become "?".
  void Line(char tag, std::string_view text);

  // Fields adds a reply of texts with tabs between them, unless it is too long.
  void Fields(char tag, const std::vector<std::string_view> &texts);

  // End adds the status line of an answer, and before it an error if output was dropped.
  void End(uint32_t result);

  // Waiting are the bytes to be sent next; Sent takes the first ones away.
  std::string_view Waiting() const { return std::string_view(bytes_).substr(sent_); }
  void Sent(size_t len);

 private:
  void AddPieces(char lastTag, std::string_view text);

  uint64_t maxBytes_;
  std::string bytes_;
  size_t sent_ = 0;  // bytes at the beginning of bytes_ that are gone
  bool isCut_ = false;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_CONSOLE_OUTPUT_H */
