// client_minimal_cpp.cpp: the calls of client_minimal_c, with objects that own host and instance
// and a closure for each answer.  Calls (docs/calls.md) have a callback for each request.
//
// Needs a running server_minimal.  Ends with the last answer, or with status 1 after --seconds <n>
// (default 10).
#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "example.h"

namespace {

constexpr uint16_t kNotePort = 5684;

// Client is one asker.  Answers come back in no order and without a mark of their own, so each URI
// has one closure that takes them all.
class Client {
 public:
  explicit Client(const char *name) { isUp_ = ExampleStart(&example_, name) == 0; }
  ~Client() {
    if (isUp_) ExampleEnd(&example_);
  }
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  bool IsUp() const { return isUp_; }
  void Run(uint32_t seconds) { ExampleRun(&example_, seconds); }
  void Stop() { KestrelStop(example_.host); }

  bool TakeAnswers(const char *uri) {
    return ExampleTakeAnswers(example_.ctx, uri, EXAMPLE_CLIENT) == 0;
  }

  void Call(const char *uri, uint16_t port, uint32_t codeType, std::string text) {
    const CoapRpcUriKey key = ExampleKey(uri, 0, COAP_RPC_DEFAULT);
    const CoapRpcCliAddr peer = ExamplePeer(EXAMPLE_CLIENT, EXAMPLE_SERVER, port, codeType);
    CoapRpcCliReqParam param = {};
    param.payload = reinterpret_cast<uint8_t *>(text.data());
    param.payloadLen = static_cast<uint32_t>(text.size());
    Check(uri, COAP_RpcCliRegVtbl(example_.ctx, &key, &table_));  // the first one of a key counts
    Check(uri, COAP_RpcCliConReq(example_.ctx, &key, &param, &peer));
  }

  std::function<void(std::string_view)> onAnswer;

 private:
  static int32_t Build(uint64_t, const CoapRpcCliReqParam *req, uint8_t *out, uint32_t outSize) {
    if (req->payloadLen > outSize) return -1;
    std::copy_n(req->payload, req->payloadLen, out);
    return static_cast<int32_t>(req->payloadLen);
  }

  static uint32_t OnResponse(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                             const CoapRpcCliRspInfo *) {
    const auto *client = reinterpret_cast<const Client *>(userData);
    if (client->onAnswer) client->onAnswer({reinterpret_cast<const char *>(payload), len});
    return 0;
  }

  static void Check(const char *uri, uint32_t ret) {
    if (ret != 0) std::fprintf(stderr, "calling %s: %s\n", uri, COAP_RpcErrStr(ret));
  }

  Example example_ = {};
  bool isUp_ = false;
  const CoapRpcCliVtblReg table_ = {
      COAP_RPC_JSON, reinterpret_cast<uint64_t>(this), Build, OnResponse, nullptr, nullptr};
};

}  // namespace

int main(int argc, char **argv) {
  constexpr int kNumCalls = 3;
  Client client("client_minimal");
  if (!client.IsUp() || !client.TakeAnswers("time")) return 1;

  int numAnswers = 0;
  client.onAnswer = [&](std::string_view text) {
    std::printf("answer %d: %.*s\n", ++numAnswers, static_cast<int>(text.size()), text.data());
    if (numAnswers == kNumCalls) client.Stop();
  };
  client.Call("note", kNotePort, COAP_RPC_POST, "hello from C++");
  for (int i = 1; i <= kNumCalls; ++i) {
    client.Call("time", EXAMPLE_PORT, COAP_RPC_GET, "question " + std::to_string(i));
  }
  client.Run(ExampleNumber(argc, argv, "--seconds", 10));
  if (numAnswers != kNumCalls) std::fprintf(stderr, "%d of %d answers\n", numAnswers, kNumCalls);
  return numAnswers == kNumCalls ? 0 : 1;
}
