#include "sweep_stage.h"
#include "test_sleep.h"

#include <algorithm>
#include <cstring>

namespace coap_rpc_test {
namespace {

constexpr size_t kBlockSize = 1024;

unsigned int SleepNot(unsigned int) { return 0; }

int32_t BuildReq(uint64_t userData, const CoapRpcCliReqParam *, uint8_t *out, uint32_t) {
  const size_t len = reinterpret_cast<const ClientApp *>(userData)->payloadLen;
  memset(out, 'x', len);
  return static_cast<int32_t>(len);
}

uint32_t OnResponse(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                    const CoapRpcCliRspInfo *) {
  reinterpret_cast<ClientApp *>(userData)->responses.emplace_back(payload, payload + len);
  return 0;
}

void OnDisconnect(uint64_t userData, const CoapRpcIpAddr *) {
  ++reinterpret_cast<ClientApp *>(userData)->numGone;
}

// SetText is an application's way to put a text into an element: it says when that fails.
bool SetText(json_t *element, const char *name, const std::string &text) {
  return json_object_set_new(element, name, json_string(text.c_str())) == 0;
}

uint32_t BuildJsonUpdate(uint64_t userData, uint8_t *tuple, uint8_t *val, void *element) {
  const std::string text =
      ObserveApp::Text(val) + std::string(ObserveApp::Of(userData).padding, 'p');
  auto *object = static_cast<json_t *>(element);
  return SetText(object, "key", ObserveApp::Text(tuple)) && SetText(object, "val", text) ? 0 : 5;
}

uint32_t BuildJsonDelete(uint64_t, uint8_t *tuple, void *element) {
  return SetText(static_cast<json_t *>(element), "del", ObserveApp::Text(tuple)) ? 0 : 5;
}

// Mask takes the values of some fields out of a table's text.
void Mask(std::string &text, const std::string &field) {
  for (size_t at = text.find(field + "("); at != std::string::npos;
       at = text.find(field + "(", at + 1)) {
    const size_t from = at + field.size() + 1;
    text.erase(from, text.find(')', from) - from);
  }
}

}  // namespace

bool Has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

void ExpectOneOf(uint32_t result, std::initializer_list<uint32_t> documented) {
  EXPECT_NE(std::find(documented.begin(), documented.end(), result), documented.end()) << result;
}

Stage::Stage()
    : asker_({OwnHost(Role::kPeer), 0}),
      home_({OwnHost(Role::kPeer), kCoapPort}),
      far_({OwnHost(Role::kOtherPeer), 0}) {
  SetTestSleep(SleepNot);
  asker_.SetRemote(Address());
}

Stage::~Stage() = default;

FailPlan &Stage::PlanOf(Source source) {
  switch (source) {
    case kPool:
      return host_.Pool().Failures();
    case kTimers:
      return host_.Timers().Failures();
    case kLibcoap:
      return LibcoapFailures();
    default:
      return JanssonFailures();
  }
}

void Stage::Restart() {
  instance_ = std::make_unique<TestInstance>(host_);
  COAP_RpcRefreshTaskTimer(Ctx());
}

void Stage::ServePlain(uint8_t mode, uint32_t pktType) {
  Serve(KeyOf("plain", COAP_RPC_CON, 0, pktType), RegOf(&app_, mode));
}

void Stage::ServeObservable(uint8_t payloadFormat, size_t padding, uint32_t msgType) {
  app_.padding = padding;
  key_ = KeyOf("obs", msgType, 1);
  CoapRpcSerObVtblReg ob = ObRegOf(payloadFormat != COAP_RPC_BYTE);
  if (payloadFormat == COAP_RPC_JSON) {
    ob.buildUpdate = BuildJsonUpdate;
    ob.buildDelete = BuildJsonDelete;
  }
  entry_ = Serve(key_, RegOf(&app_, 0, payloadFormat), &ob);
}

uint32_t Stage::Attach(const CoapRpcUriKey &key, uint16_t port) {
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = OwnIpv4(Role::kServer);
  addr.port = port;
  return COAP_RpcSerSetUri(Ctx(), &key, &addr);
}

uint32_t Stage::Update(const std::string &key, const std::string &val) {
  return COAP_RpcSerObserveDataUpdate(Ctx(), &key_, key.data(), val.data());
}

void Stage::Say(const CoapMessage &message, int numRounds) {
  asker_.Send(message);
  Listen(numRounds);
}

void Stage::Listen(int numRounds) {
  for (int i = 0; i < numRounds; ++i) {
    Tick();
    for (RawPeer *peer : {&asker_, &home_, &far_}) HearAll(*peer);
  }
}

void Stage::HearAll(RawPeer &peer) {
  while (const std::optional<CoapMessage> message = peer.ReceiveNow()) {
    peer.SetRemote(peer.Datagrams().back().other);
    Hear(peer, *message);
  }
}

void Stage::Hear(RawPeer &peer, const CoapMessage &message) {
  heard_.push_back(message);
  numHeardBytes_ += message.payload.size();
  if (message.code >= kCodeGet && message.code <= kCodeDelete) {
    Answer(peer, message);
  } else {
    if (message.type == CoapType::kCon) peer.Send(AckOf(message));
    if (message.code == Code(2, 5)) FetchNext(peer, message);
  }
}

void Stage::Answer(RawPeer &peer, const CoapMessage &request) {
  if (&peer == &far_ && isSilent_) return;
  const std::optional<CoapBlock> upload = request.Block(kOptBlock1);
  const bool isMore = upload && upload->more;
  const CoapType type = request.type == CoapType::kCon ? CoapType::kAck : CoapType::kNon;
  CoapMessage answer = coap_rpc_test::Request(type, isMore ? Code(2, 31) : Code(2, 5),
                                              request.messageId, request.token);
  if (upload) answer.AddBlock(kOptBlock1, *upload);
  if (!isMore) answer.AddPath(request.Path());
  if (request.Uint(kOptObserve) == 0U) {
    observeRequest_ = request;
    answer.AddUint(kOptObserve, 2);
  }
  std::string body = isMore ? "" : kAnswer + std::string(answerLen_, 'b');
  const CoapBlock wanted = request.Block(kOptBlock2).value_or(CoapBlock{0, false, 6});
  if (body.size() > kBlockSize) {
    body = body.substr(wanted.num * kBlockSize);
    answer.AddBlock(kOptBlock2, {wanted.num, body.size() > kBlockSize, 6});
    body.resize(std::min(body.size(), kBlockSize));
  }
  peer.Send(answer.PayloadText(body));
}

void Stage::FetchNext(RawPeer &peer, const CoapMessage &message) {
  const std::optional<CoapBlock> block = message.Block(kOptBlock2);
  if (!block || !block->more) return;
  CoapMessage next = coap_rpc_test::Request(CoapType::kCon, kCodeGet, ++mid_, {0xB0});
  next.AddPath("obs").AddBlock(kOptBlock2, {block->num + 1, false, block->szx});
  peer.Send(next);
}

bool Stage::HasHeard(uint8_t code, const std::string &text) const {
  return std::any_of(heard_.begin(), heard_.end(), [&](const CoapMessage &message) {
    return message.code == code && message.Text() == text;
  });
}

bool Stage::HasHeardBytes(size_t len) const { return numHeardBytes_ >= len; }

void Stage::Forget() {
  heard_.clear();
  numHeardBytes_ = 0;
  client.responses.clear();
}

void Stage::RegisterClient(const CoapRpcUriKey &key) {
  CoapRpcCliVtblReg reg = {};
  reg.userData = reinterpret_cast<uint64_t>(&client);
  reg.buildReq = BuildReq;
  reg.onResponse = OnResponse;
  reg.onDisconnect = OnDisconnect;
  ExpectOneOf(COAP_RpcCliRegVtbl(Ctx(), &key, &reg), {0, 1900001051});
}

uint32_t Stage::Call(Request *call, const CoapRpcUriKey &key, const std::string &payload) {
  CoapRpcCliReqParam param = {};
  std::string bytes = payload;
  param.payload = payload.empty() ? nullptr : reinterpret_cast<uint8_t *>(bytes.data());
  param.payloadLen = static_cast<uint32_t>(payload.size());
  CoapRpcCliAddr addr = {};
  addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = kLoopback;
  addr.dstIp.addr.ipv4 = OwnIpv4(Role::kOtherPeer);
  addr.dstPort = far_.Local().port;
  addr.codeType = COAP_RPC_GET;
  return call(Ctx(), &key, &param, &addr);
}

CoapRpcCallAddr Stage::FarAddr() const {
  CoapRpcCallAddr addr = {};
  addr.dstIp.family = COAP_RPC_IPV4;
  addr.dstIp.addr.ipv4 = OwnIpv4(Role::kOtherPeer);
  addr.dstPort = far_.Local().port;
  return addr;
}

void Stage::Notify(const std::string &text) {
  CoapMessage message =
      coap_rpc_test::Request(CoapType::kCon, Code(2, 5), ++mid_, observeRequest_.token);
  message.AddUint(kOptObserve, mid_).AddPath(observeRequest_.Path()).PayloadText(text);
  far_.Send(message);
}

std::string Stage::Show(const std::string &command, const std::string &param) {
  std::string text;
  const auto pages = command.find("client request") != std::string::npos ||
                             command.find("client session") != std::string::npos
                         ? host_.RunCommand(command, 0U)
                     : param.empty() ? host_.RunCommand(command)
                                     : host_.RunCommand(command, param);
  for (const std::string &page : pages) text += page;
  return text;
}

std::string Stage::Tables() {
  if (!IsRunning()) return "not running";
  std::string text;
  for (const char *table : {"uriVtbl", "resource", "listen"}) {
    text += Show(std::string("disp server ") + table);
  }
  text += Show("disp server tupleSetTree", "obs") + Show("disp server tupleChgList", "obs");
  for (const char *table : {"uriVtbl", "request", "session"}) {
    text += Show(std::string("disp client ") + table);
  }
  for (const char *field : {"dstPort", "mid", "token", "reSnd", "Tout", "agingTick",
                            "ConMsgStatistic", "NonMsgStatistic"}) {
    Mask(text, field);
  }
  return text;
}

}  // namespace coap_rpc_test
