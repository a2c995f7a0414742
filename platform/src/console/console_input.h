/* console_input.h: the unanswered requests of a console. */
#ifndef KESTREL_SRC_CONSOLE_CONSOLE_INPUT_H
#define KESTREL_SRC_CONSOLE_CONSOLE_INPUT_H

#include <deque>
#include <string>
#include <string_view>

namespace kestrel {

// ConsoleRequest is one line of a console.
struct ConsoleRequest {
  std::string word;        // what is asked for
  std::string rest;        // what follows the word and a blank
  bool isTooLong = false;  // it was longer than allowed; no text is kept
  bool isStopped = false;  // a stop came after it

  bool IsStop() const { return word == "stop" && rest.empty(); }
};

// ParseConsoleRequest takes a line without its line feed.
ConsoleRequest ParseConsoleRequest(std::string_view line);

// ConsoleInput makes requests of the bytes that arrive.  It keeps no more of a line than a request
// may have.
class ConsoleInput {
 public:
  // Feed adds bytes.  Returns whether they held a stop, which marks all requests in front of it and
  // is not kept itself.  Throws std::bad_alloc.
  bool Feed(std::string_view bytes);

  // IsFull tells that enough requests wait; no more bytes should be read.
  bool IsFull() const { return requests_.size() >= kMaxRequests; }
  bool IsEmpty() const { return requests_.empty(); }

  // Take removes the first request.  REQUIRES: !IsEmpty()
  ConsoleRequest Take();

 private:
  static constexpr size_t kMaxRequests = 16;

  void AddToLine(std::string_view bytes);
  bool EndLine();

  std::deque<ConsoleRequest> requests_;
  std::string line_;        // the beginning of the next request
  bool isTooLong_ = false;  // line_ has been given up
};

}  // namespace kestrel

#endif /* KESTREL_SRC_CONSOLE_CONSOLE_INPUT_H */
