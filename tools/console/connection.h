/* connection.h: the console's end of the host's socket. */
#ifndef KESTREL_TOOLS_CONSOLE_CONNECTION_H
#define KESTREL_TOOLS_CONSOLE_CONNECTION_H

#include <chrono>
#include <optional>
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

// AnswerBounds is for who talks to hosts that nobody watches; a host that exceeds them is lost.
struct AnswerBounds {
  std::chrono::milliseconds time;  // for all lines of an answer, and for a greeting
  size_t bytes;                    // of an answer
  int endFd;                       // readable: the connection is over
};

// Connection speaks the protocol of kestrel_console.h line by line.
class Connection {
 public:
  // `timeoutMs` is how long the host may be silent when a line of it is due; -1: for ever.
  explicit Connection(int timeoutMs, std::optional<AnswerBounds> bounds = std::nullopt)
      : timeoutMs_(timeoutMs), bounds_(bounds) {}
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

  // Ask sends a request, which has no line feed, and Stop ends it.  Failures show up in Next.
  void Ask(std::string_view request);
  void Stop() { Send("stop"); }

  // Next waits for the next line.
  Reply Next();

 private:
  bool Connect(const std::string &path, std::string &reason);
  void Send(std::string_view request);
  void BeginAnswer();
  int PatienceMs() const;
  bool IsBeyondBounds() const;
  bool Wait(Reply &reply);
  bool TakeLine(Reply &reply);
  bool Fill(Reply &reply);

  Reply Lose(std::string why);
  void Close();

  using Clock = std::chrono::steady_clock;

  int timeoutMs_;
  std::optional<AnswerBounds> bounds_;
  Clock::time_point answerEnd_{};  // of the bounds
  size_t answerBytes_ = 0;
  std::string path_;
  int fd_ = -1;
  bool isOpen_ = false;
  std::string buffer_;
  size_t at_ = 0;  // bytes of buffer_ that have been taken
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_CONNECTION_H */
