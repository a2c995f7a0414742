/* test_coap_rpc_lib_ctx.cpp: libcoap's life, endpoints, resources and the I/O timer. */
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"

#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "adapter_fixture.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_log.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "raw_peer.h"

// libcoap's functions, under the control of this file: linked with --wrap.
extern "C" {
int __real_coap_io_process(coap_context_t *coapCtx, uint32_t timeoutMs);
int __wrap_coap_io_process(coap_context_t *coapCtx, uint32_t timeoutMs);
coap_context_t *__real_coap_new_context(const coap_address_t *addr);
coap_context_t *__wrap_coap_new_context(const coap_address_t *addr);
coap_resource_t *__real_coap_resource_init(coap_str_const_t *path, int flags);
coap_resource_t *__wrap_coap_resource_init(coap_str_const_t *path, int flags);
void __real_coap_cleanup(void);
void __wrap_coap_cleanup(void);
}

using namespace coap_rpc_test;

namespace {

bool g_failContext = false;
bool g_failResource = false;
uint32_t g_numProcessed = 0;
uint32_t g_numCleanups = 0;
std::vector<uint32_t> g_timeouts;
std::function<void()> g_whileProcessing;
std::function<void()> g_whileCleaningUp;

class LibCtx : public testing::Test {
 protected:
  LibCtx() {
    g_failContext = false;
    g_failResource = false;
    g_numProcessed = 0;
    g_numCleanups = 0;
    g_timeouts.clear();
    g_whileProcessing = nullptr;
    g_whileCleaningUp = nullptr;
  }

  uint32_t Processed(uint32_t (*tick)(void *)) {
    g_numProcessed = 0;
    EXPECT_EQ(tick(adapter_.Ctx()), 0u);
    return g_numProcessed;
  }

  TestHost host_;
  AdapterFixture adapter_{host_};
};

// BindFlags say how another binder asks for an address.
enum BindFlags { kPlain = 0, kReuseAddr = 1, kReusePort = 2, kV6Only = 4 };

// BindElsewhere returns a socket bound the way another program might, or -1.
int BindElsewhere(const UdpAddress &address, int flags) {
  const bool isIpv6 = address.host.find(':') != std::string::npos;
  const int fd = socket(isIpv6 ? AF_INET6 : AF_INET, SOCK_DGRAM, 0);
  const int on = 1;
  if (flags & kReuseAddr) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (flags & kReusePort) setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &on, sizeof(on));
  if (flags & kV6Only) setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on));
  coap_address_t bound;
  coap_address_init(&bound);
  if (isIpv6) {
    bound.size = sizeof(bound.addr.sin6);
    bound.addr.sin6.sin6_family = AF_INET6;
    bound.addr.sin6.sin6_port = htons(address.port);
    inet_pton(AF_INET6, address.host.c_str(), &bound.addr.sin6.sin6_addr);
  } else {
    bound.size = sizeof(bound.addr.sin);
    bound.addr.sin.sin_family = AF_INET;
    bound.addr.sin.sin_port = htons(address.port);
    inet_pton(AF_INET, address.host.c_str(), &bound.addr.sin.sin_addr);
  }
  if (bind(fd, &bound.addr.sa, bound.size) == 0) return fd;
  close(fd);
  return -1;
}

