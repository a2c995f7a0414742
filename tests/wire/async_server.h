/* async_server.h: a server of asynchronous requests, who asks, and where its answers arrive. */
#ifndef ASYNC_SERVER_H
#define ASYNC_SERVER_H

#include <string>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "wire_server.h"

namespace coap_rpc_test {

inline constexpr uint8_t kAsync = 1;

class Async : public WireServer {
 protected:
  Async() : asker_({OwnHost(Role::kPeer), 0}), home_({OwnHost(Role::kPeer), kCoapPort}) {
    asker_.SetRemote(Address());
  }

  void ServeAsync(uint32_t msgType = COAP_RPC_CON) {
    entry_ = Serve(KeyOf("a/b", msgType), RegOf(&app_, kAsync));
  }

  // AskEmptyToken builds a request as clients without observation send them.
  CoapMessage GetWith(const Bytes &token, CoapType type = CoapType::kCon) {
    return Request(type, kCodeGet, ++mid_, token).AddPath("a/b").PayloadText("q");
  }

  // AskOnce sends a request and expects the empty acknowledgement.  Returns the handle.
  void *AskOnce(const CoapMessage &request) {
    const size_t numBefore = app_.handles.size();
    ExpectEmptyAck(Ask(asker_, request), request);
    EXPECT_EQ(app_.handles.size(), numBefore + 1);
    return app_.handles.empty() ? nullptr : app_.handles.back();
  }

  uint32_t Answer(void *handle, const std::string &text) {
    return COAP_RpcSerSendAsyncResponse(Ctx(), handle,
                                        reinterpret_cast<const uint8_t *>(text.data()),
                                        static_cast<uint32_t>(text.size()));
  }

  CoapMessage NextAtHome() {
    std::optional<CoapMessage> message = home_.ReceiveMessage(Pump());
    EXPECT_TRUE(message);
    if (message && message->type == CoapType::kCon) {
      home_.SetRemote(home_.Datagrams().back().other);
      home_.Send(AckOf(*message));
    }
    return message ? *message : CoapMessage();
  }

  // BigBodyAtHome takes a body that comes in blocks.
  Bytes BigBodyAtHome() {
    Bytes body;
    for (;;) {
      const std::optional<CoapMessage> part = home_.ReceiveMessage(Pump());
      if (!part || !part->Block(kOptBlock1)) return body;
      body.insert(body.end(), part->payload.begin(), part->payload.end());
      const CoapBlock block = *part->Block(kOptBlock1);
      home_.SetRemote(home_.Datagrams().back().other);
      CoapMessage ack = Request(CoapType::kAck, block.more ? Code(2, 31) : Code(2, 1),
                                part->messageId, part->token);
      home_.Send(ack.AddBlock(kOptBlock1, block));
      if (!block.more) return body;
    }
  }

  App app_;
  CoapRpcSerUriVtbl *entry_ = nullptr;
  RawPeer asker_;
  RawPeer home_;
};

}  // namespace coap_rpc_test

#endif /* ASYNC_SERVER_H */
