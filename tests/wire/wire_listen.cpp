/* wire_listen.cpp: attaching to addresses that other sockets of the machine hold. */
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "own_network.h"
#include "raw_peer.h"
#include "test_host.h"
#include "test_instance.h"
#include "test_sleep.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

std::vector<unsigned int> g_sleeps;

unsigned int RecordSleep(unsigned int seconds) {
  g_sleeps.push_back(seconds);
  return 0;
}

class WireListen : public testing::Test {
 protected:
  // Nobody else takes a port that the test gives up for a moment.
  static void SetUpTestSuite() { EnterOwnNetwork(); }

  WireListen() : oldSleep_(SetTestSleep(RecordSleep)) {
    g_sleeps.clear();
    const CoapRpcSerVtblReg reg = {};
    EXPECT_EQ(COAP_RpcSerRegVtbl(instance_, &key_, &reg, nullptr), 0u);
  }
  ~WireListen() override { SetTestSleep(oldSleep_); }

  static CoapRpcSerListenAddr ListenAddr(const UdpAddress &address) {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = 1;
    addr.listenAddr.addr.ipv4 = 0x7F000001;
    addr.port = address.port;
    return addr;
  }

  uint32_t SetUri(const UdpAddress &address) {
    const CoapRpcSerListenAddr addr = ListenAddr(address);
    return COAP_RpcSerSetUri(instance_, &key_, &addr);
  }

  // CannotOpen gives libcoap's warnings about endpoints, without what precedes their text.
  Texts CannotOpen() const {
    Texts texts;
    for (const LogRecord &record : host_.LogsOf("CORP_RpcLibCoapLog")) {
      const size_t at = record.text.find("cannot open endpoint");
      if (at != std::string::npos) texts.push_back(record.text.substr(at));
    }
    return texts;
  }

  // Listens shows the operator's table of a single listen.
  static Texts Listens(uint16_t port, const std::string &flags) {
    return {"server listen[  0]: listenAddr(127.0.0.1)/port(" + std::to_string(port) + ")/" +
                flags + "\n",
            " ***total 1 server listen(s) ***\n"};
  }

  TestHost host_;
  TestInstance instance_{host_};
  const CoapRpcUriKey key_ = KeyOf("a");
  TestSleep oldSleep_;
};

TEST_F(WireListen, HeldAddress_Gives1900000157AndTheListenStaysBare) {
  std::optional<RawPeer> holder(std::in_place);
  const UdpAddress held = holder->Local();
  EXPECT_EQ(SetUri(held), 1900000157u);
  EXPECT_EQ(g_sleeps, (std::vector<unsigned int>{1, 1, 1}));
  EXPECT_EQ(host_.LogsOf("COAP_RpcSerSetUri").at(0).text,
            "[CoapRpc]set listen Failed, addr:0x7f000001, port:" + std::to_string(held.port) +
                ", uri:a, observe:0, msgTyp:0, pktType:0, ret:1900000157.\n");
  EXPECT_EQ(host_.RunCommand("disp server listen"),
            Listens(held.port, "endPointIsNull(1)/uriDataListIsEmpty(1)"));

  // The listen is taken again when the address is free, still without endpoint.
  holder.reset();
  EXPECT_EQ(SetUri(held), 0u);
  EXPECT_EQ(g_sleeps.size(), 3u);
  EXPECT_EQ(host_.RunCommand("disp server listen"),
            Listens(held.port, "endPointIsNull(1)/uriDataListIsEmpty(0)"));

  // With its last entry it goes, and the next attach opens an endpoint.
  EXPECT_EQ(COAP_RpcSerUnsetUri(instance_, &key_), 0u);
  EXPECT_EQ(host_.RunCommand("disp server listen"), Texts{" ***total 0 server listen(s) ***\n"});
  EXPECT_EQ(SetUri(held), 0u);
  EXPECT_EQ(host_.RunCommand("disp server listen"),
            Listens(held.port, "endPointIsNull(0)/uriDataListIsEmpty(0)"));
}

TEST_F(WireListen, BareListen_Reopened_IsServed) {
  std::optional<RawPeer> holder(std::in_place);
  const UdpAddress held = holder->Local();
  const CoapRpcSerListenAddr addr = ListenAddr(held);
  EXPECT_EQ(SetUri(held), 1900000157u);
  EXPECT_EQ(SetUri(held), 0u);
  g_sleeps.clear();
  host_.ClearLogs();
  EXPECT_EQ(COAP_RpcSerReopen(instance_, &addr), 1900001454u);
  EXPECT_TRUE(g_sleeps.empty());
  EXPECT_EQ(CannotOpen(), Texts{"cannot open endpoint 127.0.0.1:" + std::to_string(held.port) +
                                ": Address already in use (errno 98)\n"});

  holder.reset();
  EXPECT_EQ(COAP_RpcSerReopen(instance_, &addr), 0u);
  RawPeer peer;
  peer.SetRemote(held);
  const CoapMessage get = Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("a");
  peer.Send(get);
  EXPECT_EQ(*peer.ReceiveMessage([&] { host_.AdvanceMs(1000); }), AckOf(get));
  EXPECT_EQ(COAP_RpcSerReopen(instance_, &addr), 0u) << "it is open already";
}

}  // namespace
}  // namespace coap_rpc_test
