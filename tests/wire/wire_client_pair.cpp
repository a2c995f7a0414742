// A client and a server of the library, each an instance of its own, talking to each other.
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

using Table = std::map<std::string, std::string>;

// Mirror is a client's copy of the server's tuples, kept up by its responses.
struct Mirror {
  Table table;
  std::vector<CoapRpcCliRspInfo> infos;
  uint32_t numBad = 0;

  void Apply(const json_t *element) {
    const std::string key = json_string_value(json_object_get(element, "key"));
    if (std::string(json_string_value(json_object_get(element, "op"))) == "d") {
      table.erase(key);
    } else {
      table[key] = std::string(json_string_value(json_object_get(element, "val"))).substr(0, 4);
    }
  }

  void Take(const char *text) {
    json_t *root = json_loads(text, 0, nullptr);
    if (!root) ++numBad;
    size_t i = 0;
    json_t *element = nullptr;
    json_array_foreach(json_object_get(root, "data"), i, element) Apply(element);
    json_decref(root);
  }

  static uint32_t OnResponse(uint64_t userData, uint64_t, uint8_t *payload, uint32_t,
                             const CoapRpcCliRspInfo *info) {
    auto *mirror = reinterpret_cast<Mirror *>(userData);
    mirror->infos.push_back(*info);
    if (payload) mirror->Take(reinterpret_cast<const char *>(payload));
    return 0;
  }
};

int32_t BuildQuestion(uint64_t, const CoapRpcCliReqParam *, uint8_t *out, uint32_t) {
  constexpr char kQuestion[] = {'q', 'u', 'e', 's', 't', 'i', 'o', 'n'};
  memcpy(out, kQuestion, sizeof(kQuestion));
  return sizeof(kQuestion);
}

class ClientPair : public ObserveServer {
 protected:
  ClientPair() : client_(std::make_unique<TestInstance>(clientHost_)) {
    COAP_RpcRefreshTaskTimer(*client_);
  }

  void Register(const CoapRpcUriKey &key) {
    CoapRpcCliVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    reg.userData = reinterpret_cast<uint64_t>(&mirror_);
    reg.onResponse = Mirror::OnResponse;
    reg.buildReq = key.observe == 0 ? BuildQuestion : nullptr;
    ASSERT_EQ(COAP_RpcCliRegVtbl(*client_, &key, &reg), 0U);
  }

  static CoapRpcCliAddr ServerAddr(uint32_t code) {
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = OwnIpv4(Role::kPeer);
    addr.dstIp.addr.ipv4 = OwnIpv4(Role::kServer);
    addr.dstPort = kCoapPort;
    addr.codeType = code;
    return addr;
  }

  uint32_t Call(decltype(&COAP_RpcCliConReq) call, const CoapRpcUriKey &key,
                uint32_t code = COAP_RPC_GET) {
    CoapRpcCliReqParam param = {};
    param.userData = 1;
    const CoapRpcCliAddr addr = ServerAddr(code);
    return call(*client_, &key, &param, &addr);
  }

  // Run lets both sides work for a while.
  void Run(uint64_t ms) {
    for (uint64_t t = 0; t < ms; t += kTickMs) {
      host_.AdvanceMs(kTickMs);
      clientHost_.AdvanceMs(kTickMs);
    }
  }

  // Follow starts the relation and waits until the server has it.
  void Follow() {
    ServeObs(COAP_RPC_CON);
    Register(observeKey_);
    ASSERT_EQ(Call(COAP_RpcCliObserveReq, observeKey_), 0U);
    Run(3000);
    ASSERT_EQ(app_.observerNums, std::vector<uint32_t>{1});
  }

  TestHost clientHost_;
  std::unique_ptr<TestInstance> client_;
  Mirror mirror_;
  CoapRpcUriKey observeKey_ = KeyOf("obs", COAP_RPC_CON, 1);
};

TEST_F(ClientPair, Relation_MirrorsTheServersSet) {
  Follow();
  Update("k001", "aaaa");
  Update("k002", "bbbb");
  Run(3000);
  Update("k002", "cccc");
  Delete("k001");
  Update("k003", "dddd");
  Run(3000);
  EXPECT_EQ(mirror_.table, (Table{{"k002", "cccc"}, {"k003", "dddd"}}));
  EXPECT_EQ(mirror_.numBad, 0U);
  const CoapRpcCliUriVtbl *entry = COAP_RpcCliFindUriVtbl(client_->Get()->cli, &observeKey_);
  EXPECT_EQ(entry->checkCode, entry_->etag);
  EXPECT_EQ(mirror_.infos.back().rspCode, 205U);
}

