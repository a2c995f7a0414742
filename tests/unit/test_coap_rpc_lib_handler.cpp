// The request handlers called by hand: null arguments, codes and headers.
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ext.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_request.h"
#include "handler_objects.h"

namespace coap_rpc_test {
namespace {

class Handler : public HandlerObjects {
 protected:
  uint32_t HandleRequest(const Pdu &request, const Pdu &response) {
    return COAP_RpcSerHandleRequest(resource_, session_, request.get(), nullptr, response.get());
  }

  CoapRpcSerUriVtbl *Register(const CoapRpcUriKey &key, CoapRpcSerVtblReg reg) {
    EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key, &reg, nullptr), 0u);
    return COAP_RpcSerFindUriVtbl(Ctx()->ser, &key);
  }

  uint32_t RunSync(CoapRpcSerUriVtbl *entry, int32_t result, const Pdu &response) {
    entry->reg.userData = static_cast<uint64_t>(static_cast<uint32_t>(result));
    entry->reg.onRequest = [](uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *, uint32_t,
                              uint8_t *, uint32_t) { return static_cast<int32_t>(userData); };
    const Pdu request = NewRequest(1, "q");
    const CoapRpcMsgInfo info = COAP_RpcGetMsgInfo(request.get(), session_);
    uint8_t payload[] = "q";
    return COAP_RpcSvrHandleReqSync(resource_, session_, request.get(), nullptr, response.get(),
                                    Ctx(), entry, payload, 1, &info);
  }
};

TEST_F(Handler, GetHandler_NullRequestOrResponse_DoesNothing) {
  const Pdu request = NewRequest();
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  COAP_RpcSerGetHandler(resource_, session_, nullptr, nullptr, response.get());
  COAP_RpcSerGetHandler(resource_, session_, request.get(), nullptr, nullptr);
  EXPECT_TRUE(host_.LogsOf("COAP_RpcSerHandleRequest").empty());
}

TEST_F(Handler, PostHandler_NullResourceOrRequest_DoesNothing) {
  const Pdu request = NewRequest(2);
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  COAP_RpcSerPostHandler(nullptr, session_, request.get(), nullptr, response.get());
  COAP_RpcSerPostHandler(resource_, session_, nullptr, nullptr, response.get());
  EXPECT_EQ(coap_pdu_get_code(response.get()), 0);
  EXPECT_TRUE(host_.LogsOf("COAP_RpcSerHandleRequest").empty());
}

TEST_F(Handler, ResourceWithoutUserData_Gives1900000369WithoutLog) {
  const Pdu request = NewRequest(1, "q");
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  coap_resource_set_userdata(resource_, nullptr);
  EXPECT_EQ(HandleRequest(request, response), 1900000369u);
  EXPECT_TRUE(host_.LogsOf("COAP_RpcSerHandleRequest").empty());
  COAP_RpcAddUriPath(resource_, request.get(), response.get(), session_);
  EXPECT_TRUE(host_.LogsOf("COAP_RpcAddUriPath").empty());
}

TEST_F(Handler, NoEntry_Gives1900000369AndLogs) {
  const Pdu request = NewRequest(1, "q");
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  EXPECT_EQ(HandleRequest(request, response), 1900000369u);
  EXPECT_EQ(host_.LogsOf("COAP_RpcSerHandleRequest").size(), 1u);
}

TEST_F(Handler, AddUriPath_NoEntry_Logs) {
  const Pdu request = NewRequest();
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  COAP_RpcAddUriPath(resource_, request.get(), response.get(), session_);
  EXPECT_TRUE(OptionsOf(response).empty());
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcAddUriPath");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].line, 806u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text, "[CoapRpc]server get vtbl failed.\n");
}

TEST_F(Handler, AddUriPath_AddsThePathOfTheEntry) {
  Register(KeyOf("a/b"), {});
  const Pdu request = NewRequest();
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  COAP_RpcAddUriPath(resource_, request.get(), response.get(), session_);
  EXPECT_EQ(OptionsOf(response), (std::vector<OptionText>{{11, "a"}, {11, "b"}}));
}

TEST_F(Handler, NoMemoryForTheCopy_Gives1900000382) {
  Register(KeyOf("a/b"), {});
  const Pdu request = NewRequest(1, "q");
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(HandleRequest(request, response), 1900000382u);
}

