/* coap_svc_rpc.hpp: the library for C++20: serve, call, observe, and tables that others mirror.
 *
 *   auto node = must(coaprpc::Node::make({.listen = "127.0.0.2"}));
 *   must(node.serve("hello", [](const coaprpc::Request &) { return "hello"; }));
 *   must(node.run());
 *
 * Header-only, over the C interface and its reference host; docs/cpp.md has a program for each
 * part. Everything is for one thread.  Nothing here throws but must(), and nothing that yours
 * throws in a callback leaves it: the log has what it said.  Records come from the host's pool;
 * beyond it there is only what std::string, std::vector and coroutine frames take by themselves.
 *
 * Handles (Call, Observation, Later, Table, Mirror, Timer) may outlive their Node: they are empty
 * then.  Destroying one ends what it stands for, also in a callback of its own.
 *
 * Compiles with and without exceptions and RTTI.  Result is std::expected where the standard
 * library has it, else tl::expected (Debian: libexpected-dev). */
#ifndef COAP_SVC_RPC_HPP
#define COAP_SVC_RPC_HPP

#include "coap_svc/rpc/cpp/address.hpp"
#include "coap_svc/rpc/cpp/call.hpp"
#include "coap_svc/rpc/cpp/mirror.hpp"
#include "coap_svc/rpc/cpp/node.hpp"
#include "coap_svc/rpc/cpp/result.hpp"
#include "coap_svc/rpc/cpp/serve.hpp"
#include "coap_svc/rpc/cpp/table.hpp"
#include "coap_svc/rpc/cpp/task.hpp"
#include "coap_svc/rpc/cpp/value.hpp"

#endif /* COAP_SVC_RPC_HPP */
