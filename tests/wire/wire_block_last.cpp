// Notifications in blocks that have been sent: released within a second, while their last block can
// be had for longer.
#include "block_server.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "libcoap/ext/coap_rpc_lib_last_block.h"
#include "libcoap_memory.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kRequestTag = 292;  // RFC 9175

// Nothing else that libcoap keeps as a string is as long.
bool IsLastBlock(const Need &need) {
  return need.tag == COAP_STRING && need.size > sizeof(CoapRpcLastBlock);
}

class LastBlocks : public Blocks {
 protected:
  // SendWhole lets `peer` observe and fetch one payload.
  void SendWhole(RawPeer &peer, const std::string &query = "") {
    Register(peer, CoapType::kCon, {1}, query);
    UpdateAll("v001");
    Fetch(peer, BigNotification(peer), query);
  }

  uint32_t NumKept() {
    uint32_t num = 0;
    const CoapRpcLink &head = Ctx()->lib->lastBlockList;
    for (const CoapRpcLink *link = head.next; link && link != &head; link = link->next) ++num;
    return num;
  }

  // Comparable is an answer without what belongs to its request.
  static CoapMessage Comparable(CoapMessage answer) {
    answer.messageId = 0;
    answer.token.clear();
    return answer;
  }

  CoapMessage AskForLast(RawPeer &peer, const std::string &query = "") {
    return Comparable(Ask(peer, BlockRequest(NumLastBlock(), query)));
  }

  // ExpectNothing expects an answer without payload.
  void ExpectNothing(RawPeer &peer, const CoapMessage &request) {
    const CoapMessage answer = Ask(peer, request);
    EXPECT_TRUE(answer.payload.empty());
    EXPECT_FALSE(answer.Has(kOptBlock2));
  }
};

TEST_P(LastBlocks, FinishedTransfer_IsReleasedWithinASecondOfItsLastBlock) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_);
  const uint64_t live = host_.Pool().LiveCount();
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  host_.AdvanceMs(700);
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  EXPECT_EQ(host_.Pool().LiveCount(), live);
  host_.AdvanceMs(200);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  const uint64_t numRecords = IsJson() ? 1 : 2;  // a JSON text is Jansson's
  EXPECT_EQ(host_.Pool().LiveCount(), live - numRecords);
  EXPECT_EQ(NumKept(), 1u);
  host_.AdvanceMs(10'000);  // then nobody asks for the last block again
  EXPECT_EQ(host_.Pool().LiveCount(), live - numRecords - 1 - kNumTuples);
  EXPECT_EQ(NumKept(), 0u);
}

TEST_P(LastBlocks, PoolIsAsBeforeThePayloadWhenItsLastBlockIsForgotten) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_);  // the tuples stay
  host_.AdvanceMs(11'000);
  const uint64_t live = host_.Pool().LiveCount();
  UpdateAll("v002");
  EXPECT_EQ(Fetch(peer_, BigNotification(peer_)), BodyOf("v002"));
  host_.AdvanceMs(11'000);
  EXPECT_EQ(host_.Pool().LiveCount(), live) << host_.Pool().LeakText();
}

TEST_P(LastBlocks, LastBlockAskedForAgain_TheSameBytesFor10Seconds) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  const CoapMessage head = BigNotification(peer_);
  for (uint32_t num = 1; num < NumLastBlock(); ++num) Ask(BlockRequest(num));
  const CoapMessage first = AskForLast(peer_);
  EXPECT_EQ(first.code, Code(2, 5));
  EXPECT_FALSE(first.Has(kOptObserve));
  for (const uint16_t option : {kOptEtag, kOptContentFormat, kOptUriPath, kOptSize2}) {
    EXPECT_EQ(first.Values(option), head.Values(option)) << option;
  }
  const Bytes body = BodyOf("v001");
  EXPECT_EQ(first.payload, Bytes(body.begin() + NumLastBlock() * 1024, body.end()));
  for (const uint64_t afterMs : {500u, 1000u, 2500u, 5000u}) {  // and 100 ms for each answer
    SCOPED_TRACE(afterMs);
    host_.AdvanceMs(afterMs);
    EXPECT_EQ(AskForLast(peer_), first);
  }
  EXPECT_EQ(NumKept(), 1u);
  host_.AdvanceMs(1000);
  EXPECT_EQ(NumKept(), 0u);
  ExpectNothing(peer_, BlockRequest(NumLastBlock()));
}

