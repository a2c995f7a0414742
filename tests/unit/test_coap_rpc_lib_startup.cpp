/* test_coap_rpc_lib_startup.cpp: what libcoap is handed at the start, and in which order. */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_log.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "test_host.h"
#include "test_instance.h"

// libcoap's functions that take the table: linked with --wrap.
extern "C" {
void __real_coap_startup(void);
void __wrap_coap_startup(void);
void __real_coap_set_log_level(coap_log_t level);
void __wrap_coap_set_log_level(coap_log_t level);
void __real_coap_set_log_handler(coap_log_handler_t handler);
void __wrap_coap_set_log_handler(coap_log_handler_t handler);
coap_context_t *__real_coap_new_context(const coap_address_t *addr);
coap_context_t *__wrap_coap_new_context(const coap_address_t *addr);
void __real_coap_context_set_block_mode(coap_context_t *coapCtx, uint32_t mode);
void __wrap_coap_context_set_block_mode(coap_context_t *coapCtx, uint32_t mode);
void __real_coap_register_event_handler(coap_context_t *coapCtx, coap_event_handler_t handler);
void __wrap_coap_register_event_handler(coap_context_t *coapCtx, coap_event_handler_t handler);
void __real_coap_register_nack_handler(coap_context_t *coapCtx, coap_nack_handler_t handler);
void __wrap_coap_register_nack_handler(coap_context_t *coapCtx, coap_nack_handler_t handler);
void __real_coap_register_response_handler(coap_context_t *coapCtx,
                                           coap_response_handler_t handler);
void __wrap_coap_register_response_handler(coap_context_t *coapCtx,
                                           coap_response_handler_t handler);
void __wrap_coap_persist_track_funcs(coap_context_t *coapCtx, coap_observe_added_t added,
                                     coap_observe_deleted_t deleted,
                                     coap_track_observe_value_t trackValue,
                                     coap_dyn_resource_added_t dynAdded,
                                     coap_resource_deleted_t resDeleted, uint32_t saveFreq,
                                     void *userData);
}

namespace {

using Names = std::vector<std::string>;

Names g_calls;
coap_context_t *g_coapCtx = nullptr;
void *g_trackUserData = nullptr;

void Called(const char *name, bool isAsExpected) {
  g_calls.emplace_back(name);
  EXPECT_TRUE(isAsExpected) << name;
}

}  // namespace

void __wrap_coap_startup(void) {
  Called("startup", true);
  __real_coap_startup();
}

void __wrap_coap_set_log_level(coap_log_t level) {
  Called("log level", level == 8);
  __real_coap_set_log_level(level);
}

void __wrap_coap_set_log_handler(coap_log_handler_t handler) {
  Called("log handler", handler == CORP_RpcLibCoapLog);
  __real_coap_set_log_handler(handler);
}

coap_context_t *__wrap_coap_new_context(const coap_address_t *addr) {
  Called("context", addr == nullptr);
  g_coapCtx = __real_coap_new_context(addr);
  return g_coapCtx;
}

void __wrap_coap_context_set_block_mode(coap_context_t *coapCtx, uint32_t mode) {
  Called("block mode", coapCtx == g_coapCtx && mode == 19);
  __real_coap_context_set_block_mode(coapCtx, mode);
}

void __wrap_coap_register_event_handler(coap_context_t *coapCtx, coap_event_handler_t handler) {
  Called("event", coapCtx == g_coapCtx && handler == COAP_RpcEventHandler);
  __real_coap_register_event_handler(coapCtx, handler);
}

void __wrap_coap_register_nack_handler(coap_context_t *coapCtx, coap_nack_handler_t handler) {
  Called("nack", coapCtx == g_coapCtx && handler == COAP_RpcNackhandler);
  __real_coap_register_nack_handler(coapCtx, handler);
}

void __wrap_coap_register_response_handler(coap_context_t *coapCtx,
                                           coap_response_handler_t handler) {
  Called("response", coapCtx == g_coapCtx && handler == COAP_RpcCliResponseHandler);
  __real_coap_register_response_handler(coapCtx, handler);
}

void __wrap_coap_persist_track_funcs(coap_context_t *coapCtx, coap_observe_added_t added,
                                     coap_observe_deleted_t deleted,
                                     coap_track_observe_value_t trackValue,
                                     coap_dyn_resource_added_t dynAdded,
                                     coap_resource_deleted_t resDeleted, uint32_t saveFreq,
                                     void *userData) {
  if (!added) return;  // libcoap's own call when a context ends: some linkers wrap it as well
  Called("track", coapCtx == g_coapCtx && added == COAP_RpcSerAddObserve &&
                      deleted == COAP_RpcSerDelObserve && !trackValue && !dynAdded && !resDeleted &&
                      saveFreq == 0);
  g_trackUserData = userData;
}

namespace coap_rpc_test {
namespace {

TEST(LibStartup, HandsTheTableToLibcoapInOrder) {
  TestHost host;
  g_calls.clear();
  TestInstance instance(host);
  EXPECT_EQ(g_calls, (Names{"startup", "log level", "log handler", "context", "block mode", "event",
                            "nack", "response", "track"}));
  EXPECT_EQ(g_trackUserData, instance.Get());
}

TEST(LibStartup, TimerBelongsToTheGivenRecord) {
  TestHost host;
  CoapRpcLibCtx lib = {};
  CoapRpcCtx ctx = {};
  ctx.param = ParamOf(host);
  ctx.lib = &lib;
  COAP_RpcLibVtblInit(&ctx);
  CoapRpcLibCtx given = lib;
  ASSERT_EQ(COAP_RpcLibStartup_(&ctx, &given), 0u);
  EXPECT_EQ(lib.taskTmr, 0u);
  ASSERT_EQ(host.Timers().Running().size(), 1u);
  EXPECT_EQ(given.taskTmr, host.Timers().Running()[0].id);
  COAP_RpcLibCleanup_(&ctx, &given);
  EXPECT_EQ(given.taskTmr, 0u);
  EXPECT_TRUE(host.Timers().Running().empty());
  COAP_RpcLibVtblUninit(nullptr);
}

}  // namespace
}  // namespace coap_rpc_test
