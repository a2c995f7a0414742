// A client with a request and an observation open, whose peer, or somebody in its place, sends
// whatever fits into a datagram.
#include <algorithm>
#include <random>

#include "coap_malformed.h"
#include "usage.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class HostileClient : public WireClient {
 protected:
  HostileClient() {
    host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
    COAP_RpcSetLibLogLevel(Ctx(), 0);
    app_.out = "question";
    Register(key_, &app_);
    Register(observedKey_, &app_);
  }

  void ServeWaiting() {
    while (COAP_RpcProcIo(Ctx()) != 0) {
    }
    host_.ClearLogs();
    app_.responses.clear();
  }

  // Read serves until the peer gets a message.
  CoapMessage Read() {
    const auto message = peer_.ReceiveMessage([this] {
      Tick();
      ServeWaiting();
    });
    return message ? *message : CoapMessage();
  }
  void ReadAll() {
    while (peer_.Receive([this] { ServeWaiting(); }, 2)) {
    }
  }

  // Open leaves a request and an observation open, which attacks then aim at.
  void Open() {
    EXPECT_EQ(Observe(observedKey_), 0u);
    observed_ = Read();
    EXPECT_TRUE(observed_.Has(kOptObserve));
    CoapMessage answer = AnswerOf(observed_);
    peer_.Send(answer.AddUint(kOptObserve, 1).PayloadText("first"));
    ServeWaiting();
    EXPECT_EQ(Call(key_), 0u);
    request_ = Read();
    EXPECT_EQ(request_.Text(), "question");
  }

  // Seeds are answers and notifications that fit the open request and the observation.
  std::vector<CoapMessage> Seeds() const {
    CoapMessage large = AnswerOf(request_).PayloadText(std::string(64, 'p'));
    large.AddBlock(kOptBlock2, {0, true, 2}).AddUint(kOptSize2, 6400).Add(kOptEtag, {1});
    CoapMessage notification = Separate(CoapType::kCon, 0x7001, observed_.token, observed_.Path());
    notification.AddUint(kOptObserve, 2).Add(kOptEtag, {1, 2}).PayloadText("changed");
    CoapMessage largeNotification = notification;
    largeNotification.AddBlock(kOptBlock2, {0, true, 2}).AddUint(kOptSize2, 0x7FFFFFFF);
    CoapMessage push = Separate(CoapType::kNon, 0x7002, {9}, "a", kCodePost);
    return {AnswerOf(request_).PayloadText("answer"), large, notification, largeNotification,
            push.PayloadText("pushed")};
  }

  void Send(const Bytes &datagram) {
    peer_.Send(datagram);
    if (++numSent_ % 16 == 0) ReadAll();
  }

  // NextRequest skips what the client still says to the attacks.
  CoapMessage NextRequest(const std::string &text) {
    CoapMessage message = Read();
    for (int i = 0; i < 200 && message.Text() != text; ++i) message = Read();
    return message;
  }

  // ExpectWorking expects the client to be answered as ever, and nothing to be left when it stops.
  void ExpectWorking() {
    ReadAll();
    Ticks(300);  // what was open ends
    ReadAll();
    app_.out = "again";
    EXPECT_EQ(Call(key_, 77), 0u);
    peer_.Send(AnswerOf(NextRequest("again")).PayloadText("answer"));
    COAP_RpcProcIo(Ctx());
    ASSERT_FALSE(app_.responses.empty());
    EXPECT_EQ(app_.responses.back().payload, "answer");
    EXPECT_LE(NumFds(), numFds_ + 1);  // the session's
    instance_->Stop();
    EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
    EXPECT_TRUE(host_.Pool().Violations().empty());
  }

  const CoapRpcUriKey key_ = KeyOf("a");
  const CoapRpcUriKey observedKey_ = KeyOf("b", COAP_RPC_CON, 1);
  App app_;
  CoapMessage request_;
  CoapMessage observed_;
  uint32_t numSent_ = 0;
  const uint32_t numFds_ = NumFds();
};

