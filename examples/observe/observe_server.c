/* observe_server.c: publish the counters of this machine's network interfaces, once a second.
 *
 *   observe_server [--format json|idl] [--seconds <n>]
 *
 * Mirrors have exact copies (mirror_client.c).  In another terminal, for anybody else:
 *
 *   coap-client-notls -A 50 'coap://127.0.0.2/net?_sync=1'     where the table is, as JSON
 *   coap-client-notls -s 60 coap://127.0.0.2/net               changes, as a plain observer
 *
 * A plain observer gets elements that this program writes: JSON objects, or with "--format idl"
 * messages of key and value, or of the key alone for an interface that is gone.  docs/limits.md
 * says what it can miss.  The server ends when no message comes for a minute, or after --seconds.
 */
#include <coap_svc/rpc/coap_rpc_sync.h>
#include <endian.h>
#include <jansson.h>
#include <kst_tmr.h>
#include <stdio.h>
#include <string.h>

#include "example.h"
#include "net_table.h"

enum { kPeriodMs = 1000 };

typedef struct Server {
  CoapRpcCtx *ctx;
  CoapRpcUriKey key;
} Server;

static int32_t CompareKeys(const void *a, const void *b) { return memcmp(a, b, sizeof(NetKey)); }

static const char *KeyText(const void *key, char *buf, uint32_t size) {
  snprintf(buf, size, "%.16s", (const char *)key);
  return buf;
}

/* Value reads a value that need not be aligned. */
static NetValue Value(const void *bytes) {
  NetValue value;
  memcpy(&value, bytes, sizeof(value));
  return value;
}

static const char *ValueText(const void *val, char *buf, uint32_t size) {
  const NetValue value = Value(val);
  snprintf(buf, size, "%ju %ju %ju %ju", (uintmax_t)be64toh(value.rxBytes),
           (uintmax_t)be64toh(value.rxPackets), (uintmax_t)be64toh(value.txBytes),
           (uintmax_t)be64toh(value.txPackets));
  return buf;
}

/* ---- the table ---- */

/* NextInterface reads the next line of /proc/net/dev that is an interface: its name, received bytes
 * and packets and six more numbers, then sent bytes and packets. */
static uint32_t NextInterface(uint64_t file, void *key, void *val) {
  char line[512], name[16] = "";
  uintmax_t number[4];
  while (fgets(line, sizeof(line), (FILE *)(uintptr_t)file)) {
    if (sscanf(line, " %15[^: ]: %ju %ju %*u %*u %*u %*u %*u %*u %ju %ju", name, &number[0],
               &number[1], &number[2], &number[3]) != 5) {
      continue;
    }
    const NetValue value = {htobe64(number[0]), htobe64(number[1]), htobe64(number[2]),
                            htobe64(number[3])};
    strncpy(key, name, sizeof(NetKey)); /* and pads with zeros */
    memcpy(val, &value, sizeof(value));
    return 0;
  }
  return COAP_RPC_SYNC_END;
}

/* What differs from the last time is published. */
static uint32_t Publish(void *param) {
  const Server *server = param;
  FILE *file = fopen("/proc/net/dev", "r");
  if (!file) return 0;
  COAP_RpcSerSyncReplace(server->ctx, &server->key, NextInterface, (uintptr_t)file);
  fclose(file);
  return 0;
}

static void OnConfirmed(uint64_t userData, uint64_t version) {
  (void)userData;
  printf("all mirrors have version %ju\n", (uintmax_t)version);
}

/* ---- what plain observers get ---- */

static uint32_t JsonDelete(uint64_t userData, uint8_t *key, void *out) {
  (void)userData;
  json_object_set_new(out, "name", json_string((const char *)key));
  json_object_set_new(out, "gone", json_true());
  return 0;
}

static uint32_t JsonUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
  const NetValue value = Value(val);
  (void)userData;
  json_object_set_new(out, "name", json_string((const char *)key));
  json_object_set_new(out, "rxBytes", json_integer((json_int_t)be64toh(value.rxBytes)));
  json_object_set_new(out, "rxPackets", json_integer((json_int_t)be64toh(value.rxPackets)));
  json_object_set_new(out, "txBytes", json_integer((json_int_t)be64toh(value.txBytes)));
  json_object_set_new(out, "txPackets", json_integer((json_int_t)be64toh(value.txPackets)));
  return 0;
}

static uint32_t IdlDelete(uint64_t userData, uint8_t *key, void *out) {
  CoapRpcSerIdlMsgBuf *msg = out;
  (void)userData;
  memcpy(msg->buf, key, sizeof(NetKey));
  msg->len = sizeof(NetKey);
  return 0;
}

static uint32_t IdlUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
  CoapRpcSerIdlMsgBuf *msg = out;
  IdlDelete(userData, key, out);
  memcpy(msg->buf + sizeof(NetKey), val, sizeof(NetValue));
  msg->len += (uint32_t)sizeof(NetValue);
  return 0;
}

static int Serve(const Server *server, int isIdl) {
  CoapRpcSerVtblReg reg = {.payloadFormat = isIdl ? COAP_RPC_BYTE : COAP_RPC_JSON};
  CoapRpcSerObVtblReg obReg = {.keyLen = sizeof(NetKey),
                               .valLen = sizeof(NetValue),
                               .tupleKeyCmp = CompareKeys,
                               .keyToStr = KeyText,
                               .valToStr = ValueText,
                               .buildUpdate = isIdl ? IdlUpdate : JsonUpdate,
                               .buildDelete = isIdl ? IdlDelete : JsonDelete};
  const CoapRpcSerSyncParam sync = {.onConfirmed = OnConfirmed};
  return ExampleServe(server->ctx, &server->key, &reg, &obReg, EXAMPLE_SERVER, EXAMPLE_PORT) == 0 &&
         COAP_RpcSerSetUriSync(server->ctx, &server->key, &sync) == 0;
}

int main(int argc, char **argv) {
  const int isIdl = strcmp(ExampleOption(argc, argv, "--format", "json"), "idl") == 0;
  Example example;
  setvbuf(stdout, NULL, _IOLBF, 0);
  if (ExampleStart(&example, "observe_server") != 0) return 1;
  Server server = {example.ctx, ExampleKey(NET_URI, 1, COAP_RPC_DEFAULT)};
  const int isServing = Serve(&server, isIdl) && KST_TmrStartLoop(KestrelTmr(example.host), Publish,
                                                                  kPeriodMs, &server) != 0;
  if (isServing) {
    Publish(&server);
    printf("serving coap://" EXAMPLE_SERVER "/" NET_URI "\n");
    ExampleRun(&example, ExampleNumber(argc, argv, "--seconds", 0));
  }
  return ExampleEnd(&example) == 0 && isServing ? 0 : 1;
}
