/* coap_rpc_probe.h: static probes for tracers (docs/counters.md).
 *
 * A probe is one instruction that does nothing until a tracer asks for it.  They are there when
 * <sys/sdt.h> was found at build. */
#ifndef COAP_RPC_PROBE_H
#define COAP_RPC_PROBE_H

#ifdef COAP_RPC_PROBES
#include <sys/sdt.h>
#define COAP_RPC_PROBE2(name, a, b) DTRACE_PROBE2(coap_svc_rpc, name, a, b)
#define COAP_RPC_PROBE3(name, a, b, c) DTRACE_PROBE3(coap_svc_rpc, name, a, b, c)
#define COAP_RPC_PROBE4(name, a, b, c, d) DTRACE_PROBE4(coap_svc_rpc, name, a, b, c, d)
#else
#define COAP_RPC_PROBE2(name, a, b) ((void)(a), (void)(b))
#define COAP_RPC_PROBE3(name, a, b, c) ((void)(a), (void)(b), (void)(c))
#define COAP_RPC_PROBE4(name, a, b, c, d) ((void)(a), (void)(b), (void)(c), (void)(d))
#endif

#endif /* COAP_RPC_PROBE_H */
