/* client_end.h: a client whose application is told which requests end without an answer. */
#ifndef CLIENT_END_H
#define CLIENT_END_H

#include "wire_client.h"

namespace coap_rpc_test {

using Reasons = std::vector<uint32_t>;

inline constexpr uint64_t kGivenUpMs = 25'000;  // the last transmission has not been acknowledged by then
inline constexpr uint64_t kLifetimeMs = 247'000;

class ClientEnd : public WireClient {
 protected:
  void SetUp() override {
    COAP_RpcRefreshTaskTimer(Ctx());
    Listen();
    Register(key_, &app_);
    Register(watchKey_, &app_);
  }

  void Listen() { EXPECT_EQ(COAP_RpcSetOnRequestEnd(Ctx(), OnEnd, Self()), 0U); }
  uint64_t Self() { return reinterpret_cast<uint64_t>(this); }
  static void OnEnd(uint64_t userData, const CoapRpcRequestEnd *end) {
    auto &self = *reinterpret_cast<ClientEnd *>(userData);
    self.ends_.push_back(*end);
    if (self.onEnd_) self.onEnd_();
  }

  CoapMessage Ask(uint64_t userData = 1) {
    EXPECT_EQ(Call(key_, userData), 0U);
    return Next();
  }
  CoapMessage Watch(uint64_t userData = 1) {
    EXPECT_EQ(Observe(watchKey_, userData), 0U);
    return Next();
  }
  // Wait lets time go by in front of a peer that says nothing.
  void Wait(uint64_t ms) {
    for (uint64_t t = 0; t < ms; t += kTickMs) {
      Tick();
      (void)peer_.ReceiveNow();
    }
  }
  // Keep holds the session open with a relation that the peer has acknowledged.
  void Keep() {
    peer_.Send(AnswerOf(Watch(100), Code(2, 1)).AddUint(kOptObserve, 1));
    Wait(500);
    EXPECT_EQ(Told(), Reasons{});
  }
  void Say(const CoapMessage &message) {
    peer_.Send(message);
    Wait(500);
  }

  Reasons Told() const {
    Reasons reasons;
    for (const CoapRpcRequestEnd &end : ends_) reasons.push_back(end.reason);
    return reasons;
  }
  std::vector<uint64_t> ToldUserData() const {
    std::vector<uint64_t> all;
    for (const CoapRpcRequestEnd &end : ends_) all.push_back(end.userData);
    return all;
  }
  // ExpectNothingMore says that whatever was told so far was all.
  void ExpectNothingMore() {
    const size_t num = ends_.size();
    Wait(2 * kLifetimeMs + 10'000);
    EXPECT_EQ(ends_.size(), num);
  }

  App app_;
  const CoapRpcUriKey key_ = KeyOf("a/b");
  const CoapRpcUriKey watchKey_ = KeyOf("w", COAP_RPC_CON, 1);
  std::vector<CoapRpcRequestEnd> ends_;
  std::function<void()> onEnd_;
};

}  // namespace coap_rpc_test

#endif /* CLIENT_END_H */
