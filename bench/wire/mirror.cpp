/* mirror.cpp: the server of a table with versions, and a mirror of it.
 *
 *   --role server|mirror  (mirror)
 *   --tuples <n>          of 16 bytes of key and 16 of value (1000000); server
 *   --in-flight <n>       (128); mirror
 *   --server <address>    (127.0.0.1)
 *   --port <n>            (5688); another one is of a way to the server; mirror
 *
 * The mirror prints the time from its opening until it has the whole set, "full_sync_ms", its
 * questions, "pulls", those that it had to repeat, "repeats", and its memory for each tuple beside
 * its bytes, "tuple_extra"; then it ends. */
#include <cstdio>
#include <cstring>

#include "clock.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "wire_host.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint32_t kFieldLen = 16;
constexpr uint16_t kPort = 5688;
constexpr uint64_t kNsPerMs = 1000000;

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

CoapRpcUriKey Key() {
  CoapRpcUriKey key = {};
  strcpy(key.uri, "interfaces");
  key.observe = 1;
  return key;
}

uint32_t ServerIpv4(const Options &options) {
  in_addr addr = {};
  inet_pton(AF_INET, options.Text("--server", "127.0.0.1"), &addr);
  return ntohl(addr.s_addr);
}

// WriteNumber writes a number so that the order of bytes is that of numbers.
void WriteNumber(uint32_t number, char *field) {
  const uint32_t bytes = htonl(number);
  memcpy(field, &bytes, sizeof(bytes));
}

void Fill(CoapRpcCtx *ctx, const CoapRpcUriKey &key, uint32_t numTuples) {
  for (uint32_t i = 0; i < numTuples; ++i) {
    char tupleKey[kFieldLen] = {};
    char tupleVal[kFieldLen] = {};
    WriteNumber(i, tupleKey);
    WriteNumber(i * 7, tupleVal);
    if (COAP_RpcSerObserveDataUpdate(ctx, &key, tupleKey, tupleVal) != 0) abort();
  }
}

int Serve(const Options &options) {
  WireHost host(Logging::kNone);
  CoapRpcCtx *ctx = host.NewInstance();
  const CoapRpcUriKey key = Key();
  const CoapRpcSerVtblReg reg = {};
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = ob.valLen = kFieldLen;
  ob.tupleKeyCmp = FieldCmp;
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = ServerIpv4(options);
  addr.port = kPort;
  uint32_t ret = COAP_RpcSerRegVtbl(ctx, &key, &reg, &ob);
  if (ret == 0) ret = COAP_RpcSerSetUriSync(ctx, &key, nullptr);
  if (ret == 0) ret = COAP_RpcSerSetUri(ctx, &key, &addr);
  if (ret != 0) return 1;
  Fill(ctx, key, options.Number("--tuples", 1000000));
  host.Run();
  return 0;
}

struct Run {
  WireHost *host;
  CoapRpcMirror *mirror;
  uint64_t fromNs;
};

void Report(uint64_t userData, uint64_t) {
  Run &run = *reinterpret_cast<Run *>(userData);
  const uint64_t ns = NowNs() - run.fromNs;
  CoapRpcMirrorState state = {};
  COAP_RpcMirrorGetState(run.mirror, &state);
  const double bytes = static_cast<double>(state.bytes) / static_cast<double>(state.numTuples);
  printf("full_sync_ms %.1f\n", static_cast<double>(ns) / kNsPerMs);
  printf("tuples %llu\n", static_cast<unsigned long long>(state.numTuples));
  printf("pulls %llu\n", static_cast<unsigned long long>(state.numPulls));
  printf("repeats %llu\n", static_cast<unsigned long long>(state.numRepeats));
  printf("window %u\n", state.window);
  printf("tuple_extra %.1f\n", bytes - 2 * kFieldLen);
  run.host->Stop();
}

int Mirror(const Options &options) {
  WireHost host(Logging::kNone);
  CoapRpcCtx *ctx = host.NewInstance();
  Run run = {&host, nullptr, NowNs()};
  CoapRpcCallAddr addr = {};
  addr.dstIp.family = COAP_RPC_IPV4;
  addr.dstIp.addr.ipv4 = ServerIpv4(options);
  addr.dstPort = options.Number("--port", kPort);
  CoapRpcMirrorParam param = {};
  param.keyLen = param.valLen = kFieldLen;
  param.numInFlight = options.Number("--in-flight", 128);
  param.userData = reinterpret_cast<uint64_t>(&run);
  param.onSynced = Report;
  const CoapRpcUriKey key = Key();
  if (COAP_RpcMirrorOpen(ctx, &key, &addr, &param, &run.mirror) != 0) return 1;
  host.Run();
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  return options.Is("--role", "server") ? Serve(options) : Mirror(options);
}
