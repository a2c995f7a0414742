// Requests to synchronous entries and to entries without callbacks, byte by byte.
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kSync = 0, kNoCallback = 2;

class Sync : public WireServer {
 protected:
  void ServeGet(const char *uri = "a/b") { entry_ = Serve(KeyOf(uri), RegOf(&app_, kSync)); }
  void ServePost(const char *uri = "a/b") {
    entry_ = Serve(KeyOf(uri, COAP_RPC_CON, 0, COAP_RPC_UNICAST), RegOf(&app_, kSync));
  }

  App app_;
  CoapRpcSerUriVtbl *entry_ = nullptr;
};

CoapMessage AckWith(const CoapMessage &request, uint8_t code) {
  return Request(CoapType::kAck, code, request.messageId, request.token);
}

TEST_F(Sync, GetWithoutPayload_NoCallback_EmptyAck) {
  ServeGet();
  const CoapMessage get = Get(CoapType::kCon, "a/b");
  ExpectEmptyAck(Ask(get), get);
  EXPECT_TRUE(app_.requests.empty());
}

TEST_F(Sync, NonGetWithoutPayload_Silence) {
  ServeGet();
  peer_.Send(Get(CoapType::kNon, "a/b"));
  ExpectSilence(peer_);
  EXPECT_TRUE(app_.requests.empty());
}

TEST_F(Sync, SyncAnswer_ThreeBytes_GoOutAsFourZeroBytes) {
  ServeGet();
  app_.out = "xyz";
  app_.result = 3;
  const CoapMessage get = Get(CoapType::kCon, "a/b", "hello");
  EXPECT_EQ(Ask(get), AckWith(get, Code(2, 1)).Add(kOptContentFormat).Payload({0, 0, 0, 0}));
  ASSERT_EQ(app_.requests.size(), 1u);
  EXPECT_EQ(app_.requests[0].payload, "hello");
  EXPECT_TRUE(app_.requests[0].isTerminated);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]parse req[outLen: 3], uri:a/b.\n"));
  EXPECT_EQ(app_.outSize, 65471u);
  EXPECT_TRUE(app_.isBufferClear);
}

TEST_F(Sync, SyncAnswer_ByteAfterTheAnswer_GoesOutAsTheHandlerLeftIt) {
  ServeGet();
  app_.out = "xyz!";
  app_.result = 3;
  EXPECT_EQ(Ask(Get(CoapType::kCon, "a/b", "q")).payload, (Bytes{0, 0, 0, '!'}));
}

TEST_F(Sync, SyncAnswer_BufferIsClearedBeforeEachCall) {
  ServeGet();
  app_.out = std::string(500, 'x');
  app_.result = 1;
  Ask(Get(CoapType::kCon, "a/b", "q"));
  Ask(Get(CoapType::kCon, "a/b", "q"));
  EXPECT_TRUE(app_.isBufferClear);
}

TEST_F(Sync, SyncAnswer_BufferIsClearedWhereverAByteWasLeft) {
  ServeGet();
  app_.result = 0;
  for (const size_t at : {0u, 1u, 4095u, 4096u, 61440u, 65469u, 65470u}) {
    app_.out = std::string(at, '\0') + 'x';
    Ask(Get(CoapType::kCon, "a/b", "q"));
    app_.out.clear();
    Ask(Get(CoapType::kCon, "a/b", "q"));
    EXPECT_TRUE(app_.isBufferClear) << at;
  }
}

TEST_F(Sync, NonRequest_GetsNonAnswerWith201) {
  ServeGet();
  app_.result = 1;
  const CoapMessage answer = Ask(Get(CoapType::kNon, "a/b", "q"));
  EXPECT_EQ(answer.type, CoapType::kNon);
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.token, (Bytes{0xAB}));
  EXPECT_EQ(answer.options, (std::vector<CoapOption>{{kOptContentFormat, {}}}));
  EXPECT_EQ(answer.payload, (Bytes{0, 0}));
}

