// Two calls without token to one peer were both answered in blocks: libcoap put the first block of
// the second answer to those of the first one, whose body was then a mixture or never ended.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class TokenlessBodies : public WireClient, public testing::WithParamInterface<bool> {
 protected:
  TokenlessBodies() {
    COAP_RpcRefreshTaskTimer(Ctx());
    Register(keys_[0], &apps_[0]);
    Register(keys_[1], &apps_[1]);
  }

  static std::string BodyOf(int which) { return std::string(2500, which == 0 ? 'x' : 'y'); }
  static int Which(const CoapMessage &request) { return request.Path() == "a" ? 0 : 1; }

  // WithBlock makes the answer to a request for a block, or for the first one.
  CoapMessage WithBlock(CoapMessage answer, const CoapMessage &request) const {
    const int which = Which(request);
    const std::optional<CoapBlock> block = request.Block(kOptBlock2);
    const uint32_t num = block ? block->num : 0;
    if (GetParam()) answer.Add(kOptEtag, {static_cast<uint8_t>(which + 1)});
    return answer.AddBlock(kOptBlock2, {num, num < 2, 6})
        .PayloadText(std::string_view(BodyOf(which)).substr(size_t{num} * 1024, 1024));
  }

  void Serve(int numRequests) {
    for (int i = 0; i < numRequests; ++i) {
      const CoapMessage request = Next();
      peer_.Send(WithBlock(AnswerOf(request), request));
    }
    Ticks(11);
  }

  void ExpectBoth() {
    for (int which : {0, 1}) {
      ASSERT_EQ(apps_[which].responses.size(), 1U) << which;
      EXPECT_EQ(apps_[which].responses[0].payload, BodyOf(which)) << which;
    }
  }

  const CoapRpcUriKey keys_[2] = {KeyOf("a"), KeyOf("b")};
  App apps_[2];
};

INSTANTIATE_TEST_SUITE_P(WithEtag, TokenlessBodies, testing::Bool());

TEST_P(TokenlessBodies, Acknowledgements_AreToldApart) {
  EXPECT_EQ(Call(keys_[0], 1), 0U);
  EXPECT_EQ(Call(keys_[1], 2), 0U);
  Serve(6);
  ExpectBoth();
}

TEST_P(TokenlessBodies, SeparateAnswers_AreToldApart) {
  EXPECT_EQ(Call(keys_[0], 1), 0U);
  EXPECT_EQ(Call(keys_[1], 2), 0U);
  const CoapMessage first = Next();
  peer_.Send(AckOf(first));
  const CoapMessage second = Next();
  peer_.Send(AckOf(second));
  Ticks(2);
  uint16_t mid = 4000;
  for (const CoapMessage &request : {first, second}) {
    peer_.Send(WithBlock(Separate(CoapType::kCon, ++mid, {}, request.Path()), request));
  }
  int numServed = 0;
  while (numServed < 4 && !HasFailure()) {
    const CoapMessage request = Next();
    if (request.type != CoapType::kCon) continue;
    peer_.Send(WithBlock(AnswerOf(request), request));
    ++numServed;
  }
  Ticks(11);
  ExpectBoth();
}

}  // namespace
}  // namespace coap_rpc_test
