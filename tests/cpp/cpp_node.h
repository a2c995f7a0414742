/* cpp_node.h: nodes of the C++ interface on a host under test control, and a peer that asks them.
 */
#ifndef CPP_NODE_H
#define CPP_NODE_H

#include <memory>
#include <string>
#include <vector>

#include "coap_svc_rpc.hpp"
#include "wire_server.h"

namespace coap_rpc_test {

using coaprpc::Answer;
using coaprpc::Call;
using coaprpc::CallParam;
using coaprpc::Later;
using coaprpc::must;
using coaprpc::Node;
using coaprpc::Observation;
using coaprpc::Reply;
using coaprpc::Result;
using coaprpc::ServeParam;
using coaprpc::Table;
using coaprpc::Task;
using coaprpc::Timer;
using std::chrono::milliseconds;
using Asked = coaprpc::Request;

// Moves tells of each function object that is destroyed without having been moved from.
class Witness {
 public:
  explicit Witness(int &numEnds) : numEnds_(&numEnds) {}
  Witness(Witness &&other) noexcept : numEnds_(std::exchange(other.numEnds_, nullptr)) {}
  Witness &operator=(Witness &&) = delete;
  ~Witness() {
    if (numEnds_) ++*numEnds_;
  }

 private:
  int *numEnds_;
};

class CppNode : public testing::Test {
 protected:
  CppNode() : node_(NewNode(kInstanceName, Role::kServer)) {
    COAP_RpcRefreshTaskTimer(node_->ctx());
    peer_.SetRemote({Server(), kCoapPort});
  }

  static std::string Server() { return OwnHost(Role::kServer); }

  std::unique_ptr<Node> NewNode(const char *name, Role role) {
    CoapRpcInitParam param = ParamOf(host_);
    param.name = name;
    return std::make_unique<Node>(must(Node::on(param, OwnHost(role))));
  }

  // Caller is a second node, which asks the first.
  Node &Caller() {
    if (!caller_) caller_ = NewNode("caller", Role::kPeer);
    return *caller_;
  }

  std::function<void()> Pump() {
    return [this] { host_.AdvanceMs(kTickMs); };
  }

  // Until lets time pass until a condition holds, for up to 20 s of the hosts.
  template <typename IsTrue>
  bool Until(IsTrue isTrue) {
    for (int i = 0; i < 200 && !isTrue(); ++i) host_.AdvanceMs(kTickMs);
    return isTrue();
  }

  CoapMessage Post(const std::string &path, const std::string &payload = "") {
    return Message(kCodePost, path, payload);
  }
  CoapMessage Get(const std::string &path) { return Message(kCodeGet, path); }
  CoapMessage Message(uint8_t method, const std::string &path, const std::string &payload = "") {
    return Request(CoapType::kCon, method, ++mid_, {0xAB}).AddPath(path).PayloadText(payload);
  }

  std::optional<CoapMessage> Next() { return peer_.ReceiveMessage(Pump()); }
  CoapMessage Ask(const CoapMessage &message) {
    peer_.Send(message);
    const std::optional<CoapMessage> answer = Next();
    EXPECT_TRUE(answer) << peer_.LogText();
    return answer ? *answer : CoapMessage();
  }

  // What was logged for what the application's code did.
  std::vector<std::string> Complaints() {
    std::vector<std::string> texts;
    for (const LogRecord &record : host_.LogsOf("coaprpc")) texts.push_back(record.text);
    return texts;
  }

  TestHost host_;
  std::unique_ptr<Node> node_, caller_;
  RawPeer peer_;
  uint16_t mid_ = 0x1000;
};

}  // namespace coap_rpc_test

#endif /* CPP_NODE_H */
