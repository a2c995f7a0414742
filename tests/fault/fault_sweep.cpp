/* fault_sweep.cpp: whatever an instance does, and whichever allocation fails meanwhile: no crash,
 * no leak, no half-made record, and it works again as soon as there is memory. */
#include <cstdio>
#include <tuple>

#include "sweep.h"

namespace coap_rpc_test {
namespace {

class AllocationSweep : public testing::TestWithParam<std::tuple<Scenario, Source>> {
 protected:
  static void SetUpTestSuite() { TakeOverJansson(); }
};

TEST_P(AllocationSweep, NothingBreaks) {
  const auto &[scenario, source] = GetParam();
  const uint64_t numCalls = Sweep(scenario, source);
  RecordProperty("calls", static_cast<int>(numCalls));
  printf("sweep: %s, %s: %u calls\n", scenario.name, NameOf(source),
         static_cast<unsigned>(numCalls));
}

std::string NameOfCase(const testing::TestParamInfo<AllocationSweep::ParamType> &info) {
  return std::string(std::get<0>(info.param).name) + "_" + NameOf(std::get<1>(info.param));
}

#define SWEEP(name)                                                                           \
  INSTANTIATE_TEST_SUITE_P(                                                                   \
      name, AllocationSweep,                                                                  \
      testing::Combine(testing::ValuesIn(name##Scenarios()), testing::ValuesIn(kAllSources)), \
      NameOfCase)
SWEEP(Table);
SWEEP(Request);
SWEEP(Observe);
SWEEP(Sync);
SWEEP(Mirror);
SWEEP(Client);
SWEEP(Call);

}  // namespace
}  // namespace coap_rpc_test
