// The client's side of the adapter, called directly: libcoap sessions, parts of a request, and
// callbacks that come at odd moments.
#include <cstdarg>
#include <cstring>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_event.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_pdu.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_response.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_send.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_session.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "fail_plan.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {
FailPlan g_formats;
}  // namespace
}  // namespace coap_rpc_test

// The linker puts this in place of the library's formatter (see CMakeLists.txt).
extern "C" int __wrap__sprintf_s_chk(char *dest, rsize_t dmax, size_t destbos, const char *format,
                                     ...) {
  if (coap_rpc_test::g_formats.Count()) return -ESNOSPC;
  va_list args;
  va_start(args, format);
  const int len = _vsprintf_s_chk(dest, dmax, destbos, format, args);
  va_end(args);
  return len;
}

namespace coap_rpc_test {
namespace {

constexpr uint16_t kPort = 9;

int32_t NothingBuilt(uint64_t, const CoapRpcCliReqParam *, uint8_t *, uint32_t) { return 0; }

class CliAdapter : public testing::Test {
 protected:
  CliAdapter() {
    session_.key.srcIp.family = session_.key.dstIp.family = COAP_RPC_IPV4;
    session_.key.srcIp.addr.ipv4 = 0x7F000001;
    session_.key.dstIp.addr.ipv4 = 0x7F000002;
    session_.key.dstPort = kPort;
    req_.key.uri = KeyOf("a", COAP_RPC_CON, 1);
    req_.codeType = COAP_RPC_GET;
  }
  ~CliAdapter() override { COAP_RpcDeleteCliSession(ctx_, &session_); }

  void Open() {
    session_.coapSession = COAP_RpcCreateCliSession(ctx_, &req_.key, &session_.key);
    ASSERT_NE(session_.coapSession, nullptr);
  }

  TestHost host_;
  TestInstance ctx_{host_};
  CoapRpcCliSession session_ = {};
  CoapRpcCliReqData req_ = {};
};

TEST_F(CliAdapter, Create_SetsRootAndRetransmissions) {
  Open();
  EXPECT_EQ(coap_session_get_app_data(session_.coapSession), ctx_.Get());
  EXPECT_EQ(coap_session_get_max_retransmit(session_.coapSession), 2);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]add session success, src:0x7f000001, dst:0x7f000002, port:9.\n"));
}

TEST_F(CliAdapter, Create_NstartIs1UnlessSet) {
  Open();
  EXPECT_EQ(coap_session_get_nstart(session_.coapSession), 1);
  COAP_RpcDeleteCliSession(ctx_, &session_);
  EXPECT_EQ(COAP_RpcSetNstart(ctx_, 16), 0U);
  Open();
  EXPECT_EQ(coap_session_get_nstart(session_.coapSession), 16);
  EXPECT_EQ(COAP_RpcSetNstart(nullptr, 16), 1900001408U);
}

TEST_F(CliAdapter, CreateForAnUnknownFamily_GivesNull) {
  for (const uint8_t family : {uint8_t{0}, uint8_t{3}, uint8_t{255}}) {
    CoapRpcCliSessionKey key = session_.key;
    key.dstIp.family = family;
    EXPECT_EQ(COAP_RpcCreateCliSession(ctx_, &req_.key, &key), nullptr);
    key.dstIp.family = COAP_RPC_IPV4;
    key.srcIp.family = family;
    EXPECT_EQ(COAP_RpcCreateCliSession(ctx_, &req_.key, &key), nullptr);
  }
}

TEST_F(CliAdapter, CreateWithoutLibcoap_GivesNull) {
  coap_context_t *coapCtx = ctx_.Get()->lib->coapCtx;
  ctx_.Get()->lib->coapCtx = nullptr;
  EXPECT_EQ(COAP_RpcCreateCliSession(ctx_, &req_.key, &session_.key), nullptr);
  ctx_.Get()->lib->coapCtx = coapCtx;
}

TEST_F(CliAdapter, Delete_ClearsTheFieldAndLogs) {
  Open();
  COAP_RpcDeleteCliSession(ctx_, &session_);
  EXPECT_EQ(session_.coapSession, nullptr);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]del session success, src:0x7f000001, dst:0x7f000002, port:9.\n"));
  host_.ClearLogs();
  COAP_RpcDeleteCliSession(ctx_, &session_);
  COAP_RpcDeleteCliSession(ctx_, nullptr);
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(CliAdapter, SendWithoutSession_Gives1900001351) {
  EXPECT_EQ(COAP_RpcCliSendRequest(ctx_, nullptr, &req_), 1900001351U);
  EXPECT_EQ(COAP_RpcCliSendRequest(ctx_, &session_, &req_), 1900001351U);
  const std::vector<LogRecord> lines = host_.LogsOf("COAP_RpcCliSendRequest");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].text,
            "[CoapRpc]session not exist, uri:a, observe:1, msgType:0, codeType:1.\n");
  EXPECT_EQ(lines[0].level, 3U);
}

