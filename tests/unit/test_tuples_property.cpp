/* test_tuples_property.cpp: random life of a tuple set and its change list against a plain model.
 *
 * A receiver applies what is drained; the application deletes, updates and fails to build as it
 * likes, and observers come and go. */
#include <algorithm>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "observed_entry.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kNumSteps = 100'000;
constexpr uint32_t kNumKeys = 300;

struct ModelChg {
  uint32_t chgType;
  std::string key;
  std::string val;

  bool operator==(const ModelChg &) const = default;
};

std::ostream &operator<<(std::ostream &out, const ModelChg &chg) {
  return out << chg.chgType << " " << chg.key << "=" << chg.val;
}

// Model is the set, the ordered merged list, and what an observer has put together from what was
// sent.
struct Model {
  std::map<std::string, std::string> set;
  std::vector<ModelChg> list;
  std::map<std::string, std::string> received;
  bool sawEverything = true;  // no change was missed while nobody observed

  void Queue(uint32_t chgType, const std::string &key, const std::string *val) {
    const auto same = std::find_if(list.begin(), list.end(),
                                   [&key](const ModelChg &chg) { return chg.key == key; });
    if (same == list.end()) {
      list.push_back({chgType, key, val ? *val : std::string(4, '\0')});
      return;
    }
    same->chgType = chgType;
    if (val) same->val = *val;
  }
};

class TuplesProperty : public testing::TestWithParam<uint32_t> {
 protected:
  TuplesProperty() : random_(GetParam()) { t_.ctx.log = 0; }

  uint32_t Below(uint32_t end) { return static_cast<uint32_t>(random_()) % end; }

  std::string AnyKey() {
    char key[8];
    snprintf(key, sizeof(key), "k%03u", Below(kNumKeys));
    return key;
  }

  std::string AnyVal() {
    char val[8];
    snprintf(val, sizeof(val), "%04u", Below(10'000));
    return val;
  }

  void Update() {
    const std::string key = AnyKey();
    const std::string val = AnyVal();
    ASSERT_EQ(t_.Update(key.c_str(), val.c_str()), 0u);
    model_.set[key] = val;
    if (t_.entry.observerNum != 0) model_.Queue(1, key, &val);
  }

  void Delete() {
    const std::string key = AnyKey();
    COAP_RpcSerProcDelTuple(&t_.ctx, &t_.entry, nullptr, key.c_str());
    ASSERT_EQ(t_.Chg(key.c_str(), nullptr, 2), 0u);
    model_.set.erase(key);
    if (t_.entry.observerNum != 0) model_.Queue(2, key, nullptr);
  }

  // Drain makes one notification: each change is delivered unless its builder fails.
  void Drain(uint32_t failPercent) {
    std::vector<ModelChg> kept;
    const std::vector<CoapRpcTupleChg *> changes = t_.Changes();
    ASSERT_EQ(changes.size(), model_.list.size());
    for (size_t i = 0; i < changes.size(); ++i) {
      if (Below(100) < failPercent) {
        kept.push_back(model_.list[i]);
        continue;
      }
      Receive(*changes[i]);
      COAP_RpcSerDelTupleChgData(&t_.ctx, changes[i]);
    }
    model_.list = kept;
    if (!kept.empty() || t_.entry.observerNum == 0 || !model_.sawEverything) return;
    ++numAgreed_;
    EXPECT_EQ(model_.received, model_.set);
  }

  void Receive(const CoapRpcTupleChg &chg) {
    const std::string key(chg.key, chg.key + 4);
    if (chg.chgType == 2) {
      model_.received.erase(key);
    } else {
      model_.received[key] = std::string(chg.key + 4, chg.key + 8);
    }
  }

  // A newcomer gets the whole set.  What was pending since the last one left stays, deliberately,
  // although the set has moved on since.
  void Come() {
    if (t_.entry.observerNum == 0) {
      model_.sawEverything = model_.list.empty();
      model_.received.clear();
    }
    ++t_.entry.observerNum;
    for (CoapRpcUriTuple *tuple = COAP_RpcSerGetFirstUriTuple(&t_.entry); tuple;
         tuple = COAP_RpcSerGetNextUriTuple(&t_.entry, tuple)) {
      COAP_RpcSerProcTupleChg(&t_.ctx, &t_.entry, &t_.entry.key, tuple->key, tuple->key + 4, 1);
    }
    for (const auto &[key, val] : model_.set) model_.Queue(1, key, &val);
  }

  void Leave() {
    if (t_.entry.observerNum != 0) --t_.entry.observerNum;
  }

  void Step() {
    const uint32_t dice = Below(1000);
    if (dice < 600) {
      Update();
    } else if (dice < 990) {
      Delete();
    } else if (dice < 994) {
      Drain(dice % 2 == 0 ? 30 : 0);
    } else if (dice < 997) {
      Come();
    } else {
      Leave();
    }
  }

  void Compare() {
    std::vector<ModelChg> list;
    for (const CoapRpcTupleChg *chg : t_.Changes()) {
      list.push_back({chg->chgType, std::string(chg->key, chg->key + 4),
                      std::string(chg->key + 4, chg->key + 8)});
    }
    ASSERT_EQ(list, model_.list);
    std::vector<std::string> set;
    for (const auto &[key, val] : model_.set) set.push_back(key + "=" + val);
    ASSERT_EQ(t_.TupleTexts(), set);
    ASSERT_EQ(COAP_RpcGetTupleSetCnt(&t_.entry), set.size());
  }

  ObservedEntry t_;
  std::mt19937 random_;
  Model model_;
  uint32_t numAgreed_ = 0;  // drained lists after which set and receiver were compared
};

TEST_P(TuplesProperty, RandomLife_AgreesWithTheModel) {
  for (uint32_t step = 0; step < kNumSteps && !HasFailure(); ++step) {
    Step();
    if (step % 100 == 0) Compare();
  }
  Compare();
  EXPECT_GT(numAgreed_, 20u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, TuplesProperty, testing::Values(1, 2, 3));

}  // namespace
}  // namespace coap_rpc_test
