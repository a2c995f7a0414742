/* hostile_server.h: a server with every kind of URI, and what it must be after hostile peers.
 *
 * The program takes a network of its own when the system lets it.  Datagrams are served in batches,
 * as by a host that watches the descriptor; libcoap's clock moves only when a test moves it. */
#ifndef HOSTILE_SERVER_H
#define HOSTILE_SERVER_H

#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "observe_server.h"
#include "own_network.h"
#include "sender.h"
#include "usage.h"

namespace coap_rpc_test {

inline constexpr uint8_t kSyncMode = 0, kAsyncMode = 1;

// Notifications are repeated for up to 93 s, and sessions end 300 s after their last datagram in
// either direction.  Nothing that a peer leaves lives longer.
inline constexpr uint64_t kAllForgottenMs = 420'000;

class HostileServer : public ObserveServer {
 protected:
  static constexpr int kNumTuples = 60;

  static void SetUpTestSuite() { EnterOwnNetwork(); }

  HostileServer() {
    host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
    COAP_RpcSetLibLogLevel(Ctx(), 0);  // texts take most of the time
    COAP_RpcStopTaskTimer(Ctx());      // the descriptor is watched: one turn each second will do
    COAP_RpcStartTaskTimer(Ctx());
    sync_.result = 3;
    big_.result = 5000;
    async_.onAsync = [this](void *handle) {
      COAP_RpcSerSendAsyncResponse(Ctx(), handle, reinterpret_cast<const uint8_t *>("{}"), 2);
    };
    Serve(KeyOf("sync"), LightOf(&sync_));
    Serve(KeyOf("sync", COAP_RPC_NON), LightOf(&sync_));
    Serve(KeyOf("big"), LightOf(&big_));
    Serve(KeyOf("uni", COAP_RPC_CON, 0, COAP_RPC_UNICAST), LightOf(&sync_));
    Serve(KeyOf("broad", COAP_RPC_CON, 0, COAP_RPC_BROADCAST), LightOf(&sync_));
    Serve(KeyOf("async"), RegOf(&async_, kAsyncMode));
    Serve(KeyOf("async", COAP_RPC_NON), RegOf(&async_, kAsyncMode));
    ServeObserved("obs", COAP_RPC_CON, COAP_RPC_JSON, &small_);
    ServeObserved("obsnon", COAP_RPC_NON, COAP_RPC_JSON, &small_);
    ServeObserved("idl", COAP_RPC_CON, COAP_RPC_BYTE, &small_);
    bigObserved_.padding = 1000;
    ServeObserved("bigobs", COAP_RPC_CON, COAP_RPC_JSON, &bigObserved_);
    ServeObserved("bigidl", COAP_RPC_NON, COAP_RPC_BYTE, &bigObserved_);
  }

  void SetUp() override {
    Change("v000", kNumTuples);
    for (const std::string &path : Paths()) {
      for (const CoapType type : {CoapType::kCon, CoapType::kNon}) {
        peer_.Send(Get(type, path, "q"));
        Drain(peer_);
        peer_.Send(Get(type, path).AddUint(kOptObserve, 0));
        Drain(peer_);
      }
    }
    Change("v001", kNumTuples);  // starts the timers
    ForgetAll();
    base_ = Usage::Now(host_.Pool());
  }

  static const std::vector<std::string> &Paths() {
    static const std::vector<std::string> paths = {"sync", "big",    "uni", "broad",  "async",
                                                   "obs",  "obsnon", "idl", "bigobs", "bigidl"};
    return paths;
  }

  // ServeWaiting serves until nothing waits, and drops what the host and the callbacks recorded.
  void ServeWaiting() {
    while (COAP_RpcProcIo(Ctx()) != 0) {
    }
    DropRecords();
  }

  void DropRecords() {
    host_.ClearLogs();
    for (App *app :
         {&sync_, &big_, &async_, static_cast<App *>(&small_), static_cast<App *>(&bigObserved_)}) {
      app->requests.clear();
      app->handles.clear();
    }
    std::vector<uint32_t>().swap(small_.observerNums);
    std::vector<uint32_t>().swap(bigObserved_.observerNums);
  }

  static Sender SenderAt(uint32_t ipv4, uint16_t port = 0) {
    return Sender(ipv4, port, OwnIpv4(Role::kServer), kCoapPort);
  }

  // Drain serves, and acknowledges what comes, until nothing comes.
  void Drain(RawPeer &peer) {
    const auto serve = [this] { ServeWaiting(); };
    while (const std::optional<CoapMessage> message = peer.ReceiveMessage(serve, 2)) {
      if (message->type == CoapType::kCon) peer.Send(AckOf(*message));
    }
  }

