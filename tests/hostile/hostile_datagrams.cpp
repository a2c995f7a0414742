// One peer that sends whatever fits into a datagram: cut, too long, repeated, in any order, with
// any code, type and option.
#include <algorithm>
#include <random>

#include "hostile_server.h"

namespace coap_rpc_test {
namespace {

class HostileDatagrams : public HostileServer {
 protected:
  void Send(const Bytes &datagram) {
    attacker_.Send(datagram);
    if (++numSent_ % 16 == 0) ServeAttacker();
  }
  void Send(const CoapMessage &message) { Send(ToBytes(message)); }
  void SendAll(const std::vector<Bytes> &datagrams) {
    for (const Bytes &datagram : datagrams) Send(datagram);
    ServeAttacker();
  }

  void ServeAttacker() {
    ServeWaiting();
    attacker_.Discard();
  }

  // Conversation is what a peer says that uses everything.
  std::vector<Bytes> Conversation() {
    std::vector<Bytes> all;
    for (const std::string &path : Paths()) {
      all.push_back(ToBytes(Get(CoapType::kCon, path, "payload")));
      all.push_back(ToBytes(Post(CoapType::kNon, path, "payload")));
      CoapMessage observe = Get(CoapType::kCon, path).AddUint(kOptObserve, 0);
      all.push_back(ToBytes(observe.AddText(kOptUriQuery, "_ual-checkcode=1")));
      for (uint32_t num = 0; num < 3; ++num) {
        CoapMessage up = Post(CoapType::kCon, path, std::string(64, 'b'));
        all.push_back(ToBytes(up.AddBlock(kOptBlock1, {num, num < 2, 2}).AddUint(kOptSize1, 192)));
        all.push_back(
            ToBytes(Get(CoapType::kCon, path, "q").AddBlock(kOptBlock2, {num, false, 2})));
      }
      all.push_back(ToBytes(Get(CoapType::kCon, path).AddUint(kOptObserve, 1)));
    }
    return all;
  }

  uint32_t numSent_ = 0;
};

TEST_F(HostileDatagrams, CutAtEveryLength) {
  for (const Bytes &whole : Conversation()) {
    std::vector<Bytes> cut;
    for (size_t len = 0; len < whole.size(); ++len) {
      cut.emplace_back(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(len));
    }
    SendAll(cut);
  }
  ExpectAllForgotten();
}

TEST_F(HostileDatagrams, LongerThanAnyMessage) {
  for (const std::string &path : Paths()) {
    for (const size_t len : {1000u, 1150u, 1400u, 1472u, 1473u, 1500u, 9000u, 65'000u, 65'507u}) {
      Bytes datagram = ToBytes(Post(CoapType::kCon, path, "p"));
      datagram.resize(len, 'x');
      SendAll({datagram, Bytes(len, 0), Bytes(len, 0xFF), Bytes(len, 0x40)});
    }
  }
  ExpectAllForgotten();
}

TEST_F(HostileDatagrams, RepeatedReorderedAndReplayed) {
  std::vector<Bytes> all = Conversation();
  for (const Bytes &datagram : all) SendAll({datagram, datagram, datagram});
  std::reverse(all.begin(), all.end());
  SendAll(all);
  std::mt19937 random(1);
  for (int i = 0; i < 20; ++i) {
    std::shuffle(all.begin(), all.end(), random);
    SendAll(all);
    Change("v" + std::to_string(100 + i), 3);
    host_.AdvanceMs(3000);
  }
  ExpectAllForgotten();
}

TEST_F(HostileDatagrams, EveryCodeAndType) {
  for (const std::string &path : Paths()) {
    for (uint32_t code = 0; code < 256; ++code) {
      for (const CoapType type : {CoapType::kCon, CoapType::kNon, CoapType::kAck, CoapType::kRst}) {
        CoapMessage message = Request(type, static_cast<uint8_t>(code), ++mid_, {1}).AddPath(path);
        const Bytes bare = ToBytes(message);
        SendAll({bare, ToBytes(message.PayloadText("payload"))});
      }
    }
  }
  ExpectAllForgotten();
}

// Every number up to 300 with every length up to 300; under the address checker each length is
// tried with some of the numbers, and each number with some of the lengths.
TEST_F(HostileDatagrams, EveryOptionOfEveryLength) {
  uint32_t num = 0;
  for (uint16_t number = 0; number <= 300; ++number) {
    for (size_t len = 0; len <= 300; ++len) {
      if (len > 20 && ++num % kSlowdown != 0) continue;
      CoapMessage message = Get(CoapType::kNon, "sync", "q").Add(number, Bytes(len, 'o'));
      if (number % 2 == 0) message.type = CoapType::kCon;
      Send(message);
    }
  }
  ExpectAllForgotten();
}

}  // namespace
}  // namespace coap_rpc_test