bool CanBind(const UdpAddress &address, int flags) {
  const int fd = BindElsewhere(address, flags);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

// CanBindInChild asks the same in another process.
bool CanBindInChild(const UdpAddress &address, int flags) {
  const pid_t child = fork();
  if (child == 0) _exit(CanBind(address, flags) ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

using Sleeps = std::vector<unsigned int>;

}  // namespace

int __wrap_coap_io_process(coap_context_t *coapCtx, uint32_t timeoutMs) {
  ++g_numProcessed;
  g_timeouts.push_back(timeoutMs);
  if (g_whileProcessing) g_whileProcessing();
  return __real_coap_io_process(coapCtx, timeoutMs);
}

coap_context_t *__wrap_coap_new_context(const coap_address_t *addr) {
  EXPECT_EQ(addr, nullptr);
  return g_failContext ? nullptr : __real_coap_new_context(addr);
}

coap_resource_t *__wrap_coap_resource_init(coap_str_const_t *path, int flags) {
  EXPECT_EQ(flags, 0);
  return g_failResource ? nullptr : __real_coap_resource_init(path, flags);
}

void __wrap_coap_cleanup(void) {
  ++g_numCleanups;
  if (g_whileCleaningUp) g_whileCleaningUp();
  __real_coap_cleanup();
}

TEST_F(LibCtx, VtblInit_FillsTheCallbackTable) {
  CoapRpcCtx ctx = {};
  CoapRpcLibCtx lib = {};
  ctx.lib = &lib;
  EXPECT_EQ(COAP_RpcLibVtblInit(&ctx), 0u);
  EXPECT_EQ(lib.logLevel, 8u);
  EXPECT_EQ(lib.blockMode, 19u);
  EXPECT_EQ(lib.logHandler, CORP_RpcLibCoapLog);
  EXPECT_EQ(lib.eventHandler, COAP_RpcEventHandler);
  EXPECT_EQ(lib.nackHandler, COAP_RpcNackhandler);
  EXPECT_EQ(lib.resUserData, &ctx);
  EXPECT_EQ(lib.getHandler, COAP_RpcSerGetHandler);
  EXPECT_EQ(lib.postHandler, COAP_RpcSerPostHandler);
  EXPECT_EQ(lib.putHandler, nullptr);
  EXPECT_EQ(lib.deleteHandler, nullptr);
  EXPECT_EQ(lib.observeAdded, COAP_RpcSerAddObserve);
  EXPECT_EQ(lib.observeDeleted, COAP_RpcSerDelObserve);
  EXPECT_EQ(lib.cbUserData, &ctx);
  EXPECT_EQ(lib.responseHandler, COAP_RpcCliResponseHandler);
  EXPECT_EQ(lib.coapCtx, nullptr);
  EXPECT_EQ(lib.taskTmr, 0u);
}

TEST_F(LibCtx, VtblUninit_SilencesLibcoap) {
  CORP_RpcLibCoapLog(COAP_LOG_INFO, "heard");
  EXPECT_EQ(host_.LogsOf("CORP_RpcLibCoapLog").size(), 1u);
  EXPECT_EQ(COAP_RpcLibVtblUninit(nullptr), 0u);
  CORP_RpcLibCoapLog(COAP_LOG_INFO, "not heard");
  EXPECT_EQ(host_.LogsOf("CORP_RpcLibCoapLog").size(), 1u);
}

TEST_F(LibCtx, VtblUninit_OfAnotherInstance_SilencesLibcoapToo) {
  CoapRpcCtx other = {};
  EXPECT_EQ(COAP_RpcLibVtblUninit(&other), 0u);
  CORP_RpcLibCoapLog(COAP_LOG_INFO, "not heard");
  EXPECT_TRUE(host_.LogsOf("CORP_RpcLibCoapLog").empty());
}

TEST_F(LibCtx, Startup_StartsLibcoapAndTheTimer) {
  adapter_.Start();
  EXPECT_NE(adapter_.Lib().coapCtx, nullptr);
  EXPECT_EQ(coap_get_log_level(), COAP_LOG_OSCORE);
  EXPECT_EQ(coap_context_get_max_idle_sessions(adapter_.Lib().coapCtx), 1000u);
  ASSERT_EQ(host_.Timers().Running().size(), 1u);
  const RunningTimer &timer = host_.Timers().Running()[0];
  EXPECT_EQ(timer.tick, COAP_RpcProcTask);
  EXPECT_EQ(timer.periodMs, 1000u);
  EXPECT_EQ(timer.param, adapter_.Ctx());
  EXPECT_EQ(adapter_.Lib().taskTmr, timer.id);
}

TEST_F(LibCtx, Startup_NoContext_Gives1900000434) {
  g_failContext = true;
  EXPECT_EQ(COAP_RpcCtxInit(adapter_.Ctx()), 1900000434u);
  EXPECT_TRUE(host_.Timers().Running().empty());
  adapter_.Stop();
  EXPECT_EQ(g_numCleanups, 0u);
  g_failContext = false;
  EXPECT_EQ(COAP_RpcCtxInit(adapter_.Ctx()), 0u);
}

TEST_F(LibCtx, Startup_TimerFailure_IsNotReported) {
  host_.Timers().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcCtxInit(adapter_.Ctx()), 0u);
  EXPECT_EQ(adapter_.Lib().taskTmr, 0u);
}

TEST_F(LibCtx, Cleanup_FreesContextThenTimerThenLibcoap) {
  adapter_.Start();
  g_whileCleaningUp = [this] {
    EXPECT_EQ(adapter_.Lib().coapCtx, nullptr);
    EXPECT_EQ(adapter_.Lib().taskTmr, 0u);
    EXPECT_TRUE(host_.Timers().Running().empty());
  };
  EXPECT_EQ(COAP_RpcCtxUninit(adapter_.Ctx()), 0u);
  EXPECT_EQ(g_numCleanups, 1u);
}

TEST_F(LibCtx, Cleanup_NoContext_LeavesTimerAndLibcoapAlone) {
  EXPECT_EQ(COAP_RpcStartTaskTimer(adapter_.Ctx()), 0u);
  COAP_RpcLibCleanup_(adapter_.Ctx(), &adapter_.Lib());
  EXPECT_EQ(host_.Timers().Running().size(), 1u);
  EXPECT_EQ(g_numCleanups, 0u);
  COAP_RpcStopTaskTimer(adapter_.Ctx());
}

TEST_F(LibCtx, Uninit_CopesWithWhatNeverStarted) {
  CoapRpcCtx ctx = {};
  EXPECT_EQ(COAP_RpcCtxUninit(nullptr), 0u);
  EXPECT_EQ(COAP_RpcCtxUninit(&ctx), 0u);
  adapter_.Start();
  EXPECT_EQ(COAP_RpcCtxUninit(adapter_.Ctx()), 0u);
  EXPECT_EQ(COAP_RpcCtxUninit(adapter_.Ctx()), 0u);
  EXPECT_EQ(g_numCleanups, 1u);
}

TEST_F(LibCtx, TwoInstances_OnlyTheLastCleansLibcoapUp) {
  adapter_.Start();
  {
    TestHost otherHost;
    AdapterFixture other(otherHost);
    other.Start();
    other.Stop();
    EXPECT_EQ(g_numCleanups, 0u);
    EXPECT_EQ(coap_get_log_level(), COAP_LOG_OSCORE);
  }
  adapter_.Stop();
  EXPECT_EQ(g_numCleanups, 1u);
}

TEST_F(LibCtx, StartTaskTimer_RunningOne_IsKept) {
  adapter_.Start();
  const uint64_t id = adapter_.Lib().taskTmr;
  EXPECT_EQ(COAP_RpcStartTaskTimer(adapter_.Ctx()), 0u);
  EXPECT_EQ(adapter_.Lib().taskTmr, id);
  EXPECT_EQ(host_.Timers().Running().size(), 1u);
}

TEST_F(LibCtx, StartTaskTimer_Failure_Gives1900000156) {
  host_.Timers().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcStartTaskTimer(adapter_.Ctx()), 1900000156u);
  EXPECT_EQ(adapter_.Lib().taskTmr, 0u);
}