  // Change changes tuples of every observable URI.
  void Change(const std::string &val, int numTuples = 1) {
    ASSERT_LE(numTuples, kNumTuples);
    for (const auto &[path, msgType] : observed_) {
      const CoapRpcUriKey key = KeyOf(path.c_str(), msgType, 1);
      for (int i = 0; i < numTuples; ++i) {
        const std::string name = "k" + std::to_string(100 + i);
        COAP_RpcSerObserveDataUpdate(Ctx(), &key, name.data(), val.data());
      }
    }
  }

  // ForgetAll lets the time pass in which the server forgets every peer.
  void ForgetAll() {
    for (uint64_t ms = 0; ms < kAllForgottenMs; ms += 1000) {
      host_.AdvanceMs(1000);
      ServeWaiting();
    }
  }

  // ExpectServing expects a stranger to be answered.
  void ExpectServing() {
    ServeWaiting();
    RawPeer stranger;
    stranger.SetRemote(Address());
    stranger.Send(Get(CoapType::kCon, "sync", "q"));
    const std::optional<CoapMessage> answer =
        stranger.ReceiveMessage([this] { ServeWaiting(); }, 20);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, Code(2, 1));
    EXPECT_EQ(answer->payload, Bytes(4));
  }

  // ExpectAllForgotten expects a stranger to be answered, and then nothing to be left of anybody
  // but changes that wait for the next observer.
  void ExpectAllForgotten() {
    ExpectServing();
    ForgetAll();
    Usage allowed = base_;
    allowed.poolCount += NumPending();
    Usage::Now(host_.Pool()).ExpectAtMost(allowed);
  }

  uint32_t NumPending() {
    uint32_t num = 0;
    for (const auto &[path, msgType] : observed_) {
      const CoapRpcUriKey key = KeyOf(path.c_str(), msgType, 1);
      const CoapRpcLink &head = COAP_RpcSerFindUriVtbl(Ctx()->ser, &key)->tupleChgList;
      for (const CoapRpcLink *link = head.next; link && link != &head; link = link->next) ++num;
    }
    return num;
  }

  // KeepVersions gives versions to the tuples of "obs".  To be called before SetUp.
  void KeepVersions() {
    const CoapRpcUriKey key = KeyOf("obs", COAP_RPC_CON, 1);
    ASSERT_EQ(COAP_RpcSerSetUriSync(Ctx(), &key, nullptr), 0u);
    versions_ = COAP_RpcSerFindUriVtbl(Ctx()->ser, &key)->sync;
  }

  // Pull asks for all tuples of "obs", by who knows the set's life.
  CoapMessage Pull(CoapType type) {
    char id[32];
    snprintf(id, sizeof(id), "id=%llx", static_cast<unsigned long long>(versions_->set.replid));
    CoapMessage pull = Get(type, "obs");
    for (const char *arg : {"_sync=1", static_cast<const char *>(id), "full=1"}) {
      pull.AddText(kOptUriQuery, arg);
    }
    return pull;
  }

  // NumObservers counts the observers of all URIs.
  uint32_t NumObservers() {
    uint32_t num = 0;
    for (const auto &[path, msgType] : observed_) {
      const CoapRpcUriKey key = KeyOf(path.c_str(), msgType, 1);
      num += COAP_RpcSerFindUriVtbl(Ctx()->ser, &key)->observerNum;
    }
    return num;
  }

  CoapRpcSerSync *versions_ = nullptr;
  App sync_, big_, async_;
  ObserveApp small_, bigObserved_;
  Usage base_;
  Sender attacker_ = SenderAt(OwnIpv4(Role::kPeer));

 private:
  // LightOf answers without looking at anything.
  CoapRpcSerVtblReg LightOf(App *app) const {
    CoapRpcSerVtblReg reg = RegOf(app, kSyncMode);
    reg.onRequest = [](uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *, uint32_t, uint8_t *,
                       uint32_t) { return App::Of(userData).result; };
    return reg;
  }

  void ServeObserved(const char *path, uint32_t msgType, uint8_t format, ObserveApp *app) {
    const CoapRpcSerObVtblReg ob = ObRegOf(format != COAP_RPC_BYTE);
    Serve(KeyOf(path, msgType, 1), RegOf(app, kSyncMode, format), &ob);
    observed_.push_back({path, msgType});
  }

  std::vector<std::pair<std::string, uint32_t>> observed_;
};

}  // namespace coap_rpc_test

#endif /* HOSTILE_SERVER_H */
