// embed_libuv.cpp: a node in the libuv loop that an application has already.  The path "time" tells
// how often the application's own timer has ticked.
//
//   embed_libuv_cpp [<seconds>]    then, in another terminal: coap-client coap://127.0.0.2/time
//
// It ends when nobody asks for that time, by default for a minute.
#include <uv.h>

#include <coap_svc_rpc.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>

using namespace coaprpc;

namespace {

struct App {
  uv_loop_t loop;
  uv_timer_t ticker;
  uv_signal_t interrupt;
  int numTicks = 0, ticksLeft = 0, patience = 600;

  void tick() {
    ++numTicks;
    if (--ticksLeft > 0) return;
    std::puts("nobody asks");
    uv_stop(&loop);
  }
};

void start(App &app) {
  uv_loop_init(&app.loop);
  uv_timer_init(&app.loop, &app.ticker);
  app.ticker.data = &app;
  app.ticksLeft = app.patience;
  const auto tick = [](uv_timer_t *timer) { static_cast<App *>(timer->data)->tick(); };
  uv_timer_start(&app.ticker, tick, 100, 100);
  uv_signal_init(&app.loop, &app.interrupt);
  uv_signal_start(
      &app.interrupt, [](uv_signal_t *handle, int) { uv_stop(handle->loop); }, SIGTERM);
}

// What the node had in the loop finishes closing here too.
int end(App &app) {
  uv_close(reinterpret_cast<uv_handle_t *>(&app.ticker), nullptr);
  uv_close(reinterpret_cast<uv_handle_t *>(&app.interrupt), nullptr);
  uv_run(&app.loop, UV_RUN_DEFAULT);
  return uv_loop_close(&app.loop) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  App app;
  if (argc > 1) app.patience = 10 * std::atoi(argv[1]);
  start(app);
  {
    Node node = must(Node::make({.listen = "127.0.0.2", .loop = &app.loop}));
    must(node.serve("time", [&](const Request &) {
      app.ticksLeft = app.patience;
      return "my loop has ticked " + std::to_string(app.numTicks) + " times";
    }));
    std::puts("serving time on 127.0.0.2");
    std::fflush(stdout);
    uv_run(&app.loop, UV_RUN_DEFAULT);
  }
  return end(app);
}
