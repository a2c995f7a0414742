// The typed faces of lists and trees.
#include <gtest/gtest.h>

#include <vector>

#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

namespace {

using coap_rpc::LinkInit;
using coap_rpc::LinkIsAlone;
using coap_rpc::LinkRemove;

struct Record {
  CoapRpcLink linkA;
  OSAL_AVL3_NODE node;
  CoapRpcLink linkB;
  int key;
};

int32_t CompareInts(const void *a, const void *b) {
  const int x = *static_cast<const int *>(a);
  const int y = *static_cast<const int *>(b);
  return (x > y) - (x < y);
}

using ListA = COAP_RPC_LIST(Record, linkA);
using ListB = COAP_RPC_LIST(Record, linkB);
using Records = COAP_RPC_TABLE(Record, key, int, CompareInts);

Record Make(int key) {
  Record rec = {};
  LinkInit(rec.linkA);
  LinkInit(rec.linkB);
  rec.key = key;
  return rec;
}

template <typename AnyList>
std::vector<int> KeysOf(const AnyList &list) {
  std::vector<int> keys;
  for (Record *rec = list.First(); rec; rec = list.After(rec)) keys.push_back(rec->key);
  return keys;
}

class ListTest : public testing::Test {
 protected:
  void SetUp() override {
    LinkInit(headA_);
    LinkInit(headB_);
  }

