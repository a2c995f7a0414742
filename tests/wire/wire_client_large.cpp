// Request payloads beyond one message, and invalid lengths.
#include <map>
#include <numeric>

#include "fixed_random.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

std::string BodyOf(size_t len, uint32_t seed = 0) {
  std::string body(len, '\0');
  for (size_t i = 0; i < len; ++i) body[i] = static_cast<char>('a' + (i * 7 + seed) % 26);
  return body;
}

class ClientLarge : public WireClient {
 protected:
  void SetUp() override { COAP_RpcRefreshTaskTimer(Ctx()); }

  // Fetch plays the server of one block-wise request until its last block, and returns the body.
  std::string Fetch(const CoapMessage &first) {
    std::string body;
    CoapMessage block = first;
    while (true) {
      const std::optional<CoapBlock> option = block.Block(kOptBlock1);
      EXPECT_TRUE(option);
      if (!option) return body;
      EXPECT_EQ(body.size(), size_t{option->num} << (option->szx + 4));
      body += block.Text();
      CoapMessage answer = Request(CoapType::kAck, option->more ? Code(2, 31) : Code(2, 4),
                                   block.messageId, block.token);
      answer.AddBlock(kOptBlock1, *option);
      if (!option->more) answer.AddPath(block.Path());
      peer_.Send(answer);
      if (!option->more) return body;
      block = Next();
    }
  }

  App app_;
  CoapRpcUriKey key_ = KeyOf("a");
};

TEST_F(ClientLarge, LongestPayload_GoesOutInBlocks) {
  Register(key_, &app_);
  app_.out = BodyOf(65470);
  EXPECT_EQ(Call(key_, 1, COAP_RPC_POST), 0U);
  const CoapMessage first = Next();
  EXPECT_EQ(first.Uint(kOptSize1), 65470U);
  EXPECT_EQ(first.Values(kOptUriHost), std::vector<Bytes>{BytesOf("127.0.0.2")});
  EXPECT_EQ(first.Path(), "a");
  EXPECT_FALSE(first.token.empty());
  EXPECT_EQ(Fetch(first), app_.out);
  Ticks(2);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].info.rspCode, 204U);
  EXPECT_TRUE(host_.HasLog("request payload len: 65470."));
  EXPECT_EQ(SessionOf(PeerAddr())->msgStatistic[0], 1U);
  EXPECT_EQ(ReqOf(key_), nullptr);
}

TEST_F(ClientLarge, BodyInFlight_IsNotTheSharedBuffer) {
  Register(key_, &app_);
  app_.out = BodyOf(5000, 1);
  EXPECT_EQ(Call(key_, 1, COAP_RPC_POST), 0U);
  const std::string body = app_.out;
  const CoapMessage first = Next();
  App other;
  other.out = BodyOf(900, 2);
  const CoapRpcUriKey otherKey = KeyOf("b", COAP_RPC_NON);
  Register(otherKey, &other);
  EXPECT_EQ(Call(otherKey, 2, COAP_RPC_POST), 0U);
  EXPECT_EQ(Next().Text(), other.out);
  EXPECT_EQ(Fetch(first), body);
}

TEST_F(ClientLarge, TwoLargeRequestsAtOnce_BothArrive) {
  const CoapRpcUriKey keys[] = {KeyOf("a", COAP_RPC_NON), KeyOf("b", COAP_RPC_NON)};
  App apps[2];
  for (uint32_t i = 0; i < 2; ++i) {
    apps[i].out = BodyOf(4000, i);
    Register(keys[i], &apps[i]);
    EXPECT_EQ(Call(keys[i], i, COAP_RPC_POST), 0U);
  }
  std::map<std::string, std::string> bodies;
  for (int i = 0; i < 8; ++i) {
    const CoapMessage block = Next();
    const std::optional<CoapBlock> option = block.Block(kOptBlock1);
    ASSERT_TRUE(option);
    bodies[block.Path()] += block.Text();
    CoapMessage answer = Request(CoapType::kNon, option->more ? Code(2, 31) : Code(2, 4),
                                 static_cast<uint16_t>(5000 + i), block.token);
    peer_.Send(answer.AddBlock(kOptBlock1, *option).AddPath(block.Path()));
  }
  EXPECT_EQ(bodies["a"], apps[0].out);
  EXPECT_EQ(bodies["b"], apps[1].out);
  Ticks(2);
  EXPECT_EQ(apps[0].responses.size(), 1U);
  EXPECT_EQ(apps[1].responses.size(), 1U);
}

