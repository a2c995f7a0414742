/* fault_server_tables.cpp: every allocation of registering, attaching and moving fails in turn.
 *
 * A failed call leaves the tables as they were or in a state that the next calls cope with; the
 * fixture's end finds every leak. */
#include <functional>

#include "server_tables.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

const CoapRpcSerListenAddr kAddrA = Ipv4Addr(0x7f000001, 5683);
const CoapRpcSerListenAddr kAddrB = Ipv4Addr(0x7f000001, 5684);

class ServerTablesFault : public ServerTables {
 protected:
  // CountAllocations runs `action` without a failure.
  uint64_t CountAllocations(const std::function<void()> &action) {
    const uint64_t before = host_.Pool().NumAllocations();
    action();
    return host_.Pool().NumAllocations() - before;
  }

  void FailAllocation(uint64_t n) { host_.Pool().Failures().FailOnce(n); }
};

TEST_F(ServerTablesFault, Init_EveryAllocationFails_NoLeak) {
  TestHost host;
  CoapRpcCtx ctx = {};
  ctx.param.memHandle = host.Mem();
  host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcSerInit(&ctx), 1900000054u);
  EXPECT_EQ(ctx.ser, nullptr);
  EXPECT_EQ(COAP_RpcSerUninit(&ctx), 0u);
}

TEST_F(ServerTablesFault, Init_EveryRowFails_IsUnwound) {
  for (uint32_t row = 0; row < COAP_RPC_SER_MOD_ROWS; ++row) {
    for (const bool unwinds : {false, true}) {
      TestHost host;
      CoapRpcCtx ctx = {};
      ctx.param.memHandle = host.Mem();
      TestHost::Process().Mods() = {unwinds, g_CoapRpcSerModVTbl, row, 7};
      EXPECT_EQ(COAP_RpcSerInit(&ctx), 1900000060u);
      EXPECT_EQ(COAP_RpcSerUninit(&ctx), 0u);
      EXPECT_EQ(ctx.ser, nullptr);
      TestHost::Process().Mods() = {};
    }
  }
}

TEST_F(ServerTablesFault, Register_EveryAllocationFails_Gives1900000251) {
  const CoapRpcUriKey key = KeyOf("probe", 0, 1);
  const uint64_t num = CountAllocations([&] { ASSERT_EQ(RegisterObservable(key), 0u); });
  ASSERT_EQ(num, 2u);
  const uint64_t numLive = host_.Pool().LiveCount();
  for (uint64_t n = 1; n <= num; ++n) {
    FailAllocation(n);
    EXPECT_EQ(RegisterObservable(KeyOf("a", 0, 1)), 1900000251u);
    EXPECT_EQ(host_.Pool().LiveCount(), numLive);
    EXPECT_EQ(UriTexts(), Texts{"probe/0/1/0"});
  }
  EXPECT_EQ(RegisterObservable(KeyOf("a", 0, 1)), 0u);
}

TEST_F(ServerTablesFault, Attach_EveryAllocationFails_CanBeRepeated) {
  const CoapRpcUriKey key = KeyOf("a");
  ASSERT_EQ(Register(key), 0u);
  const uint64_t num = CountAllocations([&] { ASSERT_EQ(Set(key, kAddrA), 0u); });
  ASSERT_EQ(num, 2u);  // listen, resource record
  ASSERT_EQ(Unset(key), 0u);
  const uint64_t numLive = host_.Pool().LiveCount();

  FailAllocation(1);
  EXPECT_EQ(Set(key, kAddrA), 1900000152u);
  EXPECT_EQ(host_.Pool().LiveCount(), numLive);
  FailAllocation(2);
  EXPECT_EQ(Set(key, kAddrA), 0u);
  EXPECT_EQ(ResTexts(), Texts{});
  EXPECT_EQ(Set(key, kAddrA), 0u);
  EXPECT_EQ(ResTexts(), Texts{"a"});
  EXPECT_EQ(Unset(key), 0u);
  EXPECT_EQ(host_.Pool().LiveCount(), numLive);
}

TEST_F(ServerTablesFault, Attach_NoResourceRecord_CanBeDetached) {
  const CoapRpcUriKey key = KeyOf("a");
  ASSERT_EQ(Register(key), 0u);
  FailAllocation(2);
  ASSERT_EQ(Set(key, kAddrA), 0u);
  EXPECT_EQ(Unset(key), 0u);
  EXPECT_EQ(ListenTexts(), Texts{});
  EXPECT_EQ(adapter_.NumOf("drop a"), 0u);
}

TEST_F(ServerTablesFault, Attach_UnregisteredKey_EveryAllocationFails) {
  const uint64_t num = CountAllocations([&] { ASSERT_EQ(Set(KeyOf("no"), kAddrA), 1900000163u); });
  ASSERT_EQ(num, 1u);
  FailAllocation(1);
  EXPECT_EQ(Set(KeyOf("no"), kAddrA), 1900000152u);
  EXPECT_EQ(ListenTexts(), Texts{});
}

TEST_F(ServerTablesFault, Move_EveryAllocationFails_EntryStaysWhereItWas) {
  const CoapRpcUriKey key = KeyOf("a");
  ASSERT_EQ(Register(key), 0u);
  ASSERT_EQ(Set(key, kAddrA), 0u);
  const uint64_t num = CountAllocations([&] { ASSERT_EQ(Set(key, kAddrB), 0u); });
  ASSERT_EQ(num, 1u);  // listen
  ASSERT_EQ(Set(key, kAddrA), 0u);
  const CoapRpcSerListenAddr other = Ipv6Addr(1, 5683);

  FailAllocation(1);
  EXPECT_EQ(Set(key, other), 1900000152u);
  EXPECT_EQ(Find(key)->listen, FindListen(kAddrA));
  EXPECT_EQ(EntriesOf(FindListen(kAddrA)), Texts{"a/0/0/0"});
}

TEST_F(ServerTablesFault, Move_EndPointFails_EntryStaysWhereItWas) {
  const CoapRpcUriKey key = KeyOf("a");
  ASSERT_EQ(Register(key), 0u);
  ASSERT_EQ(Set(key, kAddrA), 0u);
  adapter_.failsEndPoints = true;
  EXPECT_EQ(Set(key, kAddrB), 1900000157u);
  EXPECT_EQ(Find(key)->listen, FindListen(kAddrA));
  EXPECT_EQ(EntriesOf(FindListen(kAddrB)), Texts{});
  EXPECT_EQ(FindListen(kAddrB)->endPoint, nullptr);
}

TEST_F(ServerTablesFault, Detach_AllAllocationsFail_Succeeds) {
  const CoapRpcUriKey key = KeyOf("a");
  ASSERT_EQ(Register(key), 0u);
  ASSERT_EQ(Set(key, kAddrA), 0u);
  host_.Pool().Failures().FailFrom(1);
  EXPECT_EQ(Unset(key), 0u);
  EXPECT_EQ(host_.Pool().Failures().NumFailed(), 0u);
  host_.Pool().Failures().Clear();
}

TEST_F(ServerTablesFault, Detach_ResourceNeverMade_DropsRecord) {
  const CoapRpcUriKey key = KeyOf("a");
  ASSERT_EQ(Register(key), 0u);
  adapter_.resourceResult = 1900000071;
  ASSERT_EQ(Set(key, kAddrA), 0u);
  EXPECT_EQ(Unset(key), 0u);
  EXPECT_EQ(ResTexts(), Texts{});
}

}  // namespace
}  // namespace coap_rpc_test
