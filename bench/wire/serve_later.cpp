/* serve_later.cpp: a server that answers POSTs when it has left their handlers, each with a message
 * of its own on the session that asked, as load --separate yes asks it.
 *
 *   --kind direct    the library, by a direct entry
 *   --kind libcoap   libcoap alone, same build: what the library can reach at most
 *   --port <n>       on 127.0.0.1 (5683)
 *   --logging default|debug|none
 *
 * What is to be answered is in a queue, and a descriptor tells the loop that something is, as that
 * of an application's worker would. */
#include <sys/eventfd.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "options.h"
#include "wire_host.h"

namespace {

using namespace coap_rpc_bench;

constexpr char kPath[] = "post";
constexpr uint8_t kAnswer[32] = {};

// Later is the queue.
template <typename Request>
class Later {
 public:
  using Answer = void (*)(const Request &);

  Later(Kestrel *host, Answer answer) : answer_(answer) {
    KestrelWatch(
        host, fd_, [](void *later, int) { static_cast<Later *>(later)->AnswerAll(); }, this);
  }

  void Add(const Request &request) {
    if (queue_.empty()) eventfd_write(fd_, 1);
    queue_.push_back(request);
  }

 private:
  void AnswerAll() {
    eventfd_t num = 0;
    eventfd_read(fd_, &num);
    for (const Request &request : queue_) answer_(request);
    queue_.clear();
  }

  int fd_ = eventfd(0, EFD_NONBLOCK);
  Answer answer_;
  std::vector<Request> queue_;
};

// ---- the library ----

struct DirectRequest {
  CoapRpcCtx *ctx;
  void *async;
};

Later<DirectRequest> *g_directQueue;

uint32_t TakeDirect(uint64_t ctx, uint8_t *, uint32_t, void *async) {
  g_directQueue->Add({reinterpret_cast<CoapRpcCtx *>(ctx), async});
  return 0;
}

void AnswerDirect(const DirectRequest &request) {
  if (COAP_RpcSerSendAsyncResponse(request.ctx, request.async, kAnswer, sizeof(kAnswer)) != 0) {
    abort();
  }
}

void ServeDirect(CoapRpcCtx *ctx, uint16_t port) {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.mode = 1;
  reg.userData = reinterpret_cast<uint64_t>(ctx);
  reg.onAsyncRequest = TakeDirect;
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = kServerIpv4;
  addr.port = port;
  CoapRpcUriKey key = {};
  memcpy(key.uri, kPath, sizeof(kPath));
  key.pktType = COAP_RPC_UNICAST;
  if (COAP_RpcSerRegVtbl(ctx, &key, &reg, nullptr) != 0) abort();
  if (COAP_RpcSerSetDirect(ctx, &key, nullptr) != 0) abort();
  if (COAP_RpcSerSetUri(ctx, &key, &addr) != 0) abort();
}

// ---- libcoap alone ----

struct LibcoapRequest {
  coap_session_t *session;  // referenced
  uint8_t token[8];
  size_t tokenLen;
};

Later<LibcoapRequest> *g_libcoapQueue;

// TakeLibcoap leaves the code empty, which acknowledges the request and no more.
void TakeLibcoap(coap_resource_t *, coap_session_t *session, const coap_pdu_t *request,
                 const coap_string_t *, coap_pdu_t *) {
  const coap_bin_const_t token = coap_pdu_get_token(request);
  LibcoapRequest taken = {coap_session_reference(session), {}, token.length};
  memcpy(taken.token, token.s, token.length);
  g_libcoapQueue->Add(taken);
}

void AnswerLibcoap(const LibcoapRequest &request) {
  coap_session_t *session = request.session;
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_RESPONSE_CODE_CHANGED,
                                  coap_new_message_id(session), coap_session_max_pdu_size(session));
  if (!pdu) abort();
  coap_add_token(pdu, request.tokenLen, request.token);
  coap_add_data(pdu, sizeof(kAnswer), kAnswer);
  if (coap_send(session, pdu) == COAP_INVALID_MID) abort();
  coap_session_release(session);
}

void ServeLibcoap(coap_context_t *context, uint16_t port) {
  coap_resource_t *resource = coap_resource_init(coap_make_str_const(kPath), 0);
  coap_register_handler(resource, COAP_REQUEST_POST, TakeLibcoap);
  coap_add_resource(context, resource);
  NewEndPoint(context, kServerIpv4, port);
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  const auto port = static_cast<uint16_t>(options.Number("--port", 5683));
  WireHost host(LoggingOf(options));
  Later<DirectRequest> directQueue(host.Get(), AnswerDirect);
  Later<LibcoapRequest> libcoapQueue(host.Get(), AnswerLibcoap);
  g_directQueue = &directQueue;
  g_libcoapQueue = &libcoapQueue;
  if (options.Is("--kind", "libcoap")) {
    ServeLibcoap(host.NewContext(), port);
  } else {
    ServeDirect(host.NewInstance(), port);
  }
  host.Run();
  return 0;
}
