/* main.cpp: the exporter, which shows what consoles can see of running hosts over HTTP. */
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <thread>

#include "routes.h"

namespace {

struct Options {
  std::vector<std::string> sockets;
  std::string address = "127.0.0.1";
  int port = 9477;
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
  app.set_version_flag("--version", "kestrel-exporter " COAP_RPC_VERSION);
}

exporter::Hosts HostsOf(const std::vector<std::string> &sockets) {
  exporter::Hosts hosts;
  for (const std::string &socket : sockets) {
    const size_t at = socket.find('=');
    const std::string path = at != socket.npos ? socket.substr(at + 1) : socket;
    hosts.push_back(std::make_unique<exporter::HostPoller>(
        at != socket.npos ? socket.substr(0, at) : socket, path));
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
  exporter::WebServer server;
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
  return Serve(options);
}
