/* test_contract_avl3.cpp: the intrusive trees, compared with std::map. */
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "osal_avl3.h"

namespace coap_rpc_test {
namespace {

// Rec has its key and its node in the middle, so that mistaken offsets show.
struct Rec {
  uint64_t before = 0x1111111111111111;
  int32_t key = 0;
  OSAL_AVL3_NODE node = OSAL_AVL3_NODE_FRESH;
  uint64_t after = 0x2222222222222222;
};

uint32_t g_numComparisons = 0;

int32_t CompareKeys(const void *a, const void *b) {
  ++g_numComparisons;
  const int32_t left = *static_cast<const int32_t *>(a);
  const int32_t right = *static_cast<const int32_t *>(b);
  return left < right ? -7 : left > right ? 9 : 0;  // any negative or positive number will do
}

constexpr OSAL_AVL3_DESC kDesc = {CompareKeys, offsetof(Rec, key), offsetof(Rec, node)};

Rec *RecOf(OSAL_AVL3_NODE *node) {
  if (!node) return nullptr;
  return reinterpret_cast<Rec *>(reinterpret_cast<uint8_t *>(node) - offsetof(Rec, node));
}

bool IsFresh(const OSAL_AVL3_NODE &node) {
  return !node.parent && !node.left && !node.right && node.leftHeight == -1 &&
         node.rightHeight == -1;
}

bool IsEmpty(const OSAL_AVL3_TREE &tree) { return !tree.root && !tree.first && !tree.last; }

// HeightOf walks a subtree.  Returns its height; -1000 when a link or the balance is wrong.
int HeightOf(const OSAL_AVL3_NODE *node, const OSAL_AVL3_NODE *parent) {
  if (!node) return 0;
  if (node->parent != parent) return -1000;
  const int left = HeightOf(node->left, node);
  const int right = HeightOf(node->right, node);
  if (left < 0 || right < 0 || left - right > 1 || right - left > 1) return -1000;
  return std::max(left, right) + 1;
}

class ContractAvl3 : public testing::Test {
 protected:
  static constexpr int32_t kNumKeys = 500;

  void SetUp() override {
    for (int32_t i = 0; i < kNumKeys; ++i) recs_[static_cast<size_t>(i)].key = 2 * i;
  }

  // At gives the record of key 2 * i.
  Rec &At(int32_t i) { return recs_[static_cast<size_t>(i)]; }
  Rec *Insert(Rec *rec) { return RecOf(OSAL_AVL3_Insert_Or_Find(&tree_, &kDesc, &rec->node)); }
  void Delete(Rec *rec) { OSAL_AVL3_Delete(&tree_, &rec->node, &kDesc); }
  Rec *Find(int32_t key) { return RecOf(OSAL_AVL3_Find(&tree_, &kDesc, &key)); }
  Rec *FindOrNext(int32_t key) { return RecOf(AVL3_Find_Or_Find_Next(&tree_, &kDesc, &key)); }
  Rec *First() { return RecOf(OSAL_AVL3_First(&tree_, &kDesc)); }
  Rec *Next(Rec *rec) { return RecOf(OSAL_AVL3_Next(&tree_, &rec->node, &kDesc)); }

  std::vector<int32_t> Keys() {
    std::vector<int32_t> keys;
    for (Rec *rec = First(); rec; rec = Next(rec)) keys.push_back(rec->key);
    return keys;
  }

  void ExpectSound(const std::map<int32_t, Rec *> &expected);
  void RandomStep(uint32_t random, std::map<int32_t, Rec *> *expected);