TEST_F(LibCtx, StopTaskTimer_ClearsIt) {
  COAP_RpcStopTaskTimer(adapter_.Ctx());
  adapter_.Start();
  COAP_RpcStopTaskTimer(adapter_.Ctx());
  EXPECT_EQ(adapter_.Lib().taskTmr, 0u);
  EXPECT_TRUE(host_.Timers().Running().empty());
}

TEST_F(LibCtx, Refresh_Twice_StartsOneQuickTimer) {
  adapter_.Start();
  EXPECT_EQ(COAP_RpcRefreshTaskTimer(adapter_.Ctx()), 0u);
  EXPECT_EQ(adapter_.Lib().quickMode, 1u);
  ASSERT_EQ(host_.Timers().Running().size(), 1u);
  const RunningTimer first = host_.Timers().Running()[0];
  EXPECT_EQ(first.tick, COAP_RpcProcQuickTask);
  EXPECT_EQ(first.periodMs, 100u);
  EXPECT_EQ(first.param, adapter_.Ctx());
  EXPECT_EQ(COAP_RpcRefreshTaskTimer(adapter_.Ctx()), 0u);
  ASSERT_EQ(host_.Timers().Running().size(), 1u);
  EXPECT_EQ(host_.Timers().Running()[0].id, first.id);
}

