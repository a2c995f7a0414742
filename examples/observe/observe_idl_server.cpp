// observe_idl_server.cpp: publish the counters of this machine's network interfaces as messages of
// a binary interface language.
//
//   observe_idl_server [--seconds <n>]
//   mirror_client --format idl                                    in another terminal
//
// A notification is a number of messages (4 bytes), then each message after its length (2 bytes),
// in the server's byte order; the builders of net_publisher.cpp write the messages (net_element.h).
#include "example.h"
#include "net_server.h"

int main(int argc, char **argv) {
  return NetServe("observe_idl_server", "net/idl", COAP_RPC_BYTE,
                  ExampleNumber(argc, argv, "--seconds", 0));
}
