// The look-up of an option finds what a plain walk over the message finds, each occurrence of it.
#include <coap3/coap.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

namespace coap_rpc_test {
namespace {

struct PduDelete {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using PduPtr = std::unique_ptr<coap_pdu_t, PduDelete>;

// Numbers on both sides of what fits into one, two and three bytes of a difference.
constexpr coap_option_num_t kNumbers[] = {1, 3, 6, 11, 12, 13, 14, 24, 268, 269, 270, 2048, 65000};

class CheckOption : public testing::TestWithParam<unsigned> {
 protected:
  CheckOption() {
    std::mt19937 random(GetParam());
    std::vector<coap_option_num_t> numbers;
    for (coap_option_num_t number : kNumbers) {
      numbers.insert(numbers.end(), random() % 3, number);
    }
    for (coap_option_num_t number : numbers) {
      const std::vector<uint8_t> value(random() % 20, 'x');
      coap_add_option(pdu_.get(), number, value.size(), value.data());
    }
    if (random() % 2 != 0) coap_add_data(pdu_.get(), 1, reinterpret_cast<const uint8_t *>("p"));
  }

  std::vector<const coap_opt_t *> Walk(coap_option_num_t number) const {
    std::vector<const coap_opt_t *> found;
    coap_opt_iterator_t it;
    coap_option_iterator_init(pdu_.get(), &it, COAP_OPT_ALL);
    while (const coap_opt_t *option = coap_option_next(&it)) {
      if (it.number == number) found.push_back(option);
    }
    return found;
  }

  std::vector<const coap_opt_t *> LookUp(coap_option_num_t number) const {
    std::vector<const coap_opt_t *> found;
    coap_opt_iterator_t it;
    const coap_opt_t *option = coap_check_option(pdu_.get(), number, &it);
    for (; option; option = coap_option_next(&it)) found.push_back(option);
    EXPECT_EQ(coap_option_next(&it), nullptr);
    return found;
  }

  const PduPtr pdu_{coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 1152)};
};

TEST_P(CheckOption, FindsEachOccurrence) {
  for (coap_option_num_t number : kNumbers) {
    SCOPED_TRACE(number);
    EXPECT_EQ(LookUp(number), Walk(number));
  }
}

TEST_P(CheckOption, FindsNoneBetween) {
  for (coap_option_num_t number : kNumbers) EXPECT_TRUE(LookUp(number + 65).empty());
}

INSTANTIATE_TEST_SUITE_P(Seeds, CheckOption, testing::Range(0U, 50U));

}  // namespace
}  // namespace coap_rpc_test
