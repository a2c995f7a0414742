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
  if (node == nullptr) return nullptr;
  return reinterpret_cast<Record *>(reinterpret_cast<char *>(node) - offsetof(Record, node));
}

bool IsFresh(const OSAL_AVL3_NODE &node) {
  return node.parent == nullptr && node.left == nullptr && node.right == nullptr &&
         node.leftHeight == -1 && node.rightHeight == -1;
}

// CheckSubtree returns the height; it expects links back to `parent`, and sides that differ by at
// most one, as the heights of the node say.
int CheckSubtree(OSAL_AVL3_NODE *node, OSAL_AVL3_NODE *parent) {
  if (node == nullptr) return 0;
  EXPECT_EQ(parent, node->parent);
  const int left = CheckSubtree(node->left, node);
  const int right = CheckSubtree(node->right, node);
  EXPECT_LE(std::abs(left - right), 1);
  EXPECT_EQ(left - right, node->leftHeight - node->rightHeight);
  return std::max(left, right) + 1;
}

class HostAvl3 : public testing::Test {
 protected:
  OSAL_AVL3_NODE *Insert(Record &record) {
    return OSAL_AVL3_Insert_Or_Find(&m_tree, &kDesc, &record.node);
  }
  Record *Find(uint32_t key) { return RecordOf(OSAL_AVL3_Find(&m_tree, &kDesc, &key)); }
  void Delete(Record &record) { OSAL_AVL3_Delete(&m_tree, &record.node, &kDesc); }

  // CheckTree expects the tree to hold just `expected`, in order and balanced.
  void CheckTree(const std::map<uint32_t, Record *> &expected) {
    CheckSubtree(m_tree.root, nullptr);
    OSAL_AVL3_NODE *node = OSAL_AVL3_First(&m_tree, &kDesc);
    OSAL_AVL3_NODE *last = nullptr;
    for (const auto &entry : expected) {
      ASSERT_EQ(entry.second, RecordOf(node));
      last = node;
      node = OSAL_AVL3_Next(&m_tree, node, &kDesc);
    }
    EXPECT_EQ(nullptr, node);
    EXPECT_EQ(last, m_tree.last);
  }

  OSAL_AVL3_TREE m_tree{};
};

}  // namespace

TEST_F(HostAvl3, EmptyTree_FindsNothing) {
  const uint32_t key = 1;
  EXPECT_EQ(nullptr, OSAL_AVL3_Find(&m_tree, &kDesc, &key));
  EXPECT_EQ(nullptr, OSAL_AVL3_First(&m_tree, &kDesc));
  EXPECT_EQ(nullptr, AVL3_Find_Or_Find_Next(&m_tree, &kDesc, &key));
}

TEST_F(HostAvl3, SingleNode_ComesAndGoes) {
  Record record;
  record.key = 5;
  EXPECT_EQ(nullptr, Insert(record));
  EXPECT_FALSE(IsFresh(record.node));
  EXPECT_EQ(&record.node, m_tree.root);
  EXPECT_EQ(&record.node, m_tree.first);
  EXPECT_EQ(&record.node, m_tree.last);
  Delete(record);
  EXPECT_TRUE(IsFresh(record.node));
  EXPECT_EQ(nullptr, m_tree.root);
  EXPECT_EQ(nullptr, m_tree.first);
  EXPECT_EQ(nullptr, m_tree.last);
}

TEST_F(HostAvl3, EqualKey_LeavesTheNewNodeFresh) {
  Record first, second;
  first.key = second.key = 5;
  Insert(first);
  EXPECT_EQ(&first.node, Insert(second));
  EXPECT_TRUE(IsFresh(second.node));
  Delete(second);
  EXPECT_EQ(&first, Find(5));
  Delete(first);
  Delete(first);
}

TEST_F(HostAvl3, MovedRoot_StaysUsable) {
  Record records[10];
  for (uint32_t i = 0; i < 10; ++i) {
    records[i].key = i;
    Insert(records[i]);
  }
  const OSAL_AVL3_TREE moved = m_tree;
  m_tree = {};
  m_tree = moved;
  for (Record &record : records) Delete(record);
  EXPECT_EQ(nullptr, m_tree.root);
}

TEST_F(HostAvl3, Find_ComparesOncePerLevel) {
  std::vector<Record> records(1000);
  for (uint32_t i = 0; i < 1000; ++i) {
    records[i].key = i;
    Insert(records[i]);
  }
  const uint32_t height = static_cast<uint32_t>(CheckSubtree(m_tree.root, nullptr));
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
      ASSERT_EQ(nullptr, Insert(record));
      expected[record.key] = &record;
    }
    const uint32_t probe = static_cast<uint32_t>(random() % (kKeys + 1));
    const auto found = expected.find(probe);
    ASSERT_EQ(found == expected.end() ? nullptr : found->second, Find(probe));
    const auto next = expected.lower_bound(probe);
    ASSERT_EQ(next == expected.end() ? nullptr : next->second,
              RecordOf(AVL3_Find_Or_Find_Next(&m_tree, &kDesc, &probe)));
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
  EXPECT_EQ(nullptr, m_tree.root);
}
