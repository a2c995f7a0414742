// observe_json_server.cpp: publish the counters of this machine's network interfaces as JSON.
//
//   observe_json_server [--seconds <n>]
//   coap-client-notls -m get -s 60 coap://127.0.0.2/net/json     in another terminal, or
//   mirror_client
//
// A notification is {"data":[...]} with one object for each change (net_element.h), which the
// builders of net_publisher.cpp fill.
#include "example.h"
#include "net_server.h"

int main(int argc, char **argv) {
  return NetServe("observe_json_server", "net/json", COAP_RPC_JSON,
                  ExampleNumber(argc, argv, "--seconds", 0));
}
