// Each limit of a server that refuses or drops something: it is counted once for each time, under
// its name.
#include "async_server.h"
#include "block_server.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_answer_session.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync.h"
#include "direct_server.h"
#include "libcoap_lists.h"
#include "stats_changes.h"
#include "sync_server.h"

namespace coap_rpc_test {
namespace {

// RefusedOf are the limits that took effect, by name.
Changes RefusedOf(const CoapRpcStats &stats) {
  Changes refused;
  for (const auto &[name, value] : ByName(stats)) {
    if (name.starts_with("refused.") && value != 0)
      refused[name.substr(8)] = static_cast<int64_t>(value);
  }
  return refused;
}

template <typename Base>
class LimitTest : public Base {
 protected:
  void SetUp() override { this->host_.Logs().SuppressBelow(KST_LOG_ERROR + 1); }
  std::string Refused() const { return TextOf(RefusedOf(StatsOf(this->Ctx()))); }
  static std::string Of(const std::string &name, int64_t num) { return TextOf({{name, num}}); }
};

// ---- requests ----

class AsyncLimits : public LimitTest<Async> {
 protected:
  void ExpectUnavailable() { EXPECT_EQ(Ask(asker_, GetWith({9})).code, Code(5, 3)); }
  coap_rpc::AnswerSession *Session() {
    return coap_rpc::FindAnswerSession(Ctx(), entry_->asyncSession);
  }
};

TEST_F(AsyncLimits, OpenInAll) {
  ServeAsync();
  Ctx()->lib->numOpenAsync = COAP_RPC_MAX_OPEN_ASYNC;
  ExpectUnavailable();
  Ctx()->lib->numOpenAsync = 0;
  EXPECT_EQ(Refused(), Of("open", 1));
}

TEST_F(AsyncLimits, OpenOfPeer) {
  ServeAsync();
  AskOnce(GetWith({1}));
  Session()->peer->numOpen += COAP_RPC_MAX_OPEN_ASYNC_OF_PEER;
  ExpectUnavailable();
  Session()->peer->numOpen -= COAP_RPC_MAX_OPEN_ASYNC_OF_PEER;
  EXPECT_EQ(Refused(), Of("openOfPeer", 1));
}

TEST_F(AsyncLimits, OpenOfPeer_AsManyAsAreFree) {
  ServeAsync();
  AskOnce(GetWith({1}));
  Ctx()->lib->numOpenAsync = COAP_RPC_MAX_OPEN_ASYNC - 1;
  ExpectUnavailable();
  Ctx()->lib->numOpenAsync = 1;
  EXPECT_EQ(Refused(), Of("openOfPeer", 1));
  AskOnce(GetWith({2}));
}

TEST_F(AsyncLimits, Askers) {
  ServeAsync();
  Ctx()->lib->numAnswerSessions += 500;
  ExpectUnavailable();
  Ctx()->lib->numAnswerSessions -= 500;
  EXPECT_EQ(Refused(), Of("askers", 1));
}

TEST_F(AsyncLimits, QueuedAnswers) {
  ServeAsync();
  AskOnce(GetWith({1}));
  Session()->numQueued += 2048;
  ExpectUnavailable();
  Session()->numQueued -= 2048;
  EXPECT_EQ(Refused(), Of("answers", 1));
}

TEST_F(AsyncLimits, IdlePeers) {
  ServeAsync();
  for (int i = 0; i <= 1000; ++i) {
    RawPeer peer({"127.250." + std::to_string(i / 200) + "." + std::to_string(i % 200 + 1), 0});
    peer.SetRemote(Address());
    EXPECT_EQ(StatsOf(Ctx()).peers, static_cast<uint64_t>(i));
    Ask(peer, Request(CoapType::kCon, 0, ++mid_));
  }
  EXPECT_EQ(StatsOf(Ctx()).peers, 1000u);
  EXPECT_EQ(Refused(), Of("idlePeers", 1));
}

TEST_F(AsyncLimits, Uploads) {
  ServeAsync();
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (int i = 0; i < 66; ++i) {
    peers.push_back(std::make_unique<RawPeer>());
    peers.back()->SetRemote(Address());
    CoapMessage part = GetWith({7}).AddBlock(kOptBlock1, {0, true, 6}).AddUint(kOptSize1, 3000);
    Ask(*peers.back(), part.PayloadText(std::string(1024, 'p')));
  }
  Tick();
  EXPECT_EQ(Refused(), Of("uploads", 2));
}

// ---- direct entries ----

class DirectLimits : public LimitTest<Direct> {
 protected:
  void ExpectUnavailable() { EXPECT_EQ(Ask(Message(kCodePost, "q")).code, Code(5, 3)); }
};

TEST_F(DirectLimits, OpenOrQueued) {
  ServeDirect(kModeAsync);
  Ctx()->lib->numOpenAsync = COAP_RPC_MAX_OPEN_ASYNC;
  ExpectUnavailable();
  Ctx()->lib->numOpenAsync = 0;
  EXPECT_EQ(Refused(), Of("direct", 1));
}

TEST_F(DirectLimits, Peers) {
  ServeDirect(kModeAsync);
  Ctx()->lib->direct->numPeers = 16384;
  ExpectUnavailable();
  Ctx()->lib->direct->numPeers = 0;
  EXPECT_EQ(Refused(), Of("directPeers", 1));
}

TEST_F(DirectLimits, Remembered) {
  ServeDirect(kModeSync);
  COAP_RpcSetLibLogLevel(Ctx(), 0);
  app_.out = std::string(1000, 'x');
  for (int i = 0; i < 5000; ++i) {
    peer_.Send(Message(kCodePost, "", CoapType::kNon));
    COAP_RpcProcIo(Ctx());
    (void)peer_.ReceiveNow();
  }
  const auto numForgotten = static_cast<int64_t>(COAP_RpcGetForgottenNum(Ctx()));
  EXPECT_GT(numForgotten, 0);
  EXPECT_EQ(Refused(), Of("remembered", numForgotten));
}

TEST_F(DirectLimits, Bodies) {
  ServeDirect(kModeSync);
  COAP_RpcSetLibLogLevel(Ctx(), 0);
  app_.out = std::string(60000, 'a');
  const uint32_t numBodies = 32 * 1024 * 1024 / 60000 + 2;
  for (uint32_t i = 0; i < numBodies; ++i) {
    Ask(Message(kCodeGet).AddText(kOptUriQuery, std::to_string(i)));
  }
  EXPECT_EQ(Refused(), Of("directBodies", 2));
}

// ---- observers and readers ----

class ObserveLimits : public LimitTest<ObserveServer> {
 protected:
  // ObserveAs registers a relation of its own: each has another query.
  CoapMessage ObserveAs(int i) {
    const Bytes token = {static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    return Ask(Observe(CoapType::kCon, token, "n=" + std::to_string(i)));
  }
};

TEST_F(ObserveLimits, Observers) {
  ServeObs(COAP_RPC_NON);
  for (int i = 0; i < 1000; ++i) ObserveAs(i);
  EXPECT_EQ(StatsOf(Ctx()).observers, 1000u);
  EXPECT_EQ(Refused(), "");
  EXPECT_FALSE(ObserveAs(1000).Has(kOptObserve));
  EXPECT_EQ(StatsOf(Ctx()).observers, 1000u);
  EXPECT_EQ(Refused(), Of("observers", 1));
}

TEST_F(ObserveLimits, PayloadsOfObservers) {
  ServeObs(COAP_RPC_NON);
  const auto with = [&](uint8_t id, size_t len) {
    CoapMessage request = Observe(CoapType::kCon, {id}, "n=" + std::to_string(id));
    return request.PayloadText(std::string(len, 'x'));
  };
  size_t *num = LibcoapObserverBytes(Ctx()->lib->coapCtx);
  *num = 4 * 1024 * 1024 - 100;
  EXPECT_FALSE(Ask(with(1, 101)).Has(kOptObserve));
  EXPECT_EQ(Refused(), Of("observers", 1));
  EXPECT_TRUE(Ask(with(2, 100)).Has(kOptObserve));
  EXPECT_FALSE(Ask(with(3, 1)).Has(kOptObserve));
  EXPECT_TRUE(Ask(with(4, 0)).Has(kOptObserve));
  EXPECT_TRUE(Ask(with(2, 90)).Has(kOptObserve)) << "in place of the former one";
}

TEST_F(ObserveLimits, ChangesPutBack) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  host_.AdvanceMs(3000);
  while (peer_.ReceiveNow()) {
  }
  Update("lost", "v001");
  Update("lose", "v001");
  const std::optional<CoapMessage> lost = Next(peer_);
  ASSERT_TRUE(lost);
  const auto keyOf = [](uint32_t i) {
    return std::string(
        {static_cast<char>(i), static_cast<char>(i >> 8), static_cast<char>(i >> 16), '!'});
  };
  for (uint32_t i = 0; i < 65535; ++i) Update(keyOf(i), "v001");
  peer_.Send(Request(CoapType::kRst, 0, lost->messageId));
  COAP_RpcProcIo(Ctx());
  EXPECT_EQ(StatsOf(Ctx()).changesPutBack, 1u);
  EXPECT_EQ(Refused(), Of("putBack", 1));
  EXPECT_EQ(StatsOf(Ctx()).changesPending, 65536u);
}

class BlockLimits : public LimitTest<Blocks> {};

TEST_P(BlockLimits, GivenUp) {
  ServeBig(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  UpdateAll("v001");
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(Refused(), "");
    EXPECT_EQ(BigNotification(peer_).code, Code(2, 5)) << i;
    host_.AdvanceMs(19'500);
  }
  EXPECT_EQ(Refused(), Of("givenUp", 1));
}

// Observers that never fetch.  The newest payload is the one that silences its URI.
TEST_P(BlockLimits, PayloadsInBlocks) {
  ServeBig(COAP_RPC_NON);
  UpdateAll("v001");
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (int i = 0; i < 67; ++i) {
    peers.push_back(std::make_unique<RawPeer>());
    peers.back()->SetRemote(Address());
    EXPECT_EQ(Register(*peers.back(), CoapType::kNon, {1}).code, Code(2, 5)) << i;
  }
  Tick();
  EXPECT_EQ(Refused(), Of("payloads", 2));
}

TEST_P(BlockLimits, LastBlocks) {
  ServeBig(COAP_RPC_NON);
  app_.padding = 20;
  const uint32_t last = IsJson() ? 3 : 2;
  UpdateAll("v001");
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (int i = 0; i < 67; ++i) {
    peers.push_back(std::make_unique<RawPeer>());
    RawPeer &peer = *peers.back();
    peer.SetRemote(Address());
    peer.Send(Observe(CoapType::kNon, {1}, kQuery));
    COAP_RpcProcIo(Ctx());
    ASSERT_TRUE(Next(peer));
    for (uint32_t num = 1; num <= last; ++num) {
      peer.Send(BlockRequest(num, kQuery));
      COAP_RpcProcIo(Ctx());
    }
  }
  host_.AdvanceMs(1000);
  EXPECT_EQ(Refused(), Of("lastBlocks", 3));
  host_.AdvanceMs(20000);
  EXPECT_EQ(Refused(), Of("lastBlocks", 3)) << "those whose time is over are no news";
}

TEST_P(BlockLimits, LastBlockThatIsAskedForAgain_IsARepeat) {
  ServeBig(COAP_RPC_NON);
  app_.padding = 20;
  UpdateAll("v001");
  const CoapMessage first = Register(peer_, CoapType::kNon, {1}, kQuery);
  const size_t len = Fetch(peer_, first, kQuery).size();
  host_.AdvanceMs(1000);
  const uint64_t before = StatsOf(Ctx()).repeats;
  const CoapMessage again = Ask(BlockRequest(static_cast<uint32_t>((len - 1) / 1024), kQuery));
  EXPECT_EQ(again.code, Code(2, 5));
  EXPECT_EQ(StatsOf(Ctx()).repeats, before + 1);
  EXPECT_EQ(Refused(), "");
}

INSTANTIATE_TEST_SUITE_P(Formats, BlockLimits, testing::Values(COAP_RPC_JSON, COAP_RPC_BYTE));

class SyncLimits : public LimitTest<SyncServer> {};

TEST_F(SyncLimits, PagesInBlocks) {
  ServeSynced();
  for (int i = 0; i < 100; ++i) {
    char key[8];
    snprintf(key, sizeof(key), "k%03d", i);
    Update(key, "v001");
  }
  for (int i = 0; i < 66; ++i) {
    RawPeer peer({"127.250.0." + std::to_string(i + 1), 0});
    peer.SetRemote(Address());
    CoapMessage pull = Reading(CoapType::kCon, {"_sync=1", kIdArg, "since=0"});
    const CoapMessage page = Ask(peer, pull.AddBlock(kOptBlock2, {0, false, 0}));
    EXPECT_EQ(page.payload.size(), 16u);
  }
  EXPECT_EQ(Refused(), Of("syncBodies", 2));
}

TEST_F(SyncLimits, RegistrationsOfASession) {
  ServeSynced();
  for (uint8_t i = 0; i < 6; ++i) {
    Ask(peer_, Registering({i}).AddText(kOptUriHost, std::to_string(i)));
  }
  EXPECT_EQ(Refused(), Of("syncRegistrations", 2));
}

}  // namespace
}  // namespace coap_rpc_test
