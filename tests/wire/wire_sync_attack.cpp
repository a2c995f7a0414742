// What an application does in onConfirmed, and what peers ask for at the edges.
#include <climits>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "sync_server.h"

namespace coap_rpc_test {
namespace {

class SyncAttack : public SyncServer {
 protected:
  SyncAttack() { other_.SetRemote(Address()); }

  CoapRpcSerSyncParam Calling() {
    CoapRpcSerSyncParam param = {};
    param.leaseMs = 1000;
    param.userData = reinterpret_cast<uint64_t>(this);
    param.onConfirmed = [](uint64_t userData, uint64_t version) {
      auto *self = reinterpret_cast<SyncAttack *>(userData);
      self->confirmed_.push_back(version);
      if (self->onConfirmed_) self->onConfirmed_();
    };
    return param;
  }
  void Detach() { ASSERT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u); }

  RawPeer other_;
  std::vector<uint64_t> confirmed_;
  std::function<void()> onConfirmed_;
};

TEST_F(SyncAttack, ConfirmedByALease_DetachesTheUri) {
  ServeSynced(Calling());
  onConfirmed_ = [&] { Detach(); };
  Ask(peer_, Registering());
  Ask(other_, Registering());
  Update("k001", "v001");
  PullSince(other_, 1);
  host_.AdvanceMs(900);
  PullSince(other_, 1);
  host_.AdvanceMs(500);
  EXPECT_EQ(confirmed_.size(), 1u);
}

TEST_F(SyncAttack, ConfirmedByALease_TwoRegistrationsOfOne_DetachesTheUri) {
  ServeSynced(Calling());
  onConfirmed_ = [&] { Detach(); };
  Ask(peer_, Registering({1}));
  Ask(peer_, Registering({2}).AddText(kOptUriHost, "x"));
  Ask(other_, Registering());
  Update("k001", "v001");
  PullSince(other_, 1);
  host_.AdvanceMs(900);
  PullSince(other_, 1);
  host_.AdvanceMs(500);
  EXPECT_EQ(confirmed_.size(), 1u);
}

TEST_F(SyncAttack, ConfirmedByALease_RunsTheIo) {
  ServeSynced(Calling());
  onConfirmed_ = [&] {
    Update("k002", "v001");
    COAP_RpcProcIo(Ctx());
  };
  Ask(peer_, Registering());
  Ask(other_, Registering());
  Update("k001", "v001");
  PullSince(other_, 1);
  host_.AdvanceMs(900);
  PullSince(other_, 1);
  host_.AdvanceMs(500);
  EXPECT_EQ(confirmed_.size(), 1u);
}

TEST_F(SyncAttack, ConfirmedByACancel_DetachesTheUri) {
  ServeSynced(Calling());
  onConfirmed_ = [&] { Detach(); };
  Ask(peer_, Registering());
  Ask(other_, Registering());
  Update("k001", "v001");
  PullSince(other_, 1);
  Ask(peer_, Request(CoapType::kCon, kCodeGet, ++mid_, {0x5D})
                 .AddPath("obs")
                 .AddUint(kOptObserve, 1)
                 .AddText(kOptUriQuery, "_sync=1")
                 .AddText(kOptUriQuery, kIdArg));
  EXPECT_EQ(confirmed_.size(), 1u);
}

TEST_F(SyncAttack, UninitWithBodiesUnderWay) {
  key_ = KeyOf("obs", COAP_RPC_CON, 1);
  CoapRpcSerObVtblReg ob = ObRegOf(true);
  ob.valLen = 60'000;
  entry_ = Serve(key_, RegOf(&app_, 0, COAP_RPC_JSON), &ob);
  SetSync({});
  Set().replid = kReplid;
  std::string val(60'000, 'v');
  COAP_RpcSerObserveDataUpdate(Ctx(), &key_, "k001", val.data());
  const CoapMessage answer = PullSince(peer_, 0);
  EXPECT_EQ(answer.code, Code(2, 5));
  Detach();
}

TEST_F(SyncAttack, OddQueries) {
  ServeSynced();
  for (int i = 0; i < 5; ++i) Update("k00" + std::to_string(i), "v001");
  for (const char *since : {"18446744073709551615", "18446744073709551614", "5", "4", "0", "6"}) {
    for (const char *until :
         {"18446744073709551615", "18446744073709551616", "5", "4", "0", "6", "007"}) {
      for (const char *full : {"full=1", "", "full=0", "full"}) {
        std::vector<std::string> args{kIdArg, std::string("since=") + since,
                                      std::string("until=") + until};
        if (*full) args.push_back(full);
        const CoapMessage answer = Pull(peer_, args);
        EXPECT_TRUE(answer.code == Code(2, 5) || answer.code == Code(4, 0));
      }
    }
  }
}

TEST_F(SyncAttack, ReplaceInConfirmed) {
  ServeSynced(Calling());
  onConfirmed_ = [&] {
    COAP_RpcSerSyncReplace(
        Ctx(), &key_, [](uint64_t, void *, void *) -> uint32_t { return 1; }, 0);
  };
  Ask(peer_, Registering());
  Update("k001", "v001");
  Update("k002", "v001");
  PullSince(peer_, 2);
  EXPECT_EQ(entry_->sync->set.numLive, 0u);
}

}  // namespace
}  // namespace coap_rpc_test