TEST_F(Sync, ResultZero_EmptyAck) {
  ServeGet();
  const CoapMessage get = Get(CoapType::kCon, "a/b", "q");
  ExpectEmptyAck(Ask(get), get);
  EXPECT_EQ(app_.requests.size(), 1u);
}

TEST_F(Sync, ResultMinusOne_Gives204WithoutPayload) {
  ServeGet();
  app_.out = "xyz";
  app_.result = -1;
  const CoapMessage get = Get(CoapType::kCon, "a/b", "q");
  EXPECT_EQ(Ask(get), AckWith(get, Code(2, 4)));
}

TEST_F(Sync, ResultMinusTwoAndBelow_EmptyAck) {
  ServeGet();
  for (const int32_t result : {-2, -3, INT32_MIN}) {
    app_.result = result;
    const CoapMessage get = Get(CoapType::kCon, "a/b", "q");
    ExpectEmptyAck(Ask(get), get);
  }
}

TEST_F(Sync, Result65471_EmptyAck) {
  ServeGet();
  for (const int32_t result : {65471, INT32_MAX}) {
    app_.result = result;
    const CoapMessage get = Get(CoapType::kCon, "a/b", "q");
    ExpectEmptyAck(Ask(get), get);
  }
}

TEST_F(Sync, Result65470_Sends65471Bytes) {
  ServeGet();
  app_.out = std::string(65470, 'x') + "!";
  app_.result = 65470;
  const CoapMessage first = Ask(Get(CoapType::kCon, "a/b", "q"));
  EXPECT_EQ(first.code, Code(2, 1));
  EXPECT_EQ(first.Uint(kOptContentFormat), 0u);
  EXPECT_FALSE(first.Has(kOptMaxAge));
  EXPECT_EQ(first.Uint(kOptSize2), 65471u);
  ASSERT_TRUE(first.Block(kOptBlock2));
  EXPECT_TRUE(first.Block(kOptBlock2)->more);
  Bytes expected(65471, 0);
  expected.back() = '!';
  const Bytes body = ReadBlocks(first, "a/b", "", 0x2000, [this](const CoapMessage &next) {
    CoapMessage answer = Ask(next);
    EXPECT_EQ(answer.code, Code(2, 1));
    return answer;
  });
  EXPECT_EQ(body, expected);
}

TEST_F(Sync, ResultIsLoggedAtLevel3) {
  ServeGet();
  app_.result = -5;
  Ask(Get(CoapType::kCon, "a/b", "q"));
  const std::vector<LogRecord> records = host_.LogsOf("COAP_GetRpcData");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].line, 230u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text, "[CoapRpc]parse req[outLen: -5], uri:a/b.\n");
}

TEST_F(Sync, RequestIsLogged) {
  ServeGet();
  Ask(Get(CoapType::kCon, "a/b", "hello"));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]get req success, uri:a/b, mode:0, len:5, payload:hello.\n"));
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kSysLog).empty());
}

TEST_F(Sync, UriUnderDiagnosis_RequestGoesToTheSystemLog) {
  ServeGet();
  COAP_RpcLogRegUri(Ctx(), "a/b");
  Ask(Get(CoapType::kCon, "a/b", "hello"));
  const std::vector<LogRecord> records = host_.Logs().OfKind(LogKind::kSysLog);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, 1u);
  EXPECT_EQ(records[0].text, "[CoapRpc]get request success, uri:a/b, len:5, payload:hello.");
}

TEST_F(Sync, RequestInfo_DescribesTheRequest) {
  ServePost();
  CoapMessage post = Post(CoapType::kCon, "a/b", "q");
  post.Add(kOptEtag, {1, 2});
  Ask(post);
  Ask(Post(CoapType::kCon, "a/b", "q"));
  ASSERT_EQ(app_.requests.size(), 2u);
  const CoapRpcSerReqInfo &info = app_.requests[0].info;
  EXPECT_EQ(info.isObserve, 0u);
  EXPECT_EQ(info.srcAddr.family, 1u);
  EXPECT_EQ(info.srcAddr.addr.ipv4, kLoopback);
  EXPECT_EQ(info.hasETag, 1u);
  EXPECT_EQ(app_.requests[1].info.hasETag, 0u);
}

