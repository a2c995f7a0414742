/* connection.h: the console's end of the host's socket. */
#ifndef KESTREL_TOOLS_CONSOLE_CONNECTION_H
#define KESTREL_TOOLS_CONSOLE_CONNECTION_H

#include <string>
#include <string_view>

namespace console {

// Reply is one line of the host.
struct Reply {
  enum class Kind {
    kLine,
    kInterrupted,  // the operator pressed Ctrl-C; the connection is as it was
    kLost          // the connection is over; text says why
  };
  Kind kind = Kind::kLine;
  char tag = 0;
  std::string text;
};

// Connection speaks the protocol of kestrel_console.h line by line.
class Connection {
 public:
  // `timeoutMs` is how long the host may be silent when a line of it is due; -1: for ever.
  explicit Connection(int timeoutMs) : timeoutMs_(timeoutMs) {}
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Open connects and takes the greeting.  Returns false and sets `reason` when there is no host,
  // or none that wants us.
  bool Open(const std::string &path, std::string &reason);

  // Send sends a request, which has no line feed.  Failures show up in Next.
  void Send(std::string_view request);

  // Next waits for the next line.
  Reply Next();

 private:
  bool Connect(const std::string &path, std::string &reason);
  bool TakeLine(Reply &reply);
  bool Fill(Reply &reply);

  int timeoutMs_;
  int fd_ = -1;
  std::string buffer_;
  size_t at_ = 0;  // bytes of buffer_ that have been taken
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_CONNECTION_H */