TEST_F(CliAdapter, SendOfNoTypeOrCode_Gives1900001352) {
  Open();
  req_.key.uri.msgType = 4;
  EXPECT_EQ(COAP_RpcCliSendRequest(ctx_, &session_, &req_), 1900001352U);
  req_.key.uri.msgType = COAP_RPC_NON;
  req_.codeType = 256;
  EXPECT_EQ(COAP_RpcCliSendRequest(ctx_, &session_, &req_), 1900001352U);
}

TEST_F(CliAdapter, SendOfACodeThatLibcoapRefuses_Gives1900001354) {
  Open();
  ASSERT_NE(COAP_RpcLogRegUri(ctx_, "a"), nullptr);
  req_.codeType = 0x20;  // class 1 does not exist
  EXPECT_EQ(COAP_RpcCliSendRequest(ctx_, &session_, &req_), 1900001354U);
  const std::vector<LogRecord> lines = host_.LogsOf("COAP_RpcCliSendRequest");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text,
            "[CoapRpc]request pdu send failed, uri:a, observe:1, msgType:0, codeType:32.\n");
  EXPECT_EQ(lines[0].line, 1073U);
  ASSERT_EQ(host_.Logs().OfKind(LogKind::kSysLog).size(), 1U);
  EXPECT_EQ(host_.Logs().OfKind(LogKind::kSysLog)[0].text,
            "[CoapRpc]request pdu send failed, uri:a, observe:1, msgType:0, codeType:32.");
  EXPECT_EQ(req_.mid, 0);
}

TEST_F(CliAdapter, SendOfAckAndRst_DoesNoHarm) {
  Open();
  for (const uint32_t msgType : {2U, 3U}) {
    req_.key.uri = KeyOf("a", msgType, 0);
    COAP_RpcCliSendRequest(ctx_, &session_, &req_);
  }
  host_.AdvanceMs(1000);
}

TEST_F(CliAdapter, AddPduOption_ReturnsTheLastOptionsSize) {
  Open();
  CoapRpcCliUriVtbl uriVtbl = {};
  uint8_t scratch[4];
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 1000);
  // Content-Format with one byte of value after Uri-Path.
  EXPECT_EQ(COAP_RpcCliAddPduOption(ctx_, &uriVtbl, pdu, scratch, &session_, &req_), 2U);
  coap_delete_pdu(pdu);
  pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 4);
  EXPECT_EQ(COAP_RpcCliAddPduOption(ctx_, &uriVtbl, pdu, scratch, &session_, &req_), 0U);
  coap_delete_pdu(pdu);
}

TEST_F(CliAdapter, AddPduOption_HostThatCannotBeFormatted_IsLoggedAndAddedEmpty) {
  Open();
  CoapRpcCliUriVtbl uriVtbl = {};
  uint8_t scratch[4];
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 1000);
  g_formats.FailOnce(1);
  EXPECT_EQ(COAP_RpcCliAddPduOption(ctx_, &uriVtbl, pdu, scratch, &session_, &req_), 2U);
  coap_opt_iterator_t it;
  const coap_opt_t *host = coap_check_option(pdu, COAP_OPTION_URI_HOST, &it);
  ASSERT_NE(host, nullptr);
  EXPECT_EQ(coap_opt_length(host), 0U);
  coap_delete_pdu(pdu);
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcCliAddPduOption");
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].level, 3U);
  EXPECT_EQ(records[0].text, "[CoapRpc]Parse int to ipv4 failed.\n");
}

TEST_F(CliAdapter, AddOptionsWithoutRoomForThePayload_Gives1900001355) {
  Open();
  req_.key.uri = KeyOf("b");
  CoapRpcCliVtblReg reg = {};
  reg.buildReq = [](uint64_t, const CoapRpcCliReqParam *, uint8_t *out, uint32_t) {
    out[0] = 'x';
    return int32_t{1};
  };
  ASSERT_EQ(COAP_RpcCliRegVtbl(ctx_, &req_.key.uri, &reg), 0U);
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 15);
  EXPECT_EQ(COAP_RpcCliAddOptionsAndData(ctx_, pdu, &session_, &req_), 1900001355U);
  coap_delete_pdu(pdu);
}

