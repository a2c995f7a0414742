/* wire_adapter_names.cpp: caller names in libcoap's log, with the shared library as it is shipped.
 */
#include <arpa/inet.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <gtest/gtest.h>

#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "raw_peer.h"
#include "test_instance.h"

using namespace coap_rpc_test;

namespace {

uint32_t g_numLookups = 0;

}  // namespace

// The library calls this one, as the program's names come first.
extern "C" char **backtrace_symbols(void *const *frames, int size) {
  ++g_numLookups;
  using Symbols = char **(*)(void *const *, int);
  return reinterpret_cast<Symbols>(dlsym(RTLD_NEXT, "backtrace_symbols"))(frames, size);
}

class WireNames : public testing::Test {
 protected:
  WireNames() {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = INADDR_LOOPBACK;
    addr.port = FindFreeUdpPort();
    EXPECT_NE(COAP_RpcCreateEndPoint(ctx_, &addr), nullptr);
    peer_.SetRemote({"127.0.0.1", addr.port});
  }

  TestHost host_;
  TestInstance ctx_{host_};
  RawPeer peer_;
};

TEST_F(WireNames, SharedLibrary_NamesLibcoapsExportedFunctions) {
  for (uint16_t id = 1; id <= 2; ++id) {
    host_.ClearLogs();
    g_numLookups = 0;
    peer_.Send(Request(CoapType::kCon, kCodeGet, id, {1}).AddPath("x"));
    ASSERT_TRUE(peer_.ReceiveMessage([&] { host_.AdvanceMs(1000); }));
    EXPECT_EQ(g_numLookups > 0, id == 1) << "names are remembered";
    const std::string hexId = id == 1 ? "0001" : "0002";
    EXPECT_TRUE(host_.HasLog("[CoapRpc][coap_show_pdu], level = 7, msg = v:1 t:CON c:GET i:" +
                             hexId + " {01} [ Uri-Path:x ]\n"));
    EXPECT_TRUE(host_.HasLog("[CoapRpc][coap_show_pdu], level = 7, msg = v:1 t:ACK c:4.04 i:" +
                             hexId + " {01} [ ] :: 'Not Found'\n"));
  }
}

TEST_F(WireNames, SharedLibrary_NamesFunctionsThatLibcoapDoesNotExport) {
  peer_.Send(Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("x"));
  ASSERT_TRUE(peer_.ReceiveMessage([&] { host_.AdvanceMs(1000); }));
  const std::string prefix = "[CoapRpc][coap_endpoint_get_session], level = 7, msg = ***";
  bool isNamed = false;
  for (const LogRecord &record : host_.LogsOf("CORP_RpcLibCoapLog")) {
    isNamed |= record.text.starts_with(prefix);
  }
  EXPECT_TRUE(isNamed);
}
