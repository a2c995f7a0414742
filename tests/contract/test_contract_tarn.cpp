/* test_contract_tarn.cpp: the assertion hook. */
#include "contract_test.h"
#include "tarn.h"

namespace coap_rpc_test {
namespace {

class ContractTarn : public ContractTest {};

TEST_F(ContractTarn, Assert_ReturnsAndIsRecorded) {
  EXPECT_NE(TARN_Assert("src/some/file", 76, 0), 0u);
  const std::vector<ContractAssert> asserts = Host().Asserts();
  ASSERT_EQ(asserts.size(), 1u);
  EXPECT_EQ(asserts[0].path, "src/some/file");
  EXPECT_EQ(asserts[0].line, 76u);
}

TEST_F(ContractTarn, Assert_Twice_GivesTheSameResultInOrder) {
  const uint32_t first = TARN_Assert("src/one", 1, 0);
  const uint32_t second = TARN_Assert("src/two", 2, 0);
  EXPECT_EQ(first, second);
  const std::vector<ContractAssert> asserts = Host().Asserts();
  ASSERT_EQ(asserts.size(), 2u);
  EXPECT_EQ(asserts[0].path, "src/one");
  EXPECT_EQ(asserts[1].path, "src/two");
}

TEST_F(ContractTarn, Assert_OfAnEarlierHost_IsNotListed) {
  const uint32_t withHost = TARN_Assert("src/one", 1, 0);
  Remake({});
  EXPECT_EQ(Host().Asserts().size(), 0u);
  EXPECT_EQ(TARN_Assert("src/one", 1, 0), withHost);
}

}  // namespace
}  // namespace coap_rpc_test
