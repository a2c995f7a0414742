/* routes.cpp: what the exporter answers over HTTP. */
#include "routes.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "json.h"
#include "metrics.h"
#include "page.h"
#include "viewer.h"
#include "words.h"

namespace exporter {

namespace {

using console::JsonText;

// The page has its script and style in itself, and may talk to nobody but the exporter.
constexpr char kPolicy[] =
    "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
    "connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors "
    "'none'";

constexpr char kOpenMetrics[] = "application/openmetrics-text; version=1.0.0; charset=utf-8";
constexpr char kTextFormat[] = "text/plain; version=0.0.4; charset=utf-8";

// ViewDeadline is when an answer is sent with what is known by then, of all hosts together.
HostPoller::Clock::time_point ViewDeadline() {
  constexpr std::chrono::seconds kPatience{6};
  return HostPoller::Clock::now() + kPatience;
}

// NextPart takes what stands before a separator off a text.
std::string_view NextPart(std::string_view &text, char separator) {
  const size_t end = std::min(text.find(separator), text.size());
  const std::string_view part = console::Trimmed(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

// QualityOf is how much a client likes a type, from 0 to 1; 0 if it does not name it.
double QualityOf(std::string_view accept, std::string_view type) {
  while (!accept.empty()) {
    std::string_view range = NextPart(accept, ',');
    if (console::Lower(NextPart(range, ';')) != type) continue;
    while (!range.empty()) {
      const std::string param = console::Lower(NextPart(range, ';'));
      if (param.starts_with("q=")) return std::strtod(param.c_str() + 2, nullptr);
    }
    return 1;
  }
  return 0;
}

bool WantsOpenMetrics(const httplib::Request &request) {
  const std::string accept = request.get_header_value("Accept");
  const double open = QualityOf(accept, "application/openmetrics-text");
  return open > 0 && open >= QualityOf(accept, "text/plain");
}

void Refuse(httplib::Response &response, int status, const std::string &reason) {
  response.status = status;
  response.set_content(reason + "\n", "text/plain; charset=utf-8");
}

std::string ListJson(const std::vector<HostView> &hosts) {
  std::string json = "[";
  for (const HostView &host : hosts) {
    json += json.size() > 1 ? ",\n" : "";
    json += "{\"host\": " + JsonText(host.name) + ", \"isUp\": " + (host.isUp ? "true" : "false") +
            ", \"tables\": [";
    bool isFirst = true;
    for (const auto &[id, table] : host.tables) {
      json += std::string(isFirst ? "" : ", ") + "{\"object\": " + JsonText(id.object) +
              ", \"command\": " + JsonText(id.command) +
              ", \"argument\": " + JsonText(id.argument) + "}";
      isFirst = false;
    }
    json += "]}";
  }
  return json + "]\n";
}

// CountedViewer is one of at most kMaxViewers.
class CountedViewer {
 public:
  explicit CountedViewer(std::atomic<size_t> &count)
      : count_(count), isWelcome_(++count <= kMaxViewers) {}
  ~CountedViewer() { --count_; }
  CountedViewer(const CountedViewer &) = delete;
  CountedViewer &operator=(const CountedViewer &) = delete;

  bool IsWelcome() const { return isWelcome_; }
  Viewer &Get() { return viewer_; }

 private:
  std::atomic<size_t> &count_;
  bool isWelcome_;
  Viewer viewer_;
};

}  // namespace

void Routes::Register(WebServer &server) {
  const auto at = [&](const char *path, void (Routes::*send)(const Request &, Response &)) {
    server.Get(path, [this, send](const Request &request, Response &response) {
      (this->*send)(request, response);
    });
  };
  server.set_default_headers(
      {{"X-Content-Type-Options", "nosniff"}, {"Cache-Control", "no-store"}});
  at("/", &Routes::SendPage);
  at("/events", &Routes::SendEvents);
  at("/metrics", &Routes::SendMetrics);
  at("/healthz", &Routes::SendHealth);
  at("/api", &Routes::SendList);
  at("/api/([^/]+)/([^/]+)", &Routes::SendTable);
}

std::vector<HostView> Routes::LookAtAll() {
  for (const auto &host : hosts_) host->Glance();  // all begin their rounds at the same time
  const auto deadline = ViewDeadline();
  std::vector<HostView> views;
  for (const auto &host : hosts_) views.push_back(host->Look(deadline));
  return views;
}

void Routes::SendPage(const Request &, Response &response) {
  response.set_header("Content-Security-Policy", kPolicy);
  response.set_content(PageText(LookAtAll()), "text/html; charset=utf-8");
}

void Routes::SendMetrics(const Request &request, Response &response) {
  const bool isOpen = WantsOpenMetrics(request);
  response.set_content(MetricsText(LookAtAll(), isOpen, leftOut_),
                       isOpen ? kOpenMetrics : kTextFormat);
}

void Routes::SendHealth(const Request &, Response &response) {
  std::string text = "ok\n";
  for (const auto &host : hosts_) {
    const HostView view = host->Glance();
    text += console::JsonText(view.name) + (view.isUp ? " up\n" : " away\n");
  }
  response.set_content(text, "text/plain; charset=utf-8");
}

void Routes::SendList(const Request &, Response &response) {
  response.set_content(ListJson(LookAtAll()), "application/json");
}

void Routes::SendTable(const Request &request, Response &response) {
  const TableId id{request.matches[1], request.matches[2], request.get_param_value("argument")};
  const std::string wanted = request.get_param_value("host");
  for (const std::string *text : {&id.object, &id.command, &id.argument}) {
    if (text->find_first_of(std::string_view("\"\n\r\0", 4)) == text->npos && text->size() <= 1024)
      continue;
    return Refuse(response, 400, "a name has characters that no command has");
  }
  const auto deadline = ViewDeadline();
  size_t numAway = 0;
  size_t numAsked = 0;
  for (const auto &host : hosts_) {
    if (!wanted.empty() && host->Name() != wanted) continue;
    const HostView view =
        host->Look(deadline, id.argument.empty() ? std::nullopt : std::optional(id));
    const auto found = view.tables.find(id);
    if (found != view.tables.end()) {
      return response.set_content(RowsJson(*found->second), "application/json");
    }
    ++numAsked;
    if (!view.isUp) ++numAway;
  }
  const bool isAway = numAway > 0 && numAway == numAsked;
  isAway ? Refuse(response, 503, "the host is away") : Refuse(response, 404, "no such table");
}

void Routes::SendEvents(const Request &, Response &response) {
  const auto viewer = std::make_shared<CountedViewer>(numViewers_);
  if (!viewer->IsWelcome()) return Refuse(response, 503, "too many viewers");
  response.set_chunked_content_provider("text/event-stream",
                                        [this, viewer](size_t, httplib::DataSink &sink) {
                                          constexpr auto kPeriod = std::chrono::milliseconds(250);
                                          std::string events;
                                          for (const auto &host : hosts_)
                                            events += viewer->Get().Next(host->Glance());
                                          if (isStopping_) return false;
                                          if (events.empty()) {
                                            std::this_thread::sleep_for(kPeriod);
                                            return sink.is_writable();
                                          }
                                          return sink.write(events.data(), events.size());
                                        });
}

}  // namespace exporter
