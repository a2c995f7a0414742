/* web_server.h: HTTP with bounds.
 *
 * One request for each connection.  A connection may send kMaxRequestBytes in kRequestTime, must
 * take each piece of an answer within kWriteTime, and is the 33rd only to be told so.  Methods
 * other than GET and HEAD are refused before a body is read, and answers are whole: parts of them
 * that overlap would make a small request a large answer.
 *
 * A server that only its own machine reaches is asked by an address or by a name without dots.  A
 * page from elsewhere that has its own domain resolve to this machine is refused so. */
#ifndef KESTREL_TOOLS_EXPORTER_WEB_SERVER_H
#define KESTREL_TOOLS_EXPORTER_WEB_SERVER_H

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace exporter {

inline constexpr size_t kMaxConnections = 32;
inline constexpr size_t kMaxRequestBytes = 16384;
inline constexpr std::chrono::seconds kRequestTime{5};
inline constexpr std::chrono::seconds kWriteTime{5};

// IsLocalName tells whether a Host header, with or without a port, has an address, a name without
// dots, or one under "localhost".
bool IsLocalName(std::string_view host);

// IsLocalAddress tells whether only this machine reaches an address.
bool IsLocalAddress(std::string_view address);

class WebServer : public httplib::Server {
 public:
  // `names` are further names of a local server; it is no local one when `isLocal` is false.
  WebServer(bool isLocal, std::vector<std::string> names);

 private:
  bool process_and_close_socket(socket_t sock) override;
  void Serve(socket_t sock);
  HandlerResponse Check(const httplib::Request &request, httplib::Response &response) const;
  bool IsForUs(const std::string &host) const;

  const bool isLocal_;
  const std::vector<std::string> names_;
  std::atomic<size_t> numConnections_{0};
};

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_WEB_SERVER_H */
