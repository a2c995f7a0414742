/* mirror_client.c: keep an exact copy of a server's table.
 *
 *   mirror_client [--heartbeat <s>] [--seconds <n>]
 *
 * Needs a running observe_server; any number of these work side by side.  Prints the table whenever
 * it is whole and has changed, and what becomes of the server, which may be restarted.  Ends by
 * itself after --seconds, or after 10 s when nobody has answered; status 0 when it has a table. */
#include <coap_svc/rpc/coap_rpc_sync.h>
#include <endian.h>
#include <inttypes.h>
#include <kst_tmr.h>
#include <stdio.h>
#include <string.h>

#include "example.h"
#include "net_table.h"

enum { kPatienceMs = 10000 };

typedef struct Client {
  Example example;
  CoapRpcMirror *mirror;
} Client;

static void PrintRow(const uint8_t *tuple) {
  NetValue value;
  memcpy(&value, tuple + sizeof(NetKey), sizeof(value));
  printf("%-16.16s %14" PRIu64 " %12" PRIu64 " %14" PRIu64 " %12" PRIu64 "\n", (const char *)tuple,
         be64toh(value.rxBytes), be64toh(value.rxPackets), be64toh(value.txBytes),
         be64toh(value.txPackets));
}

static void OnSynced(uint64_t userData, uint64_t version) {
  const Client *client = (const Client *)(uintptr_t)userData;
  const uint8_t *tuple = NULL;
  printf("version %" PRIu64 "\n%-16s %14s %12s %14s %12s\n", version, "interface", "rx bytes",
         "packets", "tx bytes", "packets");
  while ((tuple = COAP_RpcMirrorNext(client->mirror, tuple))) PrintRow(tuple);
}

static void OnRemoved(uint64_t userData, const void *key, const void *val) {
  (void)userData;
  (void)val;
  printf("%.16s is gone\n", (const char *)key);
}

static void OnState(uint64_t userData, uint32_t state, uint32_t code) {
  (void)userData;
  if (state == COAP_RPC_MIRROR_STALE) printf("the server is gone\n");
  if (state == COAP_RPC_MIRROR_REFUSED) printf("the server refuses: %u\n", code);
}

static int Open(Client *client, uint32_t heartbeatSeconds) {
  const CoapRpcUriKey key = ExampleKey(NET_URI, 1, COAP_RPC_DEFAULT);
  const CoapRpcCallAddr addr = {.dstIp = ExampleIpv4(EXAMPLE_SERVER), .dstPort = EXAMPLE_PORT};
  const CoapRpcMirrorParam param = {.keyLen = sizeof(NetKey),
                                    .valLen = sizeof(NetValue),
                                    .heartbeatMs = 1000 * heartbeatSeconds,
                                    .userData = (uintptr_t)client,
                                    .onRemoved = OnRemoved,
                                    .onSynced = OnSynced,
                                    .onState = OnState};
  return COAP_RpcMirrorOpen(client->example.ctx, &key, &addr, &param, &client->mirror) == 0;
}

static CoapRpcMirrorState StateOf(const Client *client) {
  CoapRpcMirrorState state = {0};
  if (client->mirror) COAP_RpcMirrorGetState(client->mirror, &state);
  return state;
}

/* GiveUp ends a client that never had an answer: the server is not there, or has another address.
 */
static uint32_t GiveUp(void *param) {
  const Client *client = param;
  if (StateOf(client).replid != 0) return 0;
  printf("no answer from " EXAMPLE_SERVER ":%d in 10 s\n", EXAMPLE_PORT);
  return KestrelStop(client->example.host);
}

int main(int argc, char **argv) {
  Client client = {0};
  setvbuf(stdout, NULL, _IOLBF, 0);
  if (ExampleStart(&client.example, "mirror_client") != 0) return 1;
  KST_TmrStartLoop(KestrelTmr(client.example.host), GiveUp, kPatienceMs, &client);
  if (Open(&client, ExampleNumber(argc, argv, "--heartbeat", 30))) {
    ExampleRun(&client.example, ExampleNumber(argc, argv, "--seconds", 0));
  }
  const CoapRpcMirrorState end = StateOf(&client);
  printf("version %" PRIu64 ", %" PRIu64 " notifications, %" PRIu64 " full syncs, %" PRIu64
         " interfaces mirrored\n",
         end.syncedVersion, end.numNotifications, end.numFullSyncs, end.numTuples);
  return ExampleEnd(&client.example) == 0 && end.numTuples != 0 ? 0 : 1;
}
