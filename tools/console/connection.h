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

  // Reopen closes what is left of the connection and opens the same path again; as Open.
  bool Reopen(std::string &reason);

  // IsOpen tells whether there is a connection, as far as is known.
  bool IsOpen() const { return isOpen_; }

  // NoticeLoss looks, without waiting, whether the host closed a connection on which nothing is
  // due.  Returns true once for each connection.
  bool NoticeLoss();

  // Descriptor becomes readable when the host closes; -1 without a connection.
  int Descriptor() const { return isOpen_ ? fd_ : -1; }

  // Send sends a request, which has no line feed.  Failures show up in Next.
  void Send(std::string_view request);

  // Next waits for the next line.
  Reply Next();

 private:
  bool Connect(const std::string &path, std::string &reason);
  bool TakeLine(Reply &reply);
  bool Fill(Reply &reply);

  Reply Lose(std::string why);
  void Close();

  int timeoutMs_;
  std::string path_;
  int fd_ = -1;
  bool isOpen_ = false;
  std::string buffer_;
  size_t at_ = 0;  // bytes of buffer_ that have been taken
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_CONNECTION_H */
