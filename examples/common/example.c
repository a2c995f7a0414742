#include "example.h"

#include <arpa/inet.h>
#include <coap_svc/rpc/coap_rpc_ext.h>
#include <coap_svc/rpc/coap_rpc_stats.h>
#include <kst_tmr.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static Kestrel *g_running; /* for the signal handler */

static void StopOnSignal(int number) {
  (void)number;
  KestrelStop(g_running); /* NOLINT(bugprone-signal-handler): its contract allows it */
}

static CoapRpcCtx *MakeInstance(Kestrel *host, const char *name) {
  CoapRpcInitParam param = {0};
  param.name = name;
  param.logEnable = 1;
  param.memHandle = KestrelMem(host);
  param.dispHandle = KestrelDisp(host);
  param.logHandle = KestrelLog(host);
  param.tmrHandle = KestrelTmr(host);
  /* Takes 100 texts a second (KestrelParam.debugBurst).  With a log or a channel that takes every
   * line, COAP_RpcSetLibLogLevel(ctx, 4) leaves libcoap's warnings once the rest is not needed. */
  param.dbgHandle = KestrelDbg(host);
  return COAP_RpcInit(&param);
}

/* Without this the instance would look for datagrams only once in its I/O period. */
static void OnReadable(void *param, int fd) {
  (void)fd;
  COAP_RpcProcIo((CoapRpcCtx *)param);
}

static void OpenConsole(Kestrel *host, const char *name) {
  KestrelDispAccess access = {0};
  access.path = getenv("EXAMPLE_CONSOLE");
  if (!access.path) return;
  const uint32_t result = KestrelDispListen(host, &access);
  if (result != KESTREL_OK)
    fprintf(stderr, "%s: no console: %s\n", name, KestrelResultText(result));
}

int ExampleStart(Example *example, const char *name) {
  KestrelParam param = {0};
  char error[256] = "";
  example->numMessages = 0;
  example->idleSeconds = 0;
  param.name = name;
  param.logSinks = getenv("EXAMPLE_LOG") ? KESTREL_SINK_STDERR : KESTREL_SINK_NONE;
  example->host = KestrelNew(&param, error, sizeof(error));
  if (!example->host) {
    fprintf(stderr, "%s: no host: %s\n", name, error);
    return 1;
  }
  example->ctx = MakeInstance(example->host, name);
  if (!example->ctx) {
    fprintf(stderr, "%s: the instance did not start, see the log\n", name);
    KestrelDelete(example->host);
    return 1;
  }
  KestrelWatch(example->host, COAP_RpcGetIoFd(example->ctx), OnReadable, example->ctx);
  OpenConsole(example->host, name);
  g_running = example->host;
  signal(SIGINT, StopOnSignal);
  signal(SIGTERM, StopOnSignal);
  return 0;
}

static uint32_t StopOnTick(void *param) { return KestrelStop((Kestrel *)param); }

uint32_t ExamplePatience(void) {
  const char *seconds = getenv("EXAMPLE_PATIENCE");
  return seconds ? (uint32_t)strtoul(seconds, NULL, 10) : 60;
}

static uint32_t StopWhenIdle(void *param) {
  Example *example = param;
  CoapRpcStats stats;
  COAP_RpcGetStats(example->ctx, &stats);
  const int isIdle = stats.in.messages == example->numMessages;
  example->numMessages = stats.in.messages;
  example->idleSeconds = isIdle ? example->idleSeconds + 1 : 0;
  if (example->idleSeconds < ExamplePatience()) return 0;
  printf("no message has come for %u s\n", example->idleSeconds);
  return KestrelStop(example->host);
}

void ExampleRun(Example *example, uint32_t seconds) {
  const uint64_t timers = KestrelTmr(example->host);
  if (seconds != 0) {
    KST_TmrStartLoop(timers, StopOnTick, seconds * 1000, example->host);
  } else {
    KST_TmrStartLoop(timers, StopWhenIdle, 1000, example);
  }
  KestrelRun(example->host);
}

int ExampleEnd(Example *example) {
  signal(SIGINT, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  KestrelUnwatch(example->host, COAP_RpcGetIoFd(example->ctx));
  COAP_RpcUninit(example->ctx);
  return KestrelDelete(example->host) == 0 ? 0 : 1;
}

CoapRpcUriKey ExampleKey(const char *uri, uint32_t observe, uint32_t pktType) {
  CoapRpcUriKey key;
  memset(&key, 0, sizeof(key)); /* all 64 bytes of the path count */
  snprintf(key.uri, sizeof(key.uri), "%s", uri);
  key.msgType = COAP_RPC_CON;
  key.observe = observe;
  key.pktType = pktType;
  return key;
}

CoapRpcIpAddr ExampleIpv4(const char *text) {
  CoapRpcIpAddr addr;
  struct in_addr parsed;
  memset(&addr, 0, sizeof(addr));
  addr.family = COAP_RPC_IPV4;
  if (inet_pton(AF_INET, text, &parsed) == 1) addr.addr.ipv4 = ntohl(parsed.s_addr);
  return addr;
}

CoapRpcCliAddr ExamplePeer(const char *from, const char *to, uint16_t port, uint32_t codeType) {
  CoapRpcCliAddr addr;
  memset(&addr, 0, sizeof(addr));
  addr.srcIp = ExampleIpv4(from);
  addr.dstIp = ExampleIpv4(to);
  addr.dstPort = port;
  addr.codeType = codeType;
  return addr;
}

static int CannotServe(const CoapRpcUriKey *key, const char *address, uint16_t port, uint32_t ret) {
  fprintf(stderr, "cannot serve %s on %s:%u: %s\n", key->uri, address, port, COAP_RpcErrStr(ret));
  return 1;
}

int ExampleAttach(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const char *address, uint16_t port) {
  CoapRpcSerListenAddr listen;
  memset(&listen, 0, sizeof(listen));
  listen.listenAddr = ExampleIpv4(address);
  listen.port = port;
  const uint32_t ret = COAP_RpcSerSetUri(ctx, key, &listen);
  return ret == 0 ? 0 : CannotServe(key, address, port, ret);
}

int ExampleServe(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const CoapRpcSerVtblReg *reg,
                 const CoapRpcSerObVtblReg *obReg, const char *address, uint16_t port) {
  const uint32_t ret = COAP_RpcSerRegVtbl(ctx, key, reg, obReg);
  return ret == 0 ? ExampleAttach(ctx, key, address, port) : CannotServe(key, address, port, ret);
}

int ExampleTakeAnswers(CoapRpcCtx *ctx, const char *uri, const char *address) {
  /* POST requests only reach registrations that are bound to their address, hence UNICAST. */
  const CoapRpcUriKey key = ExampleKey(uri, 0, COAP_RPC_UNICAST);
  CoapRpcSerVtblReg reg;
  memset(&reg, 0, sizeof(reg));
  reg.payloadFormat = COAP_RPC_JSON;
  reg.mode = 1; /* asynchronous: a POST is then the answer to a call of ours */
  return ExampleServe(ctx, &key, &reg, NULL, address, EXAMPLE_PORT);
}

const char *ExampleOption(int argc, char **argv, const char *name, const char *otherwise) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (strcmp(argv[i], name) == 0) return argv[i + 1];
  }
  return otherwise;
}

uint32_t ExampleNumber(int argc, char **argv, const char *name, uint32_t otherwise) {
  const char *text = ExampleOption(argc, argv, name, NULL);
  return text ? (uint32_t)strtoul(text, NULL, 10) : otherwise;
}
