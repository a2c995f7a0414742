#include "cli_fixture.h"

#include <cstring>

namespace coap_rpc_test {
namespace {

CliFixture::Adapter *g_adapter = nullptr;

// What libcoap's sessions are here: only their addresses matter.
char g_coapSession;

coap_session_t *CreateSession(CoapRpcCtx *, const CoapRpcCliReqKey *key,
                              const CoapRpcCliSessionKey *addr) {
  g_adapter->calls.push_back("create");
  g_adapter->created.push_back(*addr);
  g_adapter->createdPktTypes.push_back(key->uri.pktType);
  return g_adapter->createFails ? nullptr : reinterpret_cast<coap_session_t *>(&g_coapSession);
}

void DeleteSession(CoapRpcCtx *, CoapRpcCliSession *session) {
  g_adapter->calls.push_back("delete");
  if (session->coapSession) ++g_adapter->numDeleted;
  session->coapSession = nullptr;
}

uint32_t Send(CoapRpcCtx *, CoapRpcCliSession *session, CoapRpcCliReqData *req) {
  g_adapter->calls.push_back("send");
  g_adapter->sends.push_back({std::string(req->key.uri.uri, strnlen(req->key.uri.uri, 64)),
                              req->key.param.userData, session->coapSession != nullptr});
  if (g_adapter->onSend) g_adapter->onSend(session, req);
  return g_adapter->decide ? g_adapter->decide(req) : g_adapter->sendResult;
}

void Cancel(CoapRpcCtx *, CoapRpcCliSession *session, CoapRpcCliReqData *) {
  g_adapter->calls.push_back("cancel");
  g_adapter->cancelledAt.push_back(session);
}

uint32_t Refresh(CoapRpcCtx *) {
  g_adapter->calls.push_back("refresh");
  return 0;
}

void SetFlag(CoapRpcCtx *) { g_adapter->calls.push_back("flag"); }

}  // namespace

CliFixture::CliFixture() {
  g_adapter = &adapter_;
  ctx_.param.memHandle = host_.Mem();
  ctx_.param.tmrHandle = host_.Tmr();
  ctx_.param.dbgHandle = host_.Dbg();
  ctx_.param.logHandle = host_.Log();
  ctx_.log = host_.Log();
}

CliFixture::~CliFixture() { Stop(); }

void CliFixture::Start() {
  cli_ = COAP_RpcCliDataCreate_(&ctx_);
  ASSERT_NE(cli_, nullptr);
  cli_->owner = &ctx_;
  ctx_.cli = cli_;
  ASSERT_EQ(COAP_RpcCliVtblInit(cli_), 0U);
  ASSERT_EQ(COAP_RpcCliSessionInit(cli_), 0U);
  ASSERT_EQ(COAP_RpcCliReqInit(cli_), 0U);
  ASSERT_EQ(COAP_RpcCliUriInit(cli_), 0U);
  WireSlots();
}

void CliFixture::WireSlots() {
  cli_->createCliSession = CreateSession;
  cli_->deleteCliSession = DeleteSession;
  cli_->sendRequest = Send;
  cli_->cancelRequest = Cancel;
  cli_->refreshTaskTimer = Refresh;
  cli_->setSvcFlag = SetFlag;
}

void CliFixture::Stop() {
  if (!cli_) return;
  COAP_RpcCliUriUninit(cli_);
  COAP_RpcCliReqUninit(cli_);
  COAP_RpcCliSessionUninit(cli_);
  COAP_RpcCliVtblUninit(cli_);
  COAP_RpcCliDataDelete_(&ctx_);
  cli_ = nullptr;
}

CoapRpcUriKey CliFixture::KeyOf(const std::string &uri, uint32_t msgType, uint32_t observe,
                                uint32_t pktType) {
  CoapRpcUriKey key = {};
  memcpy(key.uri, uri.data(), std::min<size_t>(uri.size(), sizeof key.uri));
  key.msgType = msgType;
  key.observe = observe;
  key.pktType = pktType;
  return key;
}

CoapRpcCliReqParam CliFixture::ParamOf(uint64_t userData) {
  CoapRpcCliReqParam param = {};
  param.userData = userData;
  return param;
}

CoapRpcCliAddr CliFixture::AddrOf(uint32_t src, uint32_t dst, uint32_t port) {
  CoapRpcCliAddr addr = {};
  addr.srcIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = src;
  addr.dstIp.family = COAP_RPC_IPV4;
  addr.dstIp.addr.ipv4 = dst;
  addr.dstPort = port;
  addr.codeType = COAP_RPC_GET;
  return addr;
}

CoapRpcCliSessionKey CliFixture::SessionKeyOf(const CoapRpcCliAddr &addr) {
  return {addr.srcIp, addr.dstIp, addr.dstPort};
}

CoapRpcCliReqKey CliFixture::ReqKeyOf(const CoapRpcUriKey &key, const CoapRpcCliReqParam &param) {
  return {key, param};
}

CoapRpcCliSession *CliFixture::SessionOf(const CoapRpcCliAddr &addr) {
  const CoapRpcCliSessionKey key = SessionKeyOf(addr);
  return COAP_RpcCliFindSession(cli_, &key);
}

CoapRpcCliReqData *CliFixture::ReqOf(const CoapRpcUriKey &key, const CoapRpcCliReqParam &param) {
  const CoapRpcCliReqKey reqKey = ReqKeyOf(key, param);
  return COAP_RpcCliFindReqData(cli_, &reqKey);
}

size_t CliFixture::NumReqs() {
  size_t num = 0;
  for (auto *req = COAP_RpcCliFindFirstReqData(cli_); req;
       req = COAP_RpcCliFindNextReqData(cli_, &req->key)) {
    ++num;
  }
  return num;
}

size_t CliFixture::NumSessions() {
  size_t num = 0;
  for (auto *session = COAP_RpcCliFindFirstSession(cli_); session;
       session = COAP_RpcCliFindNextSession(cli_, &session->key)) {
    ++num;
  }
  return num;
}

std::vector<std::string> CliFixture::DebugLines(const std::string &start) const {
  std::vector<std::string> lines;
  for (const LogRecord &record : host_.LogsOf("COAP_RPC_LOG_MOD_DO")) {
    if (record.text.starts_with(start)) lines.push_back(record.text);
  }
  return lines;
}

}  // namespace coap_rpc_test