TEST_F(LibCtx, Refresh_Failure_Gives1900000171AndNextOneTriesAgain) {
  adapter_.Start();
  host_.Timers().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcRefreshTaskTimer(adapter_.Ctx()), 1900000171u);
  EXPECT_EQ(adapter_.Lib().quickMode, 0u);
  EXPECT_EQ(adapter_.Lib().taskTmr, 0u);
  EXPECT_TRUE(host_.Timers().Running().empty());
  EXPECT_EQ(COAP_RpcRefreshTaskTimer(adapter_.Ctx()), 0u);
  EXPECT_EQ(adapter_.Lib().quickMode, 1u);
  EXPECT_EQ(host_.Timers().Running().size(), 1u);
}

TEST_F(LibCtx, ProcTask_CallsOnceWithoutWaiting) {
  adapter_.Start();
  EXPECT_EQ(Processed(COAP_RpcProcTask), 1u);
  EXPECT_EQ(g_timeouts, std::vector<uint32_t>{0xFFFFFFFFu});
}

TEST_F(LibCtx, ProcTask_ServiceFlag_Calls256Times) {
  adapter_.Start();
  COAP_RpcSetSvcFlag(adapter_.Ctx());
  COAP_RpcSetSvcFlag(adapter_.Ctx());
  EXPECT_EQ(adapter_.Lib().svcFlag, 1u);
  EXPECT_EQ(Processed(COAP_RpcProcTask), 256u);
  EXPECT_EQ(adapter_.Lib().svcFlag, 1u);
  EXPECT_EQ(Processed(COAP_RpcProcTask), 256u);
}

TEST_F(LibCtx, ProcTask_ServiceFlagSetMeanwhile_Counts) {
  adapter_.Start();
  g_whileProcessing = [this] { COAP_RpcSetSvcFlag(adapter_.Ctx()); };
  EXPECT_EQ(Processed(COAP_RpcProcTask), 256u);
}

TEST_F(LibCtx, ProcQuickTask_Calls25Times) {
  adapter_.Start();
  EXPECT_EQ(Processed(COAP_RpcProcQuickTask), 25u);
  EXPECT_EQ(g_timeouts, std::vector<uint32_t>(25, 0xFFFFFFFFu));
}

TEST_F(LibCtx, Ticks_NotStarted_CallNothing) {
  EXPECT_EQ(Processed(COAP_RpcProcTask), 0u);
  EXPECT_EQ(Processed(COAP_RpcProcQuickTask), 0u);
  adapter_.Ctx()->lib = nullptr;
  EXPECT_EQ(Processed(COAP_RpcProcTask), 0u);
  EXPECT_EQ(Processed(COAP_RpcProcQuickTask), 0u);
  adapter_.Ctx()->lib = &adapter_.Lib();
}

TEST_F(LibCtx, Ticks_ContextGoneMeanwhile_StopEarly) {
  adapter_.Start();
  coap_context_t *coapCtx = adapter_.Lib().coapCtx;
  COAP_RpcSetSvcFlag(adapter_.Ctx());
  g_whileProcessing = [this] {
    if (g_numProcessed == 3) adapter_.Lib().coapCtx = nullptr;
  };
  EXPECT_EQ(Processed(COAP_RpcProcTask), 3u);
  adapter_.Lib().coapCtx = coapCtx;
  EXPECT_EQ(Processed(COAP_RpcProcQuickTask), 3u);
  adapter_.Lib().coapCtx = coapCtx;

  g_whileProcessing = [this] {
    if (g_numProcessed == 2) adapter_.Ctx()->lib = nullptr;
  };
  EXPECT_EQ(Processed(COAP_RpcProcTask), 2u);
  adapter_.Ctx()->lib = &adapter_.Lib();
  EXPECT_EQ(Processed(COAP_RpcProcQuickTask), 2u);
  adapter_.Ctx()->lib = &adapter_.Lib();
}