TEST_F(HostileClient, AnswersCutAtEveryLength) {
  Open();
  for (const CoapMessage &seed : Seeds()) {
    const size_t whole = ToBytes(seed).size();
    for (size_t len = 0; len < whole; ++len) Send(Truncated(seed, len));
  }
  ExpectWorking();
}

TEST_F(HostileClient, AnswersLongerThanAnyMessage) {
  Open();
  for (const CoapMessage &seed : Seeds()) {
    for (const size_t len : {1000u, 1150u, 1472u, 1473u, 9000u, 65'507u}) {
      Bytes datagram = ToBytes(seed);
      datagram.resize(len, 'x');
      Send(datagram);
      Send(Bytes(len, 0xFF));
    }
  }
  ExpectWorking();
}

TEST_F(HostileClient, EveryCodeAndType) {
  Open();
  for (CoapMessage seed : Seeds()) {
    for (uint32_t code = 0; code < 256; ++code) {
      for (const CoapType type : {CoapType::kCon, CoapType::kNon, CoapType::kAck, CoapType::kRst}) {
        seed.code = static_cast<uint8_t>(code);
        seed.type = type;
        Send(ToBytes(seed));
      }
    }
  }
  ExpectWorking();
}

// Every number up to 300, each with some lengths up to 300 under the address checker.
TEST_F(HostileClient, EveryOptionOfEveryLength) {
  Open();
  uint32_t num = 0;
  const std::vector<CoapMessage> seeds = Seeds();
  for (uint16_t number = 0; number <= 300; ++number) {
    for (size_t len = 0; len <= 300; ++len) {
      if (len > 8 && ++num % kSlowdown != 0) continue;
      CoapMessage message = seeds[len % seeds.size()];
      Send(ToBytes(message.Add(number, Bytes(len, 'o'))));
    }
  }
  ExpectWorking();
}

TEST_F(HostileClient, RepeatedReorderedAndReplayed) {
  Open();
  std::vector<CoapMessage> all = Seeds();
  std::mt19937 random(1);
  for (int i = 0; i < 200; ++i) {
    std::shuffle(all.begin(), all.end(), random);
    for (const CoapMessage &message : all) Send(ToBytes(message));
  }
  ExpectWorking();
}

TEST_F(HostileClient, BodiesThatClaimToBeHuge_TakeNoMemory) {
  Open();
  const uint64_t before = HeapBytes();
  for (CoapMessage seed : Seeds()) {
    seed.options.clear();
    seed.AddPath(seed.token == request_.token ? "a" : "b").AddUint(kOptSize2, 0x7FFFFFFF);
    seed.AddBlock(kOptBlock2, {0, true, 2}).PayloadText(std::string(64, 'p')).Add(kOptEtag, {1});
    peer_.Send(seed);
    COAP_RpcProcIo(Ctx());
    EXPECT_LE(HeapBytes(), before + 2 * 1024 * 1024);
  }
  ExpectWorking();
}

// A session takes datagrams from its peer alone.
TEST_F(HostileClient, AnswersFromStrangers_AreNotDelivered) {
  Open();
  const UdpAddress client = peer_.Remote();
  for (int i = 0; i < 100; ++i) {
    RawPeer stranger(UdpAddress{"127.0.0." + std::to_string(3 + i), 0});
    stranger.SetRemote(client);
    for (const CoapMessage &seed : Seeds()) stranger.Send(seed);
    COAP_RpcProcIo(Ctx());
    EXPECT_TRUE(app_.responses.empty());
  }
  peer_.Send(AnswerOf(request_).PayloadText("answer"));
  COAP_RpcProcIo(Ctx());
  ASSERT_EQ(app_.responses.size(), 1u);
  EXPECT_EQ(app_.responses[0].payload, "answer");
  ExpectWorking();
}

}  // namespace
}  // namespace coap_rpc_test
