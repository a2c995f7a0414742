// demo_node.h: a process of the demo: one host, instances on it, and a loop that waits for things.
#ifndef DEMO_NODE_H
#define DEMO_NODE_H

#include <coap_svc/rpc/coap_rpc_call.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "example.h"

using DemoClock = std::chrono::steady_clock;

double SecondsSince(DemoClock::time_point start);

// Node is one instance with its own address and that of the other process.
class Node {
 public:
  // `host` outlives the node.
  Node(Kestrel *host, const char *name, std::string self, std::string other);
  ~Node();
  Node(const Node &) = delete;
  Node &operator=(const Node &) = delete;

  bool IsUp() const { return ctx_ != nullptr; }
  Kestrel *Host() const { return host_; }
  CoapRpcCtx *Ctx() const { return ctx_; }
  const std::string &Self() const { return self_; }

  // Peer describes a base request to the other process, Server a call: the system chooses from
  // where.
  CoapRpcCliAddr Peer(uint16_t port, uint32_t codeType) const {
    return ExamplePeer(self_.c_str(), other_.c_str(), port, codeType);
  }
  CoapRpcCallAddr Server(uint16_t port) const {
    CoapRpcCallAddr addr = {};
    addr.dstIp = ExampleIpv4(other_.c_str());
    addr.dstPort = port;
    return addr;
  }

 private:
  Kestrel *const host_;
  const std::string self_, other_;
  CoapRpcCtx *ctx_ = nullptr;
};

// MakeDemoHost makes a host that logs into "<folder>/<name>.log" and serves its display commands on
// the socket "<folder>/<name>.sock"; null after it said what is wrong.
Kestrel *MakeDemoHost(const std::string &name, const std::string &folder);

struct DemoHostDeleter {
  void operator()(Kestrel *host) const { KestrelDelete(host); }
};
using DemoHost = std::unique_ptr<Kestrel, DemoHostDeleter>;

// Every calls `work` again and again for the rest of the host's life.
void Every(Kestrel *host, uint32_t periodMs, std::function<void()> work);

// RunUntil turns the host's loop until `isDone` or the time is over.  Returns what `isDone` says.
bool RunUntil(Kestrel *host, double seconds, const std::function<bool()> &isDone);

#endif  // DEMO_NODE_H
