/* connection.cpp: the console's end of the host's socket. */
#include "connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "interrupt.h"
#include "kestrel_console.h"

namespace console {

namespace {

std::string SystemText(const char *what) { return std::string(what) + ": " + strerror(errno); }

// SetSendTimeout also bounds how long connect waits for a place in the host's queue.
void SetSendTimeout(int fd, int timeoutMs) {
  if (timeoutMs < 0) return;
  const timeval timeout{timeoutMs / 1000, timeoutMs % 1000 * 1000L};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

}  // namespace

Connection::~Connection() { Close(); }

void Connection::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  isOpen_ = false;
  buffer_.clear();
  at_ = 0;
}

Reply Connection::Lose(std::string why) {
  isOpen_ = false;
  return {Reply::Kind::kLost, 0, std::move(why)};
}

bool Connection::Reopen(std::string &reason) { return Open(std::string(path_), reason); }

bool Connection::NoticeLoss() {
  if (!isOpen_) return false;
  char byte = 0;
  const ssize_t len = recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  const bool isAlive = len > 0 || (len < 0 && (errno == EAGAIN || errno == EINTR));
  if (!isAlive) isOpen_ = false;
  return !isAlive;
}

bool Connection::Open(const std::string &path, std::string &reason) {
  Close();
  path_ = path;
  if (!Connect(path, reason)) return false;
  BeginAnswer();
  const Reply hello = Next();
  if (hello.kind == Reply::Kind::kLine && hello.tag == KESTREL_CONSOLE_GREETING) {
    isOpen_ = hello.text == KESTREL_CONSOLE_HELLO;
    if (isOpen_) return true;
    reason = "the host speaks another protocol (" + hello.text + ")";
  } else if (hello.kind == Reply::Kind::kLine && hello.tag != KESTREL_CONSOLE_ERROR) {
    reason = "this is no host's socket";
  } else {
    reason = hello.text;
  }
  return false;
}

bool Connection::Connect(const std::string &path, std::string &reason) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof addr.sun_path) {
    reason = "the path of the socket must have 1 to 107 bytes";
    return false;
  }
  std::memcpy(addr.sun_path, path.data(), path.size());
  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  SetSendTimeout(fd_, timeoutMs_);
  if (fd_ >= 0 && connect(fd_, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) == 0) {
    return true;
  }
  reason = strerror(errno);
  return false;
}

void Connection::Ask(std::string_view request) {
  BeginAnswer();
  Send(request);
}

void Connection::BeginAnswer() {
  answerBytes_ = 0;
  if (bounds_) answerEnd_ = Clock::now() + bounds_->time;
}

// PatienceMs is how long the next byte may take.
int Connection::PatienceMs() const {
  if (!bounds_) return timeoutMs_;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(answerEnd_ - Clock::now());
  return std::min(timeoutMs_, static_cast<int>(std::max<int64_t>(left.count(), 0)));
}

bool Connection::IsBeyondBounds() const {
  return bounds_ && (answerBytes_ > bounds_->bytes || Clock::now() >= answerEnd_);
}

void Connection::Send(std::string_view request) {
  std::string line(request);
  line += '\n';
  for (size_t sent = 0; sent < line.size();) {
    const ssize_t len = send(fd_, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (len < 0 && errno != EINTR) return;
    if (len > 0) sent += static_cast<size_t>(len);
  }
}

Reply Connection::Next() {
  Reply reply;
  while (!TakeLine(reply)) {
    if (!Fill(reply)) return reply;
  }
  return reply;
}

bool Connection::TakeLine(Reply &reply) {
  const size_t end = buffer_.find('\n', at_);
  if (end == buffer_.npos) {
    buffer_.erase(0, at_);
    at_ = 0;
    return false;
  }
  const std::string_view line = std::string_view(buffer_).substr(at_, end - at_);
  at_ = end + 1;
  reply.kind = Reply::Kind::kLine;
  reply.tag = line.empty() ? '\0' : line[0];
  reply.text = line.size() > 2 ? line.substr(2) : "";
  return true;
}

// Wait returns false and sets `reply` when there is nothing to wait for.
bool Connection::Wait(Reply &reply) {
  pollfd waiting[] = {{fd_, POLLIN, 0}, {bounds_ ? bounds_->endFd : -1, POLLIN, 0}};
  const int ready = WasInterrupted() ? 0 : poll(waiting, std::size(waiting), PatienceMs());
  if (WasInterrupted()) {
    reply = {Reply::Kind::kInterrupted, 0, ""};
  } else if (waiting[1].revents != 0) {
    reply = Lose("the connection is not needed any more");
  } else if (IsBeyondBounds()) {
    reply = Lose("the host does not end its answer");
  } else if (ready == 0) {
    reply = Lose("the host does not answer");
  } else {
    return true;
  }
  return false;
}

// Fill reads more; false and `reply` set when there is nothing more to read now.
bool Connection::Fill(Reply &reply) {
  if (buffer_.size() > KESTREL_CONSOLE_MAX_REPLY) {
    reply = Lose("this is no host's socket");
    return false;
  }
  if (!Wait(reply)) return false;
  char bytes[65536];
  const ssize_t len = recv(fd_, bytes, sizeof bytes, MSG_DONTWAIT);
  if (len > 0) buffer_.append(bytes, static_cast<size_t>(len));
  if (len > 0) answerBytes_ += static_cast<size_t>(len);
  if (len > 0 || (len < 0 && (errno == EINTR || errno == EAGAIN))) return true;
  reply = Lose(len == 0 ? "the host closed the connection" : SystemText("the connection failed"));
  return false;
}

}  // namespace console