  CoapRpcLink headA_;
  CoapRpcLink headB_;
  Record one_ = Make(1), two_ = Make(2), three_ = Make(3);
};

TEST_F(ListTest, ZeroedHead_IsAnEmptyList) {
  CoapRpcLink zero = {};
  ListA list(zero);
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(list.First(), nullptr);
  list.Drain([](Record *) { FAIL(); });
  list.Append(&one_);
  EXPECT_EQ(KeysOf(list), std::vector<int>({1}));
}

TEST_F(ListTest, Append_KeepsTheOrder) {
  ListA list(headA_);
  list.Append(&two_);
  list.Append(&one_);
  list.Append(&three_);
  EXPECT_EQ(KeysOf(list), std::vector<int>({2, 1, 3}));
}

TEST_F(ListTest, AppendAgain_MovesToTheTail) {
  ListA list(headA_);
  list.Append(&one_);
  list.Append(&two_);
  list.Append(&one_);
  EXPECT_EQ(KeysOf(list), std::vector<int>({2, 1}));
}

TEST_F(ListTest, AppendElsewhere_LeavesTheOldList) {
  ListA list(headA_);
  ListA other(headB_);
  list.Append(&one_);
  other.Append(&one_);
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(KeysOf(other), std::vector<int>({1}));
}

TEST_F(ListTest, OneRecord_MayBeOnTwoLists) {
  ListA a(headA_);
  ListB b(headB_);
  a.Append(&one_);
  a.Append(&two_);
  b.Append(&two_);
  b.Append(&one_);
  EXPECT_EQ(KeysOf(a), std::vector<int>({1, 2}));
  EXPECT_EQ(KeysOf(b), std::vector<int>({2, 1}));
  LinkRemove(one_.linkA);
  EXPECT_EQ(KeysOf(a), std::vector<int>({2}));
  EXPECT_EQ(KeysOf(b), std::vector<int>({2, 1}));
}

TEST_F(ListTest, Remove_LeavesTheLinkAlone) {
  ListA list(headA_);
  list.Append(&one_);
  LinkRemove(one_.linkA);
  EXPECT_TRUE(LinkIsAlone(one_.linkA));
  EXPECT_EQ(one_.linkA.next, &one_.linkA);
  LinkRemove(one_.linkA);
  EXPECT_TRUE(list.IsEmpty());
}

TEST_F(ListTest, ForEach_MayTakeRecordsOff) {
  ListA list(headA_);
  list.ForEach([](Record *) { FAIL() << "an empty list"; });
  for (Record *rec : {&one_, &two_, &three_}) list.Append(rec);
  std::vector<int> keys;
  list.ForEach([&](Record *rec) {
    keys.push_back(rec->key);
    if (rec->key != 2) LinkRemove(rec->linkA);
  });
  EXPECT_EQ(keys, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(KeysOf(list), std::vector<int>{2});
}

TEST_F(ListTest, FindIf_GivesTheFirstMatch) {
  ListA list(headA_);
  list.Append(&one_);
  list.Append(&two_);
  list.Append(&three_);
  EXPECT_EQ(list.FindIf([](const Record &rec) { return rec.key > 1; }), &two_);
  EXPECT_EQ(list.FindIf([](const Record &rec) { return rec.key > 3; }), nullptr);
}

TEST_F(ListTest, Drain_EmptiesFromTheHead) {
  ListA list(headA_);
  list.Append(&one_);
  list.Append(&two_);
  std::vector<int> drained;
  list.Drain([&](Record *rec) {
    drained.push_back(rec->key);
    LinkRemove(rec->linkA);
  });
  EXPECT_EQ(drained, std::vector<int>({1, 2}));
  EXPECT_TRUE(list.IsEmpty());
}

class TableTest : public testing::Test {
 protected:
  OSAL_AVL3_TREE tree_ = {};
  Records table_{tree_};
  Record ten_ = Make(10), twenty_ = Make(20), thirty_ = Make(30);
};

TEST_F(TableTest, Empty_HasNothing) {
  const int key = 10;
  EXPECT_TRUE(table_.IsEmpty());
  EXPECT_EQ(table_.First(), nullptr);
  EXPECT_EQ(table_.Find(&key), nullptr);
  EXPECT_EQ(table_.After(&key), nullptr);
  EXPECT_EQ(table_.Next(nullptr), nullptr);
}

TEST_F(TableTest, Walk_IsInKeyOrder) {
  EXPECT_TRUE(table_.Insert(&thirty_));
  EXPECT_TRUE(table_.Insert(&ten_));
  EXPECT_TRUE(table_.Insert(&twenty_));
  EXPECT_EQ(table_.First(), &ten_);
  EXPECT_EQ(table_.Next(&ten_), &twenty_);
  EXPECT_EQ(table_.Next(&twenty_), &thirty_);
  EXPECT_EQ(table_.Next(&thirty_), nullptr);
}

TEST_F(TableTest, InsertEqualKey_IsRefused) {
  Record again = Make(10);
  EXPECT_TRUE(table_.Insert(&ten_));
  EXPECT_FALSE(table_.Insert(&again));
  EXPECT_EQ(table_.Find(&again.key), &ten_);
}

TEST_F(TableTest, After_IsStrictlyGreater_KeyNeedNotBePresent) {
  ASSERT_TRUE(table_.Insert(&ten_));
  ASSERT_TRUE(table_.Insert(&thirty_));
  const int keys[] = {9, 10, 20, 30};
  EXPECT_EQ(table_.After(&keys[0]), &ten_);
  EXPECT_EQ(table_.After(&keys[1]), &thirty_);
  EXPECT_EQ(table_.After(&keys[2]), &thirty_);
  EXPECT_EQ(table_.After(&keys[3]), nullptr);
}

TEST_F(TableTest, Insert_MakesTheNodeFreshFirst) {
  ten_.node = {&thirty_.node, &thirty_.node, &thirty_.node, 7, 7};
  EXPECT_TRUE(table_.Insert(&ten_));
  EXPECT_EQ(table_.Next(&ten_), nullptr);
}

TEST_F(TableTest, Remove_MakesTheNodeFresh) {
  ASSERT_TRUE(table_.Insert(&ten_));
  table_.Remove(&ten_);
  EXPECT_TRUE(table_.IsEmpty());
  EXPECT_EQ(ten_.node.leftHeight, -1);
  EXPECT_EQ(ten_.node.rightHeight, -1);
  EXPECT_EQ(ten_.node.parent, nullptr);
}

TEST_F(TableTest, Drain_EmptiesInKeyOrder) {
  ASSERT_TRUE(table_.Insert(&twenty_));
  ASSERT_TRUE(table_.Insert(&ten_));
  std::vector<int> drained;
  table_.Drain([&](Record *rec) {
    drained.push_back(rec->key);
    table_.Remove(rec);
  });
  EXPECT_EQ(drained, std::vector<int>({10, 20}));
}

}  // namespace
