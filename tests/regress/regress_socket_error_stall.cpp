// An error that the kernel held for a socket kept the descriptor readable and COAP_RpcProcIo at
// work for ever: libcoap did not read an endpoint for an error, and a read that was not done
// counted as one that found a datagram.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "own_sockets.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr int kNumLooks = 20;

class SocketErrorStall : public WireClient {
 protected:
  void SetUp() override {
    const CoapRpcUriKey key = KeyOf("served");
    CoapRpcSerVtblReg reg = {};
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = kOwnIp;
    addr.port = FindFreeUdpPort();
    ASSERT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key, &reg, nullptr), 0u);
    ASSERT_EQ(COAP_RpcSerSetUri(Ctx(), &key, &addr), 0u);
    endPoint_ = BoundSocket(static_cast<uint16_t>(addr.port));
    ASSERT_GE(endPoint_, 0);
    Register(key_, &app_);
    ASSERT_EQ(CallGone(), 0u);
    session_ = ConnectedSocket(gonePort_);
    ASSERT_GE(session_, 0);
    ASSERT_TRUE(Serve());
  }

  // CallGone sends a request to where nobody is; the refusal comes at once.
  uint32_t CallGone() {
    const CoapRpcCliReqParam param = ParamOf(1);
    CoapRpcCliAddr addr = PeerAddr();
    addr.dstPort = gonePort_;
    return COAP_RpcCliNonReq(Ctx(), &key_, &param, &addr);
  }

  static short EventsOf(int fd) {
    pollfd poll = {fd, POLLIN, 0};
    return ::poll(&poll, 1, 0) == 1 ? poll.revents : short{0};
  }
  bool IsReadable() { return EventsOf(COAP_RpcGetIoFd(Ctx())) != 0; }

  // Serve does what a host does; false when the descriptor stays readable.
  bool Serve() {
    for (int i = 0; i < kNumLooks && IsReadable(); ++i) COAP_RpcProcIo(Ctx());
    return !IsReadable();
  }

  static void AskForErrors(int fd, int isOn) {
    EXPECT_EQ(setsockopt(fd, IPPROTO_IP, IP_RECVERR, &isOn, sizeof(isOn)), 0);
  }

  // MakeError has a datagram of the socket refused.  The error stays with the socket, and with
  // isKept reading does not take it off.
  void MakeError(int fd, bool isKept) {
    sockaddr_in nobody = {};
    nobody.sin_family = AF_INET;
    nobody.sin_port = htons(gonePort_);
    nobody.sin_addr.s_addr = htonl(kPeerIp);
    AskForErrors(fd, 1);
    EXPECT_EQ(sendto(fd, "", 1, 0, reinterpret_cast<sockaddr *>(&nobody), sizeof(nobody)), 1);
    if (!isKept) AskForErrors(fd, 0);
    EXPECT_EQ(EventsOf(fd), POLLERR);
  }

  void ExpectServing() {
    peer_.SetRemote({"127.0.0.1", PortOf(endPoint_)});
    peer_.Send(Request(CoapType::kNon, kCodeGet, 99, {1}).AddPath("nowhere"));
    const std::optional<CoapMessage> answer = peer_.ReceiveMessage([&] { COAP_RpcProcIo(Ctx()); });
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, Code(4, 4));
  }

  static uint16_t PortOf(int fd) {
    sockaddr_in addr = {};
    socklen_t size = sizeof(addr);
    getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &size);
    return ntohs(addr.sin_port);
  }

  const CoapRpcUriKey key_ = KeyOf("a", COAP_RPC_NON);
  App app_;
  const uint16_t gonePort_ = FindFreeUdpPort("127.0.0.2");
  int endPoint_ = -1;
  int session_ = -1;
};

TEST_F(SocketErrorStall, OfAnEndpoint_IsReadOff) {
  MakeError(endPoint_, false);
  EXPECT_TRUE(IsReadable());
  EXPECT_EQ(COAP_RpcProcIo(Ctx()), 0u);
  EXPECT_FALSE(IsReadable());
  ExpectServing();
}

TEST_F(SocketErrorStall, OfAnEndpoint_IsReadOffByTheTimer) {
  MakeError(endPoint_, false);
  COAP_RpcProcTask(Ctx());
  EXPECT_FALSE(IsReadable());
}

TEST_F(SocketErrorStall, OfAnEndpointWithDatagrams_HoldsNothingUp) {
  constexpr uint16_t kNumRequests = 5;
  MakeError(endPoint_, false);
  peer_.SetRemote({"127.0.0.1", PortOf(endPoint_)});
  for (uint16_t id = 1; id <= kNumRequests; ++id) {
    peer_.Send(Request(CoapType::kNon, kCodeGet, id, {1}).AddPath("nowhere"));
  }
  EXPECT_TRUE(Serve());
  for (int i = 0; i < kNumRequests; ++i) EXPECT_TRUE(peer_.ReceiveNow()) << i;
}

// Nothing takes these off, so the descriptor stays readable; the host has the thread back all the
// same.
TEST_F(SocketErrorStall, ThatStays_GivesTheThreadBack) {
  for (const int fd : {endPoint_, session_}) {
    MakeError(fd, true);
    EXPECT_EQ(COAP_RpcProcIo(Ctx()), 0u);
    EXPECT_EQ(COAP_RpcProcIo(Ctx()), 0u);
  }
  ExpectServing();
}

TEST_F(SocketErrorStall, HangUp_GivesTheThreadBack) {
  for (const int fd : {endPoint_, session_}) {
    (void)shutdown(fd, SHUT_RDWR);
    EXPECT_NE(EventsOf(fd) & POLLHUP, 0);
    EXPECT_EQ(COAP_RpcProcIo(Ctx()), 0u);
    EXPECT_EQ(COAP_RpcProcIo(Ctx()), 0u);
  }
}

TEST_F(SocketErrorStall, OfASession_ComesAndGoes) {
  for (int i = 0; i < 5; ++i) {
    CallGone();
    EXPECT_TRUE(Serve()) << i;
  }
}

}  // namespace
}  // namespace coap_rpc_test
