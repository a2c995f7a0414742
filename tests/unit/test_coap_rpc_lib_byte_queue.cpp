// Queues of records of any size.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <vector>

#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_byte_queue.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

class ByteQueueTest : public testing::Test {
 protected:
  void Push(size_t size) {
    void *bytes = coap_rpc::PushBytes(host_.Mem(), queue_, size);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % coap_rpc::kRecordAlign, 0u);
    memset(bytes, ++filling_, size);
    pushed_.emplace_back(size, filling_);
  }

  // Pop takes off the oldest record, which has all its bytes.
  void Pop() {
    const std::vector<uint8_t> wanted(pushed_.front().first, pushed_.front().second);
    const auto *bytes = static_cast<const uint8_t *>(coap_rpc::FirstBytes(queue_));
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), bytes));
    coap_rpc::PopBytes(host_.Mem(), queue_, wanted.size());
    pushed_.pop_front();
  }

  TestHost host_;
  coap_rpc::ByteQueue queue_ = {};
  std::deque<std::pair<size_t, uint8_t>> pushed_;
  uint8_t filling_ = 0;
};

TEST_F(ByteQueueTest, Zeroed_IsEmpty) { EXPECT_FALSE(coap_rpc::FirstBytes(queue_)); }

TEST_F(ByteQueueTest, RecordsOfAllSizes_OldestFirstAndWhole) {
  for (size_t size = 1; size < 2000; size += 7) Push(size);
  for (size_t size = 1; size < 2000; size += 7) {
    Pop();
    Push(size);
  }
  while (!pushed_.empty()) Pop();
  EXPECT_FALSE(coap_rpc::FirstBytes(queue_));
}

TEST_F(ByteQueueTest, LastRecordGone_MemoryIsGivenBack) {
  for (int i = 0; i < 3; ++i) {
    Push(100);
    Pop();
    EXPECT_FALSE(coap_rpc::FirstBytes(queue_));
    host_.ExpectNoLeaks();
  }
}

TEST_F(ByteQueueTest, LargerThanASegment_IsRefused) {
  Push(8);
  EXPECT_FALSE(coap_rpc::PushBytes(host_.Mem(), queue_, 40000));
  Pop();
}

}  // namespace
}  // namespace coap_rpc_test