TEST_F(LibCtx, Ticks_InsideARun_DoNothing) {
  adapter_.Start();
  g_whileProcessing = [this] {
    EXPECT_EQ(COAP_RpcProcTask(adapter_.Ctx()), 0u);
    EXPECT_EQ(COAP_RpcProcQuickTask(adapter_.Ctx()), 0u);
    EXPECT_EQ(COAP_RpcProcIo(adapter_.Ctx()), 0u);
  };
  EXPECT_EQ(Processed(COAP_RpcProcTask), 1u);
  EXPECT_EQ(Processed(COAP_RpcProcQuickTask), 25u);
}

TEST_F(LibCtx, CreateEndPoint_LogsAddressAndPort) {
  adapter_.Start();
  const uint16_t port = FindFreeUdpPort();
  CoapRpcSerListen listen = adapter_.Open(Ipv4Listen("127.0.0.1", port));
  ASSERT_NE(listen.endPoint, nullptr);
  EXPECT_EQ(g_sleeps, Sleeps{});
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc]add endPoint success, addr:0x7f000001, port:" + std::to_string(port) + ".\n"));
  COAP_RpcDeleteEndPoint(adapter_.Ctx(), &listen);
  EXPECT_EQ(listen.endPoint, nullptr);
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc]del endPoint success, addr:0x7f000001, port:" + std::to_string(port) + ".\n"));
  EXPECT_TRUE(CanBind({"127.0.0.1", port}, kPlain));
}

TEST_F(LibCtx, CreateEndPoint_PortZero_TakesAnyPort) {
  adapter_.Start();
  EXPECT_NE(adapter_.Open(Ipv4Listen("127.0.0.1", 0)).endPoint, nullptr);
}

TEST_F(LibCtx, CreateEndPoint_NotStarted_GivesNullAtOnce) {
  EXPECT_EQ(adapter_.Open(Ipv4Listen("127.0.0.1", 0)).endPoint, nullptr);
  EXPECT_EQ(g_sleeps, Sleeps{});
}

TEST_F(LibCtx, CreateEndPoint_HeldAddress_TriesThreeTimesAndSleepsAfterEach) {
  adapter_.Start();
  for (const int flags : {int{kPlain}, int{kReuseAddr}, kReuseAddr | kReusePort}) {
    const UdpAddress address{"127.0.0.1", FindFreeUdpPort()};
    const int holder = BindElsewhere(address, flags);
    ASSERT_GE(holder, 0);
    g_sleeps.clear();
    host_.ClearLogs();
    EXPECT_EQ(adapter_.Open(Ipv4Listen("127.0.0.1", address.port)).endPoint, nullptr) << flags;
    EXPECT_EQ(g_sleeps, (Sleeps{1, 1, 1}));
    EXPECT_EQ(host_.LogsOf("CORP_RpcLibCoapLog").size(), 3u);
    EXPECT_TRUE(host_.LogsOf("COAP_RPC_LOG_MOD_DO").empty());
    close(holder);
  }
}

TEST_F(LibCtx, CreateEndPoint_HeldByWildcard_GivesNull) {
  adapter_.Start();
  const uint16_t port = FindFreeUdpPort("0.0.0.0");
  const int holder = BindElsewhere({"0.0.0.0", port}, kReuseAddr);
  ASSERT_GE(holder, 0);
  EXPECT_EQ(adapter_.Open(Ipv4Listen("127.0.0.1", port)).endPoint, nullptr);
  close(holder);
}

TEST_F(LibCtx, CreateEndPoint_FreedMeanwhile_SucceedsAtNextAttempt) {
  adapter_.Start();
  const UdpAddress address{"127.0.0.1", FindFreeUdpPort()};
  const int holder = BindElsewhere(address, kPlain);
  g_whileAsleep = [holder] {
    if (g_sleeps.size() == 2) close(holder);
  };
  EXPECT_NE(adapter_.Open(Ipv4Listen("127.0.0.1", address.port)).endPoint, nullptr);
  EXPECT_EQ(g_sleeps, (Sleeps{1, 1}));
}

