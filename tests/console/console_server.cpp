/* console_server.cpp: a running instance for consoles to look at.
 *
 *   console_server <socket> [hostile] [many]
 *
 * The instance "shop" serves and calls itself over loopback addresses.  With "hostile", uris and an
 * object have control characters in their names; with "many", it has 2000 uris more.  An object
 * "demo" has commands that a test of the console needs.  Ends with its standard input. */
#include <arpa/inet.h>
#include <coap_svc/rpc/coap_rpc.h>
#include <coap_svc/rpc/coap_rpc_cli.h>
#include <coap_svc/rpc/coap_rpc_ser.h>
#include <coap_svc/rpc/coap_rpc_stats.h>
#include <kestrel.h>
#include <kst_disp.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "kestrel_param.h"
#include "raw_peer.h"

namespace {

struct HostDeleter {
  void operator()(Kestrel *host) const { KestrelDelete(host); }
};
struct InstanceDeleter {
  void operator()(CoapRpcCtx *ctx) const { COAP_RpcUninit(ctx); }
};
using Host = std::unique_ptr<Kestrel, HostDeleter>;
using Instance = std::unique_ptr<CoapRpcCtx, InstanceDeleter>;

// Demo is the record of the object "demo".
struct Demo {
  Kestrel *host;
  uint32_t numCalls = 0;

