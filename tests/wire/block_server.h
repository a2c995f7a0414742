/* block_server.h: a server whose notifications travel in blocks, in JSON or IDL. */
#ifndef BLOCK_SERVER_H
#define BLOCK_SERVER_H

#include "observe_server.h"

namespace coap_rpc_test {

inline constexpr char kQuery[] = "_ual-checkcode=0";

class Blocks : public ObserveServer, public testing::WithParamInterface<uint8_t> {
 protected:
  static constexpr int kNumTuples = 60;
  static constexpr size_t kPadding = 1000;

  bool IsJson() const { return GetParam() == COAP_RPC_JSON; }

  void ServeBig(uint32_t msgType) {
    ServeObs(msgType, GetParam());
    app_.padding = kPadding;
  }

  static std::string Key(int i) {
    char text[8];
    snprintf(text, sizeof(text), "k%03d", i);
    return text;
  }

  // UpdateAll queues a change of each tuple.
  void UpdateAll(const std::string &val) {
    for (int i = 0; i < kNumTuples; ++i) Update(Key(i), val);
  }

  // BodyOf is the payload of all tuples with one value.
  Bytes BodyOf(const std::string &val) const {
    const std::string padded = val + std::string(kPadding, 'p');
    if (IsJson()) return BytesOf(JsonOf(padded));
    Bytes body = {kNumTuples, 0, 0, 0};
    for (int i = 0; i < kNumTuples; ++i) {
      const std::string message = "u:" + Key(i) + "=" + padded;
      body.push_back(static_cast<uint8_t>(message.size()));
      body.push_back(static_cast<uint8_t>(message.size() >> 8));
      body.insert(body.end(), message.begin(), message.end());
    }
    return body;
  }

  // BigNotification waits for a first block.
  CoapMessage BigNotification(RawPeer &peer) {
    for (;;) {
      CoapMessage message = NextNotification(peer);
      if (message.code == Code(2, 5) || message.code == 0) return message;
    }
  }

  CoapMessage BlockRequest(uint32_t num, const std::string &query = "", uint8_t szx = 6) {
    CoapMessage next = Request(CoapType::kCon, kCodeGet, ++mid_, {0xB0}).AddPath("obs");
    if (!query.empty()) next.AddText(kOptUriQuery, query);
    return next.AddBlock(kOptBlock2, {num, false, szx});
  }

  Bytes Fetch(RawPeer &peer, const CoapMessage &first, const std::string &query = "") {
    const uint16_t mid = mid_;
    mid_ = static_cast<uint16_t>(mid_ + 100);
    return ReadBlocks(first, "obs", query, mid, [&](const CoapMessage &next) {
      CoapMessage answer = Ask(peer, next);
      EXPECT_EQ(answer.code, Code(2, 5)) << peer.LogText().substr(0, 2000);
      return answer;
    });
  }

  uint32_t NumLastBlock() const {
    return static_cast<uint32_t>((BodyOf("v001").size() - 1) / 1024);
  }

 private:
  static std::string JsonOf(const std::string &padded) {
    std::string text = R"({"data":[)";
    for (int i = 0; i < kNumTuples; ++i) {
      if (i != 0) text += ",";
      text += R"({"op":"u","key":")" + Key(i) + R"(","val":")" + padded + R"("})";
    }
    return text + "]}";
  }
};

inline std::string FormatName(const testing::TestParamInfo<uint8_t> &format) {
  return format.param == COAP_RPC_JSON ? "Json" : "Idl";
}

}  // namespace coap_rpc_test

#endif /* BLOCK_SERVER_H */
