/* example.h: what every example does the same way: start a host with an instance, name keys and
 * addresses, run, take down.
 *
 * The examples talk over the loopback.  Servers stand on 127.0.0.2, clients on 127.0.0.1, which is
 * where a socket that is not bound sends from.  With EXAMPLE_LOG set in the environment the
 * library's log goes to the standard error; with EXAMPLE_CONSOLE an operator's console reaches the
 * instance at that path. */
#ifndef EXAMPLE_H
#define EXAMPLE_H

#include <coap_svc/rpc/coap_rpc.h>
#include <coap_svc/rpc/coap_rpc_cli.h>
#include <coap_svc/rpc/coap_rpc_ser.h>
#include <kestrel.h>

#ifdef __cplusplus
extern "C" {
#endif

#define EXAMPLE_SERVER "127.0.0.2"
#define EXAMPLE_CLIENT "127.0.0.1"

/* Answers to asynchronous calls always go to this port of the asker. */
enum { EXAMPLE_PORT = 5683 };

/* Example is one host with one instance on it. */
typedef struct Example {
  Kestrel *host;
  CoapRpcCtx *ctx;
  uint64_t numMessages; /* that have come, and for how many seconds none has */
  uint32_t idleSeconds;
} Example;

/* ExampleStart makes both; SIGINT and SIGTERM then end ExampleRun.  Returns 0, or 1 after it has
 * said on the standard error what is wrong. */
int ExampleStart(Example *example, const char *name);

/* ExamplePatience is how many seconds an example waits for somebody: 60, or the number in
 * EXAMPLE_PATIENCE. */
uint32_t ExamplePatience(void);

/* ExampleRun runs the host's loop until KestrelStop, a signal, or for `seconds`; with 0 until no
 * message has come for ExamplePatience, and says so.  Call it once. */
void ExampleRun(Example *example, uint32_t seconds);

/* ExampleEnd deletes both.  Returns 0, or 1 when memory was not freed. */
int ExampleEnd(Example *example);

/* ExampleKey is a key of message type CON. */
CoapRpcUriKey ExampleKey(const char *uri, uint32_t observe, uint32_t pktType);

/* ExampleIpv4 reads a dotted quad; the address is zero if it is invalid. */
CoapRpcIpAddr ExampleIpv4(const char *text);

/* ExamplePeer describes a call from one address to another. */
CoapRpcCliAddr ExamplePeer(const char *from, const char *to, uint16_t port, uint32_t codeType);

/* ExampleServe registers a handler table and attaches it to an address.  `obReg` may be null.
 * Returns 0, or 1 after it has said what is wrong. */
int ExampleServe(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const CoapRpcSerVtblReg *reg,
                 const CoapRpcSerObVtblReg *obReg, const char *address, uint16_t port);

/* ExampleAttach attaches what is registered for a key.  Returns as ExampleServe. */
int ExampleAttach(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const char *address, uint16_t port);

/* ExampleTakeAnswers makes answers to asynchronous calls of `uri` arrive: they come as POST
 * requests to our own address and are handed to the client table of the same URI.
 * Returns as ExampleServe. */
int ExampleTakeAnswers(CoapRpcCtx *ctx, const char *uri, const char *address);

/* ExampleNumber looks for an option with a number among the arguments; `otherwise` without it. */
uint32_t ExampleNumber(int argc, char **argv, const char *name, uint32_t otherwise);

/* ExampleOption looks for an option with a text; `otherwise` without it. */
const char *ExampleOption(int argc, char **argv, const char *name, const char *otherwise);

#ifdef __cplusplus
}
#endif
#endif /* EXAMPLE_H */