  static Demo &Of(void *self) { return *static_cast<Demo *>(self); }
  uint64_t Disp() const { return KestrelDisp(host); }
};

CoapRpcIpAddr Ipv4(const char *text) {
  CoapRpcIpAddr addr = {};
  addr.family = COAP_RPC_IPV4;
  addr.addr.ipv4 = ntohl(inet_addr(text));
  return addr;
}

CoapRpcUriKey KeyOf(const char *uri, uint32_t msgType, uint32_t observe) {
  CoapRpcUriKey key = {};
  memcpy(key.uri, uri, strnlen(uri, sizeof key.uri));
  key.msgType = msgType;
  key.observe = observe;
  return key;
}

// ---- the object "demo" ----

uint32_t PrintLines(void *self, ...) {
  va_list args;
  va_start(args, self);
  const uint32_t count = va_arg(args, uint32_t);
  va_end(args);
  uint32_t at = 0;
  KST_DispGetLastCtx_(Demo::Of(self).Disp(), &at);
  if (at < count) {
    KST_DispPrintf_(Demo::Of(self).Disp(), "line %u\n", ++at);
    KST_DispSaveCtx_(Demo::Of(self).Disp(), "k", 1, &at, sizeof at);
  } else {
    KST_DispPrintf_(Demo::Of(self).Disp(), " ***total %u line(s) ***\n", at);
  }
  return 0;
}

// Calls differ in the value of "two", in the row "even" that comes and goes, and in the total.
uint32_t PrintChanges(void *self, ...) {
  Demo &demo = Demo::Of(self);
  const uint32_t call = ++demo.numCalls;
  KST_DispPrintf_(demo.Disp(), "row[0]: uri(one)/count(1)\nrow[1]: uri(two)/count(%u)\n", call);
  if (call % 2 == 0) KST_DispPrintf_(demo.Disp(), "row[2]: uri(even)/count(0)\n");
  KST_DispPrintf_(demo.Disp(), " ***total %u row(s) ***\n", call % 2 == 0 ? 3 : 2);
  return 0;
}

uint32_t PrintHostile(void *self, ...) {
  KST_DispPrintf_(Demo::Of(self).Disp(),
                  "uri(\x1b[2J\x1b]0;owned\x07%%s\xff\xe2\x80\xae)/n(\t1)\n");
  return 0;
}

uint32_t EndAtOnce(void *, ...) { _exit(0); }

void RegisterDemo(Demo &demo, bool isHostile) {
  const uint64_t disp = demo.Disp();
  KST_DispRegObj(disp, "demo", &demo);
  KST_DispRegFunc_(disp, "PrintLines", PrintLines, "demo lines", 128, "demo", 1, "uniCount");
  KST_DispRegFunc_(disp, "PrintChanges", PrintChanges, "demo changes", 128, "demo", 0);
  KST_DispRegFunc_(disp, "PrintHostile", PrintHostile, "demo hostile", 128, "demo", 0);
  KST_DispRegFunc_(disp, "EndAtOnce", EndAtOnce, "demo end", 128, "demo", 0);
  KST_DispDescribe(disp, "demo", "demo lines", "lines with numbers, each a page", 1, "how many");
  if (isHostile) KST_DispRegObj(disp, "evil\x1b[7m", &demo);
}

// ---- the instance ----

int32_t CompareKeys(const void *a, const void *b) { return memcmp(a, b, sizeof(uint32_t)); }

const char *NumberText(const void *bytes, char *buf, uint32_t size) {
  uint32_t number = 0;
  memcpy(&number, bytes, sizeof number);
  snprintf(buf, size, "%u", number);
  return buf;
}

uint32_t BuildUpdate(uint64_t, uint8_t *tuple, uint8_t *, void *out) {
  auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(out);
  memcpy(msg->buf, tuple, 8);
  msg->len = 8;
  return 0;
}

uint32_t BuildDelete(uint64_t, uint8_t *tuple, void *out) {
  auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(out);
  memcpy(msg->buf, tuple, 4);
  msg->len = 4;
  return 0;
}

CoapRpcSerObVtblReg StockTuples() {
  CoapRpcSerObVtblReg tuples = {};
  tuples.keyLen = tuples.valLen = sizeof(uint32_t);
  tuples.tupleKeyCmp = CompareKeys;
  tuples.keyToStr = tuples.valToStr = NumberText;
  tuples.buildUpdate = BuildUpdate;
  tuples.buildDelete = BuildDelete;
  return tuples;
}

void Serve(CoapRpcCtx *ctx, const CoapRpcUriKey &key, uint16_t port) {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = key.observe != 0 ? COAP_RPC_BYTE : COAP_RPC_JSON;
  const CoapRpcSerObVtblReg tuples = StockTuples();
  COAP_RpcSerRegVtbl(ctx, &key, &reg, key.observe != 0 ? &tuples : nullptr);
  const CoapRpcSerListenAddr addr = {Ipv4("127.0.0.1"), port, {}};
  if (port != 0) COAP_RpcSerSetUri(ctx, &key, &addr);
}

void Call(CoapRpcCtx *ctx, const CoapRpcUriKey &key, uint16_t port) {
  CoapRpcCliVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_BYTE;
  COAP_RpcCliRegVtbl(ctx, &key, &reg);
  CoapRpcCliAddr addr = {};
  addr.srcIp = Ipv4("127.0.0.2");
  addr.dstIp = Ipv4("127.0.0.1");
  addr.dstPort = port;
  addr.codeType = COAP_RPC_GET;
  const CoapRpcCliReqParam param = {};
  COAP_RpcCliObserveReq(ctx, &key, &param, &addr);
}

void Fill(CoapRpcCtx *ctx, uint16_t port) {
  const CoapRpcUriKey stock = KeyOf("shop/stock", 0, 1);
  Serve(ctx, KeyOf("shop/items", 0, 0), port);
  Serve(ctx, KeyOf("shop/orders", 0, 0), port);
  Serve(ctx, KeyOf("shop/prices", 1, 0), 0);
  Serve(ctx, stock, port);
  for (uint32_t item = 1; item <= 3; ++item) {
    const uint32_t pieces = item * 10;
    COAP_RpcSerObserveDataUpdate(ctx, &stock, &item, &pieces);
  }
  Call(ctx, stock, port);
}

void FillHostile(CoapRpcCtx *ctx) {
  Serve(ctx, KeyOf("evil/\x1b[31mred", 0, 0), 0);
  Serve(ctx, KeyOf("%s%n%x", 0, 0), 0);
  Serve(ctx, KeyOf("0123456789012345678901234567890123456789012345678901234567890123", 0, 0), 0);
}

void FillMany(CoapRpcCtx *ctx) {
  for (uint32_t i = 0; i < 2000; ++i) {
    char uri[64];
    snprintf(uri, sizeof uri, "many/%04u", i);
    Serve(ctx, KeyOf(uri, 0, 0), 0);
  }
}

Instance MakeInstance(Kestrel *host) {
  CoapRpcInitParam param = coap_rpc_test::ParamOn(host, "shop");
  param.logEnable = 1;
  param.logHandle = KestrelLog(host);
  return Instance(COAP_RpcInit(&param));
}

bool HasWord(int argc, char **argv, std::string_view word) {
  for (int i = 2; i < argc; ++i) {
    if (argv[i] == word) return true;
  }
  return false;
}

void OnInput(void *host, int fd) {
  char bytes[64];
  if (read(fd, bytes, sizeof bytes) <= 0) KestrelStop(static_cast<Kestrel *>(host));
}

int Run(Kestrel *host, const char *path) {
  const KestrelDispAccess access = {path, 0, 0};
  const uint32_t ret = KestrelDispListen(host, &access);
  if (ret == KESTREL_OK) {
    std::puts("ready");
    std::fflush(stdout);
    KestrelWatch(host, STDIN_FILENO, OnInput, host);
    KestrelRun(host);
    return 0;
  }
  std::fprintf(stderr, "%s: %s\n", path, KestrelResultText(ret));
  return 1;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) return 2;
  KestrelParam param = {};
  param.logLevel = KESTREL_LEVEL_ERROR;
  const Host host(KestrelNew(&param, nullptr, 0));
  const Instance instance = host ? MakeInstance(host.get()) : nullptr;
  if (!instance || COAP_RpcShowStats(instance.get()) != 0) return 1;
  Demo demo{host.get()};
  RegisterDemo(demo, HasWord(argc, argv, "hostile"));
  Fill(instance.get(), coap_rpc_test::FindFreeUdpPort());
  if (HasWord(argc, argv, "hostile")) FillHostile(instance.get());
  if (HasWord(argc, argv, "many")) FillMany(instance.get());
  return Run(host.get(), argv[1]);
}
