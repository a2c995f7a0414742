// observe_idl_server.cpp: publish the counters of this machine's network interfaces as messages of
// a binary interface language (net_idl.h).
//
//   observe_idl_server [--seconds <n>]
//   mirror_client --format idl                                    in another terminal
//
// A notification is a number of messages (4 bytes), then each message behind its length (2 bytes),
// in the server's byte order; the two builders write the messages.
#include <cstdio>

#include "net_idl.h"
#include "net_publisher.h"

namespace {

NetName NameOf(const uint8_t *key) {
  NetName name;
  std::memcpy(name.data(), key, sizeof(name));
  return name;
}

uint32_t BuildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
  NetIdl msg;
  msg.kind = NetIdl::kIsThere;
  if (NetPublisher::Of(userData).TakeMark()) msg.kind |= NetIdl::kIsFirst;
  msg.name = NameOf(key);
  std::memcpy(&msg.counters, val, sizeof(msg.counters));  // not aligned
  auto *buf = static_cast<CoapRpcSerIdlMsgBuf *>(out);
  buf->len = static_cast<uint32_t>(msg.Write(buf->buf));
  return 0;
}

uint32_t BuildDelete(uint64_t, uint8_t *key, void *out) {
  NetIdl msg;
  msg.name = NameOf(key);
  auto *buf = static_cast<CoapRpcSerIdlMsgBuf *>(out);
  buf->len = static_cast<uint32_t>(msg.Write(buf->buf));
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  Example example;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ExampleStart(&example, "observe_idl_server") != 0) return 1;
  NetPublisher publisher(example, "net/idl", COAP_RPC_BYTE, BuildUpdate, BuildDelete);
  const bool isServing = publisher.Serve(EXAMPLE_SERVER);
  if (isServing) {
    std::printf("serving coap://%s/net/idl\n", EXAMPLE_SERVER);
    ExampleRun(&example, ExampleNumber(argc, argv, "--seconds", 0));
  }
  return ExampleEnd(&example) == 0 && isServing ? 0 : 1;
}