TEST_P(LastBlocks, AskedForAgainWithTheQueryOfTheRegistration) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_, kQuery);
  host_.AdvanceMs(2000);
  EXPECT_EQ(AskForLast(peer_, kQuery).payload.size(), (BodyOf("v001").size() - 1) % 1024 + 1);
  ExpectNothing(peer_, BlockRequest(NumLastBlock()));
  ExpectNothing(peer_, BlockRequest(NumLastBlock(), "_ual-checkcode=1"));
}

TEST_P(LastBlocks, NonRequest_GetsANonAnswer) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_);
  const CoapMessage con = AskForLast(peer_);
  host_.AdvanceMs(1000);
  CoapMessage request = BlockRequest(NumLastBlock());
  request.type = CoapType::kNon;
  CoapMessage non = Comparable(Ask(request));
  EXPECT_EQ(non.type, CoapType::kNon);
  non.type = con.type;
  EXPECT_EQ(non, con);
}

TEST_P(LastBlocks, RequestsForSomethingElse_GetNothing) {
  ServeBig(COAP_RPC_CON);
  Serve(KeyOf("other"), RegOf(&app_, 0));
  SendWhole(peer_);
  host_.AdvanceMs(1000);
  const uint32_t last = NumLastBlock();
  RawPeer stranger;
  stranger.SetRemote(Address());
  ExpectNothing(stranger, BlockRequest(last));
  ExpectNothing(peer_, BlockRequest(last - 1));
  ExpectNothing(peer_, BlockRequest(last + 1));
  ExpectNothing(peer_, BlockRequest(0));
  ExpectNothing(peer_, Get(CoapType::kCon, "obs"));
  ExpectNothing(peer_, Get(CoapType::kCon, "other").AddBlock(kOptBlock2, {last, false, 6}));
  ExpectNothing(peer_, Post(CoapType::kCon, "obs").AddBlock(kOptBlock2, {last, false, 6}));
  ExpectNothing(peer_, Get(CoapType::kCon, "obs").AddBlock(kOptBlock2, {last, false, 5}));
  ExpectNothing(peer_, BlockRequest(last).Add(kRequestTag, {7}));
  ExpectNothing(peer_, BlockRequest(last).Add(kOptEtag, EtagBytes(entry_->etag + 1)));
  EXPECT_EQ(AskForLast(peer_).code, Code(2, 5));
}

// Requests for later blocks do not carry the option (RFC 7959 section 2.6): libcoap refuses those
// that it does not answer itself.
TEST_P(LastBlocks, AskedForAgainWithObserve_RefusedOnceThePayloadIsReleased) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_);
  const auto withObserve = [this] { return BlockRequest(NumLastBlock()).AddUint(kOptObserve, 0); };
  EXPECT_EQ(Ask(withObserve()).code, Code(2, 5));
  host_.AdvanceMs(1000);
  EXPECT_EQ(NumKept(), 1u);
  const CoapMessage refused = Ask(withObserve());
  EXPECT_EQ(refused.code, Code(4, 0));
  EXPECT_TRUE(refused.payload.empty());
  EXPECT_EQ(entry_->observerNum, 1u);
  EXPECT_EQ(AskForLast(peer_).code, Code(2, 5));
}

TEST_P(LastBlocks, PeerThatRepeatsItsRequests_DoesNotProlongTheSilence) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_);
  for (int i = 0; i < 2; ++i) {
    host_.AdvanceMs(200);
    EXPECT_EQ(Ask(BlockRequest(NumLastBlock())).code, Code(2, 5));
    EXPECT_EQ(Ask(BlockRequest(1)).code, Code(2, 5));
  }
  host_.AdvanceMs(100);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  EXPECT_EQ(AskForLast(peer_).code, Code(2, 5));
}