TEST_F(Sync, RequestInfo_EtagOfAGetDoesNotCount) {
  ServeGet();
  CoapMessage get = Get(CoapType::kCon, "a/b", "q");
  get.Add(kOptEtag, {1, 2});
  Ask(get);
  ASSERT_EQ(app_.requests.size(), 1u);
  EXPECT_EQ(app_.requests[0].info.hasETag, 0u);
}

TEST_F(Sync, PostWithoutPayload_NoCallback_201) {
  ServePost();
  const CoapMessage post = Post(CoapType::kCon, "a/b");
  EXPECT_EQ(Ask(post), AckWith(post, Code(2, 1)));
  EXPECT_TRUE(app_.requests.empty());
}

TEST_F(Sync, NonPostWithoutPayload_Silence) {
  ServePost();
  peer_.Send(Post(CoapType::kNon, "a/b"));
  ExpectSilence(peer_);
}

TEST_F(Sync, PostWithAnswer_201AndZeroBytes) {
  ServePost();
  app_.out = "xy";
  app_.result = 2;
  const CoapMessage post = Post(CoapType::kCon, "a/b", "q");
  EXPECT_EQ(Ask(post), AckWith(post, Code(2, 1)).Add(kOptContentFormat).Payload({0, 0, 0}));
}

TEST_F(Sync, PostResultZero_201WithoutPayload) {
  ServePost();
  const CoapMessage post = Post(CoapType::kCon, "a/b", "q");
  EXPECT_EQ(Ask(post), AckWith(post, Code(2, 1)));
}

TEST_F(Sync, PostResultMinusOne_204) {
  ServePost();
  app_.result = -1;
  const CoapMessage post = Post(CoapType::kCon, "a/b", "q");
  EXPECT_EQ(Ask(post), AckWith(post, Code(2, 4)));
}

TEST_F(Sync, PostResultMinusTwo_EmptyAck) {
  ServePost();
  app_.result = -2;
  const CoapMessage post = Post(CoapType::kCon, "a/b", "q");
  ExpectEmptyAck(Ask(post), post);
}

TEST_F(Sync, PostToADefaultEntry_FindsNone) {
  ServeGet();
  const CoapMessage post = Post(CoapType::kCon, "a/b", "q");
  ExpectEmptyAck(Ask(post), post);
  EXPECT_TRUE(app_.requests.empty());
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcSerHandleRequest");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].line, 368u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text, "[CoapRpc]sever get vtbl faild.");
}

TEST_F(Sync, Modes2And3_RequestIsLoggedAndNobodyIsCalled) {
  for (const uint8_t mode : {kNoCallback, uint8_t{3}}) {
    const std::string uri = "m" + std::to_string(mode);
    Serve(KeyOf(uri.c_str()), RegOf(&app_, mode));
    const CoapMessage get = Get(CoapType::kCon, uri, "q");
    ExpectEmptyAck(Ask(get), get);
    EXPECT_TRUE(host_.HasDebug("[CoapRpc]get req success, uri:" + uri +
                               ", mode:" + std::to_string(mode) + ", len:1, payload:q.\n"));
  }
  EXPECT_TRUE(app_.requests.empty());
}

TEST_F(Sync, OnlyTheLowTwoBitsOfTheModeCount) {
  Serve(KeyOf("m4"), RegOf(&app_, 0xFC));
  Ask(Get(CoapType::kCon, "m4", "q"));
  EXPECT_EQ(app_.requests.size(), 1u);
}