  OSAL_AVL3_TREE tree_ = {};
  std::vector<Rec> recs_ = std::vector<Rec>(kNumKeys);
};

void ContractAvl3::ExpectSound(const std::map<int32_t, Rec *> &expected) {
  std::vector<int32_t> keys;
  keys.reserve(expected.size());
  for (const auto &[key, rec] : expected) keys.push_back(key);
  EXPECT_EQ(Keys(), keys);
  EXPECT_GE(HeightOf(tree_.root, nullptr), 0) << "links or balance";
  EXPECT_EQ(RecOf(tree_.first), expected.empty() ? nullptr : expected.begin()->second);
  EXPECT_EQ(RecOf(tree_.last), expected.empty() ? nullptr : expected.rbegin()->second);
  for (const Rec &rec : recs_) {
    EXPECT_EQ(IsFresh(rec.node), expected.count(rec.key) == 0) << rec.key;
    EXPECT_EQ(rec.before, 0x1111111111111111u);
    EXPECT_EQ(rec.after, 0x2222222222222222u);
  }
}

// One insertion or removal of a random record, then lookups around another key.
void ContractAvl3::RandomStep(uint32_t random, std::map<int32_t, Rec *> *expected) {
  Rec *rec = &At(static_cast<int32_t>(random % kNumKeys));
  if (expected->count(rec->key) != 0) {
    Delete(rec);
    expected->erase(rec->key);
    ASSERT_TRUE(IsFresh(rec->node));
  } else {
    ASSERT_EQ(Insert(rec), nullptr);
    (*expected)[rec->key] = rec;
  }
  const auto key = static_cast<int32_t>(random / kNumKeys % (2 * kNumKeys + 2)) - 1;
  const auto exact = expected->find(key);
  const auto next = expected->lower_bound(key);
  ASSERT_EQ(Find(key), exact == expected->end() ? nullptr : exact->second);
  ASSERT_EQ(FindOrNext(key), next == expected->end() ? nullptr : next->second);
}

TEST_F(ContractAvl3, EmptyTree_HasNothing) {
  EXPECT_EQ(First(), nullptr);
  EXPECT_EQ(Find(0), nullptr);
  EXPECT_EQ(FindOrNext(0), nullptr);
}

TEST_F(ContractAvl3, Delete_FreshNode_IsIgnored) {
  Delete(&At(0));
  EXPECT_TRUE(IsFresh(At(0).node));
  EXPECT_TRUE(IsEmpty(tree_));
  EXPECT_EQ(Insert(&At(1)), nullptr);
  Delete(&At(0));
  EXPECT_TRUE(IsFresh(At(0).node));
  EXPECT_EQ(Keys(), std::vector<int32_t>({2}));
}

TEST_F(ContractAvl3, Insert_EqualKey_GivesTheOneThatIsThere) {
  Rec twin;
  twin.key = At(3).key;
  EXPECT_EQ(Insert(&At(3)), nullptr);
  EXPECT_EQ(Insert(&twin), &At(3));
  EXPECT_TRUE(IsFresh(twin.node));
  EXPECT_EQ(Keys(), std::vector<int32_t>({6}));
}

TEST_F(ContractAvl3, SingleNode_IsRootFirstAndLast) {
  EXPECT_EQ(Insert(&At(0)), nullptr);
  EXPECT_EQ(tree_.root, &At(0).node);
  EXPECT_EQ(tree_.first, &At(0).node);
  EXPECT_EQ(tree_.last, &At(0).node);
  EXPECT_FALSE(IsFresh(At(0).node));
  EXPECT_EQ(Next(&At(0)), nullptr);
  Delete(&At(0));
  EXPECT_TRUE(IsEmpty(tree_));
  EXPECT_TRUE(IsFresh(At(0).node));
}

TEST_F(ContractAvl3, FindOrNext_BetweenKeys_GivesTheGreater) {
  for (int32_t i = 0; i < 10; ++i) EXPECT_EQ(Insert(&At(i)), nullptr);
  EXPECT_EQ(FindOrNext(-1), &At(0));
  EXPECT_EQ(FindOrNext(4), &At(2));
  EXPECT_EQ(FindOrNext(5), &At(3));
  EXPECT_EQ(FindOrNext(18), &At(9));
  EXPECT_EQ(FindOrNext(19), nullptr);
}

TEST_F(ContractAvl3, Insert_RisingAndFalling_StaysBalanced) {
  std::map<int32_t, Rec *> expected;
  for (int32_t i = 0; i < 250; ++i) {
    EXPECT_EQ(Insert(&At(i)), nullptr);
    EXPECT_EQ(Insert(&At(kNumKeys - 1 - i)), nullptr);
  }
  for (Rec &rec : recs_) expected[rec.key] = &rec;
  ExpectSound(expected);
}

TEST_F(ContractAvl3, Find_ComparesOncePerLevel) {
  for (Rec &rec : recs_) EXPECT_EQ(Insert(&rec), nullptr);
  const auto height = static_cast<uint32_t>(HeightOf(tree_.root, nullptr));
  EXPECT_LE(height, 1.4405 * std::log2(kNumKeys + 2));
  for (int32_t key = -1; key <= 2 * kNumKeys; ++key) {
    g_numComparisons = 0;
    Find(key);
    EXPECT_LE(g_numComparisons, height) << key;
  }
}

TEST_F(ContractAvl3, Delete_WhileWalking_ReachesAll) {
  for (Rec &rec : recs_) EXPECT_EQ(Insert(&rec), nullptr);
  int32_t numDeleted = 0;
  while (Rec *first = First()) {
    Delete(first);
    ++numDeleted;
  }
  EXPECT_EQ(numDeleted, kNumKeys);
  EXPECT_TRUE(IsEmpty(tree_));
}

TEST_F(ContractAvl3, RandomOperations_MatchAMap) {
  std::map<int32_t, Rec *> expected;
  std::mt19937 random(20240102);
  for (int i = 0; i < 100'000; ++i) {
    RandomStep(static_cast<uint32_t>(random()), &expected);
    if (i % 500 == 0) ExpectSound(expected);
    ASSERT_FALSE(HasFailure()) << "after step " << i;
  }
  for (Rec &rec : recs_) Delete(&rec);
  EXPECT_TRUE(IsEmpty(tree_));
}

}  // namespace
}  // namespace coap_rpc_test
