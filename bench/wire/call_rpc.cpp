/* call_rpc.cpp: asynchronous calls through the library.
 *
 *   --role server   takes the calls on 127.0.0.2 and answers them at once
 *   --role client   makes them from 127.0.0.1; more options in call_client.h */
#include "call_client.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ser.h"

namespace {

using namespace coap_rpc_bench;

constexpr uint16_t kPort = 5683;

CoapRpcUriKey KeyOf(uint32_t pktType) {
  CoapRpcUriKey key = {};
  strcpy(key.uri, "call");
  key.pktType = pktType;
  return key;
}

void Serve(CoapRpcCtx *ctx, uint32_t pktType, uint32_t ipv4, CoapRpcSerOnAsyncRequest onRequest) {
  const CoapRpcUriKey key = KeyOf(pktType);
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.mode = 1;
  reg.userData = reinterpret_cast<uint64_t>(ctx);
  reg.onAsyncRequest = onRequest;
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = ipv4;
  addr.port = kPort;
  if (COAP_RpcSerRegVtbl(ctx, &key, &reg, nullptr) != 0) abort();
  if (COAP_RpcSerSetUri(ctx, &key, &addr) != 0) abort();
}

uint32_t AnswerAtOnce(uint64_t ctx, uint8_t *payload, uint32_t len, void *async) {
  return COAP_RpcSerSendAsyncResponse(reinterpret_cast<CoapRpcCtx *>(ctx), async, payload, len);
}

int32_t BuildCall(uint64_t, const CoapRpcCliReqParam *param, uint8_t *out, uint32_t) {
  memcpy(out, param->payload, param->payloadLen);
  return static_cast<int32_t>(param->payloadLen);
}

uint32_t OnAnswer(uint64_t calls, uint64_t, uint8_t *payload, uint32_t len,
                  const CoapRpcCliRspInfo *) {
  reinterpret_cast<Calls *>(calls)->OnAnswer(payload, len);
  return 0;
}

CoapRpcCliAddr ServerAddr() {
  CoapRpcCliAddr addr = {};
  addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = kServerIpv4;
  addr.dstIp.addr.ipv4 = kAskerIpv4;
  addr.dstPort = kPort;
  addr.codeType = COAP_RPC_GET;
  return addr;
}

void RunClient(WireHost &host, CoapRpcCtx *ctx, const Options &options) {
  const CoapRpcUriKey key = KeyOf(COAP_RPC_DEFAULT);
  const CoapRpcCliAddr addr = ServerAddr();
  Calls calls(host, options, [&](const CallPayload &payload) {
    CoapRpcCliReqParam param = {};
    param.payload = const_cast<uint8_t *>(payload.Bytes());
    param.payloadLen = kCallLen;
    COAP_RpcCliConReq(ctx, &key, &param, &addr);
  });
  CoapRpcCliVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.userData = reinterpret_cast<uint64_t>(&calls);
  reg.buildReq = BuildCall;
  reg.onResponse = OnAnswer;
  if (COAP_RpcCliRegVtbl(ctx, &key, &reg) != 0) abort();
  Serve(ctx, COAP_RPC_UNICAST, kServerIpv4, nullptr);
  calls.Run();
}

}  // namespace

int main(int argc, char **argv) {
  const Options options(argc, argv);
  WireHost host(LoggingOf(options));
  CoapRpcCtx *ctx = host.NewInstance();
  if (options.Is("--role", "client")) {
    RunClient(host, ctx, options);
  } else {
    Serve(ctx, COAP_RPC_DEFAULT, kAskerIpv4, AnswerAtOnce);
    host.Run();
  }
  return 0;
}
