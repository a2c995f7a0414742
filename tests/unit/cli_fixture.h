/* cli_fixture.h: a client side without libcoap: its tables on a host under test control, and in
 * place of the adapter's operations ones that record their calls and do as told. */
#ifndef CLI_FIXTURE_H
#define CLI_FIXTURE_H

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_resend.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "test_host.h"

namespace coap_rpc_test {

// SendCall is one call of the send operation.
struct SendCall {
  std::string uri;
  uint64_t userData = 0;
  bool hasCoapSession = false;
};

class CliFixture : public testing::Test {
 protected:
  CliFixture();
  ~CliFixture() override;

  // Start runs the client's modules; SetUp does it for every test.
  void SetUp() override { Start(); }
  void Start();
  void Stop();  // as the instance stops, in reverse; also run by the destructor
  void WireSlots();

  // KeyOf, ParamOf and AddrOf make the three records of a call.
  static CoapRpcUriKey KeyOf(const std::string &uri, uint32_t msgType = COAP_RPC_CON,
                             uint32_t observe = 0, uint32_t pktType = COAP_RPC_DEFAULT);
  static CoapRpcCliReqParam ParamOf(uint64_t userData);
  static CoapRpcCliAddr AddrOf(uint32_t src = 0x0A000001, uint32_t dst = 0x0A000002,
                               uint32_t port = 5683);
  static CoapRpcCliSessionKey SessionKeyOf(const CoapRpcCliAddr &addr);
  static CoapRpcCliReqKey ReqKeyOf(const CoapRpcUriKey &key, const CoapRpcCliReqParam &param);

  CoapRpcCliSession *SessionOf(const CoapRpcCliAddr &addr);
  CoapRpcCliReqData *ReqOf(const CoapRpcUriKey &key, const CoapRpcCliReqParam &param);
  size_t NumReqs();
  size_t NumSessions();
  std::vector<std::string> DebugLines(const std::string &start) const;  // texts that begin so

  TestHost host_;
  CoapRpcCtx ctx_ = {};
  CoapRpcCliData *cli_ = nullptr;

 public:
  // What the fake operations saw, and what they do.
  struct Adapter {
    uint32_t sendResult = 0;   // of every send
    bool createFails = false;  // no libcoap session can be made
    std::function<void(CoapRpcCliSession *, CoapRpcCliReqData *)> onSend;  // inside the send
    std::function<uint32_t(CoapRpcCliReqData *)> decide;  // instead of sendResult, when set
    std::vector<SendCall> sends;
    std::vector<std::string> calls;  // every call's name, in order
    std::vector<CoapRpcCliSessionKey> created;
    std::vector<uint32_t> createdPktTypes;
    std::vector<CoapRpcCliSession *> cancelledAt;
    size_t numDeleted = 0;  // libcoap sessions given up
  };

 protected:
  Adapter adapter_;
};

}  // namespace coap_rpc_test

#endif /* CLI_FIXTURE_H */
