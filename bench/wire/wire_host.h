/* wire_host.h: the loop that every measured program runs on, and how an instance and a bare libcoap
 * context are driven by it: both watch one descriptor and serve what waits, up to 10 ms long. */
#ifndef BENCH_WIRE_WIRE_HOST_H
#define BENCH_WIRE_WIRE_HOST_H

#include <coap3/coap.h>

#include <cstdint>

#include "coap_svc/rpc/coap_rpc.h"
#include "kestrel.h"
#include "options.h"

namespace coap_rpc_bench {

// Logging says how much of it there is: none at all, with libcoap's level lowered; as the library
// starts with, to a log that takes information and above and prints nothing; and that with the
// host's debug channel.
enum class Logging { kNone, kDefault, kDebug };

// LoggingOf reads --logging none|default|debug.
Logging LoggingOf(const Options &options);

// WireHost is a host that ends with SIGTERM, and one instance or context on it.
class WireHost {
 public:
  explicit WireHost(Logging logging);
  ~WireHost();
  WireHost(const WireHost &) = delete;
  WireHost &operator=(const WireHost &) = delete;

  Kestrel *Get() const { return host_; }

  // NewInstance makes the instance and lets the loop drive it.
  CoapRpcCtx *NewInstance();

  // NewContext makes a libcoap context, set up as an instance sets up its own.
  coap_context_t *NewContext();

  // Run says "ready" on the standard output and runs until SIGTERM or Stop.
  void Run();
  void Stop();

  // RunPlain runs the context of NewContext in a loop of coap_io_process, as libcoap's own programs
  // do: each call reads a datagram of each socket that has one.
  void RunPlain();

 private:
  Logging logging_;
  Kestrel *host_;
  CoapRpcCtx *instance_ = nullptr;
  coap_context_t *context_ = nullptr;
};

// NewEndPoint opens an endpoint of a bare context the way an instance does.
coap_endpoint_t *NewEndPoint(coap_context_t *context, uint32_t ipv4, uint16_t port);

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_WIRE_HOST_H */
