/* test_contract_mem.cpp: pooled memory and framework strings. */
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "contract_test.h"
#include "kst_mem.h"

namespace coap_rpc_test {
namespace {

constexpr size_t kSizes[] = {1, 2, 7, 8, 15, 16, 17, 24, 63, 64, 100, 1000, 4096, 65535, 1 << 20};

class ContractMem : public ContractTest {
 protected:
  void *New(size_t size) { return KST_Malloc_(Mem(), size, "contract", 1); }
  uint32_t Free(void *p) { return KST_Free_(Mem(), p, "contract", 2); }
};

TEST_F(ContractMem, Malloc_EverySize_IsWritableAndAligned) {
  for (const size_t size : kSizes) {
    void *p = New(size);
    ASSERT_NE(p, nullptr) << size;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignof(std::max_align_t), 0u) << size;
    std::memset(p, 0x5A, size);
    EXPECT_EQ(Free(p), 0u) << size;
  }
}

TEST_F(ContractMem, Malloc_Pool0_GivesNull) {
  EXPECT_EQ(KST_Malloc_(0, 16, "contract", 1), nullptr);
}

TEST_F(ContractMem, Malloc_Size0_GivesUniquePointers) {
  void *first = New(0);
  void *second = New(0);
  EXPECT_NE(first, nullptr);
  EXPECT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(Host().LiveAllocations(), 2u);
  EXPECT_EQ(Free(first), 0u);
  EXPECT_EQ(Free(second), 0u);
}

TEST_F(ContractMem, Malloc_ImpossibleSize_GivesNull) {
  for (const size_t size : {SIZE_MAX, SIZE_MAX - 15, SIZE_MAX - 64, SIZE_MAX / 2}) {
    EXPECT_EQ(New(size), nullptr) << size;
  }
  EXPECT_EQ(Host().LiveAllocations(), 0u);
}

TEST_F(ContractMem, Malloc_ExhaustedPool_GivesNullUntilFreed) {
  Remake({.memLimitBytes = 10'000});
  void *first = New(9'000);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(New(9'000), nullptr);
  EXPECT_EQ(Host().LiveAllocations(), 1u);
  EXPECT_EQ(Free(first), 0u);
  void *again = New(9'000);
  EXPECT_NE(again, nullptr);
  EXPECT_EQ(Free(again), 0u);
}

TEST_F(ContractMem, Malloc_Many_DoNotOverlap) {
  std::vector<uint8_t *> all;
  for (uint8_t i = 0; i < 200; ++i) {
    all.push_back(static_cast<uint8_t *>(New(i + 1u)));
    ASSERT_NE(all.back(), nullptr);
    std::memset(all.back(), i, i + 1u);
  }
  EXPECT_EQ(Host().LiveAllocations(), 200u);
  for (uint8_t i = 0; i < 200; ++i) {
    EXPECT_EQ(std::string(all[i], all[i] + i + 1), std::string(i + 1u, static_cast<char>(i)));
    EXPECT_EQ(Free(all[i]), 0u);
  }
  EXPECT_EQ(Host().LiveAllocations(), 0u);
}

TEST_F(ContractMem, Free_Null_IsAccepted) { EXPECT_EQ(Free(nullptr), 0u); }

TEST_F(ContractMem, Free_Twice_IsRefused) {
  void *kept = New(32);
  void *p = New(32);
  EXPECT_EQ(Free(p), 0u);
  EXPECT_NE(Free(p), 0u);
  EXPECT_EQ(Host().LiveAllocations(), 1u);
  EXPECT_EQ(Free(kept), 0u);
}

TEST_F(ContractMem, Free_ForeignPointers_AreRefused) {
  int onStack = 7;
  const auto onHeap = std::make_unique<uint64_t[]>(8);
  EXPECT_NE(Free(&onStack), 0u);
  EXPECT_NE(Free(onHeap.get()), 0u);
  EXPECT_EQ(onStack, 7);
}

TEST_F(ContractMem, Free_InsideAnAllocation_IsRefused) {
  auto *p = static_cast<uint8_t *>(New(256));
  ASSERT_NE(p, nullptr);
  EXPECT_NE(Free(p + 1), 0u);
  EXPECT_NE(Free(p + 128), 0u);
  EXPECT_EQ(Host().LiveAllocations(), 1u);
  EXPECT_EQ(Free(p), 0u);
}

TEST_F(ContractMem, Free_OfAnotherPool_IsRefused) {
  const std::unique_ptr<ContractHost> other = MakeContractHost();
  ASSERT_NE(other, nullptr);
  void *p = New(32);
  EXPECT_NE(KST_Free_(other->Mem(), p, "contract", 2), 0u);
  EXPECT_NE(KST_Free_(0, p, "contract", 2), 0u);
  EXPECT_EQ(Host().LiveAllocations(), 1u);
  EXPECT_EQ(Free(p), 0u);
}

TEST_F(ContractMem, StrNew_Format_IsRendered) {
  char *s = KST_StrNew(Mem(), "%s-%u-%04x", "name", 42u, 0xABu);
  ASSERT_NE(s, nullptr);
  EXPECT_STREQ(s, "name-42-00ab");
  EXPECT_EQ(Host().LiveAllocations(), 1u);
  KST_StrDel(Mem(), s);
  EXPECT_EQ(Host().LiveAllocations(), 0u);
}

TEST_F(ContractMem, StrNew_EmptyAndLong_AreWhole) {
  const std::string longText(100'000, 'x');
  char *empty = KST_StrNew(Mem(), "%s", "");
  char *whole = KST_StrNew(Mem(), "%s", longText.c_str());
  ASSERT_NE(empty, nullptr);
  ASSERT_NE(whole, nullptr);
  EXPECT_STREQ(empty, "");
  EXPECT_EQ(whole, longText);
  KST_StrDel(Mem(), empty);
  KST_StrDel(Mem(), whole);
  EXPECT_EQ(Host().LiveAllocations(), 0u);
}

TEST_F(ContractMem, StrNew_WithoutMemory_GivesNull) {
  Remake({.memLimitBytes = 1'000});
  const std::string tooLong(2'000, 'x');
  EXPECT_EQ(KST_StrNew(Mem(), "%s", tooLong.c_str()), nullptr);
  EXPECT_EQ(KST_StrNew(0, "%s", "text"), nullptr);
  EXPECT_EQ(Host().LiveAllocations(), 0u);
}

TEST_F(ContractMem, StrDel_Null_IsAccepted) {
  KST_StrDel(Mem(), nullptr);
  EXPECT_EQ(Host().LiveAllocations(), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