TEST_P(LastBlocks, NewerPayloadToThePeer_TakesTheLastBlocksPlace) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_);
  host_.AdvanceMs(1000);
  UpdateAll("v002");
  const CoapMessage first = BigNotification(peer_);
  EXPECT_EQ(Fetch(peer_, first), BodyOf("v002"));
  host_.AdvanceMs(1000);
  const Bytes body = BodyOf("v002");
  EXPECT_EQ(AskForLast(peer_).payload, Bytes(body.begin() + NumLastBlock() * 1024, body.end()));
}

TEST_P(LastBlocks, NewerPayloadToAnotherPeer_BothCanAskAgain) {
  ServeBig(COAP_RPC_CON);
  RawPeer older;
  older.SetRemote(Address());
  SendWhole(older);
  host_.AdvanceMs(1000);
  Register(peer_, CoapType::kCon, {2});
  UpdateAll("v002");
  const CoapMessage first = BigNotification(peer_);
  EXPECT_EQ(Fetch(peer_, first), BodyOf("v002"));
  host_.AdvanceMs(1000);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  EXPECT_EQ(NumKept(), 2u);
  EXPECT_EQ(AskForLast(peer_).code, Code(2, 5));
}

TEST_P(LastBlocks, NoMemoryForIt_TheTransferIsReleasedAllTheSame) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_);
  const uint64_t live = host_.Pool().LiveCount();
  {
    const NoMemory noLastBlock(IsLastBlock);
    host_.AdvanceMs(1000);
    EXPECT_EQ(noLastBlock.NumRefused(), 1);
  }
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  EXPECT_LT(host_.Pool().LiveCount(), live);
  EXPECT_EQ(NumKept(), 0u);
  ExpectNothing(peer_, BlockRequest(NumLastBlock()));
}

TEST_P(LastBlocks, ManyPeers_TheOldestLastBlocksGo) {
  ServeBig(COAP_RPC_NON);
  app_.padding = 20;
  const uint32_t last = IsJson() ? 3 : 2;
  UpdateAll("v001");
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (int i = 1; i <= 70; ++i) {
    peers.push_back(std::make_unique<RawPeer>());
    RawPeer &peer = *peers.back();
    peer.SetRemote(Address());
    peer.Send(Observe(CoapType::kNon, {1}, kQuery));
    COAP_RpcProcIo(Ctx());
    const std::optional<CoapMessage> first = Next(peer);
    ASSERT_TRUE(first);
    for (uint32_t num = 1; num <= last; ++num) {
      peer.Send(BlockRequest(num, kQuery));
      COAP_RpcProcIo(Ctx());
    }
  }
  host_.AdvanceMs(1000);
  EXPECT_EQ(NumKept(), 64u);
}

TEST_P(LastBlocks, SessionGoes_ItsLastBlockGoes) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_);
  host_.AdvanceMs(1000);
  EXPECT_EQ(NumKept(), 1u);
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);  // the listen's last URI
  EXPECT_EQ(NumKept(), 0u);
}

TEST_P(LastBlocks, EntryGoes_ItsLastBlockGoes) {
  ServeBig(COAP_RPC_CON);
  Serve(KeyOf("other"), RegOf(&app_, 0));
  SendWhole(peer_);
  host_.AdvanceMs(1000);
  EXPECT_EQ(NumKept(), 1u);
  COAP_RpcSerDelUriVtbl(Ctx()->ser, entry_);
  EXPECT_EQ(NumKept(), 0u);
  ExpectNothing(peer_, BlockRequest(NumLastBlock()));
}

TEST_P(LastBlocks, Stop_LeaksNothing) {
  ServeBig(COAP_RPC_CON);
  SendWhole(peer_, kQuery);
  host_.AdvanceMs(1000);
  EXPECT_EQ(NumKept(), 1u);
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
}

INSTANTIATE_TEST_SUITE_P(Format, LastBlocks, testing::Values(COAP_RPC_JSON, COAP_RPC_BYTE),
                         FormatName);

}  // namespace
}  // namespace coap_rpc_test
