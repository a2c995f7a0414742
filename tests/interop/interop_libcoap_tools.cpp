// The library and libcoap's own command-line client and server.
//
// The tools live in real time, and so does libcoap in this program; the host's clock runs ten times
// as fast, so that its timers need not be waited for.
#include <algorithm>
#include <thread>

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "tool_process.h"
#include "two_instances.h"

namespace coap_rpc_test {
namespace {

constexpr int kMaxRounds = 300'000;  // a millisecond each

std::string ClientTool() { return FindTool({"coap-client-notls", "coap-client"}); }
std::string ServerTool() { return FindTool({"coap-server-notls", "coap-server"}); }

size_t CountOf(const std::string &text, const std::string &part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

class Interop : public testing::Test {
 protected:
  static void SetUpTestSuite() { EnterOwnNetwork(); }

  void SetUp() override {
    if (ClientTool().empty() || ServerTool().empty()) {
      GTEST_SKIP() << "libcoap's command-line tools are not installed (package libcoap3-bin)";
    }
  }

  void Step() {
    side_.Host().AdvanceMs(10);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  template <typename Condition>
  bool RunUntil(Condition condition) {
    for (int i = 0; i < kMaxRounds; ++i) {
      if (condition()) return true;
      Step();
    }
    return condition();
  }

  std::string UriOf(const std::string &path) const {
    return "coap://127.0.0.1:" + std::to_string(port_) + "/" + path;
  }

  // RunClient runs libcoap's client to its end.  Returns what it printed.
  std::string RunClient(std::vector<std::string> args, const std::string &path) {
    args.insert(args.begin(), ClientTool());
    args.push_back(UriOf(path));
    ToolProcess client(args);
    EXPECT_TRUE(RunUntil([&] { return client.HasEnded(); })) << client.Output();
    return client.Output();
  }

  const uint16_t port_ = FindFreeUdpPort();
  Side side_{kLoopback};
};

// Our server, libcoap's client.
class InteropServer : public Interop {
 protected:
  void ServeSync(const CoapRpcUriKey &key) {
    CoapRpcSerVtblReg reg = {};
    reg.userData = reinterpret_cast<uint64_t>(&sync_);
    reg.onRequest = App::OnRequest;
    EXPECT_EQ(COAP_RpcSerRegVtbl(side_.Ctx(), &key, &reg, nullptr), 0u);
    side_.Attach(key, port_);
  }

  void Publish(int num, size_t padding) {
    table_.padding = padding;
    side_.ServeObserve(key_, &table_, true, port_);
    for (int i = 0; i < num; ++i) Set(std::to_string(1000 + i), "val0");
  }
  void Set(const std::string &key, const std::string &val) {
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(side_.Ctx(), &key_, key.data(), val.data()), 0u);
  }

  App sync_;
  ObserveApp table_;
  const CoapRpcUriKey key_ = KeyOf("table", COAP_RPC_CON, 1);
};

TEST_F(InteropServer, Get_ReachesTheHandlerAndGetsTheAnswer) {
  ServeSync(KeyOf("sync"));
  sync_.result = 3;
  const std::string output = RunClient({"-m", "get", "-e", "hello"}, "sync");
  ASSERT_EQ(sync_.requests.size(), 1u) << output;
  EXPECT_EQ(sync_.requests[0].payload, "hello");
  EXPECT_NE(output.find(std::string(4, '\0')), std::string::npos) << output;
}

TEST_F(InteropServer, GetOf65470Bytes_ArrivesWhole) {
  ServeSync(KeyOf("sync"));
  sync_.result = 65470;
  const TempFile body;
  RunClient({"-m", "get", "-e", "hello", "-o", body.Path()}, "sync");
  EXPECT_EQ(body.Content(), std::string(65471, '\0'));
}

TEST_F(InteropServer, NonGet_IsAnswered) {
  ServeSync(KeyOf("sync"));
  sync_.result = 3;
  const std::string output = RunClient({"-N", "-m", "get", "-e", "hello"}, "sync");
  EXPECT_EQ(sync_.requests.size(), 1u);
  EXPECT_NE(output.find(std::string(4, '\0')), std::string::npos) << output;
}

TEST_F(InteropServer, PostOf60000Bytes_ReachesTheHandlerWhole) {
  ServeSync(KeyOf("post", COAP_RPC_CON, 0, COAP_RPC_UNICAST));
  sync_.result = -1;
  std::string text(60'000, 'p');
  for (size_t i = 0; i < text.size(); i += 50) text[i] = static_cast<char>('a' + i / 50 % 26);
  const TempFile body(text);
  RunClient({"-m", "post", "-f", body.Path()}, "post");
  ASSERT_EQ(sync_.requests.size(), 1u);
  EXPECT_EQ(sync_.requests[0].payload, text);
}

// Direct entries: "upper" answers in capital letters, "slow" the same a little later.
class InteropDirect : public InteropServer {
 protected:
  static std::string Upper(const uint8_t *payload, uint32_t len) {
    std::string text(payload, payload + len);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
  }

  static int32_t OnUpper(uint64_t, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len,
                         uint8_t *out, uint32_t) {
    const std::string text = Upper(payload, len);
    std::copy(text.begin(), text.end(), out);
    return static_cast<int32_t>(len);
  }

  static uint32_t OnSlow(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    auto *self = reinterpret_cast<InteropDirect *>(userData);
    self->later_.emplace_back(async, Upper(payload, len));
    ++self->numSlow_;
    return 0;
  }

  void ServeUpper() {
    Register(KeyOf("upper"), 0);
    Register(KeyOf("slow"), 1);
  }

  void Register(const CoapRpcUriKey &key, uint8_t mode) {
    CoapRpcSerVtblReg reg = {};
    reg.mode = mode;
    reg.userData = reinterpret_cast<uint64_t>(this);
    reg.onRequest = OnUpper;
    reg.onAsyncRequest = OnSlow;
    const CoapRpcSerDirectParam param = {COAP_RPC_ALLOW_ALL, 0, nullptr};
    EXPECT_EQ(COAP_RpcSerRegVtbl(side_.Ctx(), &key, &reg, nullptr), 0u);
    EXPECT_EQ(COAP_RpcSerSetDirect(side_.Ctx(), &key, &param), 0u);
    side_.Attach(key, port_);
  }

  // RunSlow answers what has come while the client runs.
  std::string RunSlow(std::vector<std::string> args) {
    args.insert(args.begin(), ClientTool());
    args.push_back(UriOf("slow"));
    ToolProcess client(args);
    EXPECT_TRUE(RunUntil([&] {
      AnswerLater();
      return client.HasEnded();
    })) << client.Output();
    return client.Output();
  }

  void AnswerLater() {
    for (const auto &[async, text] : std::exchange(later_, {})) {
      COAP_RpcSerSendAsyncResponse(side_.Ctx(), async,
                                   reinterpret_cast<const uint8_t *>(text.data()),
                                   static_cast<uint32_t>(text.size()));
    }
  }

  std::vector<std::pair<void *, std::string>> later_;
  int numSlow_ = 0;
};

TEST_F(InteropDirect, EachMethod_ReturnsData) {
  ServeUpper();
  for (const char *method : {"get", "post", "put", "delete", "fetch", "patch", "ipatch"}) {
    const std::string output = RunClient({"-m", method, "-t", "0", "-e", "hi"}, "upper");
    EXPECT_NE(output.find("HI"), std::string::npos) << method << ": " << output;
  }
}

TEST_F(InteropDirect, NonPost_ReturnsData) {
  ServeUpper();
  EXPECT_NE(RunClient({"-N", "-m", "post", "-e", "hi"}, "upper").find("HI"), std::string::npos);
}

TEST_F(InteropDirect, Post20000BytesBothWays_ArrivesWhole) {
  ServeUpper();
  const TempFile body(std::string(20'000, 'p'));
  const TempFile answer;
  RunClient({"-m", "post", "-f", body.Path(), "-o", answer.Path()}, "upper");
  EXPECT_EQ(answer.Content(), std::string(20'000, 'P'));
}

TEST_F(InteropDirect, AnsweredLater_ReturnsData) {
  ServeUpper();
  EXPECT_NE(RunSlow({"-m", "post", "-e", "hi"}).find("HI"), std::string::npos);
  EXPECT_NE(RunSlow({"-N", "-m", "get", "-e", "non"}).find("NON"), std::string::npos);
  EXPECT_EQ(numSlow_, 2);
}

TEST_F(InteropDirect, AnsweredLaterInBlocks_ArrivesWhole) {
  ServeUpper();
  const TempFile body(std::string(20'000, 'p'));
  const TempFile answer;
  RunSlow({"-m", "post", "-f", body.Path(), "-o", answer.Path()});
  EXPECT_EQ(answer.Content(), std::string(20'000, 'P'));
  EXPECT_EQ(numSlow_, 1);
}

// The client gives up observing at once: nothing says that it is observed.
TEST_F(InteropDirect, ObserveWithoutRecord_IsAnOrdinaryGet) {
  ServeUpper();
  EXPECT_NE(RunClient({"-s", "2", "-m", "get", "-e", "hi"}, "upper").find("HI"), std::string::npos);
}

TEST_F(InteropServer, UnknownPathAndMethods_AreRefused) {
  ServeSync(KeyOf("sync"));
  EXPECT_NE(RunClient({"-m", "get"}, "other").find("4.04"), std::string::npos);
  EXPECT_NE(RunClient({"-m", "put", "-e", "x"}, "sync").find("4.05"), std::string::npos);
  EXPECT_NE(RunClient({"-m", "delete"}, "sync").find("4.05"), std::string::npos);
  EXPECT_TRUE(sync_.requests.empty());
}

TEST_F(InteropServer, WellKnownCore_ListsWhatIsAttached) {
  ServeSync(KeyOf("sync"));
  Publish(1, 0);
  const std::string output = RunClient({"-m", "get"}, ".well-known/core");
  EXPECT_NE(output.find("</sync>"), std::string::npos) << output;
  EXPECT_NE(output.find("</table>;obs"), std::string::npos) << output;
}

TEST_F(InteropServer, Observer_SeesTheSetAndEachChange) {
  Publish(2, 0);
  ToolProcess client({ClientTool(), "-s", "60", "-w", UriOf("table")});
  ASSERT_TRUE(RunUntil([&] {
    return CountOf(client.Output(), "\n{\"data\"") == 1 ||
           client.Output().rfind("{\"data\"", 0) == 0;
  }));
  EXPECT_NE(client.Output().find("{\"data\":[{\"op\":\"u\",\"key\":\"1000\",\"val\":\"val0\"},"
                                 "{\"op\":\"u\",\"key\":\"1001\",\"val\":\"val0\"}]}"),
            std::string::npos)
      << client.Output();
  Set("1001", "val1");
  EXPECT_TRUE(RunUntil([&] {
    return CountOf(client.Output(),
                   "{\"data\":[{\"op\":\"u\",\"key\":\"1001\",\"val\":\"val1\"}]}") == 1;
  })) << client.Output();
  COAP_RpcSerObserveDataDel(side_.Ctx(), &key_, "1000");
  EXPECT_TRUE(RunUntil([&] {
    return CountOf(client.Output(), "{\"data\":[{\"op\":\"d\",\"key\":\"1000\"}]}") == 1;
  })) << client.Output();
  EXPECT_EQ(table_.observerNums, (std::vector<uint32_t>{1}));
}

TEST_F(InteropServer, ObserverWithCheckCode_GetsTheSetInBlocks) {
  Publish(1000, 30);
  ToolProcess client({ClientTool(), "-s", "60", "-w", "-O", "15,_ual-checkcode=0", UriOf("table")});
  const std::string end = "\"}]}\n";
  ASSERT_TRUE(RunUntil([&] { return CountOf(client.Output(), end) == 1; }));
  EXPECT_EQ(CountOf(client.Output(), "\"op\":\"u\""), 1000u);
  Set("1001", "val1");
  EXPECT_TRUE(RunUntil([&] { return CountOf(client.Output(), end) == 2; })) << client.Output();
}

TEST_F(InteropServer, ObserverThatLeaves_IsCountedDown) {
  Publish(1, 0);
  ToolProcess client({ClientTool(), "-s", "1", UriOf("table")});
  EXPECT_TRUE(RunUntil([&] { return client.HasEnded(); }));
  EXPECT_TRUE(RunUntil([&] { return table_.observerNums == std::vector<uint32_t>{1, 0}; }));
}

class InteropReaders : public InteropServer {
 protected:
  // KeepVersions returns the query of a pull.
  std::string KeepVersions() {
    EXPECT_EQ(COAP_RpcSerSetUriSync(side_.Ctx(), &key_, nullptr), 0u);
    char query[64];
    snprintf(query, sizeof(query), "table?_sync=1&id=%llx",
             static_cast<unsigned long long>(State().replid));
    return query;
  }
  CoapRpcSerSyncState State() {
    CoapRpcSerSyncState state = {};
    EXPECT_EQ(COAP_RpcSerGetSyncState(side_.Ctx(), &key_, &state), 0u);
    return state;
  }
};

TEST_F(InteropReaders, PullOfJson_IsReadable) {
  Publish(2, 0);
  const std::string output = RunClient({"-A", "50", "-m", "get"}, KeepVersions());
  EXPECT_NE(output.find("\",0,2,2,0,\""), std::string::npos) << output;
  EXPECT_NE(output.find(",1,\"31303030\",\"76616c30\",1,\"31303031\",\"76616c30\"]"),
            std::string::npos)
      << output;
}

TEST_F(InteropReaders, PullOfCbor_HasTheSameBytesInBlocksOfAnySize) {
  Publish(60, 0);
  const std::string query = KeepVersions();
  const TempFile whole;
  const TempFile inBlocks;
  RunClient({"-m", "get", "-o", whole.Path()}, query);
  RunClient({"-m", "get", "-b", "64", "-o", inBlocks.Path()}, query);
  const std::string page = whole.Content();
  EXPECT_GT(page.size(), 60u * 11);
  EXPECT_EQ(page.substr(0, 5), "\x98\xBC\x01\x11\x1B");  // 188 items, at the head
  EXPECT_NE(page.find("\x01\x44"
                      "1059\x44val0"),
            std::string::npos);
  EXPECT_EQ(inBlocks.Content(), page);
}

TEST_F(InteropReaders, Observer_HearsOfEachChange) {
  Publish(2, 0);
  KeepVersions();
  ToolProcess client({ClientTool(), "-s", "60", UriOf("table?_sync=1")});
  ASSERT_TRUE(RunUntil([&] { return State().numObservers == 1; })) << client.Output();
  Set("1001", "val1");
  EXPECT_TRUE(RunUntil([&] {
    return CountOf(client.Output(),
                   "\x44"
                   "1001\x44val1") == 1;
  }));
  COAP_RpcSerObserveDataDel(side_.Ctx(), &key_, "1000");
  EXPECT_TRUE(RunUntil([&] {
    return CountOf(client.Output(),
                   "\x44"
                   "1000\xF6") == 1;
  }));
}

TEST_F(InteropServer, ClientWhoseDatagramsAreLost_GetsItsBlocks) {
  ServeSync(KeyOf("sync"));
  sync_.result = 5'000;
  const TempFile body;
  RunClient({"-l", "1,3", "-m", "get", "-e", "hello", "-o", body.Path()}, "sync");
  EXPECT_EQ(body.Content(), std::string(5'001, '\0'));
}

// Our client, libcoap's server.  Its answers carry no path, so that they reach no onResponse: what
// arrived is told by the log, what was sent by the server's resources.
class InteropClient : public Interop {
 protected:
  void SetUp() override {
    Interop::SetUp();
    if (IsSkipped()) return;
    StartServer();
    side_.Host().ClearLogs();
    side_.Host().Logs().SuppressBelow(0);
  }

  void StartServer() {
    server_.reset();
    server_ = std::make_unique<ToolProcess>(std::vector<std::string>{
        ServerTool(), "-A", "127.0.0.1", "-p", std::to_string(port_), "-d", "10", "-v", "7"});
    EXPECT_NE(RunClient({"-m", "get"}, "").find("test server"), std::string::npos);
  }

  uint32_t Call(const CoapRpcUriKey &key, uint32_t code, const std::string &payload,
                Side::Request *call = COAP_RpcCliConReq) {
    std::string copy = payload;
    CoapRpcCliReqParam param = {};
    if (!copy.empty()) param.payload = reinterpret_cast<uint8_t *>(copy.data());
    param.payloadLen = static_cast<uint32_t>(copy.size());
    CoapRpcCliAddr addr = side_.AddrOf(side_);
    addr.srcIp.addr.ipv4 += 1;
    addr.dstPort = port_;
    addr.codeType = code;
    return call(side_.Ctx(), &key, &param, &addr);
  }

  // NumResponses counts the responses that came: none of them has a path.
  size_t NumResponses() {
    size_t count = 0;
    for (const LogRecord &record : side_.Host().LogsOf("COAP_RpcCliResponseHandler")) {
      count += record.text == "[CoapRpc]cli parse response data get vtbl failed.\n";
    }
    return count;
  }
  bool IsAnswered(size_t num) {
    return RunUntil([this, num] { return NumResponses() >= num; });
  }

  // ObserveTime observes the server's clock until `num` responses have come.
  void ObserveTime(size_t num) {
    side_.Register(time_, &responses_);
    EXPECT_EQ(Call(time_, COAP_RPC_GET, "", COAP_RpcCliObserveReq), 0u);
    ASSERT_TRUE(IsAnswered(num)) << server_->Output();
  }

  const CoapRpcUriKey time_ = KeyOf("time", COAP_RPC_CON, 1);
  std::unique_ptr<ToolProcess> server_;
  Responses responses_;
};

TEST_F(InteropClient, PutOf60000Bytes_IsWhatAnotherClientGets) {
  const CoapRpcUriKey key = KeyOf("stored");
  side_.Register(key, &responses_);
  std::string text(60'000, 's');
  for (size_t i = 0; i < text.size(); i += 50) text[i] = static_cast<char>('a' + i / 50 % 26);
  EXPECT_EQ(Call(key, COAP_RPC_PUT, text), 0u);
  ASSERT_TRUE(IsAnswered(1)) << server_->Output();
  const TempFile body;
  RunClient({"-m", "get", "-o", body.Path()}, "stored");
  EXPECT_EQ(body.Content(), text);

  EXPECT_EQ(Call(key, COAP_RPC_PUT, "short"), 0u);
  ASSERT_TRUE(IsAnswered(2));
  EXPECT_NE(RunClient({"-m", "get"}, "stored").find("short"), std::string::npos);

  EXPECT_EQ(Call(key, COAP_RPC_DELETE, ""), 0u);
  ASSERT_TRUE(IsAnswered(3));
  EXPECT_NE(RunClient({"-m", "get"}, "stored").find("4.04"), std::string::npos);
}

TEST_F(InteropClient, GetAndNonGet_AreAnswered) {
  const CoapRpcUriKey con = KeyOf("time");
  const CoapRpcUriKey non = KeyOf("time", COAP_RPC_NON);
  side_.Register(con, &responses_);
  side_.Register(non, &responses_);
  EXPECT_EQ(Call(con, COAP_RPC_GET, ""), 0u);
  EXPECT_TRUE(IsAnswered(1));
  EXPECT_EQ(Call(non, COAP_RPC_GET, "", COAP_RpcCliNonReq), 0u);
  EXPECT_TRUE(IsAnswered(2));
}

TEST_F(InteropClient, SeparateAnswer_IsTaken) {
  const CoapRpcUriKey key = KeyOf("async");
  side_.Register(key, &responses_);
  EXPECT_EQ(Call(key, COAP_RPC_GET, ""), 0u);
  EXPECT_TRUE(IsAnswered(1)) << server_->Output();
}

TEST_F(InteropClient, Observe_BringsANotificationEverySecondUntilItIsCancelled) {
  ObserveTime(3);
  EXPECT_EQ(Call(time_, COAP_RPC_GET, "", COAP_RpcCliObserveUnReq), 0u);
  for (int i = 0; i < 300; ++i) Step();
  const size_t num = NumResponses();
  for (int i = 0; i < 2500; ++i) Step();
  EXPECT_EQ(NumResponses(), num);
}

// The server counts from the beginning again.
TEST_F(InteropClient, ObservedServerThatRestarts_IsHeardAfterTheRenewal) {
  ObserveTime(7);
  EXPECT_EQ(Call(time_, COAP_RPC_GET, "", COAP_RpcCliObserveReqVerify), 0u);
  ASSERT_TRUE(IsAnswered(10)) << server_->Output();
  StartServer();
  const size_t num = NumResponses();
  EXPECT_EQ(Call(time_, COAP_RPC_GET, "", COAP_RpcCliObserveReqVerify), 0u);
  ASSERT_TRUE(IsAnswered(num + 4)) << server_->Output();
  EXPECT_EQ(COAP_RpcGetOldNotificationNum(side_.Ctx()), 0u);
}

// Calls need no path in the answers.
class InteropCalls : public InteropClient {
 protected:
  struct Told {
    CoapRpcCallRsp rsp;
    std::string payload;
  };

  static void OnRsp(uint64_t userData, const CoapRpcCallRsp *rsp) {
    auto &told = *reinterpret_cast<std::vector<Told> *>(userData);
    told.push_back({*rsp, std::string(rsp->payload, rsp->payload + rsp->payloadLen)});
  }

  CoapRpcCallAddr ServerAddr() {
    CoapRpcCallAddr addr = {};
    addr.dstIp = side_.AddrOf(side_).dstIp;
    addr.dstPort = port_;
    return addr;
  }
  CoapRpcCall CallOf(uint32_t method, const char *path, const std::string &payload = "") {
    CoapRpcCall call = {};
    call.method = method;
    call.path = path;
    call.payload = reinterpret_cast<const uint8_t *>(payload.data());
    call.payloadLen = static_cast<uint32_t>(payload.size());
    call.userData = reinterpret_cast<uint64_t>(&told_);
    call.onRsp = OnRsp;
    return call;
  }
  // Ask makes a call and returns what it came to.
  Told Ask(const CoapRpcCall &call) {
    const CoapRpcCallAddr addr = ServerAddr();
    const size_t num = told_.size();
    uint64_t id = 0;
    EXPECT_EQ(COAP_RpcCall(side_.Ctx(), &addr, &call, &id), 0u);
    EXPECT_TRUE(RunUntil([&] { return told_.size() > num; })) << server_->Output();
    return told_.size() > num ? told_.back() : Told();
  }

  std::vector<Told> told_;
};

TEST_F(InteropCalls, GetPutDelete) {
  const Told index = Ask(CallOf(COAP_RPC_GET, "/"));
  EXPECT_EQ(index.rsp.code, 205u);
  EXPECT_NE(index.payload.find("test server"), std::string::npos);
  EXPECT_EQ(Ask(CallOf(COAP_RPC_GET, "stored")).rsp.code, 404u);
  EXPECT_EQ(Ask(CallOf(COAP_RPC_PUT, "stored", "short")).rsp.code, 201u);
  EXPECT_EQ(Ask(CallOf(COAP_RPC_GET, "stored")).payload, "short");
  EXPECT_EQ(Ask(CallOf(COAP_RPC_PUT, "stored", "other")).rsp.code, 204u);
  EXPECT_EQ(Ask(CallOf(COAP_RPC_DELETE, "stored")).rsp.code, 202u);
  EXPECT_EQ(Ask(CallOf(COAP_RPC_GET, "stored")).rsp.code, 404u);
}

TEST_F(InteropCalls, BodiesOf100000Bytes_ThereAndBack) {
  std::string text(100'000, 's');
  for (size_t i = 0; i < text.size(); i += 50) text[i] = static_cast<char>('a' + i / 50 % 26);
  EXPECT_EQ(Ask(CallOf(COAP_RPC_PUT, "stored", text)).rsp.code, 201u);
  const Told told = Ask(CallOf(COAP_RPC_GET, "stored"));
  EXPECT_EQ(told.rsp.code, 205u);
  EXPECT_EQ(told.payload, text);
}

TEST_F(InteropCalls, QueryAndAccept) {
  CoapRpcCall call = CallOf(COAP_RPC_GET, "time");
  call.query = "ticks";
  EXPECT_EQ(Ask(call).rsp.code, 205u);
  call.isNon = 1;
  EXPECT_EQ(Ask(call).rsp.code, 205u);
}

TEST_F(InteropCalls, SeparateAnswer) {
  EXPECT_EQ(Ask(CallOf(COAP_RPC_GET, "async")).payload, "done");
}

TEST_F(InteropCalls, WellKnownCore_InBlocks) {
  const Told told = Ask(CallOf(COAP_RPC_GET, ".well-known/core"));
  EXPECT_EQ(told.rsp.contentFormat, 40u);
  EXPECT_NE(told.payload.find("</time>"), std::string::npos);
}

TEST_F(InteropCalls, Observe_UntilItIsCancelled) {
  const CoapRpcCallAddr addr = ServerAddr();
  const CoapRpcCall call = CallOf(COAP_RPC_GET, "time");
  uint64_t id = 0;
  EXPECT_EQ(COAP_RpcCallObserve(side_.Ctx(), &addr, &call, &id), 0u);
  ASSERT_TRUE(RunUntil([&] { return told_.size() >= 3; })) << server_->Output();
  EXPECT_NE(told_[0].payload, told_[2].payload);
  EXPECT_EQ(COAP_RpcCallCancel(side_.Ctx(), id), 0u);
  EXPECT_EQ(told_.back().rsp.status, COAP_RPC_CALL_CANCELLED);
  EXPECT_TRUE(RunUntil([&] { return COAP_RpcGetCallNum(side_.Ctx()) == 0; }));
  const size_t num = told_.size();
  for (int i = 0; i < 2500; ++i) Step();
  EXPECT_EQ(told_.size(), num);
  EXPECT_EQ(COAP_RpcGetDroppedAnswerNum(side_.Ctx()), 0u);
}

TEST_F(InteropCalls, ServerThatIsGone_IsUnreachable) {
  server_.reset();
  EXPECT_EQ(Ask(CallOf(COAP_RPC_GET, "time")).rsp.status, COAP_RPC_CALL_UNREACHABLE);
}

}  // namespace
}  // namespace coap_rpc_test
