// An application that attached a URI again when its last observer left, inside the call that
// detached it, got a listen that was freed a moment later: the instance wrote to it when it
// stopped.
#include <poll.h>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kAsync = 1;

class AttachedWhileDetached : public ObserveServer {
 protected:
  AttachedWhileDetached() {
    COAP_RpcSetLibLogLevel(Ctx(), 4);
    ServeObs(COAP_RPC_CON);
    peer_.Send(Observe(CoapType::kCon, {7}));
    EXPECT_TRUE(Next(peer_));
    EXPECT_EQ(app_.observerNums, std::vector<uint32_t>{1});
  }

  CoapRpcSerListenAddr Here() const {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = OwnIpv4(Role::kServer);
    addr.port = kCoapPort;
    return addr;
  }

  uint32_t Attach(const CoapRpcUriKey &key, const CoapRpcSerListenAddr &addr) {
    return COAP_RpcSerSetUri(Ctx(), &key, &addr);
  }
  uint32_t Detach(const CoapRpcUriKey &key) { return COAP_RpcSerUnsetUri(Ctx(), &key); }

  // IsServed says whether the URI can be observed again.
  bool IsServed(RawPeer &peer) {
    const size_t numBefore = app_.observerNums.size();
    Update("k001", "v001");
    peer.Send(Observe(CoapType::kCon, {9}));
    return Next(peer) && app_.observerNums.size() > numBefore;
  }
};

TEST_F(AttachedWhileDetached, ToTheSameAddress_IsServedAndStopsCleanly) {
  app_.onNum = [this](uint32_t num) {
    if (num == 0) {
      EXPECT_EQ(Attach(key_, Here()), 0u);
    }
  };
  EXPECT_EQ(Detach(key_), 0u);
  EXPECT_EQ(app_.observerNums.back(), 0u);
  app_.onNum = nullptr;
  EXPECT_TRUE(IsServed(peer_));
}

TEST_F(AttachedWhileDetached, ToAnotherAddress_IsServedThere) {
  CoapRpcSerListenAddr there = Here();
  there.port = 5684;
  app_.onNum = [&](uint32_t num) {
    if (num == 0) {
      EXPECT_EQ(Attach(key_, there), 0u);
    }
  };
  EXPECT_EQ(Detach(key_), 0u);
  app_.onNum = nullptr;
  peer_.SetRemote({OwnHost(Role::kServer), there.port});
  EXPECT_TRUE(IsServed(peer_));
}

TEST_F(AttachedWhileDetached, AndDetachedAgain_IsGone) {
  app_.onNum = [this](uint32_t num) {
    if (num != 0) return;
    EXPECT_EQ(Attach(key_, Here()), 0u);
    EXPECT_EQ(Detach(key_), 0u);
  };
  EXPECT_EQ(Detach(key_), 0u);
  EXPECT_EQ(COAP_RpcSerFindFirstListen(Ctx()->ser), nullptr);
  EXPECT_EQ(COAP_RpcSerFindFirstUriRes(Ctx()->ser), nullptr);
  app_.onNum = nullptr;
  EXPECT_EQ(Attach(key_, Here()), 0u) << "its address is free";
  EXPECT_TRUE(IsServed(peer_));
}

TEST_F(AttachedWhileDetached, OthersAreDetachedWithIt_AllAreGone) {
  App other;
  const CoapRpcUriKey otherKey = KeyOf("other");
  Serve(otherKey, RegOf(&other, 0));
  CoapRpcSerListenAddr elsewhere = Here();
  elsewhere.port = 5685;
  EXPECT_EQ(Attach(otherKey, elsewhere), 0u);
  app_.onNum = [&](uint32_t num) {
    if (num != 0) return;
    EXPECT_EQ(Detach(otherKey), 0u);
    // The I/O that it starts does nothing inside libcoap's I/O.
    COAP_RpcProcIo(Ctx());
  };
  EXPECT_EQ(Detach(key_), 0u);
  EXPECT_EQ(COAP_RpcSerFindFirstListen(Ctx()->ser), nullptr);
  app_.onNum = nullptr;
  EXPECT_EQ(Attach(otherKey, elsewhere), 0u) << "its address is free";
}

// The resource goes last, when another of its entries keeps the listen.
TEST_F(AttachedWhileDetached, WhenTheResourceGoes_IsServed) {
  App other;
  Serve(KeyOf("other"), RegOf(&other, 0));
  app_.onNum = [this](uint32_t num) {
    if (num == 0) {
      EXPECT_EQ(Attach(key_, Here()), 0u);
    }
  };
  EXPECT_EQ(Detach(key_), 0u);
  EXPECT_EQ(app_.observerNums.back(), 0u);
  app_.onNum = nullptr;
  while (peer_.Receive(Pump(), kNothingComes)) {
  }
  EXPECT_TRUE(IsServed(peer_));
}

// An answer that such a callback gives leaves with the next run, which the descriptor announces.
TEST_F(AttachedWhileDetached, CallbackAnswersARequest_TheDescriptorSaysSo) {
  App ask;
  Serve(KeyOf("ask"), RegOf(&ask, kAsync));
  RawPeer asker{UdpAddress{OwnHost(Role::kPeer), kCoapPort}};
  asker.SetRemote(Address());
  asker.Send(Get(CoapType::kCon, "ask", "?"));
  EXPECT_TRUE(Next(asker));
  ASSERT_EQ(ask.handles.size(), 1u);
  CoapRpcSerListenAddr there = Here();
  there.port = 5684;
  EXPECT_EQ(Attach(KeyOf("ask"), there), 0u) << "so that the endpoint is closed";
  app_.onNum = [&](uint32_t num) {
    const uint8_t byte = 'x';
    if (num == 0) {
      EXPECT_EQ(COAP_RpcSerSendAsyncResponse(Ctx(), ask.handles[0], &byte, 1), 0u);
    }
  };
  while (COAP_RpcProcIo(Ctx()) != 0) {
  }
  EXPECT_EQ(Detach(key_), 0u);
  pollfd io = {COAP_RpcGetIoFd(Ctx()), POLLIN, 0};
  EXPECT_EQ(poll(&io, 1, 10'000), 1);
}

}  // namespace
}  // namespace coap_rpc_test
