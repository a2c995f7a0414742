/* console_peer.h: the other end of a host's console socket, for tests. */
#ifndef CONSOLE_PEER_H
#define CONSOLE_PEER_H

#include <string>
#include <string_view>
#include <vector>

#include "host_support.h"

namespace host_test {

// TempFolder is a folder of its own, removed with all that is in it.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder &) = delete;
  TempFolder &operator=(const TempFolder &) = delete;

  const std::string &Path() const { return path_; }
  std::string Socket() const { return path_ + "/socket"; }

 private:
  std::string path_;
};

// ConsolePeer is a connection, which never waits.
class ConsolePeer {
 public:
  explicit ConsolePeer(const std::string &path);
  ~ConsolePeer() { Close(); }
  ConsolePeer(ConsolePeer &&other) noexcept;
  ConsolePeer(const ConsolePeer &) = delete;
  ConsolePeer &operator=(const ConsolePeer &) = delete;

  bool IsConnected() const { return fd_ >= 0; }

  // Send gives as many bytes as the socket takes, and returns how many that were.
  size_t Send(std::string_view bytes);

  // Receive takes what has arrived.
  void Receive();

  // Received is all that has arrived up to now; IsAtEnd: and no more will.
  const std::string &Received() const { return received_; }
  bool IsAtEnd() const { return isAtEnd_; }
  bool Ends(std::string_view text) const { return received_.ends_with(text); }

  void EndSending();
  void Close();
  int Fd() const { return fd_; }

 private:
  int fd_;
  std::string received_;
  bool isAtEnd_ = false;
};

// Bind makes a socket file; the socket that is returned listens only when `listens` is set.
int BindUnix(const std::string &path, bool listens);

}  // namespace host_test

#endif /* CONSOLE_PEER_H */
