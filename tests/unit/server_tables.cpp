#include "server_tables.h"

#include <algorithm>
#include <iterator>

namespace coap_rpc_test {
namespace {

FakeAdapter *g_adapter = nullptr;  // of the test that runs

coap_endpoint_t *CreateEndPoint(CoapRpcCtx *, const CoapRpcSerListenAddr *addr) {
  g_adapter->events.push_back("open " + AddrText(*addr));
  if (g_adapter->failsEndPoints) return nullptr;
  static uint64_t places[1u << 16];
  static size_t numUsed = 0;
  void *endPoint = &places[numUsed++ % std::size(places)];
  g_adapter->endPoints[endPoint] = AddrText(*addr);
  return static_cast<coap_endpoint_t *>(endPoint);
}

void DeleteEndPoint(CoapRpcCtx *, CoapRpcSerListen *listen) {
  const auto found = g_adapter->endPoints.find(listen->endPoint);
  if (found == g_adapter->endPoints.end()) {
    EXPECT_EQ(listen->endPoint, nullptr) << "closed twice, or never opened";
    g_adapter->events.push_back("close nothing");
    return;
  }
  g_adapter->events.push_back("close " + found->second);
  g_adapter->endPoints.erase(found);
  listen->endPoint = nullptr;
}

uint32_t CreateOrUpdateResource(CoapRpcCtx *, const CoapRpcUriKey *key) {
  g_adapter->events.push_back("resource " + UriOf(key->uri));
  g_adapter->resourceKeys.push_back(*key);
  if (g_adapter->resourceResult == 0) g_adapter->resources.insert(UriOf(key->uri));
  return g_adapter->resourceResult;
}

void DeleteResource(CoapRpcCtx *, const char *uri) {
  g_adapter->events.push_back(std::string("drop ") + uri);
  g_adapter->resources.erase(uri);
}

uint32_t RefreshTaskTimer(CoapRpcCtx *) {
  g_adapter->events.push_back("refresh");
  return 1900000171;  // not looked at
}

uint32_t ProcTupleChg(CoapRpcCtx *, CoapRpcSerUriVtbl *, const CoapRpcUriKey *, const void *,
                      const void *tupleVal, uint32_t chgType) {
  g_adapter->events.push_back("chg " + std::to_string(chgType));
  g_adapter->lastChgVal = tupleVal;
  return g_adapter->chgResult;
}

void ForgetEntry(CoapRpcCtx *, CoapRpcSerUriVtbl *entry) {
  g_adapter->events.push_back("forget " + UriOf(entry->key.uri));
}

void RenewSource(coap_session_t *) { g_adapter->events.push_back("renew source"); }

constexpr CoapRpcLibExtOps kExtOps = {.forgetEntry = ForgetEntry,
                                      .renewSource = RenewSource,
                                      .openEndPoint = CreateEndPoint,
                                      .mustWait = nullptr,
                                      .isUnderWay = nullptr,
                                      .pushSync = nullptr,
                                      .dropSyncObserver = nullptr,
                                      .runSoon = nullptr};

int32_t CompareTupleKeys(const void *a, const void *b) { return memcmp(a, b, 4); }

CoapRpcInitParam ParamOf(const TestHost &host) {
  CoapRpcInitParam param = {};
  param.name = "tables";
  param.logEnable = 1;
  param.memHandle = host.Mem();
  param.dispHandle = host.Disp();
  param.logHandle = host.Log();
  param.tmrHandle = host.Tmr();
  param.dbgHandle = host.Dbg();
  return param;
}

template <typename Entries>
std::vector<std::string> KeyTexts(const Entries &entries) {
  std::vector<std::string> texts;
  for (auto *entry = entries.First(); entry; entry = entries.After(entry)) {
    texts.push_back(KeyText(entry->key));
  }
  return texts;
}

}  // namespace

CoapRpcUriKey KeyOf(std::string_view uri, uint32_t msgType, uint32_t observe, uint32_t pktType) {
  CoapRpcUriKey key = {};
  memcpy(key.uri, uri.data(), std::min(uri.size(), sizeof(key.uri)));
  key.msgType = msgType;
  key.observe = observe;
  key.pktType = pktType;
  return key;
}

CoapRpcSerListenAddr Ipv4Addr(uint32_t ipv4, uint16_t port) {
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = ipv4;
  addr.port = port;
  return addr;
}

CoapRpcSerListenAddr Ipv6Addr(uint8_t lastByte, uint16_t port) {
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV6;
  addr.listenAddr.addr.ipv6[15] = lastByte;
  addr.port = port;
  return addr;
}

std::string UriOf(const char *uri) { return std::string(uri, strnlen(uri, COAP_RPC_URI_SIZE)); }

CoapRpcSerObVtblReg ObserveRecord() {
  CoapRpcSerObVtblReg record = {};
  record.keyLen = 4;
  record.valLen = 4;
  record.tupleKeyCmp = CompareTupleKeys;
  return record;
}

std::string KeyText(const CoapRpcUriKey &key) {
  return UriOf(key.uri) + "/" + std::to_string(key.msgType) + "/" + std::to_string(key.observe) +
         "/" + std::to_string(key.pktType);
}

std::string AddrText(const CoapRpcSerListenAddr &addr) {
  char text[128] = {};
  return COAP_RpcSerGetListenStr_(&addr, text, sizeof(text));
}

void FakeAdapter::Install(CoapRpcCtx *ctx) {
  g_adapter = this;
  ctx->ser->createEndPoint = CreateEndPoint;
  ctx->ser->deleteEndPoint = DeleteEndPoint;
  ctx->ser->createOrUpdateResource = CreateOrUpdateResource;
  ctx->ser->deleteResource = DeleteResource;
  ctx->ser->refreshTaskTimer = RefreshTaskTimer;
}

void FakeAdapter::InstallExt(CoapRpcCtx *ctx) { ctx->libExt = &kExtOps; }

void FakeAdapter::InstallChanges(CoapRpcCtx *ctx) { ctx->ser->procTupleChg = ProcTupleChg; }

uint64_t FakeAdapter::NumOf(const std::string &event) const {
  return static_cast<uint64_t>(std::count(events.begin(), events.end(), event));
}

ServerTables::ServerTables() {
  const CoapRpcInitParam param = ParamOf(host_);
  ctx_ = COAP_RpcDataNew_(&param);
  EXPECT_EQ(COAP_RpcDispInit(ctx_), 0u);
  EXPECT_EQ(COAP_RpcSerInit(ctx_), 0u);
  adapter_.Install(ctx_);
  host_.ClearLogs();
}

ServerTables::~ServerTables() {
  COAP_RpcSerUninit(ctx_);
  COAP_RpcDispUninit(ctx_);
  COAP_RpcDataDelete_(ctx_);
  EXPECT_TRUE(adapter_.endPoints.empty());
  EXPECT_TRUE(adapter_.resources.empty());
  EXPECT_TRUE(host_.Pool().Violations().empty());
  EXPECT_TRUE(host_.Logs().Violations().empty());
}

uint32_t ServerTables::Register(const CoapRpcUriKey &key) {
  const CoapRpcSerVtblReg reg = {};
  return COAP_RpcSerRegVtbl(ctx_, &key, &reg, nullptr);
}

uint32_t ServerTables::RegisterObservable(const CoapRpcUriKey &key) {
  const CoapRpcSerVtblReg reg = {};
  const CoapRpcSerObVtblReg record = ObserveRecord();
  return COAP_RpcSerRegVtbl(ctx_, &key, &reg, &record);
}

void ServerTables::ExpectError(const std::string &func, uint32_t line, const std::string &text) {
  const std::vector<LogRecord> records = host_.LogsOf(func);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].module, "logDefault");
  EXPECT_EQ(records[0].line, line);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text, text);
  uint32_t numCounted = 0;
  for (const LogRecord &record : host_.Logs().OfKind(LogKind::kCount)) {
    if (record.module == "logDefault" && record.line == line) ++numCounted;
  }
  EXPECT_EQ(numCounted, 1u);
}

