// coap_clock.cpp: libcoap's clock on the time of the hosts. Nothing retransmits, expires or runs
// dry unless a test moves the time.
#include "coap_svc/rpc/coap_rpc_test.h"
#include "test_process.h"

namespace {

uint64_t ElapsedMs() { return coap_rpc_test::TestProcess::Get().ElapsedMs(); }

[[maybe_unused]] const bool g_isSet = [] {
  COAP_RpcTestSetClock(ElapsedMs);
  return true;
}();

}  // namespace
