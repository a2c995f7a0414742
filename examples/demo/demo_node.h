// demo_node.h: a process of the demo: a node with an operator's console, and a loop that waits.
#ifndef DEMO_NODE_H
#define DEMO_NODE_H

#include <chrono>
#include <coap_svc_rpc.hpp>
#include <functional>
#include <string>

using DemoClock = std::chrono::steady_clock;

double SecondsSince(DemoClock::time_point start);

// OptionOf looks for an option among the arguments.
std::string OptionOf(int argc, char **argv, std::string_view name, const char *otherwise);

// MakeDemoNode makes a node at an address that also serves its display commands on the socket
// "<folder>/<name>.sock".  It logs warnings, the library's too, to the standard error.
coaprpc::Node MakeDemoNode(const char *name, const std::string &address, const std::string &folder);

// RunUntil turns the node's loop until `isDone` or the time is over.  Returns what `isDone` says.
bool RunUntil(coaprpc::Node &node, double seconds, const std::function<bool()> &isDone);

// AskMany asks one question many times, a few at once, and hands out each answer with data.
using OnText = std::function<void(const std::string &text)>;
void AskMany(coaprpc::Node &node, const coaprpc::Address &peer, const std::string &question,
             uint32_t num, OnText onText);

#endif  // DEMO_NODE_H
