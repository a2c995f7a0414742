// Mirrors over a network that loses 30 % of all datagrams each way, repeats and delays them, while
// the server's process and the mirrors begin again.
#include <random>

#include "lossy_network.h"
#include "mirror_pair.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kClientIp = 0x7F000101;

class MirrorLossy : public testing::TestWithParam<uint32_t> {
 protected:
  void Step() {
    network_.AdvanceMs(kTickMs);
    client_.Host().AdvanceMs(kTickMs);
    if (server_.IsRunning()) server_.Host().AdvanceMs(kTickMs);
    client_.Host().ClearLogs();
  }
  void Steps(int num) {
    for (int i = 0; i < num; ++i) Step();
  }
  uint32_t Pick(uint32_t num) { return static_cast<uint32_t>(random_() % num); }
  void Change() {
    const std::string key = Source::Name(Pick(60));
    if (Pick(3) != 0) {
      source_.Put(key, Source::Name(Pick(9)));
    } else {
      source_.Delete(key);
    }
  }
  void Restart() {
    server_.Stop();
    Steps(20);
    server_.Start();
    source_.Serve(server_, param_);
  }
  bool AreEqual() { return first_.IsEqual() && second_.IsEqual(); }

  LossyNetwork network_{GetParam(), kServerIp, {30, 10, 20'000}, {30, 10, 20'000}};
  std::mt19937 random_{GetParam()};
  Side client_{kClientIp};
  Side server_{kServerIp};
  CoapRpcSerSyncParam param_ = {};
  Source source_{4, 8};
  Copy first_{source_};
  Copy second_{source_};
};

TEST_P(MirrorLossy, TablesAreEqualInTheEnd) {
  param_.pageBytes = 256;
  param_.minTombstones = 2;
  source_.Serve(server_, param_);
  source_.Fill(50);
  first_.Open(client_, server_, 5000);
  second_.Open(client_, server_, 5000, 1);
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 200; ++i) {
      if (Pick(3) == 0) Change();
      Step();
    }
    if (round == 1) Restart();
    int numSteps = 0;
    while (!AreEqual() && ++numSteps < 6000) Step();
    ASSERT_TRUE(AreEqual()) << "round " << round;
  }
  for (Copy *copy : {&first_, &second_}) {
    EXPECT_EQ(copy->State().numDigestErrors, 0u);
    EXPECT_EQ(copy->State().numBadMessages, 0u);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, MirrorLossy, testing::Range(1u, 11u));

}  // namespace
}  // namespace coap_rpc_test
