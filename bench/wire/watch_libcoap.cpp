/* watch_libcoap.cpp: the same payload as watch_rpc's, finished beforehand, published and observed
 * with libcoap alone.  Roles and options as there, and of the client:
 *
 *   --observers <n>   on sockets of their own (1); the last one to have all says so */
#include <vector>

#include "clock.h"
#include "kst_tmr.h"
#include "options.h"
#include "watch.h"
#include "wire_host.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint32_t kDelayMs = 200;
constexpr uint32_t kAgainMs = 1000;

struct Publisher {
  WireHost *host;
  std::string body;
  coap_resource_t *resource;
  bool hasBody;
  uint64_t timer;
};

uint32_t Publish(void *param) {
  auto *self = static_cast<Publisher *>(param);
  KST_TmrStop(KestrelTmr(self->host->Get()), self->timer);
  printf("updated_ns %llu\nqueue_us 0\n", static_cast<unsigned long long>(NowNs()));
  fflush(stdout);
  self->hasBody = true;
  coap_resource_notify_observers(self->resource, nullptr);
  return 0;
}

// Again is called as often as the library would notify.
uint32_t Again(void *param) {
  coap_resource_notify_observers(static_cast<Publisher *>(param)->resource, nullptr);
  return 0;
}

bool IsStaleQuery(const coap_string_t *query) {
  const std::string stale = kCheckCodeQuery + std::to_string(kStaleCode);
  return query && std::string(reinterpret_cast<const char *>(query->s), query->length) == stale;
}

void OnGet(coap_resource_t *resource, coap_session_t *session, const coap_pdu_t *request,
           const coap_string_t *query, coap_pdu_t *response) {
  auto *self = static_cast<Publisher *>(coap_resource_get_userdata(resource));
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_CONTENT);
  if (!self->hasBody && self->timer == 0) {
    self->timer = KST_TmrStartLoop(KestrelTmr(self->host->Get()), Publish, kDelayMs, self);
  }
  if (!self->hasBody || (query && !IsStaleQuery(query))) return;
  coap_add_data_large_response(
      resource, session, request, response, query, COAP_MEDIATYPE_APPLICATION_JSON, -1, 7,
      self->body.size(), reinterpret_cast<const uint8_t *>(self->body.data()), nullptr, nullptr);
}

void Serve(WireHost &host, Publisher &publisher, bool doesAgain) {
  coap_context_t *context = host.NewContext();
  publisher.resource = coap_resource_init(coap_make_str_const(kWatchUri), 0);
  coap_resource_set_get_observable(publisher.resource, 1);
  coap_resource_set_mode(publisher.resource, COAP_RESOURCE_FLAGS_NOTIFY_CON);
  coap_register_handler(publisher.resource, COAP_REQUEST_GET, OnGet);
  coap_resource_set_userdata(publisher.resource, &publisher);
  if (doesAgain) KST_TmrStartLoop(KestrelTmr(host.Get()), Again, kAgainMs, &publisher);
  coap_add_resource(context, publisher.resource);
  NewEndPoint(context, kServerIpv4, kWatchPort);
  host.Run();
}

WireHost *g_host;       // of the client
size_t g_expectedSize;  // of the payload
uint32_t g_numLacking;  // observers without it

coap_response_t OnResponse(coap_session_t *, const coap_pdu_t *, const coap_pdu_t *received,
                           const coap_mid_t) {
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(received, &len, &data) == 0 || len < g_expectedSize) return COAP_RESPONSE_OK;
  if (--g_numLacking != 0) return COAP_RESPONSE_OK;
  printf("last_ns %llu\n", static_cast<unsigned long long>(NowNs()));
  g_host->Stop();
  return COAP_RESPONSE_OK;
}

coap_session_t *Register(coap_context_t *context) {
  coap_address_t addr;
  coap_address_init(&addr);
  addr.size = sizeof(addr.addr.sin);
  addr.addr.sin = Ipv4Address(kServerIpv4, kWatchPort);
  coap_session_t *session = coap_new_client_session(context, nullptr, &addr, COAP_PROTO_UDP);
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET,
                                  coap_new_message_id(session), coap_session_max_pdu_size(session));
  if (!pdu) abort();
  const uint8_t token[] = {1};
  coap_add_token(pdu, sizeof(token), token);
  coap_add_option(pdu, COAP_OPTION_OBSERVE, 0, nullptr);
  coap_add_option(pdu, COAP_OPTION_URI_PATH, strlen(kWatchUri),
                  reinterpret_cast<const uint8_t *>(kWatchUri));
  coap_send(session, pdu);
  return session;
}

void Observe(WireHost &host, size_t expectedSize, uint32_t numObservers) {
  coap_context_t *context = host.NewContext();
  g_host = &host;
  g_expectedSize = expectedSize;
  g_numLacking = numObservers;
  coap_register_response_handler(context, OnResponse);
  std::vector<coap_session_t *> sessions;
  for (uint32_t i = 0; i < numObservers; ++i) sessions.push_back(Register(context));
  host.Run();
  for (coap_session_t *session : sessions) coap_session_release(session);
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  const uint32_t numTuples = options.Number("--tuples", 1);
  const std::string body = options.Is("--format", "idl") ? IdlOf(numTuples) : JsonOf(numTuples);
  WireHost host(Logging::kNone);
  if (options.Is("--role", "client")) {
    Observe(host, body.size(), options.Number("--observers", 1));
  } else {
    Publisher publisher = {&host, body, nullptr, options.Is("--filled", "yes"), 0};
    Serve(host, publisher, options.Is("--again", "yes"));
  }
  return 0;
}
