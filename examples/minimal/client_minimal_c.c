/* client_minimal_c.c: call a server: tell it something, ask it something.
 *
 * This is the base interface, for servers that use it too.  A call (docs/calls.md) is shorter, asks
 * any CoAP server, and tells how each request ended.
 *
 * Needs a running server_minimal.  Ends with the answer, or with status 1 after --seconds <n>
 * (default 10) without one. */
#include <stdio.h>
#include <string.h>

#include "example.h"

enum { kNotePort = 5684 };

static int g_numAnswers;

/* Writes the payload of a request: here what was handed to the call. */
static int32_t BuildRequest(uint64_t userData, const CoapRpcCliReqParam *req, uint8_t *out,
                            uint32_t outSize) {
  (void)userData;
  if (req->payloadLen > outSize) return -1;
  memcpy(out, req->payload, req->payloadLen);
  return (int32_t)req->payloadLen;
}

static uint32_t OnAnswer(uint64_t userData, uint64_t zero, uint8_t *payload, uint32_t len,
                         const CoapRpcCliRspInfo *info) {
  (void)zero, (void)len, (void)info;
  printf("the server says: %s\n", payload ? (const char *)payload : "nothing");
  ++g_numAnswers;
  KestrelStop(((Example *)(uintptr_t)userData)->host);
  return 0; /* accepted */
}

/* Registers the table of a URI and sends one request with it. */
static uint32_t Call(Example *example, const char *uri, uint16_t port, uint32_t codeType,
                     const char *text) {
  const CoapRpcUriKey key = ExampleKey(uri, 0, COAP_RPC_DEFAULT);
  const CoapRpcCliAddr peer = ExamplePeer(EXAMPLE_CLIENT, EXAMPLE_SERVER, port, codeType);
  CoapRpcCliReqParam param = {0};
  CoapRpcCliVtblReg reg = {0};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.userData = (uint64_t)(uintptr_t)example;
  reg.buildReq = BuildRequest;
  reg.onResponse = OnAnswer;
  param.payload = (uint8_t *)text; /* copied by the call */
  param.payloadLen = (uint32_t)strlen(text);

  uint32_t ret = COAP_RpcCliRegVtbl(example->ctx, &key, &reg);
  if (ret == 0) ret = COAP_RpcCliConReq(example->ctx, &key, &param, &peer);
  if (ret != 0) fprintf(stderr, "calling %s: %s\n", uri, COAP_RpcErrStr(ret));
  return ret;
}

int main(int argc, char **argv) {
  Example example;
  if (ExampleStart(&example, "client_minimal") != 0) return 1;
  int failed = ExampleTakeAnswers(example.ctx, "time", EXAMPLE_CLIENT);
  if (!failed) {
    failed = Call(&example, "note", kNotePort, COAP_RPC_POST, "hello from C") != 0 ||
             Call(&example, "time", EXAMPLE_PORT, COAP_RPC_GET, "what time is it?") != 0;
  }
  if (!failed) ExampleRun(&example, ExampleNumber(argc, argv, "--seconds", 10));
  if (ExampleEnd(&example) != 0 || failed) return 1;
  if (g_numAnswers == 0) fprintf(stderr, "no answer\n");
  return g_numAnswers != 0 ? 0 : 1;
}