TEST_F(LibCtx, CreateEndPoint_OwnEndPointHolds_GivesNull) {
  adapter_.Start();
  const uint16_t port = FindFreeUdpPort();
  ASSERT_NE(adapter_.Open(Ipv4Listen("127.0.0.1", port)).endPoint, nullptr);
  EXPECT_EQ(adapter_.Open(Ipv4Listen("127.0.0.1", port)).endPoint, nullptr);
  EXPECT_NE(adapter_.Open(Ipv4Listen("127.0.0.2", port)).endPoint, nullptr);
}

TEST_F(LibCtx, EndPoint_NoLaterBinderGetsItsAddress) {
  adapter_.Start();
  const uint16_t port = FindFreeUdpPort("0.0.0.0");
  ASSERT_NE(adapter_.Open(Ipv4Listen("127.0.0.1", port)).endPoint, nullptr);
  for (const int flags : {int{kPlain}, int{kReuseAddr}, int{kReusePort}, kReuseAddr | kReusePort}) {
    EXPECT_FALSE(CanBind({"127.0.0.1", port}, flags)) << flags;
    EXPECT_FALSE(CanBindInChild({"127.0.0.1", port}, flags)) << flags;
    EXPECT_FALSE(CanBind({"0.0.0.0", port}, flags)) << flags;
    EXPECT_TRUE(CanBind({"127.0.0.2", port}, flags)) << flags;
  }
}

TEST_F(LibCtx, EndPoint_Ipv6_NoLaterBinderGetsItsAddress) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1";
  adapter_.Start();
  const uint16_t port = FindFreeUdpPort("::1");
  ASSERT_NE(adapter_.Open(Ipv6Listen("::1", port)).endPoint, nullptr);
  for (const int flags : {int{kPlain}, int{kReuseAddr}, kReuseAddr | kReusePort | kV6Only}) {
    EXPECT_FALSE(CanBind({"::1", port}, flags)) << flags;
    EXPECT_FALSE(CanBindInChild({"::1", port}, flags)) << flags;
    EXPECT_FALSE(CanBind({"::", port}, flags)) << flags;
  }
}

TEST_F(LibCtx, EndPoint_Ipv6Wildcard_LeavesPortToIpv4) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1";
  adapter_.Start();
  const uint16_t port = FindFreeUdpPort("0.0.0.0");
  ASSERT_NE(adapter_.Open(Ipv6Listen("::", port)).endPoint, nullptr);
  EXPECT_NE(adapter_.Open(Ipv4Listen("127.0.0.1", port)).endPoint, nullptr);
}

TEST_F(LibCtx, CreateEndPoint_ForeignAddressOrFamily_GivesNull) {
  adapter_.Start();
  EXPECT_EQ(adapter_.Open(Ipv4Listen("192.0.2.1", 5683)).endPoint, nullptr);
  for (const uint8_t family : std::vector<uint8_t>{0, 3, 255}) {
    g_sleeps.clear();
    CoapRpcSerListenAddr addr = Ipv4Listen("127.0.0.1", 0);
    addr.listenAddr.family = family;
    EXPECT_EQ(adapter_.Open(addr).endPoint, nullptr) << int{family};
    EXPECT_EQ(g_sleeps, (Sleeps{1, 1, 1}));
  }
}

TEST_F(LibCtx, DeleteEndPoint_NullOrWithout_IsIgnored) {
  CoapRpcSerListen listen = {};
  COAP_RpcDeleteEndPoint(adapter_.Ctx(), nullptr);
  COAP_RpcDeleteEndPoint(adapter_.Ctx(), &listen);
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(LibCtx, CreateOrUpdateResource_New_IsLoggedAndCarriesTheRoot) {
  adapter_.Start();
  const CoapRpcUriKey key = KeyOf("a/b", 1, 0, 2);
  EXPECT_EQ(COAP_RpcCreateOrUpdateResource(adapter_.Ctx(), &key), 0u);
  ASSERT_NE(adapter_.Resource("a/b"), nullptr);
  EXPECT_EQ(coap_resource_get_userdata(adapter_.Resource("a/b")), adapter_.Ctx());
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RPC_LOG_MOD_DO");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text,
            "[CoapRpc]add resource success, uri:a/b, msgType:1, observe:0, pktType:2.\n");
}

