// Notifications that travel in blocks: whole bodies, and how long they keep their URI silent.
#include "block_server.h"

namespace coap_rpc_test {
namespace {

TEST_P(Blocks, ObserverWithoutQuery_FetchesTheWholeNotification) {
  for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
    ServeBig(msgType);
    Register(peer_, CoapType::kCon, {1});
    UpdateAll("v001");
    const CoapMessage first = BigNotification(peer_);
    EXPECT_EQ(first.code, Code(2, 5));
    EXPECT_EQ(first.Uint(kOptSize2), BodyOf("v001").size());
    EXPECT_GE(BodyOf("v001").size(), 60'000u);
    EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
    EXPECT_EQ(Fetch(peer_, first), BodyOf("v001"));
    EXPECT_TRUE(Pending().empty());
    const CoapMessage cancel = Observe(CoapType::kCon, {1}, "", 1);
    Ask(cancel);
    instance_ = std::make_unique<TestInstance>(host_);
    COAP_RpcRefreshTaskTimer(Ctx());
  }
}

TEST_P(Blocks, ObserverWithCheckCode_FetchesTheWholeNotification) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1}, kQuery);
  UpdateAll("v001");
  const CoapMessage first = BigNotification(peer_);
  EXPECT_FALSE(first.Has(kOptUriQuery));
  EXPECT_EQ(Fetch(peer_, first, kQuery), BodyOf("v001"));
}

TEST_P(Blocks, ObserverWithCheckCode_FetchesSeveralNotifications) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1}, kQuery);
  for (const char *val : {"v001", "v002", "v003"}) {
    UpdateAll(val);
    EXPECT_EQ(Fetch(peer_, BigNotification(peer_), kQuery), BodyOf(val));
    host_.AdvanceMs(1000);
  }
}

TEST_P(Blocks, RegistrationRepeatedWithAnotherQuery_TheLatestOneCounts) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1}, kQuery);
  for (const char *query : {"_ual-checkcode=5", "", "_ual-checkcode=6"}) {
    SCOPED_TRACE(query);
    Register(peer_, CoapType::kCon, {1}, query);
    EXPECT_EQ(entry_->observerNum, 1u);
    UpdateAll("v001");
    EXPECT_EQ(Fetch(peer_, BigNotification(peer_), query), BodyOf("v001"));
    host_.AdvanceMs(1000);
  }
}

TEST_P(Blocks, NonRegistrationWithCheckCode_GetsTheWholeSetInBlocksAtOnce) {
  ServeBig(COAP_RPC_NON);
  UpdateAll("v001");
  const CoapMessage first = Register(peer_, CoapType::kNon, {1}, kQuery);
  EXPECT_EQ(first.code, Code(2, 5));
  EXPECT_EQ(first.Values(kOptUriQuery), (std::vector<Bytes>{BytesOf(kQuery)}));
  EXPECT_EQ(Fetch(peer_, first, kQuery), BodyOf("v001"));
}

TEST_P(Blocks, PeerThatAsksForSmallerBlocksFromTheSecondOn_FetchesTheWholeNotification) {
  constexpr uint8_t kSzx512 = 5;
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  Bytes body = BigNotification(peer_).payload;
  ASSERT_EQ(body.size(), 1024u);
  const CoapMessage next = Ask(BlockRequest(2, "", kSzx512));
  EXPECT_EQ(next.code, Code(2, 5));
  EXPECT_EQ(next.payload.size(), 512u);
  const Bytes rest = Fetch(peer_, next);
  body.insert(body.end(), rest.begin(), rest.end());
  EXPECT_EQ(body, BodyOf("v001"));
  EXPECT_TRUE(Pending().empty());
}

TEST_P(Blocks, PeerThatAsksForLargerBlocks_IsRefused) {
  constexpr uint8_t kSzx256 = 4, kSzx512 = 5;
  ServeBig(COAP_RPC_NON);
  UpdateAll("v001");
  CoapMessage registration = Observe(CoapType::kNon, {1}, "", 0);
  registration.AddBlock(kOptBlock2, {0, false, kSzx256});
  EXPECT_EQ(Ask(registration).payload.size(), 256u);
  EXPECT_EQ(Ask(BlockRequest(1, "", kSzx512)).code, Code(4, 0));
}

