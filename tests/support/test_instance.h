/* test_instance.h: an instance of the library on a TestHost. */
#ifndef TEST_INSTANCE_H
#define TEST_INSTANCE_H

#include <gtest/gtest.h>

#include <cstring>

#include "coap_svc/rpc/coap_rpc.h"
#include "test_host.h"

namespace coap_rpc_test {

inline constexpr char kInstanceName[] = "test-rpc";

// ParamOf is a start-up record with all of the host's handles and recognisable reserved fields.
inline CoapRpcInitParam ParamOf(const TestHost &host) {
  CoapRpcInitParam param = {};
  param.name = kInstanceName;
  param.logEnable = 1;
  param.memHandle = host.Mem();
  param.dispHandle = host.Disp();
  param.logHandle = host.Log();
  param.tmrHandle = host.Tmr();
  param.dbgHandle = host.Dbg();
  return param;
}

// KeyOf is a zero-padded key; uris of 64 characters and more fill the field without terminator.
inline CoapRpcUriKey KeyOf(const char *uri, uint32_t msgType = 0, uint32_t observe = 0,
                           uint32_t pktType = 0) {
  CoapRpcUriKey key = {};
  memcpy(key.uri, uri, strnlen(uri, sizeof(key.uri)));
  key.msgType = msgType;
  key.observe = observe;
  key.pktType = pktType;
  return key;
}

// TestInstance starts an instance and takes it down with itself.
class TestInstance {
 public:
  explicit TestInstance(const TestHost &host) : TestInstance(ParamOf(host)) {}
  explicit TestInstance(const CoapRpcInitParam &param) : ctx_(COAP_RpcInit(&param)) {
    EXPECT_NE(ctx_, nullptr);
  }
  ~TestInstance() { COAP_RpcUninit(ctx_); }
  TestInstance(const TestInstance &) = delete;
  TestInstance &operator=(const TestInstance &) = delete;

  CoapRpcCtx *Get() const { return ctx_; }
  operator CoapRpcCtx *() const { return ctx_; }

  // Stop takes the instance down early.
  void Stop() {
    COAP_RpcUninit(ctx_);
    ctx_ = nullptr;
  }

 private:
  CoapRpcCtx *ctx_;
};

}  // namespace coap_rpc_test

#endif /* TEST_INSTANCE_H */
