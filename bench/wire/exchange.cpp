/* exchange.cpp: what an ordinary exchange costs its client: a POST of 32 bytes with a token and a
 * piggybacked answer of as many.
 *
 *   --role server    answers on 127.0.0.2, with libcoap alone
 *   --role calls     asks with COAP_RpcCall
 *   --role libcoap   asks with libcoap alone, in the same loop
 *
 * More options of the clients in call_client.h. */
#include "call_client.h"
#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_ext.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint16_t kPort = 5683;
constexpr uint16_t kNstart = 1000;  // both clients have as many under way as they are told
constexpr char kPath[] = "exchange";

void Answer(coap_resource_t *, coap_session_t *, const coap_pdu_t *request, const coap_string_t *,
            coap_pdu_t *response) {
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(request, &len, &data) == 0) return;
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_CHANGED);
  coap_add_data(response, len, data);
}

void RunServer(WireHost &host) {
  coap_context_t *context = host.NewContext();
  coap_resource_t *resource = coap_resource_init(coap_make_str_const(kPath), 0);
  coap_register_handler(resource, COAP_REQUEST_POST, Answer);
  coap_add_resource(context, resource);
  NewEndPoint(context, kAskerIpv4, kPort);
  host.Run();
}

void OnRsp(uint64_t calls, const CoapRpcCallRsp *rsp) {
  reinterpret_cast<Calls *>(calls)->OnAnswer(rsp->payload, rsp->payloadLen);
}

void RunCalls(WireHost &host, const Options &options) {
  CoapRpcCtx *ctx = host.NewInstance();
  COAP_RpcSetNstart(ctx, kNstart);
  CoapRpcCallAddr addr = {};
  addr.dstIp.family = COAP_RPC_IPV4;
  addr.dstIp.addr.ipv4 = kAskerIpv4;
  addr.dstPort = kPort;
  CoapRpcCall call = {};
  call.method = COAP_RPC_POST;
  call.path = kPath;
  call.payloadLen = kCallLen;
  call.onRsp = OnRsp;
  Calls calls(host, options, [&](const CallPayload &payload) {
    uint64_t id = 0;
    call.payload = payload.Bytes();
    if (COAP_RpcCall(ctx, &addr, &call, &id) != 0) abort();
  });
  call.userData = reinterpret_cast<uint64_t>(&calls);
  calls.Run();
}

coap_response_t OnResponse(coap_session_t *session, const coap_pdu_t *, const coap_pdu_t *received,
                           const coap_mid_t) {
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(received, &len, &data) == 0) return COAP_RESPONSE_OK;
  static_cast<Calls *>(coap_session_get_app_data(session))->OnAnswer(data, len);
  return COAP_RESPONSE_OK;
}

void Send(coap_session_t *session, const CallPayload &payload) {
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_POST,
                                  coap_new_message_id(session), coap_session_max_pdu_size(session));
  if (!pdu) abort();
  uint8_t token[8];
  size_t tokenLen = 0;
  coap_session_new_token(session, &tokenLen, token);
  coap_add_token(pdu, tokenLen, token);
  coap_add_option(pdu, COAP_OPTION_URI_PATH, strlen(kPath),
                  reinterpret_cast<const uint8_t *>(kPath));
  coap_add_data(pdu, kCallLen, payload.Bytes());
  if (coap_send(session, pdu) == COAP_INVALID_MID) abort();
}

void RunLibcoap(WireHost &host, const Options &options) {
  coap_context_t *context = host.NewContext();
  coap_address_t addr;
  coap_address_init(&addr);
  addr.size = sizeof(addr.addr.sin);
  addr.addr.sin = Ipv4Address(kAskerIpv4, kPort);
  coap_session_t *session = coap_new_client_session(context, nullptr, &addr, COAP_PROTO_UDP);
  if (!session) abort();
  coap_session_set_nstart(session, kNstart);
  coap_register_response_handler(context, OnResponse);
  Calls calls(host, options, [&](const CallPayload &payload) { Send(session, payload); });
  coap_session_set_app_data(session, &calls);
  calls.Run();
  coap_session_release(session);
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  WireHost host(LoggingOf(options));
  if (options.Is("--role", "calls")) {
    RunCalls(host, options);
  } else if (options.Is("--role", "libcoap")) {
    RunLibcoap(host, options);
  } else {
    RunServer(host);
  }
  return 0;
}
