// When the time of day was set, all that waited expired at once, or late, and what was asked for
// stalled.
#include <poll.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "own_sockets.h"
#include "raw_peer.h"
#include "test_instance.h"

namespace {

time_t g_setForward;  // seconds by which the time of day has been set

}  // namespace

// In place of the system's library's, for libcoap.
extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
  const long result = syscall(SYS_clock_gettime, clock, now);
  if (result == 0 && clock == CLOCK_REALTIME) now->tv_sec += g_setForward;
  return static_cast<int>(result);
}

namespace coap_rpc_test {
namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr time_t kHour = 3600;

class ClockIsSet : public testing::Test {
 protected:
  ~ClockIsSet() override { g_setForward = 0; }

  bool IsReadable(int waitMs) {
    pollfd poll = {COAP_RpcGetIoFd(ctx_), POLLIN, 0};
    return ::poll(&poll, 1, waitMs) == 1;
  }
  void Serve() {
    while (IsReadable(0)) COAP_RpcProcIo(ctx_);
  }

  // Ask makes a request, which has left when it returns.
  void Ask() {
    const CoapRpcUriKey key = KeyOf("a");
    const CoapRpcCliVtblReg reg = {};
    const CoapRpcCliReqParam param = {};
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = kLoopback + 1;
    addr.dstIp.addr.ipv4 = kLoopback;
    addr.dstPort = peer_.Local().port;
    addr.codeType = COAP_RPC_GET;
    ASSERT_EQ(COAP_RpcCliRegVtbl(ctx_, &key, &reg), 0u);
    ASSERT_EQ(COAP_RpcCliConReq(ctx_, &key, &param, &addr), 0u);
    Serve();
    ASSERT_TRUE(peer_.ReceiveNow());
  }

  TestHost host_;
  TestInstance ctx_{host_};
  RawPeer peer_;
};

TEST_F(ClockIsSet, Forward_RepeatsNothing) {
  Ask();
  g_setForward = kHour;
  COAP_RpcProcTask(ctx_);
  EXPECT_FALSE(peer_.ReceiveNow());
}

// The answer to an asynchronous request is sent by a run that nothing but the timer causes.
TEST_F(ClockIsSet, Forward_HoldsNothingUp) {
  void *handle = nullptr;
  const CoapRpcUriKey key = KeyOf("async");
  CoapRpcSerVtblReg reg = {};
  CoapRpcSerListenAddr addr = {};
  reg.mode = 1;
  reg.userData = reinterpret_cast<uint64_t>(&handle);
  reg.onAsyncRequest = [](uint64_t userData, uint8_t *, uint32_t, void *async) -> uint32_t {
    *reinterpret_cast<void **>(userData) = async;
    return 0;
  };
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = kLoopback;
  addr.port = FindFreeUdpPort();
  ASSERT_EQ(COAP_RpcSerRegVtbl(ctx_, &key, &reg, nullptr), 0u);
  ASSERT_EQ(COAP_RpcSerSetUri(ctx_, &key, &addr), 0u);
  peer_.SetRemote({"127.0.0.1", static_cast<uint16_t>(addr.port)});
  peer_.Send(Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("async").PayloadText("q"));
  ASSERT_TRUE(peer_.ReceiveMessage([&] { Serve(); }));
  ASSERT_NE(handle, nullptr);
  ASSERT_FALSE(IsReadable(0));
  g_setForward = kHour;
  COAP_RpcSerSendAsyncResponse(ctx_, handle, reinterpret_cast<const uint8_t *>("{}"), 2);
  EXPECT_TRUE(IsReadable(1000));
  Serve();
}

TEST_F(ClockIsSet, Back_RepeatsInTime) {
  Ask();
  g_setForward = -kHour;
  COAP_RpcProcTask(ctx_);
  itimerspec timer = {};
  timerfd_gettime(FindDescriptor([](int fd) { return KindOf(fd) == "anon_inode:[timerfd]"; }),
                  &timer);
  EXPECT_LE(timer.it_value.tv_sec, 3);
  EXPECT_TRUE(timer.it_value.tv_sec != 0 || timer.it_value.tv_nsec != 0 || IsReadable(0));
}

}  // namespace
}  // namespace coap_rpc_test
