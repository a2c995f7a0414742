/* client_notifications.h: a relation of the client whose notifications a test sends. */
#ifndef CLIENT_NOTIFICATIONS_H
#define CLIENT_NOTIFICATIONS_H

#include "wire_client.h"

namespace coap_rpc_test {

inline constexpr uint64_t kOrderMs = 128'000;

class ClientNotifications : public WireClient {
 protected:
  void SetUp() override {
    COAP_RpcRefreshTaskTimer(Ctx());
    Register(key_, &app_);
    EXPECT_EQ(Observe(key_), 0U);
    registration_ = Next();
  }

  // Answer acknowledges a registration with an answer.
  void Answer(const CoapMessage &registration, uint32_t number, std::string_view text = "") {
    CoapMessage answer = AnswerOf(registration, text.empty() ? Code(2, 1) : Code(2, 5));
    peer_.Send(answer.AddUint(kOptObserve, number).PayloadText(text));
    Ticks(2);
  }
  void Answer(uint32_t number, std::string_view text = "") { Answer(registration_, number, text); }

  CoapMessage Notification(uint32_t number, std::string_view text, CoapType type = CoapType::kCon) {
    return Separate(type, ++mid_, registration_.token, "a")
        .AddUint(kOptObserve, number)
        .PayloadText(text);
  }

  // Notify sends a notification.  A CON one has to be acknowledged, whatever becomes of it.
  void Notify(uint32_t number, std::string_view text, CoapType type = CoapType::kCon) {
    peer_.Send(Notification(number, text, type));
    if (type == CoapType::kCon) {
      EXPECT_EQ(ReplyTo(mid_).type, CoapType::kAck) << number;
    } else {
      Ticks(2);
    }
  }

  // ReplyTo passes over what does not acknowledge or reset a message.
  CoapMessage ReplyTo(uint16_t mid) {
    CoapMessage message = Next();
    while (message.messageId != mid && !HasFailure()) message = Next();
    return message;
  }

  CoapMessage Renew() {
    EXPECT_EQ(Observe(key_), 0U);
    return Next();
  }

  // Taken lists the payloads that onResponse was given, each followed by a blank.
  std::string Taken() const {
    std::string all;
    for (const App::Response &response : app_.responses) all += response.payload + ' ';
    return all;
  }
  uint64_t NumOld() const { return COAP_RpcGetOldNotificationNum(Ctx()); }

  App app_;
  const CoapRpcUriKey key_ = KeyOf("a", COAP_RPC_CON, 1);
  CoapMessage registration_;
  uint16_t mid_ = 700;
};

class ClientNotifiedInBlocks : public ClientNotifications {
 protected:
  void SetUp() override {
    ClientNotifications::SetUp();
    Answer(1);
  }

  static std::string BodyOf(char what) { return std::string(2500, what); }

  // Block makes block `num` of a body as a message of the given kind.
  static CoapMessage WithBlock(CoapMessage message, const std::string &body, uint32_t num,
                               Bytes etag) {
    if (!etag.empty()) message.Add(kOptEtag, std::move(etag));
    return message.AddBlock(kOptBlock2, {num, num < 2, 6})
        .PayloadText(std::string_view(body).substr(size_t{num} * 1024, 1024));
  }

  CoapMessage First(uint32_t number, const std::string &body, Bytes etag = {}) {
    return WithBlock(Notification(number, ""), body, 0, std::move(etag));
  }

  // Begin sends the first block, and returns the request for the second one.
  CoapMessage Begin(uint32_t number, const std::string &body, Bytes etag = {}) {
    peer_.Send(First(number, body, std::move(etag)));
    return NextOf(CoapType::kCon);
  }

  // NextOf passes over messages of other types.
  CoapMessage NextOf(CoapType type) {
    CoapMessage message = Next();
    while (message.type != type && !HasFailure()) message = Next();
    return message;
  }

  // Give answers a request for a block.
  void Give(const CoapMessage &request, const std::string &body, Bytes etag = {}) {
    const std::optional<CoapBlock> block = request.Block(kOptBlock2);
    ASSERT_TRUE(block);
    peer_.Send(WithBlock(AnswerOf(request), body, block->num, std::move(etag)));
  }

  // Finish gives the blocks from the one asked for to the last.
  void Finish(const CoapMessage &second, const std::string &body, const Bytes &etag = {}) {
    Give(second, body, etag);
    Give(NextOf(CoapType::kCon), body, etag);
    Ticks(2);
  }
};

}  // namespace coap_rpc_test

#endif /* CLIENT_NOTIFICATIONS_H */