TEST_P(Blocks, PeerThatStopsFetching_SilencesTheUriForAtMost20Seconds) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  BigNotification(peer_);
  Ask(BlockRequest(1));
  Update("k001", "new1");
  host_.AdvanceMs(18'000);
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
  EXPECT_FALSE(peer_.ReceiveNow());
  host_.AdvanceMs(2000);
  // All of it comes again, and what has changed since.
  EXPECT_GT(Fetch(peer_, BigNotification(peer_)).size(), 60'000u);
  EXPECT_TRUE(Pending().empty());
}

TEST_P(Blocks, SlowPeer_IsServedAsLongAsItFetches) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  BigNotification(peer_);
  for (uint32_t num = 1; num <= 12; ++num) {
    host_.AdvanceMs(15'000);
    EXPECT_EQ(Ask(BlockRequest(num)).payload.size(), 1024u) << num;
  }
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  EXPECT_EQ(app_.numBuilt, static_cast<uint32_t>(kNumTuples));  // not begun again
}

TEST_P(Blocks, ChangesDuringATransfer_ComeAfterIt) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  const CoapMessage first = BigNotification(peer_);
  Update("k001", "new1");
  EXPECT_EQ(Fetch(peer_, first), BodyOf("v001"));
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
  EXPECT_EQ(NextNotification(peer_).code, Code(2, 5));
  EXPECT_TRUE(Pending().empty());
}

TEST_P(Blocks, OlderTransferThatEnds_DoesNotReleaseTheUriOfANewerOne) {
  ServeBig(COAP_RPC_CON);
  RawPeer older;
  older.SetRemote(Address());
  Register(older, CoapType::kCon, {1});
  UpdateAll("v001");
  const CoapMessage olderFirst = BigNotification(older);
  Register(peer_, CoapType::kCon, {2});  // a newcomer ends the silence
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  const CoapMessage newerFirst = BigNotification(peer_);
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  EXPECT_EQ(Fetch(older, olderFirst), BodyOf("v001"));
  host_.AdvanceMs(1500);  // the older one is released
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  EXPECT_EQ(Fetch(peer_, newerFirst), BodyOf("v001"));
  host_.AdvanceMs(1000);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
}

TEST_P(Blocks, ObserversThatNeverFetch_TheirOldestPayloadsGo) {
  ServeBig(COAP_RPC_NON);
  UpdateAll("v001");
  std::vector<std::unique_ptr<RawPeer>> peers;
  uint64_t liveWith65 = 0;
  for (int i = 1; i <= 100; ++i) {
    peers.push_back(std::make_unique<RawPeer>());
    peers.back()->SetRemote(Address());
    EXPECT_EQ(Register(*peers.back(), CoapType::kNon, {1}).code, Code(2, 5)) << i;
    if (i == 65) liveWith65 = host_.Pool().LiveCount();
  }
  Tick();
  EXPECT_EQ(host_.Pool().LiveCount(), liveWith65);
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
}

TEST_P(Blocks, LastObserverLeavesDuringATransfer_TheUriIsFree) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  BigNotification(peer_);
  Ask(Observe(CoapType::kCon, {1}, "", 1));
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
}

TEST_P(Blocks, StopDuringATransfer_LeaksNothing) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1}, kQuery);
  UpdateAll("v001");
  BigNotification(peer_);
  Ask(BlockRequest(1, kQuery));
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
}

TEST_P(Blocks, UriDetachedDuringATransfer_LeaksNothing) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1}, kQuery);
  UpdateAll("v001");
  BigNotification(peer_);
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  Tick();
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
}

INSTANTIATE_TEST_SUITE_P(Format, Blocks, testing::Values(COAP_RPC_JSON, COAP_RPC_BYTE), FormatName);

}  // namespace
}  // namespace coap_rpc_test