TEST_F(CliAdapter, AddCheckCode_OnlyForVerifyAndBatch) {
  CoapRpcCliUriVtbl uriVtbl = {};
  uriVtbl.checkCode = 42;
  for (const uint32_t mode : {0U, 1U, 2U, 3U}) {
    coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 1000);
    req_.mode = mode;
    COAP_RpcCliAddCheckCode(pdu, &uriVtbl, &req_);
    coap_opt_iterator_t it;
    const coap_opt_t *option = coap_check_option(pdu, COAP_OPTION_URI_QUERY, &it);
    EXPECT_EQ(option != nullptr, mode == 1 || mode == 2) << mode;
    if (option) {
      const std::string text(reinterpret_cast<const char *>(coap_opt_value(option)),
                             coap_opt_length(option));
      EXPECT_EQ(text, mode == 1 ? "_ual-checkcode=42" : "_ual-checkcode=0");
      EXPECT_EQ(req_.mode, 0U);
    }
    coap_delete_pdu(pdu);
  }
}

TEST_F(CliAdapter, CancelOfNothing_DoesNothing) {
  COAP_RpcCliCancelRequest(ctx_, nullptr, &req_);
  COAP_RpcCliCancelRequest(ctx_, &session_, &req_);
  Open();
  host_.ClearLogs();
  COAP_RpcCliCancelRequest(ctx_, &session_, nullptr);
  req_.key.uri.observe = 0;
  COAP_RpcCliCancelRequest(ctx_, &session_, &req_);
  EXPECT_TRUE(host_.LogsOf("COAP_RPC_LOG_MOD_DO").empty());
}

TEST_F(CliAdapter, PayloadDetailOfAUriNotUnderDiagnosis_IsOneLine) {
  req_.key.uri = KeyOf("b");
  CoapRpcCliVtblReg reg = {};
  reg.buildReq = NothingBuilt;
  ASSERT_EQ(COAP_RpcCliRegVtbl(ctx_, &req_.key.uri, &reg), 0U);
  Open();
  EXPECT_EQ(COAP_RpcCliSendRequest(ctx_, &session_, &req_), 0U);
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc]cli reqPdu add payload success, uri:b, observe:0, msgType:0, codeType:1, len:0, "
      "payload:.\n"));
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kSysLog).empty());
}

// libcoap still calls back while an instance stops: sessions have lost their root by then, or the
// root its client side.
TEST_F(CliAdapter, CallbacksOfASessionWithoutRoot_AreIgnored) {
  Open();
  coap_session_set_app_data(session_.coapSession, nullptr);
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_NON, COAP_RESPONSE_CODE_CONTENT, 1, 100);
  host_.ClearLogs();
  EXPECT_EQ(COAP_RpcCliResponseHandler(session_.coapSession, nullptr, pdu, 1), COAP_RESPONSE_OK);
  COAP_RpcNackhandler(session_.coapSession, nullptr, COAP_NACK_TOO_MANY_RETRIES, 1);
  EXPECT_EQ(COAP_RpcEventHandler(session_.coapSession, COAP_EVENT_KEEPALIVE_FAILURE), 0);
  EXPECT_TRUE(host_.LogsOf("COAP_RPC_LOG_MOD_DO").empty());
  coap_delete_pdu(pdu);
}

TEST_F(CliAdapter, CallbacksAfterTheClientSideIsGone_AreHarmless) {
  Open();
  CoapRpcCliData *cli = ctx_.Get()->cli;
  ctx_.Get()->cli = nullptr;
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_NON, COAP_RESPONSE_CODE_CONTENT, 1, 100);
  EXPECT_EQ(COAP_RpcCliResponseHandler(session_.coapSession, nullptr, pdu, 1), COAP_RESPONSE_OK);
  COAP_RpcNackhandler(session_.coapSession, nullptr, COAP_NACK_TOO_MANY_RETRIES, 1);
  EXPECT_EQ(COAP_RpcEventHandler(session_.coapSession, COAP_EVENT_KEEPALIVE_FAILURE), 0);
  coap_delete_pdu(pdu);
  ctx_.Get()->cli = cli;
}

}  // namespace
}  // namespace coap_rpc_test