// Around the size where one message no longer holds the payload, nothing is lost.
TEST_F(ClientLarge, SizesAroundOneMessage_AllArrive) {
  const CoapRpcUriKey key = KeyOf("a");
  Register(key, &app_);
  size_t numWhole = 0;
  for (size_t len = 1090; len <= 1150; len += 3) {
    app_.out = BodyOf(len);
    EXPECT_EQ(Call(key, 1, COAP_RPC_POST), 0U);
    const CoapMessage request = Next();
    if (request.Has(kOptBlock1)) {
      EXPECT_EQ(Fetch(request), app_.out) << len;
    } else {
      ++numWhole;
      EXPECT_TRUE(request.token.empty());
      EXPECT_EQ(request.Text(), app_.out) << len;
      peer_.Send(AckOf(request));
    }
  }
  EXPECT_GT(numWhole, 5U);
  EXPECT_LT(numWhole, 21U);
}

TEST_F(ClientLarge, LargeObserve_KeepsItsToken) {
  const FixedRandom random;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app_);
  app_.out = BodyOf(3000);
  EXPECT_EQ(Observe(key), 0U);
  const CoapMessage first = Next();
  EXPECT_TRUE(first.Has(kOptObserve));
  EXPECT_EQ(Fetch(first), app_.out);
  EXPECT_EQ(ReqOf(key)->tokenLen, 5U);
}

TEST_F(ClientLarge, InvalidLengths_FailTheAttempt) {
  Register(key_, &app_);
  ASSERT_NE(COAP_RpcLogRegUri(Ctx(), "a"), nullptr);
  for (const int32_t len : {65471, 65472, 0x7FFFFFFF, -1, -2, INT32_MIN}) {
    app_.built = len;
    host_.ClearLogs();
    EXPECT_EQ(Call(key_, 1), 1900001103U) << len;
    EXPECT_TRUE(host_.HasLog("request payload len: " + std::to_string(len) + "."));
    const std::vector<LogRecord> lines = host_.LogsOf("COAP_RpcCliAddOptionsAndData");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text,
              "[CoapRpc]req add payload fail, uri:a, observe:0, msgType:0, codeType:1.\n");
    EXPECT_EQ(lines[0].line, 1074U);
    EXPECT_EQ(host_.LogsOf("COAP_RpcCliSendRequest")[0].text,
              "[CoapRpc]request add option failed, uri:a, observe:0, msgType:0, codeType:1.\n");
    EXPECT_TRUE(host_.HasDebug(
        "[CoapRpc]request add option failed, uri:a, observe:0, msgType:0, codeType:1.\n"));
    const std::vector<LogRecord> sys = host_.Logs().OfKind(LogKind::kSysLog);
    ASSERT_EQ(sys.size(), 2U);
    EXPECT_EQ(sys[0].text,
              "[CoapRpc]req add payload fail, uri:a, observe:0, msgType:0, codeType:1.");
    EXPECT_EQ(sys[1].text,
              "[CoapRpc]request add option failed, uri:a, observe:0, msgType:0, codeType:1.");
  }
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientLarge, NoMemoryForTheBodysCopy_FailsTheAttempt) {
  Register(key_, &app_);
  app_.out = BodyOf(5000);
  EXPECT_EQ(Call(key_, 1, COAP_RPC_POST), 0U);  // makes session and shared buffer
  peer_.Send(RstOf(Next()));
  Ticks(2);
  host_.Pool().Failures().FailOnce(2);  // the record, then the copy
  EXPECT_EQ(Call(key_, 2, COAP_RPC_POST), 1900001103U);
  host_.Pool().Failures().Clear();
  EXPECT_EQ(Fetch(Next()), app_.out);  // the resend timer's attempt
}

TEST_F(ClientLarge, NoMemoryForTheSharedBuffer_FailsTheAttempt) {
  Register(key_, &app_);
  app_.out = "x";
  host_.Pool().Failures().FailOnce(3);  // session, record, buffer
  EXPECT_EQ(Call(key_), 1900001103U);
  EXPECT_EQ(Ctx()->cli->reqBuf, nullptr);
  EXPECT_EQ(Next().Text(), "x");
}

}  // namespace
}  // namespace coap_rpc_test
