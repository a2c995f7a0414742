/* routes.h: what the exporter answers over HTTP. */
#ifndef KESTREL_TOOLS_EXPORTER_ROUTES_H
#define KESTREL_TOOLS_EXPORTER_ROUTES_H

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "host_poller.h"
#include "metrics.h"
#include "web_server.h"

namespace exporter {

using Hosts = std::vector<std::unique_ptr<HostPoller>>;

// Viewers of the live page; the other connections remain for scrapes.
inline constexpr size_t kMaxViewers = 24;

// Routes holds what the handlers of a server work on; it outlives the server.
//
//   /                             the live page
//   /events                       what changes, for the page
//   /metrics                      metrics of all hosts
//   /healthz                      the exporter runs; a line for each host
//   /api                          the hosts and their tables
//   /api/<object>/<command>       a table as JSON; ?host= names the host, ?argument= a parameter
class Routes {
 public:
  explicit Routes(Hosts &hosts) : hosts_(hosts) {}

  void Register(WebServer &server);

  // Stop ends the viewers' connections.
  void Stop() { isStopping_ = true; }

 private:
  using Request = httplib::Request;
  using Response = httplib::Response;

  std::vector<HostView> LookAtAll();
  void SendPage(const Request &request, Response &response);
  void SendMetrics(const Request &request, Response &response);
  void SendHealth(const Request &request, Response &response);
  void SendList(const Request &request, Response &response);
  void SendTable(const Request &request, Response &response);
  void SendEvents(const Request &request, Response &response);

  Hosts &hosts_;
  std::atomic<bool> isStopping_{false};
  std::atomic<size_t> numViewers_{0};
  LeftOut leftOut_;
};

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_ROUTES_H */
