#include "demo_node.h"

#include <coap_svc/rpc/coap_rpc_ext.h>
#include <poll.h>

#include <algorithm>
#include <memory>

using namespace coaprpc;

namespace {

constexpr uint32_t kLibLogWarnings = 4;
constexpr int kMaxWaitMs = 20;
constexpr uint32_t kAtOnce = 8;

struct Series {
  Node &node;
  const Address peer;
  const std::string question;
  uint32_t numLeft;
  OnText onText;
};

Task<> AskInTurn(std::shared_ptr<Series> series) {
  while (series->numLeft != 0) {
    --series->numLeft;
    const Result<Answer> got = co_await series->node.call(series->peer, "ask", series->question);
    if (!got) co_return;
    series->onText(got->payload);
  }
}

}  // namespace

double SecondsSince(DemoClock::time_point start) {
  return std::chrono::duration<double>(DemoClock::now() - start).count();
}

std::string OptionOf(int argc, char **argv, std::string_view name, const char *otherwise) {
  char **at = std::find(argv, argv + argc, name);
  return argv + argc - at > 1 ? at[1] : otherwise;
}

Node MakeDemoNode(const char *name, const std::string &address, const std::string &folder) {
  const std::string socket = folder + "/" + name + ".sock";
  Node node = must(Node::make({.name = name,
                               .listen = address,
                               .logLevel = KESTREL_LEVEL_WARN,
                               .logsLibrary = true,
                               .console = socket.c_str()}));
  COAP_RpcSetLibLogLevel(node.ctx(), kLibLogWarnings);
  return node;
}

bool RunUntil(Node &node, double seconds, const std::function<bool()> &isDone) {
  const auto start = DemoClock::now();
  while (!isDone()) {
    if (SecondsSince(start) > seconds) return false;
    const int dueMs = node.pollTimeoutMs();
    pollfd waiting = {node.pollFd(), POLLIN, 0};
    poll(&waiting, 1, dueMs < 0 ? kMaxWaitMs : std::min(dueMs, kMaxWaitMs));
    if (!node.turn()) return false;
  }
  return true;
}

void AskMany(Node &node, const Address &peer, const std::string &question, uint32_t num,
             OnText onText) {
  const std::shared_ptr<Series> series(new Series{node, peer, question, num, std::move(onText)});
  for (uint32_t i = 0; i < kAtOnce; ++i) must(node.spawn(AskInTurn(series)));
}
