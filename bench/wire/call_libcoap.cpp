/* call_libcoap.cpp: the two exchanges that an asynchronous call consists of, with libcoap alone: a
 * request that is acknowledged empty, and its answer, which is a POST to port 5683 of the asker.
 * Roles and options as call_rpc. */
#include <map>

#include "call_client.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint16_t kPort = 5683;
constexpr char kPath[] = "call";

coap_session_t *NewSession(coap_context_t *context, uint32_t ipv4) {
  coap_address_t addr;
  coap_address_init(&addr);
  addr.size = sizeof(addr.addr.sin);
  addr.addr.sin = Ipv4Address(ipv4, kPort);
  coap_session_t *session = coap_new_client_session(context, nullptr, &addr, COAP_PROTO_UDP);
  if (!session) abort();
  return session;
}

void AddText(coap_pdu_t *pdu, coap_option_num_t number, const char *text) {
  coap_add_option(pdu, number, strlen(text), reinterpret_cast<const uint8_t *>(text));
}

// Send sends a confirmable request with the options that the library's has.
void Send(coap_session_t *session, coap_pdu_code_t code, const char *host, const uint8_t *data,
          size_t len) {
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, code, coap_new_message_id(session),
                                  coap_session_max_pdu_size(session));
  if (!pdu) abort();
  uint8_t format[4];
  if (host) {
    AddText(pdu, COAP_OPTION_URI_HOST, host);
  } else {
    uint8_t token[8];
    size_t tokenLen = 0;
    coap_session_new_token(session, &tokenLen, token);
    coap_add_token(pdu, tokenLen, token);
  }
  AddText(pdu, COAP_OPTION_URI_PATH, kPath);
  coap_add_option(pdu, COAP_OPTION_CONTENT_FORMAT,
                  coap_encode_var_safe(format, sizeof(format), COAP_MEDIATYPE_APPLICATION_JSON),
                  format);
  coap_add_data(pdu, len, data);
  coap_send(session, pdu);
}

void AddResource(coap_context_t *context, coap_request_t method, coap_method_handler_t handler,
                 void *userData) {
  coap_resource_t *resource = coap_resource_init(coap_make_str_const(kPath), 0);
  coap_register_handler(resource, method, handler);
  coap_resource_set_userdata(resource, userData);
  coap_add_resource(context, resource);
}

// TakeCall leaves the code empty, which acknowledges the request, and sends the answer.
void TakeCall(coap_resource_t *resource, coap_session_t *session, const coap_pdu_t *request,
              const coap_string_t *, coap_pdu_t *) {
  static std::map<uint32_t, coap_session_t *> askers;
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(request, &len, &data) == 0) return;
  static_cast<void>(resource);
  const uint32_t ipv4 = ntohl(coap_session_get_addr_remote(session)->addr.sin.sin_addr.s_addr);
  coap_session_t *&asker = askers[ipv4];
  if (!asker) asker = NewSession(coap_session_get_context(session), ipv4);
  Send(asker, COAP_REQUEST_CODE_POST, nullptr, data, len);
}

void TakeAnswer(coap_resource_t *resource, coap_session_t *, const coap_pdu_t *request,
                const coap_string_t *, coap_pdu_t *response) {
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(request, &len, &data) == 0) return;
  static_cast<Calls *>(coap_resource_get_userdata(resource))->OnAnswer(data, len);
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_CREATED);
}

void RunClient(WireHost &host, coap_context_t *context, const Options &options) {
  coap_session_t *session = NewSession(context, kAskerIpv4);
  Calls calls(host, options, [&](const CallPayload &payload) {
    Send(session, COAP_REQUEST_CODE_GET, "127.0.0.2", payload.Bytes(), kCallLen);
  });
  AddResource(context, COAP_REQUEST_POST, TakeAnswer, &calls);
  NewEndPoint(context, kServerIpv4, kPort);
  calls.Run();
  coap_session_release(session);
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  WireHost host(LoggingOf(options));
  coap_context_t *context = host.NewContext();
  if (options.Is("--role", "client")) {
    RunClient(host, context, options);
  } else {
    AddResource(context, COAP_REQUEST_GET, TakeCall, nullptr);
    NewEndPoint(context, kAskerIpv4, kPort);
    host.Run();
  }
  return 0;
}