// PartOf is one of the three blocks of a request.
CoapMessage PartOf(uint32_t num, uint16_t mid, uint32_t size1) {
  CoapMessage part = Request(CoapType::kCon, kCodeGet, mid, {7}).AddPath("a/b");
  part.AddBlock(kOptBlock1, {num, num < 2, 6}).AddUint(kOptSize1, size1);
  return part.PayloadText(std::string(num < 2 ? 1024 : 952, static_cast<char>('0' + num)));
}

TEST_F(Sync, RequestsInBlocks_64AreKeptAndTheOldestGo) {
  ServeGet();
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (int i = 0; i < 80; ++i) {
    peers.push_back(std::make_unique<RawPeer>());
    peers.back()->SetRemote(Address());
    EXPECT_EQ(Ask(*peers.back(), PartOf(0, ++mid_, 3000)).code, Code(2, 31)) << i;
  }
  Tick();
  EXPECT_EQ(CoapRpcLibLimitUploads(Ctx()->lib->coapCtx, 1000, SIZE_MAX), 64u);
  for (uint32_t num = 1; num <= 2; ++num) {
    Ask(*peers.front(), PartOf(num, ++mid_, 3000));
    Ask(*peers.back(), PartOf(num, ++mid_, 3000));
  }
  ASSERT_EQ(app_.requests.size(), 1u);
  EXPECT_EQ(app_.requests[0].payload,
            std::string(1024, '0') + std::string(1024, '1') + std::string(952, '2'));
}

TEST_F(Sync, RequestThatClaimsToBeHuge_IsDropped) {
  ServeGet();
  Ask(PartOf(0, ++mid_, 0x7FFFFFFF));
  Tick();
  EXPECT_EQ(CoapRpcLibLimitUploads(Ctx()->lib->coapCtx, 1000, SIZE_MAX), 0u);
  EXPECT_TRUE(app_.requests.empty());
}

TEST_F(Sync, NoOnRequest_EmptyAck) {
  CoapRpcSerVtblReg reg = RegOf(&app_, kSync);
  reg.onRequest = nullptr;
  Serve(KeyOf("a"), reg);
  const CoapMessage get = Get(CoapType::kCon, "a", "q");
  ExpectEmptyAck(Ask(get), get);
}

TEST_F(Sync, PutAndDelete_405) {
  ServeGet();
  for (const uint8_t code : {kCodePut, kCodeDelete}) {
    EXPECT_EQ(Ask(Request(CoapType::kCon, code, ++mid_).AddPath("a/b").PayloadText("q")).code,
              Code(4, 5));
  }
  EXPECT_TRUE(app_.requests.empty());
}

TEST_F(Sync, UnknownPath_404) {
  ServeGet();
  EXPECT_EQ(Ask(Get(CoapType::kCon, "other", "q")).code, Code(4, 4));
}

TEST_F(Sync, NoMemoryForTheCopy_EmptyAck) {
  ServeGet();
  host_.Pool().Failures().FailOnce(1);
  const CoapMessage get = Get(CoapType::kCon, "a/b", "q");
  ExpectEmptyAck(Ask(get), get);
  EXPECT_TRUE(app_.requests.empty());
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcSerHandleRequest");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].line, 381u);
  EXPECT_EQ(records[0].text, "[CoapRpc]parse req failed[malloc error], uri:a/b.\n");
}

TEST_F(Sync, NoMemoryForTheAnswerBuffer_NobodyIsCalledAndNothingLogged) {
  ServeGet();
  host_.Pool().Failures().FailOnce(2);
  const CoapMessage get = Get(CoapType::kCon, "a/b", "q");
  ExpectEmptyAck(Ask(get), get);
  EXPECT_TRUE(app_.requests.empty());
  EXPECT_TRUE(host_.LogsOf("COAP_GetRpcData").empty());
  EXPECT_EQ(host_.Pool().Failures().NumFailed(), 1u);
}

}  // namespace
}  // namespace coap_rpc_test
