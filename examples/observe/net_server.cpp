#include "net_server.h"

#include <kst_tmr.h>

#include <cstdio>
#include <random>

#include "example.h"
#include "net_publisher.h"

namespace {

constexpr uint32_t kPeriodMs = 1000;

class Server : public NetPublisher {
 public:
  using NetPublisher::NetPublisher;

  bool Serve(const Example &example) {
    Publish(ReadNetDev());
    return Register(example.ctx) &&
           ExampleAttach(example.ctx, &Key(), EXAMPLE_SERVER, EXAMPLE_PORT) == 0 &&
           KST_TmrStartLoop(KestrelTmr(example.host), Tick, kPeriodMs, this) != 0;
  }

 private:
  static uint32_t Tick(void *self) {
    static_cast<Server *>(self)->Publish(ReadNetDev());
    return 0;
  }

  void OnObservers(uint32_t num) override { std::printf("observers: %u\n", num); }
};

}  // namespace

int NetServe(const char *name, const char *uri, uint8_t payloadFormat, uint32_t seconds) {
  Example example;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ExampleStart(&example, name) != 0) return 1;
  Server server(ExampleKey(uri, 1, COAP_RPC_DEFAULT), payloadFormat, std::random_device()());
  const bool isServing = server.Serve(example);
  if (isServing) {
    std::printf("serving coap://%s/%s\n", EXAMPLE_SERVER, uri);
    ExampleRun(&example, seconds);
  }
  return ExampleEnd(&example) == 0 && isServing ? 0 : 1;
}
