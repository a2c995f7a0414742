/* main.cpp: the exporter, which shows what consoles can see of running hosts over HTTP. */
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <set>
#include <thread>

#include "escape.h"
#include "routes.h"

namespace {

struct Options {
  std::vector<std::string> sockets;
  std::string address = "127.0.0.1";
  int port = 9477;
  std::vector<std::string> names;
};

enum ExitCode { kOk = 0, kUsage = 2, kNoPort = 3 };

constexpr size_t kMaxHosts = 64;

void Describe(CLI::App &app, Options &options) {
  app.add_option("socket", options.sockets,
                 "sockets of hosts; NAME=PATH gives a host another name than its path")
      ->type_name("[NAME=]PATH")
      ->required()
      ->expected(1, kMaxHosts);
  app.add_option("--address", options.address, "address to listen at (default 127.0.0.1)");
  app.add_option("--port", options.port, "port to listen at (default 9477; 0: a free one)")
      ->check(CLI::Range(0, 65535));
  app.add_option("--name", options.names,
                 "a name with dots by which a local server may be asked, besides its address")
      ->type_name("NAME")
      ->expected(1)
      ->take_all();
  app.set_version_flag("--version", "kestrel-exporter " COAP_RPC_VERSION);
}

// NameAndPath takes "[NAME=]PATH" apart.
std::pair<std::string, std::string> NameAndPath(const std::string &socket) {
  const size_t at = socket.find('=');
  if (at == socket.npos) return {socket, socket};
  return {socket.substr(0, at), socket.substr(at + 1)};
}

// HaveOwnNames complains about a host whose name another one has: their tables would be mixed.
bool HaveOwnNames(const std::vector<std::string> &sockets) {
  std::set<std::string> names;
  for (const std::string &socket : sockets) {
    const auto [name, path] = NameAndPath(socket);
    const char *problem = name.empty() || path.empty() ? "a host needs a name and a path"
                          : !names.insert(name).second ? "two hosts have the same name"
                                                       : nullptr;
    if (!problem) continue;
    std::fprintf(stderr, "kestrel-exporter: %s: %s\n", console::Escaped(socket).c_str(), problem);
    return false;
  }
  return true;
}

exporter::Hosts HostsOf(const std::vector<std::string> &sockets) {
  exporter::Hosts hosts;
  for (const std::string &socket : sockets) {
    const auto [name, path] = NameAndPath(socket);
    hosts.push_back(std::make_unique<exporter::HostPoller>(name, path));
  }
  return hosts;
}

sigset_t StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

int Listen(exporter::WebServer &server, const Options &options) {
  if (options.port == 0) return server.bind_to_any_port(options.address);
  return server.bind_to_port(options.address, options.port) ? options.port : -1;
}

int Serve(const Options &options) {
  // Blocked before there are threads, so that only the last line of this function takes them.
  const sigset_t signals = StopSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  exporter::Hosts hosts = HostsOf(options.sockets);
  exporter::Routes routes(hosts);
  exporter::WebServer server(exporter::IsLocalAddress(options.address), options.names);
  routes.Register(server);
  const int port = Listen(server, options);
  if (port < 0) {
    std::fprintf(stderr, "kestrel-exporter: cannot listen at %s port %d\n", options.address.c_str(),
                 options.port);
    return kNoPort;
  }
  std::printf("listening at http://%s:%d/\n", options.address.c_str(), port);
  std::fflush(stdout);
  std::thread listener([&] { server.listen_after_bind(); });
  int signal = 0;
  sigwait(&signals, &signal);
  routes.Stop();
  server.stop();
  listener.join();
  return kOk;
}

}  // namespace

int main(int argc, char **argv) {
  Options options;
  CLI::App app(
      "kestrel-exporter shows the tables of running hosts over HTTP: metrics, JSON, a live page.",
      "kestrel-exporter");
  Describe(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? kOk : kUsage;
  }
  return HaveOwnNames(options.sockets) ? Serve(options) : static_cast<int>(kUsage);
}
