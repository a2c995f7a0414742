// Many calls over a network that loses, repeats and reorders: each ends once, with its own answer
// or with a timeout.
#include <algorithm>
#include <deque>
#include <map>
#include <random>

#include "client_calls.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kNumCalls = 2000;
constexpr uint32_t kNumUnderWay = 40;

class LossyCalls : public ClientCalls {
 protected:
  bool IsLucky(uint32_t percent) { return random_() % 100 < percent; }

  // Deliver sends a message, unless it is lost, now or after others, and maybe twice.
  void Deliver(const CoapMessage &message) {
    if (IsLucky(30)) return;
    for (int copies = IsLucky(10) ? 2 : 1; copies != 0; --copies) {
      if (IsLucky(20)) {
        late_.push_back(message);
      } else {
        peer_.Send(message);
      }
    }
  }

  void Answer(const CoapMessage &request) {
    const std::string text = "to " + request.Path();
    if (request.type == CoapType::kNon || IsLucky(30)) {
      if (request.type == CoapType::kCon) Deliver(AckOf(request));
      const CoapType type = IsLucky(50) ? CoapType::kCon : CoapType::kNon;
      Deliver(Apart(type, ++mid_, request).PayloadText(text));
    } else {
      Deliver(Piggyback(request).PayloadText(text));
    }
  }

  void Round() {
    while (const auto message = peer_.ReceiveNow()) {
      if (message->code != kCodeEmpty && !IsLucky(30)) Answer(*message);
    }
    std::shuffle(late_.begin(), late_.end(), random_);
    for (size_t num = late_.size() / 2; num != 0; --num) {
      peer_.Send(late_.front());
      late_.pop_front();
    }
    Tick();
  }

  std::mt19937 random_{18};
  std::deque<CoapMessage> late_;
  uint16_t mid_ = 0;
};

TEST_F(LossyCalls, EachEndsOnce_WithItsOwnAnswer) {
  COAP_RpcSetNstart(Ctx(), 8);
  std::map<uint64_t, std::string> open;
  uint32_t numAnswered = 0;
  uint32_t numMade = 0;
  onTold_ = [&](const CoapRpcCallRsp &rsp) {
    const auto call = open.find(rsp.id);
    ASSERT_NE(call, open.end());
    if (rsp.status == COAP_RPC_CALL_ANSWERED) {
      EXPECT_EQ(told_.back().payload, "to " + call->second);
      ++numAnswered;
    } else {
      EXPECT_EQ(rsp.status, COAP_RPC_CALL_TIMEOUT);
    }
    open.erase(call);
  };
  while (numMade < kNumCalls || !open.empty()) {
    while (numMade < kNumCalls && open.size() < kNumUnderWay) {
      const std::string path = "c/" + std::to_string(numMade);
      CoapRpcCall call = Get(path.c_str());
      call.isNon = numMade % 5 == 0;
      ASSERT_EQ(Try(call), 0U);
      open[id_] = path;
      ++numMade;
    }
    Round();
  }
  EXPECT_EQ(told_.size(), kNumCalls);
  EXPECT_EQ(NumCalls(), 0U);
  // About four of five: the peer sends no answer again that is lost.
  EXPECT_GT(numAnswered, kNumCalls * 6 / 10);
  EXPECT_LT(numAnswered, kNumCalls);
}

}  // namespace
}  // namespace coap_rpc_test
