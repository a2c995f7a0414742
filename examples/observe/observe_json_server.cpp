// observe_json_server.cpp: publish the counters of this machine's network interfaces as JSON.
//
//   observe_json_server [--seconds <n>]
//   coap-client-notls -m get -s 60 coap://127.0.0.2/net/json     in another terminal, or
//   mirror_client
//
// A notification is {"data":[...]} with one object for each change, which the two builders fill:
//   {"name":"eth0","rxBytes":1,"rxPackets":2,"txBytes":3,"txPackets":4}    new or changed
//   {"name":"eth0","gone":true}                                            no longer there
// The first object of a full set carries "first":true besides.
#include <jansson.h>

#include <cstdio>
#include <cstring>

#include "net_publisher.h"

namespace {

void SetNumber(json_t *element, const char *name, uint64_t number) {
  json_object_set_new(element, name, json_integer(static_cast<json_int_t>(number)));
}

json_t *NameOf(const uint8_t *key) {
  return json_string(reinterpret_cast<const char *>(key));  // padded: 15 characters at most
}

uint32_t BuildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
  auto *element = static_cast<json_t *>(out);
  NetCounters counters;
  std::memcpy(&counters, val, sizeof(counters));  // not aligned
  json_object_set_new(element, "name", NameOf(key));
  SetNumber(element, "rxBytes", counters.rxBytes);
  SetNumber(element, "rxPackets", counters.rxPackets);
  SetNumber(element, "txBytes", counters.txBytes);
  SetNumber(element, "txPackets", counters.txPackets);
  if (NetPublisher::Of(userData).TakeMark()) json_object_set_new(element, "first", json_true());
  return 0;
}

uint32_t BuildDelete(uint64_t, uint8_t *key, void *out) {
  auto *element = static_cast<json_t *>(out);
  json_object_set_new(element, "name", NameOf(key));
  json_object_set_new(element, "gone", json_true());
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  Example example;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ExampleStart(&example, "observe_json_server") != 0) return 1;
  NetPublisher publisher(example, "net/json", COAP_RPC_JSON, BuildUpdate, BuildDelete);
  const bool isServing = publisher.Serve(EXAMPLE_SERVER);
  if (isServing) {
    std::printf("serving coap://%s/net/json\n", EXAMPLE_SERVER);
    ExampleRun(&example, ExampleNumber(argc, argv, "--seconds", 0));
  }
  return ExampleEnd(&example) == 0 && isServing ? 0 : 1;
}
