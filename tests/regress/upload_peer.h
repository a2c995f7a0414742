/* upload_peer.h: a server with one entry "a" and a peer that sends it a body in blocks of its own
 * choice. */
#ifndef UPLOAD_PEER_H
#define UPLOAD_PEER_H

#include "wire_server.h"

namespace coap_rpc_test {

class UploadServer : public WireServer {
 protected:
  UploadServer() { Serve(KeyOf("a", COAP_RPC_CON, 0, COAP_RPC_UNICAST), RegOf(&app_, 0)); }

  static constexpr size_t SizeOf(uint8_t szx) { return size_t{16} << szx; }

  // Part is a block whose payload is `len` times `filler`, by default as long as the block is.
  CoapMessage Part(const CoapBlock &block, char filler, std::optional<size_t> len = {}) {
    const std::string payload(len.value_or(SizeOf(block.szx)), filler);
    return Post(CoapType::kCon, "a", payload).AddBlock(kOptBlock1, block);
  }

  // Send sends a block and returns the code of its answer.
  uint8_t Send(const CoapBlock &block, char filler, std::optional<size_t> len = {}) {
    return Ask(Part(block, filler, len)).code;
  }

  // Body is the only one that the application got.
  std::string Body() {
    EXPECT_EQ(app_.requests.size(), 1u);
    return app_.requests.empty() ? "" : app_.requests[0].payload;
  }

  App app_;
};

inline constexpr uint8_t kContinue = Code(2, 31), kIncomplete = Code(4, 8),
                         kBadRequest = Code(4, 0);

}  // namespace coap_rpc_test

#endif /* UPLOAD_PEER_H */
