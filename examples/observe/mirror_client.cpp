// mirror_client.cpp: keep a copy of a server's table by observing it.
//
//   mirror_client [--format json|idl] [--every <seconds>] [--ask verify|batch] [--seconds <n>]
//
// Needs a running observe_json_server or observe_idl_server.  Prints the table whenever it changes.
// Every now and then (--every, default 30 s) it asks the server, by the check code of what it
// received last, whether it is up to date: when it is, nothing is sent, else the server sends
// everything again; with "--ask batch" it asks for everything in any case.  It is told when the
// server stops answering, and asks sooner then.  Ends by itself after --seconds, or after 10 s when
// nobody has answered; status 0 when it has a table.
//
// A table has one mirror: with a second observer of the same URI the changes go to the newest.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include <kst_tmr.h>

#include "example.h"
#include "net_observer.h"

namespace {

// PrintingObserver shows its table whenever that has changed.
class PrintingObserver : public NetObserver {
 public:
  using NetObserver::NetObserver;

  bool HasTable() const { return NumRefused() == 0 && !Mirror().Table().empty(); }

  void PrintSummary() const {
    std::printf("%u notifications, %u full sets, %zu interfaces mirrored\n", NumDocuments(),
                Mirror().NumFullSets(), Mirror().Table().size());
  }

 private:
  void OnLost() override { std::printf("the server is gone\n"); }

  void OnTable() override {
    std::printf("%-16s %14s %12s %14s %12s\n", "interface", "rx bytes", "packets", "tx bytes",
                "packets");
    for (const auto &[name, now] : Mirror().Table()) {
      if (name == kNetSum) continue;
      std::printf("%-16s %14" PRIu64 " %12" PRIu64 " %14" PRIu64 " %12" PRIu64 "\n", name.data(),
                  now.rxBytes, now.rxPackets, now.txBytes, now.txPackets);
    }
  }
};

constexpr uint32_t kPatienceMs = 10'000;

struct Patience {
  const PrintingObserver &observer;
  Kestrel *host;

  // GiveUp ends a client that never had an answer: the server is not there, or has another address.
  static uint32_t GiveUp(void *param) {
    const auto *self = static_cast<const Patience *>(param);
    if (self->observer.NumDocuments() != 0) return 0;
    std::printf("no answer from " EXAMPLE_SERVER ":%d in 10 s\n", EXAMPLE_PORT);
    return KestrelStop(self->host);
  }
};

}  // namespace

int main(int argc, char **argv) {
  const bool isIdl = std::strcmp(ExampleOption(argc, argv, "--format", "json"), "idl") == 0;
  const bool isBatch = std::strcmp(ExampleOption(argc, argv, "--ask", "verify"), "batch") == 0;
  Example example;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ExampleStart(&example, "mirror_client") != 0) return 1;
  PrintingObserver observer(
      {example.ctx, KestrelTmr(example.host),
       ExampleKey(isIdl ? "net/idl" : "net/json", 1, COAP_RPC_DEFAULT),
       ExamplePeer(EXAMPLE_CLIENT, EXAMPLE_SERVER, EXAMPLE_PORT, COAP_RPC_GET), isIdl, isBatch,
       ExampleNumber(argc, argv, "--every", 30)});
  Patience patience = {observer, example.host};
  KST_TmrStartLoop(KestrelTmr(example.host), Patience::GiveUp, kPatienceMs, &patience);
  if (observer.Start()) ExampleRun(&example, ExampleNumber(argc, argv, "--seconds", 0));
  observer.PrintSummary();
  return ExampleEnd(&example) == 0 && observer.HasTable() ? 0 : 1;
}
