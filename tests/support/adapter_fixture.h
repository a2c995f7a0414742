/* adapter_fixture.h: an instance that has an adapter and nothing else.
 *
 * The callbacks into the rest of the library are replaced, so that tests see libcoap and the
 * adapter only.  Sleeping between attempts to open an endpoint is recorded instead of done. */
#ifndef ADAPTER_FIXTURE_H
#define ADAPTER_FIXTURE_H

#include <arpa/inet.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "test_host.h"
#include "test_instance.h"
#include "test_sleep.h"

namespace coap_rpc_test {

// What the replaced callbacks count.
struct AdapterCalls {
  uint32_t numObserversAdded = 0;
  uint32_t numObserversDeleted = 0;
  uint32_t numNacks = 0;
  uint32_t numGets = 0;
};

inline AdapterCalls g_adapterCalls;

// What was slept between attempts, and what is done meanwhile.
inline std::vector<unsigned int> g_sleeps;
inline std::function<void()> g_whileAsleep;

inline unsigned int RecordSleep(unsigned int seconds) {
  g_sleeps.push_back(seconds);
  if (g_whileAsleep) g_whileAsleep();
  return 0;
}

// AnswerHello is a GET handler that answers 2.05 "hello".
inline void AnswerHello(coap_resource_t *, coap_session_t *, const coap_pdu_t *,
                        const coap_string_t *, coap_pdu_t *response) {
  ++g_adapterCalls.numGets;
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_CONTENT);
  coap_add_data(response, 5, reinterpret_cast<const uint8_t *>("hello"));
}

inline constexpr size_t kLargeBodyLen = 5000;

inline void AnswerLarge(coap_resource_t *resource, coap_session_t *session,
                        const coap_pdu_t *request, const coap_string_t *query,
                        coap_pdu_t *response) {
  static const std::string body(kLargeBodyLen, 'b');
  ++g_adapterCalls.numGets;
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_CONTENT);
  coap_add_data_large_response(resource, session, request, response, query, 50, -1, 0, body.size(),
                               reinterpret_cast<const uint8_t *>(body.data()), nullptr, nullptr);
}

inline int CountObserverAdded(coap_session_t *, coap_subscription_t *, coap_proto_t,
                              coap_address_t *, coap_addr_tuple_t *, coap_bin_const_t *,
                              coap_bin_const_t *, void *) {
  ++g_adapterCalls.numObserversAdded;
  return 1;
}

inline int CountObserverDeleted(coap_session_t *, coap_subscription_t *, void *) {
  ++g_adapterCalls.numObserversDeleted;
  return 1;
}

inline void CountNack(coap_session_t *, const coap_pdu_t *, const coap_nack_reason_t,
                      const coap_mid_t) {
  ++g_adapterCalls.numNacks;
}

inline CoapRpcSerListenAddr Ipv4Listen(const char *host, uint16_t port) {
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  in_addr networkOrder = {};
  inet_pton(AF_INET, host, &networkOrder);
  addr.listenAddr.addr.ipv4 = ntohl(networkOrder.s_addr);
  addr.port = port;
  return addr;
}

inline CoapRpcSerListenAddr Ipv6Listen(const char *host, uint16_t port) {
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV6;
  inet_pton(AF_INET6, host, addr.listenAddr.addr.ipv6);
  addr.port = port;
  return addr;
}

class AdapterFixture {
 public:
  explicit AdapterFixture(TestHost &host) : host_(host) {
    ctx_.param = ParamOf(host);
    ctx_.log = host.Log();
    ctx_.lib = &lib_;
    g_adapterCalls = {};
    g_sleeps.clear();
    g_whileAsleep = nullptr;
    oldSleep_ = SetTestSleep(RecordSleep);
    COAP_RpcLibVtblInit(&ctx_);
    lib_.getHandler = AnswerHello;
    lib_.postHandler = AnswerHello;
    lib_.observeAdded = CountObserverAdded;
    lib_.observeDeleted = CountObserverDeleted;
    lib_.nackHandler = CountNack;
    lib_.eventHandler = nullptr;
    lib_.responseHandler = nullptr;
  }
  ~AdapterFixture() {
    Stop();
    SetTestSleep(oldSleep_);
  }
  AdapterFixture(const AdapterFixture &) = delete;
  AdapterFixture &operator=(const AdapterFixture &) = delete;

  void Start() { ASSERT_EQ(COAP_RpcCtxInit(&ctx_), 0u); }

  void Stop() {
    COAP_RpcCtxUninit(&ctx_);
    COAP_RpcLibVtblUninit(&ctx_);
  }

  // Open opens the endpoint of a listen; the listen stays the caller's.
  CoapRpcSerListen Open(const CoapRpcSerListenAddr &addr) {
    CoapRpcSerListen listen = {};
    listen.key = addr;
    listen.endPoint = COAP_RpcCreateEndPoint(&ctx_, &addr);
    return listen;
  }

  uint32_t AddResource(const char *uri, uint32_t msgType = 0, uint32_t observe = 0) {
    const CoapRpcUriKey key = KeyOf(uri, msgType, observe);
    return COAP_RpcCreateOrUpdateResource(&ctx_, &key);
  }

  coap_resource_t *Resource(const char *uri) {
    return coap_get_resource_from_uri_path(lib_.coapCtx, coap_make_str_const(uri));
  }

  // Tick lets the I/O timer tick once.
  void Tick() { host_.AdvanceMs(1000); }
  std::function<void()> Ticker() {
    return [this] { Tick(); };
  }

  CoapRpcCtx *Ctx() { return &ctx_; }
  CoapRpcLibCtx &Lib() { return lib_; }

 private:
  TestHost &host_;
  CoapRpcCtx ctx_ = {};
  CoapRpcLibCtx lib_ = {};
  TestSleep oldSleep_;
};

}  // namespace coap_rpc_test

#endif /* ADAPTER_FIXTURE_H */
