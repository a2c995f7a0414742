/* wire_sync_beside.cpp: readers of versions beside observers of the change list, on one URI. */
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "sync_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kAtHead = 1, kNotification = 4;

class SyncBeside : public SyncServer {};

TEST_F(SyncBeside, BaseObserver_IsServedByTheChangeListAsEver) {
  ServeSynced({}, COAP_RPC_NON);
  RawPeer reader;
  reader.SetRemote(Address());
  Ask(reader, Registering());
  EXPECT_TRUE(app_.observerNums.empty());
  Register(peer_, CoapType::kCon, {0x11});
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1}));
  Update("k001", "v001");
  EXPECT_EQ(PayloadHex(NextNotification(reader)),
            Page(kAtHead | kNotification, 0, 1, UpdateHex(1, "k001", "v001"), 1));
  EXPECT_FALSE(peer_.ReceiveNow());  // its time comes with the update timer
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.token, (Bytes{0x11}));
  EXPECT_NE(notification.Text().find("k001"), std::string::npos) << notification;
  ExpectSilence(reader);
  ExpectSilence(peer_);
}

TEST_F(SyncBeside, OneSession_CanBeBoth) {
  ServeSynced({}, COAP_RPC_NON);
  Register(peer_, CoapType::kCon, {0x11});
  Ask(peer_, Registering({0x22}));
  EXPECT_EQ(entry_->observerNum, 1u);
  Update("k001", "v001");
  EXPECT_EQ(NextNotification(peer_).token, (Bytes{0x22}));
  EXPECT_EQ(NextNotification(peer_).token, (Bytes{0x11}));
  ExpectSilence(peer_);
}

// A program that restarts at its port may begin with the same tokens and observe otherwise.
TEST_F(SyncBeside, TokenOfAReader_CanBecomeABaseObservers) {
  ServeSynced({}, COAP_RPC_NON);
  Ask(peer_, Registering({0x11}));
  EXPECT_TRUE(Register(peer_, CoapType::kCon, {0x11}, "_ual-checkcode=1").Has(kOptObserve));
  EXPECT_EQ(entry_->observerNum, 1u);
  EXPECT_EQ(entry_->sync->peers.num, 0u);
  Update("k001", "v001");
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_NE(notification.Text().find("k001"), std::string::npos) << notification;
  Ask(peer_, Observe(CoapType::kCon, {0x11}, "", 1));
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(Ctx()->lib->obsQueryTree.root, nullptr);
}

TEST_F(SyncBeside, TokenOfABaseObserver_CanBecomeAReaders) {
  ServeSynced({}, COAP_RPC_NON);
  Register(peer_, CoapType::kCon, {0x11});
  const CoapMessage answer = Ask(peer_, Registering({0x11}));
  EXPECT_TRUE(answer.Has(kOptObserve));
  EXPECT_EQ(PayloadHex(answer), Page(kAtHead, 0, 0));
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
  Update("k001", "v001");
  EXPECT_EQ(PayloadHex(NextNotification(peer_)),
            Page(kAtHead | kNotification, 0, 1, UpdateHex(1, "k001", "v001"), 1));
  ExpectSilence(peer_);
}

TEST_F(SyncBeside, EndOfAReader_TakesNothingFromOthers) {
  ServeSynced({}, COAP_RPC_NON);
  Register(peer_, CoapType::kCon, {0x11});
  Ask(peer_, Registering({0x22}));
  Update("k001", "v001");
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
  CoapMessage cancel = Request(CoapType::kCon, kCodeGet, ++mid_, {0x22}).AddPath("obs");
  Ask(peer_, cancel.AddUint(kOptObserve, 1).AddText(kOptUriQuery, "_sync=1"));
  EXPECT_EQ(entry_->observerNum, 1u);
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
}

TEST_F(SyncBeside, Uninit_WithReaders) {
  ServeSynced();
  Ask(peer_, Registering());
  Update("k001", "v001");
  instance_->Stop();
}

}  // namespace
}  // namespace coap_rpc_test
