/* console_peer.cpp: the other end of a host's console socket, for tests. */
#include "console_peer.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace host_test {

namespace {

sockaddr_un AddressOf(const std::string &path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
  return addr;
}

}  // namespace

TempFolder::TempFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "consoleXXXXXX").string();
  if (mkdtemp(name.data())) path_ = name;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ConsolePeer::ConsolePeer(const std::string &path)
    : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  const sockaddr_un addr = AddressOf(path);
  if (connect(fd_, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0) Close();
}

ConsolePeer::ConsolePeer(ConsolePeer &&other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      received_(std::move(other.received_)),
      isAtEnd_(other.isAtEnd_) {}

size_t ConsolePeer::Send(std::string_view bytes) {
  const ssize_t len = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  return len > 0 ? static_cast<size_t>(len) : 0;
}

void ConsolePeer::Receive() {
  char bytes[65536];
  ssize_t len = 0;
  while ((len = recv(fd_, bytes, sizeof bytes, 0)) > 0) {
    received_.append(bytes, static_cast<size_t>(len));
  }
  if (len == 0 || errno != EAGAIN) isAtEnd_ = true;
}

void ConsolePeer::EndSending() { shutdown(fd_, SHUT_WR); }

void ConsolePeer::Close() {
  if (fd_ >= 0) close(std::exchange(fd_, -1));
}

int BindUnix(const std::string &path, bool listens) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un addr = AddressOf(path);
  if (bind(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0) {
    close(fd);
    return -1;
  }
  if (listens) listen(fd, 8);
  return fd;
}

}  // namespace host_test
