// Pages in blocks that take their time, blocks that are of none, and many messages at once.
#include "coap_svc/rpc/coap_rpc_stats.h"
#include "mirror_client.h"

namespace coap_rpc_test {
namespace {

class MirrorBlocks : public MirrorClient {
 protected:
  static constexpr uint32_t kBlock = 1024;

  uint64_t NumMessages() {
    CoapRpcStats stats = {};
    stats.size = sizeof(stats);
    EXPECT_EQ(COAP_RpcGetStats(Ctx(), &stats), 0u);
    return stats.in.messages;
  }

  CoapMessage BlockOf(const CoapMessage &request, const std::string &body, uint32_t number,
                      uint32_t etag = 1) {
    const bool isMore = (number + 1) * kBlock < body.size();
    CoapMessage answer = Request(CoapType::kNon, Code(2, 5), ++mid_, request.token);
    answer.AddUint(kOptEtag, etag)
        .AddUint(kOptContentFormat, kFormatCbor)
        .AddUint(23, number << 4 | (isMore ? 8 : 0) | 6);
    return answer.PayloadText(body.substr(number * kBlock, kBlock));
  }
};

TEST_F(MirrorBlocks, LongPageOfASlowServer_IsNoSilence) {
  CoapRpcMirrorParam param = Param();
  param.valLen = 60'000;
  param.heartbeatMs = 100;
  param.onAdded = nullptr;
  param.onChanged = nullptr;
  param.onRemoved = nullptr;
  mirror_ = Open(param);
  const std::string val(60'000, 'v');
  const uint64_t digest = DigestOf({"k001" + val});
  const std::string page =
      Written({.to = 1, .head = 1, .digest = digest, .changes = {{1, "k001", val}}});
  for (int i = 0; i < 600 && State().state != COAP_RPC_MIRROR_SYNCED; ++i) {
    Tick();
    while (const auto request = peer_.ReceiveNow()) {
      const std::string query = QueryOf(*request);
      if (request->Has(23)) {
        Reply(BlockOf(*request, page, static_cast<uint32_t>(request->Uint(23).value_or(0) >> 4)));
      } else if (query == "_sync=1") {
        Reply(AnswerWith(*request, {.head = 1, .digest = digest}));
      } else if (query.find("until=") != std::string::npos) {
        Reply(BlockOf(*request, page, 0));
      } else {
        Reply(AnswerWith(*request, {.flags = 1, .from = 1, .to = 1, .head = 1, .digest = digest}));
      }
    }
  }
  EXPECT_EQ(State().state, uint32_t{COAP_RPC_MIRROR_SYNCED});
  EXPECT_EQ(State().numRegistrations, 1u);
}

// MirrorTornBlocks has a server of one long tuple whose blocks have the ETags that `etagOf` gives
// them.
class MirrorTornBlocks : public MirrorBlocks {
 protected:
  void Open(uint32_t heartbeatMs) {
    CoapRpcMirrorParam param = {};
    param.keyLen = 4;
    param.valLen = 60'000;
    param.heartbeatMs = heartbeatMs;
    param.userData = reinterpret_cast<uint64_t>(&app_);
    param.onState = MirrorApp::OnState;
    mirror_ = MirrorClient::Open(param);
  }
  template <typename EtagOf>
  void Serve(EtagOf etagOf) {
    while (const auto request = peer_.ReceiveNow()) {
      const auto number = static_cast<uint32_t>(request->Uint(23).value_or(0) >> 4);
      const bool isHead = QueryOf(*request) == "_sync=1" && !request->Has(23);
      ++numServed_;
      Reply(isHead ? AnswerWith(*request, {.head = 1})
                   : BlockOf(*request, page_, number, etagOf(number)));
    }
  }

  std::string page_ =
      Written({.to = 1, .head = 1, .changes = {{1, "k001", std::string(60'000, 'v')}}});
  uint32_t numServed_ = 0;
};

TEST_F(MirrorTornBlocks, BlocksThatNeverMakeAPage_AreGivenUp) {
  page_.append(100'000, '.');
  Open(30'000);
  for (int i = 0; i < 9000 && State().state != COAP_RPC_MIRROR_REFUSED; ++i) {
    Tick();
    Serve([](uint32_t) { return 1u; });
  }
  EXPECT_EQ(app_.Take(), "FULL_SYNC, REFUSED 1620");
  EXPECT_LE(numServed_, 2100u);
  EXPECT_EQ(State().numBadMessages, 1u);
  Tick();
  EXPECT_EQ(State().numRegistrations, 2u);
}

TEST_F(MirrorTornBlocks, TupleThatChangesWhileItIsRead_IsNoSilence) {
  Open(1000);
  uint32_t numReads = 0;
  for (int i = 0; i < 300; ++i) {
    Tick();
    Serve([&numReads](uint32_t number) {
      numReads += number == 0;
      return number < 20 ? 2 * numReads : 2 * numReads + 1;
    });
  }
  EXPECT_EQ(app_.Take(), "FULL_SYNC");
  EXPECT_EQ(State().numRegistrations, 1u);
}

TEST_F(MirrorTornBlocks, ServerThatSaysSoItself_IsRefused) {
  Open(30'000);
  Say(Error(Next(), Code(4, 8)));
  EXPECT_EQ(app_.Take(), "REFUSED 1618");
}

// libcoap would take a mebibyte for the block, and ask for those before it.
TEST_F(MirrorBlocks, BlockThatNoPageReaches_IsDropped) {
  mirror_ = Open(Param());
  const CoapMessage hello = Next();
  for (const uint32_t number : {65u, 1023u}) {
    CoapMessage answer = Request(CoapType::kNon, Code(2, 5), ++mid_, hello.token);
    answer.AddUint(kOptContentFormat, kFormatCbor).AddUint(23, number << 4 | 8 | 6);
    Say(answer.PayloadText(std::string(kBlock, 'x')));
    EXPECT_FALSE(peer_.ReceiveNow());
  }
  Say(hello, {.head = 0});
  EXPECT_EQ(app_.Take(), "FULL_SYNC");
}

// As many answers as there may be questions in flight come at once.
TEST_F(MirrorBlocks, BurstOfAnswers_FindsRoom) {
  constexpr uint32_t kNumAnswers = 150;
  mirror_ = Open(Param());
  const CoapMessage hello = Next();
  const CoapMessage foreign = Request(CoapType::kNon, kCodeGet, 1, {1, 2, 3});
  const uint64_t before = NumMessages();
  for (uint32_t i = 0; i < kNumAnswers; ++i) {
    Reply(AnswerBytes(foreign, std::string(kBlock, 'x')));
  }
  Say(hello, {.head = 0});
  for (int i = 0; i < 10; ++i) COAP_RpcProcIo(Ctx());
  EXPECT_EQ(NumMessages(), before + kNumAnswers + 1);
  EXPECT_EQ(app_.Take(), "FULL_SYNC");
}

}  // namespace
}  // namespace coap_rpc_test
