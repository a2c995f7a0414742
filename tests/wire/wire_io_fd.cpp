// The instance driven by its descriptor alone: no tick of a timer is needed for an exchange.
#include <poll.h>

#include <string>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "raw_peer.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr int kPatienceMs = 60'000;

bool IsReadable(int fd, int waitMs) {
  pollfd poll = {fd, POLLIN, 0};
  return ::poll(&poll, 1, waitMs) == 1;
}

class IoFd : public testing::Test {
 protected:
  void SetUp() override {
    addr_.listenAddr.family = COAP_RPC_IPV4;
    addr_.listenAddr.addr.ipv4 = kLoopback;
    addr_.port = FindFreeUdpPort();
    CoapRpcSerVtblReg reg = {};
    const CoapRpcUriKey key = KeyOf("a");
    ASSERT_EQ(COAP_RpcSerRegVtbl(ctx_, &key, &reg, nullptr), 0u);
    ASSERT_EQ(COAP_RpcSerSetUri(ctx_, &key, &addr_), 0u);
    peer_.SetRemote({"127.0.0.1", addr_.port});
  }

  // Serve runs the instance until its descriptor has been quiet for a moment.
  void Serve() {
    while (IsReadable(COAP_RpcGetIoFd(ctx_), 20)) COAP_RpcProcIo(ctx_);
  }

  // A NON request for a path that nobody serves: each gets a 4.04.
  static CoapMessage Unknown(uint16_t id) {
    return Request(CoapType::kNon, 1, id, {0x11}).AddPath("nowhere");
  }

  TestHost host_;
  TestInstance ctx_{host_};
  CoapRpcSerListenAddr addr_ = {};
  RawPeer peer_;
};

TEST_F(IoFd, Datagram_MakesItReadable_ProcIoAnswers) {
  Serve();
  EXPECT_FALSE(IsReadable(COAP_RpcGetIoFd(ctx_), 0));
  peer_.Send(Unknown(1));
  EXPECT_TRUE(IsReadable(COAP_RpcGetIoFd(ctx_), kPatienceMs));
  COAP_RpcProcIo(ctx_);  // 1 when this machine takes longer than its time for one datagram
  const auto answer = peer_.ReceiveMessage([] {});
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->code, 132);
}

TEST_F(IoFd, Burst_IsServedInOneCall) {
  constexpr uint16_t kNumRequests = 100;
  Serve();
  for (uint16_t id = 1; id <= kNumRequests; ++id) peer_.Send(Unknown(id));
  EXPECT_TRUE(IsReadable(COAP_RpcGetIoFd(ctx_), kPatienceMs));
  while (COAP_RpcProcIo(ctx_) != 0) {
  }
  int numAnswers = 0;
  while (numAnswers < kNumRequests && peer_.Receive([] {})) ++numAnswers;
  EXPECT_EQ(numAnswers, kNumRequests);
}

// A read too many costs as much as one that finds something.
TEST_F(IoFd, NumberOfReads_FollowsWhatComes) {
  Serve();
  for (uint16_t id = 1; id <= 100; ++id) peer_.Send(Unknown(id));
  Serve();
  EXPECT_GE(ctx_.Get()->lib->numReads, 8u);
  for (uint16_t id = 101; id <= 110; ++id) {
    peer_.Send(Unknown(id));
    Serve();
  }
  EXPECT_EQ(ctx_.Get()->lib->numReads, 1u);
}

TEST_F(IoFd, NothingWaiting_ProcIoGives0) {
  Serve();
  EXPECT_EQ(COAP_RpcProcIo(ctx_), 0u);
}

TEST_F(IoFd, NullInstance_IsCopedWith) {
  EXPECT_EQ(COAP_RpcGetIoFd(nullptr), -1);
  EXPECT_EQ(COAP_RpcProcIo(nullptr), 0u);
  EXPECT_EQ(COAP_RpcSetLibLogLevel(nullptr, 3), 1900001406u);
  EXPECT_EQ(TestHost::Process().Asserts(),
            std::vector<AssertRecord>(
                {{"coap_server/src/coap_svc/rpc/libadapter/coap_rpc_lib_ext", 1405}}));
}

TEST_F(IoFd, LibLogLevel_DecidesWhatReachesTheLog) {
  Serve();
  EXPECT_EQ(COAP_RpcSetLibLogLevel(ctx_, 4), 0u);
  host_.ClearLogs();
  peer_.Send(Unknown(1));
  Serve();
  EXPECT_TRUE(host_.LogsOf("CORP_RpcLibCoapLog").empty());
  EXPECT_EQ(COAP_RpcSetLibLogLevel(ctx_, 99), 0u);
  peer_.Send(Unknown(2));
  Serve();
  EXPECT_FALSE(host_.LogsOf("CORP_RpcLibCoapLog").empty());
}

}  // namespace
}  // namespace coap_rpc_test
