// The C++ interface is C++20, and needs nothing that the package does not bring along.
#include <coap_svc_rpc.hpp>

int main() {
  coaprpc::Node node = coaprpc::must(coaprpc::Node::make());
  return node.serve("a", [](std::string_view text) { return text; }) && node.turn() ? 0 : 1;
}
