/* web_server.h: HTTP with bounds.
 *
 * One request for each connection.  A connection may send kMaxRequestBytes in kRequestTime, must
 * take each piece of an answer within kWriteTime, and is the 33rd only to be told so.  Methods
 * other than GET and HEAD are refused before a body is read. */
#ifndef KESTREL_TOOLS_EXPORTER_WEB_SERVER_H
#define KESTREL_TOOLS_EXPORTER_WEB_SERVER_H

#include <httplib.h>

#include <atomic>
#include <chrono>

namespace exporter {

inline constexpr size_t kMaxConnections = 32;
inline constexpr size_t kMaxRequestBytes = 16384;
inline constexpr std::chrono::seconds kRequestTime{5};
inline constexpr std::chrono::seconds kWriteTime{5};

class WebServer : public httplib::Server {
 public:
  WebServer();

 private:
  bool process_and_close_socket(socket_t sock) override;
  void Serve(socket_t sock);

  std::atomic<size_t> numConnections_{0};
};

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_WEB_SERVER_H */
