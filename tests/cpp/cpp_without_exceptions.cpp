// Everything of the C++ interface once, compiled with -fno-exceptions and -fno-rtti.  Ends with
// status 0, or says what did not come.
#include <unistd.h>

#include <cstdio>

#include "coap_svc_rpc.hpp"

using namespace coaprpc;

namespace {

struct Port {
  Big<uint16_t> slot, index;
};
struct Stats {
  Big<uint64_t> rx, tx;
};

Task<std::string> ask(Node &node, std::string peer, std::string path) {
  const Result<Answer> answer = co_await node.call(peer, path, "hi");
  co_return answer ? answer->payload : answer.error().what();
}

Task<> askAll(Node &node, std::string peer, std::string &out) {
  for (const char *path : {"text", "nothing", "error", "later"}) {
    out += co_await ask(node, peer, path) + ";";
  }
  out += "end";
}

}  // namespace

int main() {
  const unsigned own = static_cast<unsigned>(getpid()) & 0x3FFFFF;
  const std::string peer = "127." + std::to_string(64 + (own >> 16)) + "." +
                           std::to_string(own >> 8 & 0xFF) + "." + std::to_string(own & 0xFF);
  Node node = must(Node::make({.listen = peer}));
  must(node.serve("text", [](std::string_view text) { return std::string(text) + "!"; }));
  must(node.serve("nothing", [](const Request &) {}));
  must(node.serve("error", [](const Request &) -> Result<Reply> {
    return Unexpected(Error::ofText("as it has to be"));
  }));
  Later later;
  std::string out;
  uint64_t version = 0;
  must(node.serve("later", [&](const Request &request) { return later = request.later(); }));
  const Timer timer = must(node.every(std::chrono::milliseconds(10), [&] {
    if (later.isOpen()) must(later.reply(Reply{.payload = "late"}));
    if (out.ends_with("end") && version == 1) node.stop();
  }));
  auto table = must(node.table<Port, Stats>("ports"));
  must(table.replace(std::initializer_list<std::pair<Port, Stats>>{{{1, 2}, {3, 4}}}));
  must(table.onConfirmed([](uint64_t) {}));
  const auto mirror = must(node.mirror<Port, Stats>(
      peer, "ports", {.synced = [&](uint64_t synced) { version = synced; }}));
  must(node.spawn(askAll(node, peer, out)));
  must(node.run());
  std::printf("%s\n", out.c_str());
  const bool isRight = out == "hi!;;;late;end" && mirror.find({1, 2})->tx == 4;
  return isRight && std::distance(mirror.begin(), mirror.end()) == 1 ? 0 : 1;
}
