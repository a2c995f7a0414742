/* web_server.cpp: HTTP with bounds. */
#include "web_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace exporter {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kTooMany[] =
    "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 21\r\nRetry-After: 1\r\n"
    "Connection: close\r\n\r\ntoo many connections\n";

// WaitFor waits until a deadline for a socket to be ready.
bool WaitFor(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd waiting{fd, events, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(left));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

// BoundedStream is a connection that can hold up its thread only for so long.
class BoundedStream : public httplib::Stream {
 public:
  explicit BoundedStream(int fd) : fd_(fd) {}

  bool is_readable() const override { return numRead_ < kMaxRequestBytes; }
  bool is_writable() const override {
    char byte = 0;
    const ssize_t len = recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return len > 0 || (len < 0 && (errno == EAGAIN || errno == EINTR));
  }

  ssize_t read(char *bytes, size_t size) override {
    size = std::min(size, kMaxRequestBytes - numRead_);
    if (size == 0 || !WaitFor(fd_, POLLIN, begin_ + kRequestTime)) return -1;
    const ssize_t len = recv(fd_, bytes, size, 0);
    if (len > 0) numRead_ += static_cast<size_t>(len);
    return len;
  }

  ssize_t write(const char *bytes, size_t size) override {
    const auto deadline = Clock::now() + kWriteTime;
    size_t sent = 0;
    while (sent < size) {
      if (!WaitFor(fd_, POLLOUT, deadline)) return -1;
      const ssize_t len = send(fd_, bytes + sent, size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (len < 0 && errno != EAGAIN && errno != EINTR) return -1;
      if (len > 0) sent += static_cast<size_t>(len);
    }
    return static_cast<ssize_t>(size);
  }

  // Nobody is told apart by their address.
  void get_remote_ip_and_port(std::string &, int &) const override {}
  void get_local_ip_and_port(std::string &, int &) const override {}
  socket_t socket() const override { return fd_; }

 private:
  int fd_;
  size_t numRead_ = 0;
  const Clock::time_point begin_ = Clock::now();
};

// CloseGently lets a peer read the answer although we did not read all of its request.
void CloseGently(int fd) {
  constexpr int kMaxReads = 64;
  shutdown(fd, SHUT_WR);
  char bytes[4096];
  const auto deadline = Clock::now() + std::chrono::milliseconds(200);
  for (int i = 0; i < kMaxReads && WaitFor(fd, POLLIN, deadline); ++i) {
    if (recv(fd, bytes, sizeof bytes, MSG_DONTWAIT) <= 0) break;
  }
  close(fd);
}

// SetReuse allows a port whose last connections have just ended.  Unlike the default it does not
// allow one that another server listens at, with which it would share the connections.
void SetReuse(socket_t sock) {
  const int on = 1;
  setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

std::string_view WithoutPort(std::string_view host) {
  const size_t at = host.rfind(':');
  return host.substr(0, at != host.npos && host.find(']', at) == host.npos ? at : host.size());
}

}  // namespace

bool IsLocalName(std::string_view host) {
  const std::string_view name = WithoutPort(host);
  const bool isAddress = (name.starts_with('[') && name.ends_with(']')) ||
                         name.find_first_not_of("0123456789.") == name.npos;
  return isAddress || name.find('.') == name.npos || name.ends_with(".localhost");
}

bool IsLocalAddress(std::string_view address) {
  return address == "localhost" || address == "::1" || address.starts_with("127.");
}

// One thread more than connections: it tells those who come in vain.
WebServer::WebServer(bool isLocal, std::vector<std::string> names)
    : isLocal_(isLocal), names_(std::move(names)) {
  set_socket_options(SetReuse);
  new_task_queue = [] { return new httplib::ThreadPool(kMaxConnections + 1); };
  set_pre_routing_handler([this](const httplib::Request &request, httplib::Response &response) {
    return Check(request, response);
  });
}

bool WebServer::IsForUs(const std::string &host) const {
  const bool isNamed = std::find(names_.begin(), names_.end(), WithoutPort(host)) != names_.end();
  return !isLocal_ || isNamed || IsLocalName(host);
}

WebServer::HandlerResponse WebServer::Check(const httplib::Request &request,
                                            httplib::Response &response) const {
  if (request.method != "GET" && request.method != "HEAD") {
    response.status = 405;
    response.set_header("Allow", "GET, HEAD");
    response.set_content("read-only\n", "text/plain");
    return HandlerResponse::Handled;
  }
  if (IsForUs(request.get_header_value("Host"))) return HandlerResponse::Unhandled;
  response.status = 421;
  response.set_content("not a name of this server; see --name\n", "text/plain");
  return HandlerResponse::Handled;
}

bool WebServer::process_and_close_socket(socket_t sock) {
  if (++numConnections_ <= kMaxConnections) {
    Serve(sock);
    CloseGently(sock);
  } else {
    send(sock, kTooMany, sizeof kTooMany - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    shutdown(sock, SHUT_WR);
    close(sock);
  }
  --numConnections_;
  return true;
}

void WebServer::Serve(socket_t sock) {
  BoundedStream stream(sock);
  bool isClosed = false;
  process_request(stream, true, isClosed, [](httplib::Request &request) {
    request.ranges.clear();
    request.headers.erase("Range");
  });
}

}  // namespace exporter
