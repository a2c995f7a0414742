/* direct_server.h: a server with direct entries, and who asks it. */
#ifndef DIRECT_SERVER_H
#define DIRECT_SERVER_H

#include <string>

#include "coap_svc/rpc/coap_rpc_direct.h"
#include "wire_server.h"

namespace coap_rpc_test {

inline constexpr uint8_t kCodeFetch = 5, kCodePatch = 6, kCodeIpatch = 7;
inline constexpr uint8_t kModeSync = 0, kModeAsync = 1;
inline constexpr uint64_t kExchangeLifetimeMs = 247000, kNonLifetimeMs = 145000;

// DirectApp is what the callbacks of a direct entry do, and what they were given.
struct DirectApp {
  std::vector<std::string> payloads;
  std::vector<void *> handles;
  std::string out;                // written by onRequest
  std::optional<int32_t> result;  // of onRequest; none: the length of `out`
  std::function<void()> onCall;   // inside either callback
  std::vector<std::pair<void *, uint32_t>> ends;
  std::function<void()> onEnd;
  bool isTerminated = true;
  CoapRpcSerReqInfo info = {};

  static DirectApp &Of(uint64_t userData) { return *reinterpret_cast<DirectApp *>(userData); }

  void Note(const uint8_t *payload, uint32_t len) {
    payloads.emplace_back(payload, payload + len);
    isTerminated = isTerminated && payload[len] == 0;
  }

  static int32_t OnRequest(uint64_t userData, const CoapRpcSerReqInfo *info, uint8_t *payload,
                           uint32_t len, uint8_t *out, uint32_t outSize) {
    DirectApp &app = Of(userData);
    app.Note(payload, len);
    app.info = *info;
    EXPECT_EQ(outSize, 65471u);
    std::copy(app.out.begin(), app.out.end(), out);
    if (app.onCall) app.onCall();
    return app.result ? *app.result : static_cast<int32_t>(app.out.size());
  }

  static uint32_t OnAsyncRequest(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    DirectApp &app = Of(userData);
    app.Note(payload, len);
    app.handles.push_back(async);
    if (app.onCall) app.onCall();
    return 77;
  }

  static void OnAsyncEnd(uint64_t userData, void *async, uint32_t reason) {
    DirectApp &app = Of(userData);
    app.ends.emplace_back(async, reason);
    if (app.onEnd) app.onEnd();
  }
};

class Direct : public WireServer {
 protected:
  CoapRpcSerVtblReg DirectReg(uint8_t mode) {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    reg.mode = mode;
    reg.userData = reinterpret_cast<uint64_t>(&app_);
    reg.onRequest = DirectApp::OnRequest;
    reg.onAsyncRequest = DirectApp::OnAsyncRequest;
    return reg;
  }

  static CoapRpcSerDirectParam ParamWith(uint32_t methods, uint32_t timeoutMs = 0) {
    CoapRpcSerDirectParam param = {};
    param.methods = methods;
    param.timeoutMs = timeoutMs;
    param.onAsyncEnd = DirectApp::OnAsyncEnd;
    return param;
  }

  void ServeDirect(uint8_t mode, const CoapRpcSerDirectParam *param = nullptr) {
    Serve(key_, DirectReg(mode));
    EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, param), 0u);
  }
  void ServeDirect(uint8_t mode, const CoapRpcSerDirectParam &param) { ServeDirect(mode, &param); }

  CoapMessage Message(uint8_t method, const std::string &payload = "",
                      CoapType type = CoapType::kCon) {
    return Request(type, method, ++mid_, {0xAB, 0xCD}).AddPath("a/b").PayloadText(payload);
  }

  // AnswerTo is the piggybacked answer to a request.
  static CoapMessage AnswerTo(const CoapMessage &request, uint8_t code,
                              const std::string &payload = "") {
    return Request(CoapType::kAck, code, request.messageId, request.token).PayloadText(payload);
  }

  uint32_t Send(void *handle, const std::string &text) {
    return COAP_RpcSerSendAsyncResponse(Ctx(), handle,
                                        reinterpret_cast<const uint8_t *>(text.data()),
                                        static_cast<uint32_t>(text.size()));
  }

  // AskOpen sends a request that is not answered at once.  Returns its handle.
  void *AskOpen(const CoapMessage &request) {
    const size_t numBefore = app_.handles.size();
    if (request.type == CoapType::kCon) {
      ExpectEmptyAck(Ask(request), request);
    } else {
      peer_.Send(request);
      ExpectSilence(peer_);
    }
    EXPECT_EQ(app_.handles.size(), numBefore + 1);
    return app_.handles.empty() ? nullptr : app_.handles.back();
  }

  // NextAnswer takes a message of the server's own and acknowledges it.
  CoapMessage NextAnswer() {
    const std::optional<CoapMessage> message = Next(peer_);
    EXPECT_TRUE(message) << peer_.LogText();
    if (message && message->type == CoapType::kCon) peer_.Send(AckOf(*message));
    return message ? *message : CoapMessage();
  }

  DirectApp app_;
  CoapRpcUriKey key_ = KeyOf("a/b");
};

}  // namespace coap_rpc_test

#endif /* DIRECT_SERVER_H */
