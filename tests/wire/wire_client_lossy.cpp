// A client on a bad network: a fifth of all datagrams is lost, some come twice or out of order.
#include <map>
#include <random>
#include <set>

#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint64_t kPatienceMs = 25'000;  // longer than a CON request's repetitions

class ClientLossy : public WireClient {
 protected:
  void SetUp() override {
    host_.Logs().SuppressBelow(4);
    COAP_RpcRefreshTaskTimer(Ctx());
  }

  bool Chance(uint32_t percent) { return random_() % 100 < percent; }

  // Parcel is a message on its way to the client.
  struct Parcel {
    CoapMessage message;
    UdpAddress to;
  };

  void Send(const Parcel &parcel) {
    peer_.SetRemote(parcel.to);
    peer_.Send(parcel.message);
  }

  // Deliver hands a message to the network, for the sender of what came last.
  void Deliver(const CoapMessage &message) {
    const Parcel parcel = {message, from_};
    if (Chance(20)) return;
    if (Chance(10)) late_.push_back(parcel);
    if (Chance(10)) {
      late_.push_back(parcel);
      return;
    }
    Send(parcel);
  }

  // Step moves time and gives what came through to `serve`.
  template <typename Serve>
  void Step(Serve serve) {
    Tick();
    now_ += kTickMs;
    host_.ClearLogs();
    std::vector<Parcel> late;
    late.swap(late_);
    while (const std::optional<CoapMessage> message = peer_.ReceiveMessage([] {}, 1)) {
      from_ = peer_.Datagrams().back().other;
      if (!Chance(20)) serve(*message);
    }
    for (const Parcel &parcel : late) Send(parcel);
  }

  std::mt19937 random_{7};
  std::vector<Parcel> late_;
  UdpAddress from_;
  uint64_t now_ = 0;
};

TEST_F(ClientLossy, ThousandRpcs_AreAllAnswered) {
  constexpr uint64_t kNum = 1000;
  constexpr size_t kAtOnce = 8;  // sessions, each with one request under way
  App app;
  const CoapRpcUriKey key = KeyOf("rpc");
  Register(key, &app);
  std::map<uint64_t, uint64_t> pending;  // number, and when to ask again
  std::set<std::string> answered;
  uint64_t next = 0;
  const auto ask = [&](uint64_t number) {
    app.out = std::to_string(number);
    const CoapRpcCliReqParam param = ParamOf(number);
    CoapRpcCliAddr addr = PeerAddr(COAP_RPC_POST);
    addr.srcIp.addr.ipv4 = kOwnIp + 16 + static_cast<uint32_t>(number % kAtOnce);
    EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key, &param, &addr), 0U);
    pending[number] = now_ + kPatienceMs;
  };
  app.onAnswer = [&] {
    answered.insert(app.responses.back().payload);
    pending.erase(std::stoull(app.responses.back().payload));
  };
  for (int round = 0; round < 20'000 && answered.size() < kNum; ++round) {
    while (next < kNum && pending.size() < kAtOnce) ask(next++);
    Step([&](const CoapMessage &request) {
      CoapMessage answer = AnswerOf(request);
      Deliver(answer.PayloadText(request.Text()));
    });
    for (const auto &[number, dueMs] : std::map<uint64_t, uint64_t>(pending)) {
      if (dueMs <= now_) ask(number);
    }
  }
  EXPECT_EQ(answered.size(), kNum);
}

TEST_F(ClientLossy, MirroredTable_IsEqualAtTheEnd) {
  App app;
  const CoapRpcUriKey key = KeyOf("table", COAP_RPC_CON, 1);
  Register(key, &app);
  std::map<std::string, std::string> mirror;
  app.onAnswer = [&] {  // "key=value"
    const std::string &text = app.responses.back().payload;
    mirror[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
  };
  EXPECT_EQ(Observe(key), 0U);
  Bytes token;
  for (int i = 0; i < 400 && token.empty(); ++i) {
    Step([&](const CoapMessage &request) {
      token = request.token;
      Deliver(AckOf(request));
    });
  }
  ASSERT_FALSE(token.empty());

  std::map<std::string, std::string> table;
  for (uint16_t change = 1; change <= 300; ++change) {
    const std::string name = "k" + std::to_string(random_() % 40);
    table[name] = std::to_string(change);
    const CoapMessage notification = Separate(CoapType::kCon, change, token, "table")
                                         .AddUint(kOptObserve, change)
                                         .PayloadText(name + "=" + table[name]);
    bool isAcked = false;
    for (int i = 0; i < 400 && !isAcked; ++i) {
      if (i % 20 == 0) Deliver(notification);
      Step([&](const CoapMessage &message) {
        isAcked |= message.type == CoapType::kAck && message.messageId == change;
      });
    }
    ASSERT_TRUE(isAcked) << change;
  }
  EXPECT_EQ(mirror, table);
}

}  // namespace
}  // namespace coap_rpc_test
