// Peers that acknowledge asynchronous answers with empty messages, and respond later or never.
#include "async_server.h"
#include "libcoap_lists.h"
#include "usage.h"

namespace coap_rpc_test {
namespace {

class EmptyAcks : public Async {
 protected:
  unsigned NumPrepared() const { return NumLibcoapPrepared(Ctx()->lib->coapCtx); }

  void Call() { EXPECT_EQ(Answer(AskOnce(GetWith({1, 2})), "{}"), 0u); }

  // NextPart takes a block of an answer, with an empty acknowledgement.  Those of our own messages
  // come before or after.
  CoapMessage NextPart() {
    CoapMessage part = NextAtHome();
    while (part.type == CoapType::kAck) part = NextAtHome();
    return part;
  }

  // RespondSeparately expects a confirmable 2.01 to be taken.
  void RespondSeparately(const CoapMessage &post) {
    const CoapMessage response = Request(CoapType::kCon, Code(2, 1), ++mid_, post.token);
    home_.Send(response);
    const std::optional<CoapMessage> ack = Next(home_);
    ASSERT_TRUE(ack);
    EXPECT_EQ(*ack, AckOf(response));
  }
};

TEST_F(EmptyAcks, LeaveNothing) {
  ServeAsync();
  Call();
  NextAtHome();
  Tick();
  EXPECT_EQ(NumPrepared(), 0u);
}

TEST_F(EmptyAcks, WithTheFirstBlockOfAResponse_LeaveNothing) {
  ServeAsync();
  Call();
  const std::optional<CoapMessage> post = home_.ReceiveMessage(Pump());
  ASSERT_TRUE(post);
  home_.SetRemote(home_.Datagrams().back().other);
  CoapMessage ack = Request(CoapType::kAck, Code(2, 5), post->messageId, post->token);
  home_.Send(ack.AddBlock(kOptBlock2, {0, true, 2}).PayloadText(std::string(64, 'x')));
  EXPECT_FALSE(home_.ReceiveMessage(Pump(), kNothingComes)) << "asks for the next block";
  EXPECT_EQ(NumPrepared(), 0u);
}

TEST_F(EmptyAcks, ForAMinute_NothingGrows) {
  ServeAsync();
  host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
  COAP_RpcSetLibLogLevel(Ctx(), 0);
  const auto callFor = [this](uint64_t ms) {
    const uint64_t endMs = TestHost::Process().ElapsedMs() + ms;
    while (TestHost::Process().ElapsedMs() < endMs) {
      Call();
      NextAtHome();
    }
    EXPECT_EQ(NumPrepared(), 0u);
    app_.requests.clear();
    app_.handles.clear();
    host_.ClearLogs();
    return host_.Pool().LiveCount();
  };
  const uint64_t before = callFor(2'000);
  EXPECT_EQ(callFor(60'000), before);
}

TEST_F(EmptyAcks, SeparateResponse_IsAcknowledged) {
  ServeAsync();
  Call();
  RespondSeparately(NextAtHome());
  EXPECT_EQ(NumPrepared(), 0u);
  Call();
  EXPECT_EQ(NextAtHome().Text(), "{}");
}

TEST_F(EmptyAcks, LargeAnswer_WithSeparateResponses_Arrives) {
  ServeAsync();
  const std::string text(5000, 'x');
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(Answer(AskOnce(GetWith({})), text), 0u);
    Bytes body;
    for (bool isMore = true; isMore;) {
      const CoapMessage part = NextPart();
      const std::optional<CoapBlock> block = part.Block(kOptBlock1);
      ASSERT_TRUE(block) << home_.LogText();
      body.insert(body.end(), part.payload.begin(), part.payload.end());
      isMore = block->more;
      const CoapMessage response =
          Request(CoapType::kCon, isMore ? Code(2, 31) : Code(2, 1), ++mid_, part.token)
              .AddBlock(kOptBlock1, *block);
      home_.Send(response);
    }
    EXPECT_EQ(body, BytesOf(text));
    CoapMessage last = NextAtHome();
    while (last.type == CoapType::kAck && last.messageId != mid_) last = NextAtHome();
    EXPECT_EQ(last.messageId, mid_);
    EXPECT_EQ(NumPrepared(), 0u);
  }
}

TEST_F(EmptyAcks, LargeNonAnswer_LeavesNothing) {
  ServeAsync(COAP_RPC_NON);
  EXPECT_EQ(Answer(AskOnce(GetWith({})), std::string(3000, 'x')), 0u);
  for (bool isMore = true; isMore;) {
    const std::optional<CoapMessage> part = Next(home_);
    ASSERT_TRUE(part);
    const CoapBlock block = part->Block(kOptBlock1).value_or(CoapBlock());
    isMore = block.more;
    home_.SetRemote(home_.Datagrams().back().other);
    home_.Send(Request(CoapType::kNon, isMore ? Code(2, 31) : Code(2, 1), ++mid_, part->token)
                   .AddBlock(kOptBlock1, block));
  }
  Tick();
  EXPECT_EQ(NumPrepared(), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
