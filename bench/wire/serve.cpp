/* serve.cpp: a server that answers POSTs at once, as load asks it.
 *
 *   --kind rpc       the library
 *   --kind direct    the same by a direct entry, which has written its answer
 *   --kind libcoap   libcoap alone, same build, same answer: what the library can reach at most
 *   --kind udp       no CoAP: a header that fits, and 32 bytes
 *   --loop plain     libcoap alone in a loop of coap_io_process, as its own programs run
 *   --clear yes      libcoap alone clears a buffer of 65,471 bytes before each answer, as the
 *                    interface of the library asks for
 *   --port <n>       on 127.0.0.1 (5683)
 *   --logging default|debug|none
 *   --answer <n>     bytes of an answer (32); not without CoAP
 *   --uris <n>       serve N URIs "post<number>", else one, "post" */
#include <fcntl.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_direct.h"
#include "options.h"
#include "wire_host.h"

namespace {

using namespace coap_rpc_bench;

constexpr size_t kAnswerLen = 32;

size_t g_answerLen = kAnswerLen;

std::vector<std::string> UrisOf(const Options &options) {
  const uint32_t numUris = options.Number("--uris", 0);
  if (numUris == 0) return {"post"};
  std::vector<std::string> uris;
  for (uint32_t i = 0; i < numUris; ++i) uris.push_back("post" + std::to_string(i));
  return uris;
}

// ---- the library ----

int32_t AnswerRpc(uint64_t, const CoapRpcSerReqInfo *, uint8_t *, uint32_t, uint8_t *, uint32_t) {
  return static_cast<int32_t>(g_answerLen - 1);  // one byte more goes out
}

int32_t AnswerDirect(uint64_t, const CoapRpcSerReqInfo *, uint8_t *, uint32_t, uint8_t *out,
                     uint32_t) {
  memset(out, 0, g_answerLen);
  return static_cast<int32_t>(g_answerLen);
}

void ServeRpc(CoapRpcCtx *ctx, const std::vector<std::string> &uris, uint16_t port, bool isDirect) {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.onRequest = isDirect ? AnswerDirect : AnswerRpc;
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = kServerIpv4;
  addr.port = port;
  for (const std::string &uri : uris) {
    CoapRpcUriKey key = {};
    uri.copy(key.uri, sizeof(key.uri) - 1);
    key.pktType = COAP_RPC_UNICAST;  // POST requests reach entries of an address only
    if (COAP_RpcSerRegVtbl(ctx, &key, &reg, nullptr) != 0) abort();
    if (isDirect && COAP_RpcSerSetDirect(ctx, &key, nullptr) != 0) abort();
    if (COAP_RpcSerSetUri(ctx, &key, &addr) != 0) abort();
  }
}

// ---- libcoap alone ----

bool g_isClearing;

void AnswerLibcoap(coap_resource_t *resource, coap_session_t *session, const coap_pdu_t *request,
                   const coap_string_t *query, coap_pdu_t *response) {
  static uint8_t answer[COAP_RPC_SER_REQ_BUF_SIZE];
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(request, &len, &data) == 0) return;
  if (g_isClearing) memset(answer, 0, sizeof(answer));
  coap_add_data_large_response(resource, session, request, response, query,
                               COAP_MEDIATYPE_TEXT_PLAIN, -1, 0, g_answerLen, answer, nullptr,
                               nullptr);
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_CREATED);
}

void ServeLibcoap(coap_context_t *context, const std::vector<std::string> &uris, uint16_t port) {
  for (const std::string &uri : uris) {
    coap_str_const_t path{uri.size(), reinterpret_cast<const uint8_t *>(uri.data())};
    coap_resource_t *resource = coap_resource_init(&path, 0);
    coap_register_handler(resource, COAP_REQUEST_POST, AnswerLibcoap);
    coap_add_resource(context, resource);
  }
  NewEndPoint(context, kServerIpv4, port);
}

// ---- no CoAP ----

// AnswerUdp answers up to 32 datagrams a time with a 2.01 of their message id.
void AnswerUdp(void *, int fd) {
  constexpr unsigned kNum = 32;
  uint8_t bytes[kNum][1500];
  sockaddr_in peers[kNum];
  iovec parts[kNum];
  mmsghdr messages[kNum] = {};
  for (unsigned i = 0; i < kNum; ++i) {
    parts[i].iov_base = bytes + i;
    parts[i].iov_len = sizeof(bytes[0]);
    messages[i].msg_hdr.msg_iov = &parts[i];
    messages[i].msg_hdr.msg_iovlen = 1;
    messages[i].msg_hdr.msg_name = &peers[i];
    messages[i].msg_hdr.msg_namelen = sizeof(peers[i]);
  }
  const int num = recvmmsg(fd, messages, kNum, MSG_DONTWAIT, nullptr);
  for (int i = 0; i < num; ++i) {
    bytes[i][0] = 0x60;  // acknowledgement
    bytes[i][1] = 0x41;  // 2.01
    bytes[i][4] = 0xFF;
    parts[i].iov_len = 5 + kAnswerLen;
  }
  if (num > 0) sendmmsg(fd, messages, static_cast<unsigned>(num), 0);
}

int OpenUdp(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  const sockaddr_in addr = Ipv4Address(kServerIpv4, port);
  if (bind(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof(addr)) != 0) abort();
  return fd;
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  g_answerLen = options.Number("--answer", kAnswerLen);
  const auto port = static_cast<uint16_t>(options.Number("--port", 5683));
  WireHost host(LoggingOf(options));
  if (options.Is("--kind", "libcoap")) {
    g_isClearing = options.Is("--clear", "yes");
    ServeLibcoap(host.NewContext(), UrisOf(options), port);
  } else if (options.Is("--kind", "udp")) {
    KestrelWatch(host.Get(), OpenUdp(port), AnswerUdp, nullptr);
  } else {
    ServeRpc(host.NewInstance(), UrisOf(options), port, options.Is("--kind", "direct"));
  }
  options.Is("--loop", "plain") ? host.RunPlain() : host.Run();
  return 0;
}