std::vector<std::string> ServerTables::UriTexts() const {
  std::vector<std::string> texts;
  const CoapRpcSerUriVtbl *entry = COAP_RpcSerFindFirstUriVtbl(Ser());
  for (; entry; entry = COAP_RpcSerFindNextUriVtbl(Ser(), &entry->key)) {
    texts.push_back(KeyText(entry->key));
  }
  return texts;
}

std::vector<std::string> ServerTables::ListenTexts() const {
  std::vector<std::string> texts;
  const CoapRpcSerListen *listen = COAP_RpcSerFindFirstListen(Ser());
  for (; listen; listen = COAP_RpcSerFindNextListen(Ser(), &listen->key)) {
    texts.push_back(AddrText(listen->key));
  }
  return texts;
}

std::vector<std::string> ServerTables::ResTexts() const {
  std::vector<std::string> texts;
  const CoapRpcSerUriRes *res = COAP_RpcSerFindFirstUriRes(Ser());
  for (; res; res = COAP_RpcSerFindNextUriRes(Ser(), res->uri)) {
    texts.push_back(UriOf(res->uri));
  }
  return texts;
}

std::vector<std::string> ServerTables::EntriesOf(CoapRpcSerListen *listen) {
  return KeyTexts(COAP_RPC_LIST(CoapRpcSerUriVtbl, listenLink)(listen->uriDataList));
}

std::vector<std::string> ServerTables::EntriesOf(CoapRpcSerUriRes *res) {
  return KeyTexts(COAP_RPC_LIST(CoapRpcSerUriVtbl, resLink)(res->uriDataList));
}

}  // namespace coap_rpc_test