TEST_F(Handler, Sync_ResultsAndTheirCodes) {
  CoapRpcSerUriVtbl *entry = Register(KeyOf("a/b"), {});
  const struct {
    int32_t result;
    uint32_t ret;
    int code;
  } cases[] = {{0, 0, 0},
               {-1, 1900000254, 68},
               {-2, 1900000250, 0},
               {-3, 1900000250, 0},
               {INT32_MIN, 1900000250, 0},
               {65471, 1900000244, 0},
               {INT32_MAX, 1900000244, 0}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.result);
    const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
    EXPECT_EQ(RunSync(entry, c.result, response), c.ret);
    EXPECT_EQ(coap_pdu_get_code(response.get()), c.code);
    size_t len = 0;
    const uint8_t *data = nullptr;
    EXPECT_EQ(coap_get_data(response.get(), &len, &data), 0);
  }
}

TEST_F(Handler, Sync_AnswerOfFiveBytes_SixZeroBytesWith201) {
  CoapRpcSerUriVtbl *entry = Register(KeyOf("a/b"), {});
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  EXPECT_EQ(RunSync(entry, 5, response), 0u);
  EXPECT_EQ(coap_pdu_get_code(response.get()), 65);
  size_t len = 0;
  const uint8_t *data = nullptr;
  EXPECT_EQ(coap_get_data(response.get(), &len, &data), 1);
  EXPECT_EQ(std::string(data, data + len), std::string(6, '\0'));
}

TEST_F(Handler, Sync_ResponseThatHasAPayload_Gives1900001411) {
  CoapRpcSerUriVtbl *entry = Register(KeyOf("a/b"), {});
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  coap_add_data(response.get(), 1, reinterpret_cast<const uint8_t *>("x"));
  EXPECT_EQ(RunSync(entry, 5, response), 1900001411u);
}

TEST_F(Handler, GetRpcData_NoBuffer_GivesMinusTwo) {
  CoapRpcSerUriVtbl *entry = Register(KeyOf("a/b"), {});
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(RunSync(entry, 5, response), 1900000250u);
  const CoapRpcMsgInfo info = {};
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_GetRpcData(Ctx(), entry, nullptr, 0, &info), -2);
}

TEST_F(Handler, ResponseHeader_HasPostCodeTypeAndPath) {
  const std::pair<uint32_t, coap_pdu_type_t> cases[] = {
      {0, COAP_MESSAGE_CON}, {1, COAP_MESSAGE_NON}, {2, COAP_MESSAGE_ACK}};
  for (const auto &[msgType, type] : cases) {
    CoapRpcSerUriVtbl entry = {};
    entry.key = KeyOf("x/y", msgType);
    const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
    COAP_RpcSvrHandleSetResponseHeader(response.get(), &entry, Ctx());
    EXPECT_EQ(coap_pdu_get_code(response.get()), 2);
    EXPECT_EQ(coap_pdu_get_type(response.get()), type);
    EXPECT_EQ(OptionsOf(response), (std::vector<OptionText>{{11, "x"}, {11, "y"}}));
  }
}

TEST_F(Handler, ResponseHeader_UriOf64Characters_IsNotReadBeyond) {
  CoapRpcSerUriVtbl entry = {};
  entry.key = KeyOf(std::string(64, 'u').c_str(), 0x01010101);
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  COAP_RpcSvrHandleSetResponseHeader(response.get(), &entry, Ctx());
  EXPECT_EQ(OptionsOf(response), (std::vector<OptionText>{{11, std::string(64, 'u')}}));
}

TEST_F(Handler, TargetSession_IsThePeersPort5683) {
  CoapRpcSerUriVtbl *entry = Register(KeyOf("a/b"), {});
  coap_session_t *sender = COAP_RpcSvrGetTargetSession(Ctx(), entry, session_);
  ASSERT_NE(sender, nullptr);
  EXPECT_EQ(coap_address_get_port(coap_session_get_addr_remote(sender)), 5683);
  EXPECT_EQ(coap_address_get_port(coap_session_get_addr_remote(session_)), 9);
  EXPECT_EQ(entry->asyncSession, sender);
  EXPECT_EQ(COAP_RpcSvrGetTargetSession(Ctx(), entry, session_), sender);
}

TEST_F(Handler, ReleaseAsyncRequest_FreesThePayload) {
  COAP_RpcReleaseAsyncRequest(nullptr, COAP_RpcNewPayload(Ctx(), "abc", 3));
  COAP_RpcReleaseAsyncRequest(nullptr, nullptr);
}