TEST_F(ClientPair, LargeNotification_IsMirroredToo) {
  Follow();
  app_.padding = 300;
  Table expected;
  for (int i = 0; i < 100; ++i) {
    const std::string key = "k" + std::to_string(100 + i);
    Update(key, "vvvv");
    expected[key] = "vvvv";
  }
  Run(20'000);
  EXPECT_EQ(mirror_.table, expected);
  EXPECT_EQ(mirror_.numBad, 0U);
}

TEST_F(ClientPair, Cancel_EndsTheRelationAtTheServer) {
  Follow();
  EXPECT_EQ(Call(COAP_RpcCliObserveUnReq, observeKey_), 0U);
  Run(1000);
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
  Update("k001", "aaaa");
  Run(3000);
  EXPECT_TRUE(mirror_.table.empty());
}

TEST_F(ClientPair, VerifyWithTheCurrentCode_BringsNothingTwice) {
  Follow();
  Update("k001", "aaaa");
  Run(3000);
  const size_t numResponses = mirror_.infos.size();
  const uint32_t numWalks = app_.numWalks;
  EXPECT_EQ(Call(COAP_RpcCliObserveReqVerify, observeKey_), 0U);
  Run(4000);
  EXPECT_EQ(mirror_.infos.size(), numResponses);
  EXPECT_EQ(app_.numWalks, numWalks);
}

// What the client lost is brought again, by Batch always and by Verify when its code is an old one.
TEST_F(ClientPair, BatchAndVerifyWithAnOldCode_BringTheWholeSet) {
  Follow();
  app_.data = {{"k001", "aaaa"}, {"k002", "bbbb"}};
  for (const auto &[key, val] : app_.data) Update(key, val);
  Run(3000);
  mirror_.table.clear();
  EXPECT_EQ(Call(COAP_RpcCliObserveReqBatch, observeKey_), 0U);
  Run(4000);
  EXPECT_EQ(mirror_.table, app_.data);
  mirror_.table.clear();
  COAP_RpcCliFindUriVtbl(client_->Get()->cli, &observeKey_)->checkCode = 1;
  EXPECT_EQ(Call(COAP_RpcCliObserveReqVerify, observeKey_), 0U);
  Run(4000);
  EXPECT_EQ(mirror_.table, app_.data);
  EXPECT_EQ(mirror_.numBad, 0U);
}

TEST_F(ClientPair, ClientThatStops_IsForgotten) {
  Follow();
  client_->Stop();
  Run(1000);
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
}

TEST_F(ClientPair, SynchronousRpc_ReachesTheServerOnce) {
  const CoapRpcUriKey key = KeyOf("sync");
  App app;
  app.out = "answer";
  app.result = 6;
  Serve(key, RegOf(&app, 0));
  Register(key);
  EXPECT_EQ(Call(COAP_RpcCliConReq, key), 0U);
  Run(2000);
  ASSERT_EQ(app.requests.size(), 1U);
  EXPECT_EQ(app.requests[0].payload, "question");
  // Its answer carries no path, so no table is found for it.
  EXPECT_TRUE(clientHost_.HasLog("[CoapRpc]cli parse response data get vtbl failed.\n"));
}

// The answer travels as a POST to the port 5683 of the asker, whose asynchronous entry of the same
// path hands it to the client side.
TEST_F(ClientPair, AsynchronousRpc_IsDeliveredToOnResponse) {
  const CoapRpcUriKey serverKey = KeyOf("async");
  App app;
  app.onAsync = [this](void *async) {
    const auto *answer =
        reinterpret_cast<const uint8_t *>(R"({"data":[{"op":"u","key":"rpc1","val":"done"}]})");
    EXPECT_EQ(COAP_RpcSerSendAsyncResponse(Ctx(), async, answer, 47), 0U);
  };
  Serve(serverKey, RegOf(&app, 1));

  const CoapRpcUriKey homeKey = KeyOf("async", COAP_RPC_CON, 0, COAP_RPC_UNICAST);
  App home;
  const CoapRpcSerVtblReg homeReg = RegOf(&home, 1);
  CoapRpcSerListenAddr listen = {};
  listen.listenAddr.family = COAP_RPC_IPV4;
  listen.listenAddr.addr.ipv4 = OwnIpv4(Role::kPeer);
  listen.port = kCoapPort;
  ASSERT_EQ(COAP_RpcSerRegVtbl(*client_, &homeKey, &homeReg, nullptr), 0U);
  ASSERT_EQ(COAP_RpcSerSetUri(*client_, &homeKey, &listen), 0U);

  // Asked from the address that is to be answered, hence BROADCAST; answers are looked up as
  // DEFAULT.
  const CoapRpcUriKey askKey = KeyOf("async", COAP_RPC_CON, 0, COAP_RPC_BROADCAST);
  Register(askKey);
  Register(serverKey);
  EXPECT_EQ(Call(COAP_RpcCliConReq, askKey, COAP_RPC_GET), 0U);
  Run(3000);
  ASSERT_EQ(app.requests.size(), 1U);
  EXPECT_EQ(app.requests[0].payload, "question");
  EXPECT_EQ(mirror_.table, (Table{{"rpc1", "done"}}));
  EXPECT_TRUE(home.requests.empty());
  EXPECT_EQ(COAP_RpcGetTokenlessRspNum(*client_), 0U);  // it is a request for CoAP
}

}  // namespace
}  // namespace coap_rpc_test
