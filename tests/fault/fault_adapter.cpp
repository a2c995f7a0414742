/* fault_adapter.cpp: the adapter when libcoap, the kernel or the host refuse. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "adapter_fixture.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "fail_plan.h"
#include "libcoap_memory.h"
#include "raw_peer.h"

// libcoap's functions, under the control of this file: linked with --wrap.
extern "C" {
coap_endpoint_t *__real_coap_new_endpoint(coap_context_t *coapCtx, const coap_address_t *addr,
                                          coap_proto_t protocol);
coap_endpoint_t *__wrap_coap_new_endpoint(coap_context_t *coapCtx, const coap_address_t *addr,
                                          coap_proto_t protocol);
}

using namespace coap_rpc_test;

namespace {

FailPlan g_libcoapMemory;
const NoMemory kNoMemory([](const Need &) { return g_libcoapMemory.Count(); });
bool g_failEndPoint = false;

int NumOpenFds() {
  int numOpen = 0;
  for (int fd = 0; fd < 1024; ++fd) numOpen += fcntl(fd, F_GETFD) >= 0;
  return numOpen;
}

// NoMoreFds lets the kernel refuse new file descriptors while it lives.
class NoMoreFds {
 public:
  NoMoreFds() {
    getrlimit(RLIMIT_NOFILE, &old_);
    const int next = dup(0);
    close(next);
    rlimit none = old_;
    none.rlim_cur = static_cast<rlim_t>(next);
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoMoreFds() { setrlimit(RLIMIT_NOFILE, &old_); }
  NoMoreFds(const NoMoreFds &) = delete;
  NoMoreFds &operator=(const NoMoreFds &) = delete;

 private:
  rlimit old_ = {};
};

class FaultAdapter : public testing::Test {
 protected:
  FaultAdapter() {
    g_libcoapMemory.Clear();
    g_failEndPoint = false;
  }
  ~FaultAdapter() override { g_libcoapMemory.Clear(); }

  // LiveOnce starts, opens an endpoint, adds resources and stops, whatever fails on the way.
  void LiveOnce() {
    AdapterFixture adapter(host_);
    if (COAP_RpcCtxInit(adapter.Ctx()) != 0) return;
    CoapRpcSerListen listen = adapter.Open(Ipv4Listen("127.0.0.1", 0));
    adapter.AddResource("a", 0, 1);
    adapter.AddResource("b/c");
    adapter.Tick();
    COAP_RpcDeleteResource(adapter.Ctx(), "a");
    COAP_RpcDeleteEndPoint(adapter.Ctx(), &listen);
    g_libcoapMemory.Clear();
  }

  TestHost host_;
};

}  // namespace

coap_endpoint_t *__wrap_coap_new_endpoint(coap_context_t *coapCtx, const coap_address_t *addr,
                                          coap_proto_t protocol) {
  return g_failEndPoint ? nullptr : __real_coap_new_endpoint(coapCtx, addr, protocol);
}

TEST_F(FaultAdapter, EveryAllocationOfLibcoapFails_NothingIsLeft) {
  const uint64_t before = g_libcoapMemory.NumCalls();
  LiveOnce();
  const uint64_t numCalls = g_libcoapMemory.NumCalls() - before;
  ASSERT_GE(numCalls, 4u);  // context, endpoint, resources
  const int numFds = NumOpenFds();
  for (uint64_t n = 1; n <= numCalls; ++n) {
    SCOPED_TRACE(n);
    g_libcoapMemory.FailOnce(n);
    LiveOnce();
    g_libcoapMemory.FailFrom(n);
    LiveOnce();
    host_.ExpectNoLeaks();
    EXPECT_EQ(NumOpenFds(), numFds);
  }
  g_libcoapMemory.Clear();
  LiveOnce();
}

TEST_F(FaultAdapter, FirstAllocationFails_Gives1900000434) {
  AdapterFixture adapter(host_);
  g_libcoapMemory.FailOnce(1);
  EXPECT_EQ(COAP_RpcCtxInit(adapter.Ctx()), 1900000434u);
  EXPECT_EQ(COAP_RpcCtxInit(adapter.Ctx()), 0u);
}

TEST_F(FaultAdapter, ResourceWithoutMemory_Gives1900000071) {
  AdapterFixture adapter(host_);
  adapter.Start();
  g_libcoapMemory.FailOnce(1);
  EXPECT_EQ(adapter.AddResource("a"), 1900000071u);
  EXPECT_EQ(adapter.AddResource("a"), 0u);
}

// The record, its path, and the table of resources, which libcoap makes with the first one.
TEST_F(FaultAdapter, AnyPartOfTheFirstResourceWithoutMemory_Gives1900000071) {
  for (uint64_t n = 1; n <= 4; ++n) {
    SCOPED_TRACE(n);
    AdapterFixture adapter(host_);
    adapter.Start();
    g_libcoapMemory.FailOnce(n);
    EXPECT_EQ(adapter.AddResource("a"), 1900000071u);
    EXPECT_EQ(adapter.Resource("a"), nullptr);
    EXPECT_EQ(adapter.AddResource("a"), 0u);
    EXPECT_NE(adapter.Resource("a"), nullptr);
  }
}

TEST_F(FaultAdapter, EndPointWithoutMemory_IsTriedAgain) {
  AdapterFixture adapter(host_);
  adapter.Start();
  g_libcoapMemory.FailOnce(1);
  EXPECT_NE(adapter.Open(Ipv4Listen("127.0.0.1", FindFreeUdpPort())).endPoint, nullptr);
  EXPECT_EQ(g_sleeps, std::vector<unsigned int>{1});
}

TEST_F(FaultAdapter, LibcoapRefusesEndPoint_SocketIsClosed) {
  AdapterFixture adapter(host_);
  adapter.Start();
  const int numFds = NumOpenFds();
  const uint16_t port = FindFreeUdpPort();
  g_failEndPoint = true;
  EXPECT_EQ(adapter.Open(Ipv4Listen("127.0.0.1", port)).endPoint, nullptr);
  EXPECT_EQ(NumOpenFds(), numFds);
  g_failEndPoint = false;
  EXPECT_NE(adapter.Open(Ipv4Listen("127.0.0.1", port)).endPoint, nullptr);
}

TEST_F(FaultAdapter, NoFileDescriptors_ContextGives1900000434) {
  AdapterFixture adapter(host_);
  {
    const NoMoreFds noMoreFds;
    EXPECT_EQ(COAP_RpcCtxInit(adapter.Ctx()), 1900000434u);
  }
  EXPECT_EQ(COAP_RpcCtxInit(adapter.Ctx()), 0u);
}

TEST_F(FaultAdapter, NoFileDescriptors_EndPointIsNullAfterThreeAttempts) {
  AdapterFixture adapter(host_);
  adapter.Start();
  {
    const NoMoreFds noMoreFds;
    EXPECT_EQ(adapter.Open(Ipv4Listen("127.0.0.1", 0)).endPoint, nullptr);
  }
  EXPECT_EQ(g_sleeps, (std::vector<unsigned int>{1, 1, 1}));
  const std::vector<LogRecord> records = host_.LogsOf("CORP_RpcLibCoapLog");
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].level, 2u);
  EXPECT_NE(records[0].text.find(
                ", level = 4, msg = cannot open endpoint 127.0.0.1:0: Too many open files "
                "(errno 24)\n"),
            std::string::npos);
  EXPECT_NE(adapter.Open(Ipv4Listen("127.0.0.1", 0)).endPoint, nullptr);
}

TEST_F(FaultAdapter, OneFileDescriptor_IsGivenBack) {
  AdapterFixture adapter(host_);
  adapter.Start();
  const int numFds = NumOpenFds();
  {
    const int spare = dup(0);
    const NoMoreFds noMoreFds;
    close(spare);  // our socket gets it, libcoap's none
    EXPECT_EQ(adapter.Open(Ipv4Listen("127.0.0.1", 0)).endPoint, nullptr);
  }
  EXPECT_EQ(NumOpenFds(), numFds);
}

TEST_F(FaultAdapter, PathWithoutMemory_Gives1900000093) {
  AdapterFixture adapter(host_);
  adapter.Start();
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 100);
  coap_add_option(pdu, COAP_OPTION_URI_PATH, 1, reinterpret_cast<const uint8_t *>("a"));
  coap_add_option(pdu, COAP_OPTION_URI_QUERY, 1, reinterpret_cast<const uint8_t *>("q"));
  char path[64] = "";
  g_libcoapMemory.FailOnce(1);
  EXPECT_EQ(COAP_RpcGetUriStr(pdu, path, sizeof(path)), 1900000093u);
  CoapRpcMsgOptions opt = {};
  g_libcoapMemory.FailOnce(1);
  COAP_RpcParseOptions(pdu, &opt);
  EXPECT_EQ(opt.optMask, 0u);
  coap_delete_pdu(pdu);
}