TEST_F(Handler, ForgetEntry_EndsItsPendingRequestsAndItsSession) {
  CoapRpcSerVtblReg reg = {};
  reg.mode = 1;
  static void *handle;
  reg.onAsyncRequest = [](uint64_t, uint8_t *, uint32_t, void *async) {
    handle = async;
    return 17u;
  };
  CoapRpcSerUriVtbl *entry = Register(KeyOf("a/b"), reg);
  const Pdu response = NewPdu(COAP_MESSAGE_ACK, 0);
  const uint8_t byte = 1;
  for (const bool isAnswered : {false, true}) {
    const Pdu request = NewRequest(1, "q");
    coap_pdu_set_mid(request.get(), isAnswered);
    EXPECT_EQ(HandleRequest(request, response), 17u);  // the callback's result
    if (isAnswered) {
      EXPECT_EQ(COAP_RpcSerSendAsyncResponse(Ctx(), handle, &byte, 1), 0u);
    }
    EXPECT_NE(entry->asyncSession, nullptr);
    g_coapRpcLibExtOps.forgetEntry(Ctx(), entry);
    EXPECT_EQ(entry->asyncSession, nullptr);
    EXPECT_EQ(COAP_RpcSerSendAsyncResponse(Ctx(), handle, &byte, 1), 1900001302u);
    EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), handle), 1900001302u);
  }
}

// AsyncBounds asks one URI in the name of peers, past the network.
class AsyncBounds : public Handler {
 protected:
  AsyncBounds() {
    host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
    CoapRpcSerVtblReg reg = {};
    reg.mode = 1;
    reg.onAsyncRequest = [](uint64_t, uint8_t *, uint32_t, void *async) {
      last = async;
      return 0u;
    };
    entry_ = Register(KeyOf("a/b"), reg);
  }
  ~AsyncBounds() override {
    for (coap_session_t *peer : peers_) coap_session_release(peer);
  }

  // AskFrom asks from 127.0.0.1 (0 and 1: two ports of it), 127.0.0.2 (2 and 3) and so on.  Returns
  // the handler's result.
  uint32_t AskFrom(uint32_t i) {
    for (uint32_t num = static_cast<uint32_t>(peers_.size()); num <= i; ++num) AddPeer(num);
    coap_pdu_set_mid(request_.get(), ++numAsked_ & 0xFFFF);
    const CoapRpcMsgInfo info = {};
    uint8_t payload[] = "q";
    return COAP_RpcSvrHandleReqAsync(resource_, peers_[i], request_.get(), nullptr, response_.get(),
                                     Ctx(), entry_, payload, 1, &info);
  }

  void AskOften(uint32_t i) {
    for (int num = 0; num < 65536; ++num) ASSERT_EQ(AskFrom(i), 0u);
  }

  void AddPeer(uint32_t i) {
    coap_address_t addr;
    const CoapRpcIpAddr ip{COAP_RPC_IPV4, {}, {0x7F000001 + i / 2}};
    COAP_RpcSetAddress(&addr, &ip, static_cast<uint16_t>(9 + i % 2));
    peers_.push_back(coap_new_client_session(Ctx()->lib->coapCtx, nullptr, &addr, COAP_PROTO_UDP));
  }

  static inline void *last = nullptr;
  CoapRpcSerUriVtbl *entry_ = nullptr;
  const Pdu request_ = NewRequest(1, "q");
  const Pdu response_ = NewPdu(COAP_MESSAGE_ACK, 0);
  std::vector<coap_session_t *> peers_;
  int numAsked_ = 0;
};

TEST_F(AsyncBounds, OfOnePeer_Gives1900001441) {
  AskOften(0);
  EXPECT_EQ(coap_pdu_get_code(response_.get()), 0);
  EXPECT_EQ(AskFrom(1), 1900001441u);
  EXPECT_EQ(coap_pdu_get_code(response_.get()), COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 65536u);
  EXPECT_EQ(AskFrom(2), 0u);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), last), 0u);
  EXPECT_EQ(AskFrom(1), 1900001441u);
  entry_ = Register(KeyOf("other"), entry_->reg);
  EXPECT_EQ(AskFrom(1), 1900001441u);  // of all URIs
}

// Nobody may have more than are free, so that it takes many to have them all.
TEST_F(AsyncBounds, OfAll_Gives1900001440) {
  constexpr uint32_t kMany = 100;
  uint32_t i = 0;
  for (; i < kMany && COAP_RpcGetOpenAsyncNum(Ctx()) < COAP_RPC_MAX_OPEN_ASYNC; i += 2) {
    for (uint32_t num = 0; num < COAP_RPC_MAX_OPEN_ASYNC_OF_PEER && AskFrom(i) == 0; ++num) {
    }
  }
  EXPECT_EQ(AskFrom(i), 1900001440u);
  EXPECT_EQ(coap_pdu_get_code(response_.get()), COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), last), 0u);
  EXPECT_EQ(AskFrom(i), 0u);
  EXPECT_EQ(AskFrom(i), 1900001440u);
}

}  // namespace
}  // namespace coap_rpc_test