TEST_F(LibCtx, CreateOrUpdateResource_Observable_LogsTheMode) {
  adapter_.Start();
  EXPECT_EQ(adapter_.AddResource("con", 0, 1), 0u);
  EXPECT_EQ(adapter_.AddResource("non", 1, 1), 0u);
  EXPECT_EQ(adapter_.AddResource("other", 7, 2), 0u);
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RPC_LOG_MOD_DO");
  ASSERT_EQ(records.size(), 6u);
  EXPECT_EQ(records[0].text, "set observe mode:2.");
  EXPECT_EQ(records[1].text,
            "[CoapRpc]add resource success, uri:con, msgType:0, observe:1, pktType:0.\n");
  EXPECT_EQ(records[2].text, "set observe mode:0.");
  EXPECT_EQ(records[4].text, "set observe mode:0.");
  EXPECT_EQ(records[5].text,
            "[CoapRpc]add resource success, uri:other, msgType:7, observe:2, pktType:0.\n");
}

TEST_F(LibCtx, CreateOrUpdateResource_Existing_IsSilent) {
  adapter_.Start();
  EXPECT_EQ(adapter_.AddResource("a"), 0u);
  coap_resource_t *resource = adapter_.Resource("a");
  host_.ClearLogs();
  EXPECT_EQ(adapter_.AddResource("a", 0, 1), 0u);
  EXPECT_EQ(adapter_.AddResource("a", 0, 0), 0u);
  EXPECT_EQ(adapter_.Resource("a"), resource);
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(LibCtx, CreateOrUpdateResource_Failure_Gives1900000071) {
  adapter_.Start();
  g_failResource = true;
  EXPECT_EQ(adapter_.AddResource("a"), 1900000071u);
  EXPECT_EQ(adapter_.Resource("a"), nullptr);
  EXPECT_TRUE(host_.LogsOf("COAP_RPC_LOG_MOD_DO").empty());
}

TEST_F(LibCtx, CreateOrUpdateResource_NotStarted_Gives1900000071) {
  EXPECT_EQ(adapter_.AddResource("a"), 1900000071u);
}

TEST_F(LibCtx, CreateOrUpdateResource_UnterminatedUri_IsWhole) {
  adapter_.Start();
  const std::string uri(64, 'u');
  EXPECT_EQ(adapter_.AddResource(uri.c_str()), 0u);
  EXPECT_NE(adapter_.Resource(uri.c_str()), nullptr);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]add resource success, uri:" + uri +
                           ", msgType:0, observe:0, pktType:0.\n"));
  const CoapRpcUriKey key = KeyOf(uri.c_str(), 1, 1, 1);
  host_.ClearLogs();
  COAP_RpcDeleteResource(adapter_.Ctx(), key.uri);
  EXPECT_EQ(adapter_.Resource(uri.c_str()), nullptr);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]del resource success, uri:" + uri + ".\n"));
}

TEST_F(LibCtx, CreateOrUpdateResource_CallersTextMayGo) {
  adapter_.Start();
  {
    const CoapRpcUriKey key = KeyOf("gone");
    EXPECT_EQ(COAP_RpcCreateOrUpdateResource(adapter_.Ctx(), &key), 0u);
  }
  EXPECT_NE(adapter_.Resource("gone"), nullptr);
}

TEST_F(LibCtx, DeleteResource_Known_IsLogged) {
  adapter_.Start();
  adapter_.AddResource("a");
  host_.ClearLogs();
  COAP_RpcDeleteResource(adapter_.Ctx(), "a");
  EXPECT_EQ(adapter_.Resource("a"), nullptr);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]del resource success, uri:a.\n"));
}

TEST_F(LibCtx, DeleteResource_Unknown_IsSilent) {
  COAP_RpcDeleteResource(adapter_.Ctx(), "a");
  adapter_.Start();
  host_.ClearLogs();
  COAP_RpcDeleteResource(adapter_.Ctx(), "a");
  EXPECT_TRUE(host_.Logs().Records().empty());
}
