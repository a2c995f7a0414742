/* host_avl3.cpp: the intrusive tree against std::map, with its links and balance walked. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "osal_avl3.h"

namespace {

struct Record {
  uint32_t before = 0xAAAAAAAA;
  OSAL_AVL3_NODE node = OSAL_AVL3_NODE_FRESH;
  uint32_t key = 0;
};

uint32_t g_compares = 0;

int32_t CompareKeys(const void *a, const void *b) {
  ++g_compares;
  const uint32_t left = *static_cast<const uint32_t *>(a);
  const uint32_t right = *static_cast<const uint32_t *>(b);
  return left < right ? -7 : (left > right ? 9 : 0);
}

constexpr OSAL_AVL3_DESC kDesc{CompareKeys, offsetof(Record, key), offsetof(Record, node)};

Record *RecordOf(OSAL_AVL3_NODE *node) {
  if (!node) return nullptr;
  return reinterpret_cast<Record *>(reinterpret_cast<char *>(node) - offsetof(Record, node));
}

bool IsFresh(const OSAL_AVL3_NODE &node) {
  return !node.parent && !node.left && !node.right && node.leftHeight == -1 &&
         node.rightHeight == -1;
}

// CheckSubtree returns the height; it expects links back to `parent`, and sides that differ by at
// most one, as the heights of the node say.
int CheckSubtree(OSAL_AVL3_NODE *node, OSAL_AVL3_NODE *parent) {
  if (!node) return 0;
  EXPECT_EQ(node->parent, parent);
  const int left = CheckSubtree(node->left, node);
  const int right = CheckSubtree(node->right, node);
  EXPECT_LE(std::abs(left - right), 1);
  EXPECT_EQ(node->leftHeight - node->rightHeight, left - right);
  return std::max(left, right) + 1;
}

class HostAvl3 : public testing::Test {
 protected:
  OSAL_AVL3_NODE *Insert(Record &record) {
    return OSAL_AVL3_Insert_Or_Find(&tree_, &kDesc, &record.node);
  }
  Record *Find(uint32_t key) { return RecordOf(OSAL_AVL3_Find(&tree_, &kDesc, &key)); }
  void Delete(Record &record) { OSAL_AVL3_Delete(&tree_, &record.node, &kDesc); }

  // CheckTree expects the tree to hold just `expected`, in order and balanced.
  void CheckTree(const std::map<uint32_t, Record *> &expected) {
    CheckSubtree(tree_.root, nullptr);
    OSAL_AVL3_NODE *node = OSAL_AVL3_First(&tree_, &kDesc);
    OSAL_AVL3_NODE *last = nullptr;
    for (const auto &entry : expected) {
      ASSERT_EQ(RecordOf(node), entry.second);
      last = node;
      node = OSAL_AVL3_Next(&tree_, node, &kDesc);
    }
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(tree_.last, last);
  }

  OSAL_AVL3_TREE tree_{};
};

}  // namespace

TEST_F(HostAvl3, EmptyTree_FindsNothing) {
  const uint32_t key = 1;
  EXPECT_EQ(OSAL_AVL3_Find(&tree_, &kDesc, &key), nullptr);
  EXPECT_EQ(OSAL_AVL3_First(&tree_, &kDesc), nullptr);
  EXPECT_EQ(AVL3_Find_Or_Find_Next(&tree_, &kDesc, &key), nullptr);
}

TEST_F(HostAvl3, SingleNode_ComesAndGoes) {
  Record record;
  record.key = 5;
  EXPECT_EQ(Insert(record), nullptr);
  EXPECT_FALSE(IsFresh(record.node));
  EXPECT_EQ(tree_.root, &record.node);
  EXPECT_EQ(tree_.first, &record.node);
  EXPECT_EQ(tree_.last, &record.node);
  Delete(record);
  EXPECT_TRUE(IsFresh(record.node));
  EXPECT_EQ(tree_.root, nullptr);
  EXPECT_EQ(tree_.first, nullptr);
  EXPECT_EQ(tree_.last, nullptr);
}

TEST_F(HostAvl3, EqualKey_LeavesTheNewNodeFresh) {
  Record first, second;
  first.key = second.key = 5;
  Insert(first);
  EXPECT_EQ(Insert(second), &first.node);
  EXPECT_TRUE(IsFresh(second.node));
  Delete(second);
  EXPECT_EQ(Find(5), &first);
  Delete(first);
  Delete(first);
}

TEST_F(HostAvl3, MovedRoot_StaysUsable) {
  Record records[10];
  for (uint32_t i = 0; i < 10; ++i) {
    records[i].key = i;
    Insert(records[i]);
  }
  const OSAL_AVL3_TREE moved = tree_;
  tree_ = {};
  tree_ = moved;
  for (Record &record : records) Delete(record);
  EXPECT_EQ(tree_.root, nullptr);
}

TEST_F(HostAvl3, Find_ComparesOncePerLevel) {
  std::vector<Record> records(1000);
  for (uint32_t i = 0; i < 1000; ++i) {
    records[i].key = i;
    Insert(records[i]);
  }
  const uint32_t height = static_cast<uint32_t>(CheckSubtree(tree_.root, nullptr));
  EXPECT_LE(height, 14u);  // 1.44 * log2(1000)
  for (uint32_t key = 0; key < 1001; ++key) {
    g_compares = 0;
    Find(key);
    ASSERT_LE(g_compares, height);
  }
}

TEST_F(HostAvl3, RandomOperations_AgreeWithAMap) {
  constexpr uint32_t kKeys = 700;
  std::mt19937 random(20);
  std::vector<Record> records(kKeys);
  std::map<uint32_t, Record *> expected;
  for (uint32_t key = 0; key < kKeys; ++key) records[key].key = key;

  for (uint32_t step = 0; step < 100000; ++step) {
    // The share of insertions rises and falls, so that the tree fills up and empties.
    const bool insert = random() % 100 < (step / 10000 % 2 == 0 ? 70u : 30u);
    Record &record = records[random() % kKeys];
    if (!insert) {
      Delete(record);
      expected.erase(record.key);
      ASSERT_TRUE(IsFresh(record.node));
    } else if (expected.count(record.key) == 0) {
      ASSERT_EQ(Insert(record), nullptr);
      expected[record.key] = &record;
    }
    const uint32_t probe = static_cast<uint32_t>(random() % (kKeys + 1));
    const auto found = expected.find(probe);
    ASSERT_EQ(Find(probe), found == expected.end() ? nullptr : found->second);
    const auto next = expected.lower_bound(probe);
    ASSERT_EQ(RecordOf(AVL3_Find_Or_Find_Next(&tree_, &kDesc, &probe)),
              next == expected.end() ? nullptr : next->second);
    if (step % 500 == 0) {
      ASSERT_NO_FATAL_FAILURE(CheckTree(expected));
    }
  }
  while (!expected.empty()) {
    Delete(*expected.begin()->second);
    expected.erase(expected.begin());
    if (expected.size() % 50 == 0) {
      ASSERT_NO_FATAL_FAILURE(CheckTree(expected));
    }
  }
  EXPECT_EQ(tree_.root, nullptr);
}
