// Programs that the application started inherited libcoap's sockets, epoll set and timer.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

#include "async_server.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "own_sockets.h"

namespace {

int g_numInherited;  // descriptors that were opened without close-on-exec, however short they live
int g_numOpened;

int Opened(long fd, bool isClosedOnExec) {
  ++g_numOpened;
  if (!isClosedOnExec) ++g_numInherited;
  return static_cast<int>(fd);
}

}  // namespace

// In place of the system's library's, for libcoap.
extern "C" int socket(int domain, int type, int protocol) noexcept {
  return Opened(syscall(SYS_socket, domain, type, protocol), (type & SOCK_CLOEXEC) != 0);
}
extern "C" int epoll_create1(int flags) noexcept {
  return Opened(syscall(SYS_epoll_create1, flags), (flags & EPOLL_CLOEXEC) != 0);
}
extern "C" int timerfd_create(int clock, int flags) noexcept {
  return Opened(syscall(SYS_timerfd_create, clock, flags), (flags & TFD_CLOEXEC) != 0);
}

namespace coap_rpc_test {
namespace {

class InheritedDescriptors : public testing::Test {
 protected:
  static std::vector<int> Sorted() {
    std::vector<int> fds = OpenDescriptors();
    std::sort(fds.begin(), fds.end());
    return fds;
  }

  // Added lists what was opened since the test began.
  std::vector<int> Added() const {
    std::vector<int> added;
    const std::vector<int> now = Sorted();
    std::set_difference(now.begin(), now.end(), before_.begin(), before_.end(),
                        std::back_inserter(added));
    return added;
  }

  void Serve(CoapRpcCtx *ctx, const CoapRpcUriKey &key, const CoapRpcIpAddr &ip, App *app) {
    CoapRpcSerVtblReg reg = {};
    reg.mode = kAsync;
    reg.userData = reinterpret_cast<uint64_t>(app);
    reg.onAsyncRequest = App::OnAsyncRequest;
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr = ip;
    addr.port = FindFreeUdpPort(ip.family == COAP_RPC_IPV4 ? "127.0.0.1" : "::1");
    port_ = static_cast<uint16_t>(addr.port);
    ASSERT_EQ(COAP_RpcSerRegVtbl(ctx, &key, &reg, nullptr), 0u);
    ASSERT_EQ(COAP_RpcSerSetUri(ctx, &key, &addr), 0u);
  }

  void Ask(CoapRpcCtx *ctx, const CoapRpcUriKey &key, bool isBroadcast) {
    CoapRpcCliVtblReg reg = {};
    reg.buildReq = [](uint64_t, const CoapRpcCliReqParam *, uint8_t *out, uint32_t) {
      out[0] = 'q';
      return 1;
    };
    CoapRpcUriKey cliKey = key;
    cliKey.pktType = isBroadcast ? COAP_RPC_BROADCAST : COAP_RPC_UNICAST;
    ASSERT_EQ(COAP_RpcCliRegVtbl(ctx, &cliKey, &reg), 0u);
    CoapRpcCliReqParam param = {};
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = kLoopback + 1;
    addr.dstIp.addr.ipv4 = kLoopback;
    addr.dstPort = port_;
    addr.codeType = COAP_RPC_GET;
    EXPECT_EQ(COAP_RpcCliConReq(ctx, &cliKey, &param, &addr), 0u);
  }

  const std::vector<int> before_ = Sorted();
  uint16_t port_ = 0;
};

TEST_F(InheritedDescriptors, AreNone) {
  g_numOpened = g_numInherited = 0;
  App app;
  TestHost host;
  TestInstance ctx(host);
  CoapRpcIpAddr ip = {};
  if (HasIpv6Loopback()) {
    ip.family = COAP_RPC_IPV6;
    ip.addr.ipv6[15] = 1;
    Serve(ctx, KeyOf("b"), ip, &app);
  }
  ip = {};
  ip.family = COAP_RPC_IPV4;
  ip.addr.ipv4 = kLoopback;
  Serve(ctx, KeyOf("a"), ip, &app);
  Ask(ctx, KeyOf("a"), false);
  Ask(ctx, KeyOf("a"), true);
  for (int i = 0; i < 20; ++i) COAP_RpcProcQuickTask(ctx);
  EXPECT_FALSE(app.handles.empty());  // there is a target for its answer

  const std::vector<int> added = Added();
  EXPECT_GE(added.size(), 6u);  // epoll set, timer, endpoint, two sessions, target
  for (const int fd : added) {
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << KindOf(fd);
  }
  EXPECT_GE(g_numOpened, 6);
  EXPECT_EQ(g_numInherited, 0);
}

}  // namespace
}  // namespace coap_rpc_test
