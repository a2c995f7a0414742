/* embed_libuv.c: put host and instance into the libuv loop that an application has already.
 *
 * The application runs its loop as ever; the host's timers are handles in it, and one uv_poll_t
 * makes the instance serve datagrams the moment they come.  The URI "time" tells how often the
 * application's own timer has ticked.
 *
 *   embed_libuv [--seconds <n>]        then, in another terminal, client_minimal_c
 *
 * It ends when nobody asks for a minute, or after --seconds. */
#include <coap_svc/rpc/coap_rpc_ext.h>
#include <stdio.h>
#include <string.h>
#include <uv.h>

#include "example.h"

typedef struct App {
  uv_loop_t loop;
  uv_timer_t ticker; /* the application's own work */
  uv_poll_t io;      /* the instance's datagrams */
  uv_signal_t interrupt;
  uint32_t numTicks, maxTicks;
  uint32_t askedAt; /* the number of ticks then */
  Kestrel *host;
  CoapRpcCtx *ctx;
} App;

static void OnTick(uv_timer_t *timer) {
  App *app = (App *)timer->data;
  const int isIdle = app->maxTicks == 0 && app->numTicks - app->askedAt >= 10 * ExamplePatience();
  if (isIdle) puts("nobody asks");
  if (isIdle || ++app->numTicks == app->maxTicks) uv_stop(&app->loop);
}

static void OnInterrupt(uv_signal_t *handle, int number) {
  (void)number;
  uv_stop(handle->loop);
}

/* Level-triggered: what does not fit into one run is announced again. */
static void OnReadable(uv_poll_t *poll, int status, int events) {
  (void)status, (void)events;
  COAP_RpcProcIo(((App *)poll->data)->ctx);
}

static uint32_t OnTime(uint64_t userData, uint8_t *payload, uint32_t payloadLen, void *async) {
  App *app = (App *)(uintptr_t)userData;
  char answer[64];
  app->askedAt = app->numTicks;
  (void)payload, (void)payloadLen;
  snprintf(answer, sizeof(answer), "my loop has ticked %u times", app->numTicks);
  return COAP_RpcSerSendAsyncResponse(app->ctx, async, (const uint8_t *)answer,
                                      (uint32_t)strlen(answer));
}

static int StartRpc(App *app) {
  KestrelParam hostParam = {0};
  CoapRpcInitParam param = {0};
  char error[256] = "";
  hostParam.name = "embed_libuv";
  hostParam.loop = &app->loop; /* this is all it takes to move in */
  hostParam.logSinks = KESTREL_SINK_NONE;
  app->host = KestrelNew(&hostParam, error, sizeof(error));
  if (!app->host) {
    fprintf(stderr, "no host: %s\n", error);
    return 1;
  }
  param.name = "embed_libuv";
  param.logEnable = 1;
  param.memHandle = KestrelMem(app->host);
  param.dispHandle = KestrelDisp(app->host);
  param.logHandle = KestrelLog(app->host);
  param.tmrHandle = KestrelTmr(app->host);
  app->ctx = COAP_RpcInit(&param);
  return app->ctx ? 0 : 1;
}

static int Serve(App *app) {
  const CoapRpcUriKey key = ExampleKey("time", 0, COAP_RPC_DEFAULT);
  CoapRpcSerVtblReg reg = {0};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.mode = 1;
  reg.userData = (uint64_t)(uintptr_t)app;
  reg.onAsyncRequest = OnTime;
  return ExampleServe(app->ctx, &key, &reg, NULL, EXAMPLE_SERVER, EXAMPLE_PORT);
}

/* The application's loop with its own handles. */
static void StartLoop(App *app) {
  uv_loop_init(&app->loop);
  uv_timer_init(&app->loop, &app->ticker);
  app->ticker.data = app;
  uv_timer_start(&app->ticker, OnTick, 100, 100);
  uv_signal_init(&app->loop, &app->interrupt);
  uv_signal_start(&app->interrupt, OnInterrupt, SIGTERM);
}

static void WatchIo(App *app) {
  uv_poll_init(&app->loop, &app->io, COAP_RpcGetIoFd(app->ctx));
  app->io.data = app;
  uv_poll_start(&app->io, UV_READABLE, OnReadable);
}

static void CloseHandle(uv_handle_t *handle, void *arg) {
  (void)arg;
  if (!uv_is_closing(handle)) uv_close(handle, NULL);
}

/* The instance goes first, then the host; its handles finish closing in one more turn. */
static int End(App *app) {
  uint64_t numLeft = 0;
  if (app->ctx) {
    uv_poll_stop(&app->io);
    COAP_RpcUninit(app->ctx);
  }
  if (app->host) numLeft = KestrelDelete(app->host);
  uv_walk(&app->loop, CloseHandle, NULL);
  uv_run(&app->loop, UV_RUN_DEFAULT);
  return uv_loop_close(&app->loop) == 0 && numLeft == 0 ? 0 : 1;
}

int main(int argc, char **argv) {
  App app;
  memset(&app, 0, sizeof(app));
  setvbuf(stdout, NULL, _IOLBF, 0);
  app.maxTicks = 10 * ExampleNumber(argc, argv, "--seconds", 0);
  StartLoop(&app);
  int failed = StartRpc(&app);
  if (!failed) {
    WatchIo(&app);
    failed = Serve(&app);
  }
  if (!failed) {
    printf("serving time on %s\n", EXAMPLE_SERVER);
    uv_run(&app.loop, UV_RUN_DEFAULT);
    printf("my loop has ticked %u times\n", app.numTicks);
  }
  return End(&app) != 0 || failed ? 1 : 0;
}
