/* server_minimal.c: serve two URIs on two ports.
 *
 *   note   port 5684   synchronous: a POST is printed and acknowledged with 2.01
 *   time   port 5683   asynchronous: a GET is answered by a message of its own
 *
 * This is the base interface.  A new server whose answers carry data is shorter with direct
 * entries, which any CoAP client can call: docs/direct.md.
 *
 * Try it:  server_minimal &  client_minimal_c
 * It runs until it is interrupted or nobody asks for a minute, or for --seconds <n>. */
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "example.h"

enum { kNotePort = 5684 };

/* A synchronous handler answers with its result: 0 is "no answer payload".  The payload is a copy
 * with a terminator, valid during the call. */
static int32_t OnNote(uint64_t userData, const CoapRpcSerReqInfo *info, uint8_t *payload,
                      uint32_t payloadLen, uint8_t *out, uint32_t outSize) {
  (void)userData, (void)payloadLen, (void)out, (void)outSize;
  const uint32_t ip = info->srcAddr.addr.ipv4;
  printf("note from %u.%u.%u.%u: %s\n", ip >> 24, ip >> 16 & 255, ip >> 8 & 255, ip & 255, payload);
  return 0;
}

/* An asynchronous handler may answer now, as here, or keep the handle and answer whenever it
 * likes.  The answer travels to port 5683 of the asker. */
static uint32_t OnTime(uint64_t userData, uint8_t *payload, uint32_t payloadLen, void *async) {
  CoapRpcCtx *ctx = ((Example *)(uintptr_t)userData)->ctx;
  const time_t now = time(NULL);
  struct tm local;
  char answer[128];
  (void)payloadLen;
  localtime_r(&now, &local);
  strftime(answer, sizeof(answer), "it is %H:%M:%S", &local);
  printf("asked for the time: %s\n", payload);
  return COAP_RpcSerSendAsyncResponse(ctx, async, (const uint8_t *)answer,
                                      (uint32_t)strlen(answer));
}

static int Serve(Example *example) {
  /* UNICAST, because POST requests only reach registrations bound to their address. */
  const CoapRpcUriKey note = ExampleKey("note", 0, COAP_RPC_UNICAST);
  const CoapRpcUriKey now = ExampleKey("time", 0, COAP_RPC_DEFAULT);
  CoapRpcSerVtblReg reg = {0};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.userData = (uint64_t)(uintptr_t)example;
  reg.mode = 0;
  reg.onRequest = OnNote;
  if (ExampleServe(example->ctx, &note, &reg, NULL, EXAMPLE_SERVER, kNotePort) != 0) return 1;
  reg.mode = 1;
  reg.onAsyncRequest = OnTime;
  return ExampleServe(example->ctx, &now, &reg, NULL, EXAMPLE_SERVER, EXAMPLE_PORT);
}

int main(int argc, char **argv) {
  Example example;
  setvbuf(stdout, NULL, _IOLBF, 0);
  if (ExampleStart(&example, "server_minimal") != 0) return 1;
  const int failed = Serve(&example);
  if (!failed) {
    printf("serving note and time on %s\n", EXAMPLE_SERVER);
    ExampleRun(&example, ExampleNumber(argc, argv, "--seconds", 0));
  }
  return ExampleEnd(&example) != 0 || failed ? 1 : 0;
}
