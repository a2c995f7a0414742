// Notifications that travel in blocks: whole bodies, and how long they keep their URI silent.
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

constexpr char kQuery[] = "_ual-checkcode=0";

class Blocks : public ObserveServer, public testing::WithParamInterface<uint8_t> {
 protected:
  static constexpr int kNumTuples = 60;
  static constexpr size_t kPadding = 1000;

  bool IsJson() const { return GetParam() == COAP_RPC_JSON; }

  void ServeBig(uint32_t msgType) {
    ServeObs(msgType, GetParam());
    app_.padding = kPadding;
  }

  static std::string Key(int i) {
    char text[8];
    snprintf(text, sizeof(text), "k%03d", i);
    return text;
  }

  // UpdateAll queues a change of each tuple.
  void UpdateAll(const std::string &val) {
    for (int i = 0; i < kNumTuples; ++i) Update(Key(i), val);
  }

  // BodyOf is the payload of all tuples with one value.
  Bytes BodyOf(const std::string &val) const {
    const std::string padded = val + std::string(kPadding, 'p');
    if (IsJson()) return BytesOf(JsonOf(padded));
    Bytes body = {kNumTuples, 0, 0, 0};
    for (int i = 0; i < kNumTuples; ++i) {
      const std::string message = "u:" + Key(i) + "=" + padded;
      body.push_back(static_cast<uint8_t>(message.size()));
      body.push_back(static_cast<uint8_t>(message.size() >> 8));
      body.insert(body.end(), message.begin(), message.end());
    }
    return body;
  }

  // BigNotification waits for a first block.
  CoapMessage BigNotification(RawPeer &peer) {
    for (;;) {
      CoapMessage message = NextNotification(peer);
      if (message.code == Code(2, 5) || message.code == 0) return message;
    }
  }

  CoapMessage BlockRequest(uint32_t num, const std::string &query = "") {
    CoapMessage next = Request(CoapType::kCon, kCodeGet, ++mid_, {0xB0}).AddPath("obs");
    if (!query.empty()) next.AddText(kOptUriQuery, query);
    return next.AddBlock(kOptBlock2, {num, false, 6});
  }

  Bytes Fetch(RawPeer &peer, const CoapMessage &first, const std::string &query = "") {
    const uint16_t mid = mid_;
    mid_ = static_cast<uint16_t>(mid_ + 100);
    return ReadBlocks(first, "obs", query, mid, [&](const CoapMessage &next) {
      CoapMessage answer = Ask(peer, next);
      EXPECT_EQ(answer.code, Code(2, 5)) << peer.LogText().substr(0, 2000);
      return answer;
    });
  }

  uint32_t NumLastBlock() const {
    return static_cast<uint32_t>((BodyOf("v001").size() - 1) / 1024);
  }

 private:
  static std::string JsonOf(const std::string &padded) {
    std::string text = R"({"data":[)";
    for (int i = 0; i < kNumTuples; ++i) {
      if (i != 0) text += ",";
      text += R"({"op":"u","key":")" + Key(i) + R"(","val":")" + padded + R"("})";
    }
    return text + "]}";
  }
};

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

TEST_P(Blocks, FinishedTransfer_FreesTheUriWithinASecondOfItsLastBlock) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  Fetch(peer_, BigNotification(peer_));
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  host_.AdvanceMs(800);
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  host_.AdvanceMs(200);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
}

TEST_P(Blocks, FinishedTransfer_ItsBufferIsFreedAfter8Seconds) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  Fetch(peer_, BigNotification(peer_));
  const uint64_t liveWhileKept = host_.Pool().LiveCount();
  host_.AdvanceMs(7000);
  EXPECT_EQ(host_.Pool().LiveCount(), liveWhileKept);
  host_.AdvanceMs(1200);
  EXPECT_LT(host_.Pool().LiveCount(), liveWhileKept);
}

// At first the URI is still silent for others; later it is free, and the peer is served all the
// same.
TEST_P(Blocks, LastBlockAskedForAgain_IsSentAgain) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  Fetch(peer_, BigNotification(peer_));
  const Bytes body = BodyOf("v001");
  for (const uint64_t afterMs : {700, 2000, 3000}) {
    SCOPED_TRACE(afterMs);
    host_.AdvanceMs(afterMs);
    const CoapMessage again = Ask(BlockRequest(NumLastBlock()));
    EXPECT_EQ(again.code, Code(2, 5));
    EXPECT_EQ(again.payload, Bytes(body.begin() + NumLastBlock() * 1024, body.end()));
  }
}

TEST_P(Blocks, PeerThatRepeatsTheLastRequest_DoesNotProlongTheSilence) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  Fetch(peer_, BigNotification(peer_));
  for (int i = 0; i < 2; ++i) {
    host_.AdvanceMs(400);
    EXPECT_EQ(Ask(BlockRequest(NumLastBlock())).code, Code(2, 5));
    EXPECT_EQ(Ask(BlockRequest(1)).code, Code(2, 5));
  }
  host_.AdvanceMs(200);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
}

TEST_P(Blocks, NewPayloadWhileAFinishedOneIsKept_HasTheUriForItself) {
  ServeBig(COAP_RPC_CON);
  RawPeer older;
  older.SetRemote(Address());
  Register(older, CoapType::kCon, {1});
  UpdateAll("v001");
  Fetch(older, BigNotification(older));
  host_.AdvanceMs(1000);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  Register(peer_, CoapType::kCon, {2});
  UpdateAll("v002");
  const CoapMessage first = BigNotification(peer_);
  host_.AdvanceMs(8000);  // the kept one is freed
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  EXPECT_EQ(Fetch(peer_, first), BodyOf("v002"));
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
  host_.AdvanceMs(2000);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  EXPECT_EQ(NextNotification(peer_).code, Code(2, 5));
  EXPECT_TRUE(Pending().empty());
}

TEST_P(Blocks, SlowPeer_IsServedAsLongAsItFetches) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  BigNotification(peer_);
  for (uint32_t num = 1; num <= 5; ++num) {
    host_.AdvanceMs(15'000);
    EXPECT_EQ(Ask(BlockRequest(num)).payload.size(), 1024u) << num;
  }
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
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

std::string FormatName(const testing::TestParamInfo<uint8_t> &format) {
  return format.param == COAP_RPC_JSON ? "Json" : "Idl";
}

INSTANTIATE_TEST_SUITE_P(Format, Blocks, testing::Values(COAP_RPC_JSON, COAP_RPC_BYTE), FormatName);

}  // namespace
}  // namespace coap_rpc_test
