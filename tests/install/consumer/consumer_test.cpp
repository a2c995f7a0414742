// A test of an application's code, in C++.
#include <kestrel_test.h>
#include <coap_svc_rpc.hpp>

int main() {
  KestrelTest *host = KestrelTestNew();
  bool hasTimedOut = false;
  {
    coaprpc::Node node =
        coaprpc::must(coaprpc::Node::on(KestrelTestParam(host, "node"), "127.0.0.1"));
    node.call("127.0.0.9:9", "a", "", {.deadline = std::chrono::hours(1)})
        .then([&](const auto &answer) { hasTimedOut = !answer; });
    KestrelTestRunUntil(
        host, [&] { return hasTimedOut; }, 3'600'000);
  }
  return KestrelTestDelete(host) == 0 && hasTimedOut ? 0 : 1;
}
