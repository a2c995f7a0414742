// mirror_client.cpp: keep a copy of a server's table by observing it.
//
//   mirror_client [--format json|idl] [--every <seconds>] [--ask verify|batch] [--seconds <n>]
//
// Needs a running observe_json_server or observe_idl_server.  Prints the table whenever it changes.
// Every now and then (--every, default 5 s) it asks the server, by the check code of what it
// received last, whether it is up to date: when it is, nothing is sent, else the server sends
// everything again; with "--ask batch" it asks for everything in any case.  When the server stops
// answering it begins anew.  Ends by itself after --seconds; status 0 when it has a table.
//
// A table has one mirror: with a second observer of the same URI the changes go to the newest.
#include <coap_svc/rpc/coap_rpc_ext.h>
#include <kst_tmr.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "example.h"
#include "net_mirror.h"

namespace {

// Counted from the last datagram in either direction: asking more often than that would keep the
// keep-alive from ever being tried.
constexpr uint32_t kKeepAliveSeconds = 1;

constexpr uint32_t kTickMs = 1000;

class MirrorClient {
 public:
  MirrorClient(Example &example, bool isIdl, bool isBatch, uint32_t askPeriod)
      : example_(example),
        isIdl_(isIdl),
        ask_(isBatch ? COAP_RpcCliObserveReqBatch : COAP_RpcCliObserveReqVerify),
        key_(ExampleKey(isIdl ? "net/idl" : "net/json", 1, COAP_RPC_DEFAULT)),
        peer_(ExamplePeer(EXAMPLE_CLIENT, EXAMPLE_SERVER, EXAMPLE_PORT, COAP_RPC_GET)),
        askPeriod_(askPeriod != 0 ? askPeriod : 1) {}

  bool Start() {
    CoapRpcCliVtblReg reg = {};
    reg.payloadFormat = isIdl_ ? COAP_RPC_BYTE : COAP_RPC_JSON;
    reg.userData = reinterpret_cast<uint64_t>(this);
    reg.onResponse = OnNotification;
    reg.onDisconnect = OnDisconnect;
    COAP_RpcSetKeepAlive(example_.ctx, kKeepAliveSeconds);
    const uint64_t tmr = KestrelTmr(example_.host);
    return COAP_RpcCliRegVtbl(example_.ctx, &key_, &reg) == 0 &&
           COAP_RpcCliObserveReq(example_.ctx, &key_, &param_, &peer_) == 0 &&
           KST_TmrStartLoop(tmr, Tick, kTickMs, this) != 0;
  }

  bool HasTable() const { return numRefused_ == 0 && !mirror_.Table().empty(); }

  void PrintSummary() const {
    std::printf("%u notifications, %u of them full sets on request, %zu interfaces mirrored\n",
                numDocuments_, mirror_.NumFullSets(), mirror_.Table().size());
  }

 private:
  static MirrorClient &Of(uint64_t userData) { return *reinterpret_cast<MirrorClient *>(userData); }

  static uint32_t OnNotification(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                                 const CoapRpcCliRspInfo *) {
    MirrorClient &self = Of(userData);
    const std::string_view document(reinterpret_cast<const char *>(payload), len);
    if (document.empty()) return 0;
    const bool isGood =
        self.isIdl_ ? self.mirror_.ApplyIdl(document) : self.mirror_.ApplyJson(document);
    ++(isGood ? self.numDocuments_ : self.numRefused_);
    self.PrintTable();
    return 0;
  }

  // We are called from inside the I/O here; the new beginning is left to the next tick.
  static void OnDisconnect(uint64_t userData, const CoapRpcIpAddr *) {
    std::printf("the server is gone\n");
    Of(userData).isLost_ = true;
  }

  static uint32_t Tick(void *param) {
    auto *self = static_cast<MirrorClient *>(param);
    if (self->isLost_) return self->BeginAnew();
    if (++self->numTicks_ % self->askPeriod_ != 0) return 0;
    return self->ask_(self->example_.ctx, &self->key_, &self->param_, &self->peer_);
  }

  // A server that has been away knows nothing of us, and sends its whole set to a new observer.
  uint32_t BeginAnew() {
    isLost_ = false;
    mirror_.Clear();
    COAP_RpcCliObserveUnReq(example_.ctx, &key_, &param_, &peer_);
    return COAP_RpcCliObserveReq(example_.ctx, &key_, &param_, &peer_);
  }

  void PrintTable() const {
    std::printf("%-16s %14s %12s %14s %12s\n", "interface", "rx bytes", "packets", "tx bytes",
                "packets");
    for (const auto &[name, now] : mirror_.Table()) {
      std::printf("%-16s %14" PRIu64 " %12" PRIu64 " %14" PRIu64 " %12" PRIu64 "\n", name.data(),
                  now.rxBytes, now.rxPackets, now.txBytes, now.txPackets);
    }
  }

  Example &example_;
  const bool isIdl_;
  decltype(&COAP_RpcCliObserveReqVerify) const ask_;
  const CoapRpcUriKey key_;
  const CoapRpcCliReqParam param_ = {};
  const CoapRpcCliAddr peer_;
  NetMirror mirror_;
  const uint32_t askPeriod_;  // in ticks
  uint32_t numTicks_ = 0, numDocuments_ = 0, numRefused_ = 0;
  bool isLost_ = false;
};

}  // namespace

int main(int argc, char **argv) {
  const char *format = ExampleOption(argc, argv, "--format", "json");
  const char *ask = ExampleOption(argc, argv, "--ask", "verify");
  Example example;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ExampleStart(&example, "mirror_client") != 0) return 1;
  MirrorClient client(example, std::strcmp(format, "idl") == 0, std::strcmp(ask, "batch") == 0,
                      ExampleNumber(argc, argv, "--every", 5));
  if (client.Start()) ExampleRun(&example, ExampleNumber(argc, argv, "--seconds", 0));
  client.PrintSummary();
  return ExampleEnd(&example) == 0 && client.HasTable() ? 0 : 1;
}
