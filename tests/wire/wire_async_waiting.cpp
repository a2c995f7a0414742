// Asynchronous answers that wait: behind others that travel in blocks, and for a peer that takes
// none.
#include <algorithm>
#include <map>
#include <set>

#include "async_server.h"

namespace coap_rpc_test {
namespace {

// BigAnswers are answers of several blocks each, a letter repeated, that wait to be fetched.
class BigAnswers : public Async {
 protected:
  static constexpr size_t kLen = 3000;

  void AnswerAll(size_t num) {
    ServeAsync();
    for (size_t i = 0; i < num; ++i) AskOnce(GetWith({}));
    for (size_t i = 0; i < num; ++i) {
      EXPECT_EQ(Answer(app_.handles[i], std::string(kLen, Letter(i))), 0u);
    }
  }
  static char Letter(size_t i) { return static_cast<char>('a' + i); }

  // TakeBlock takes the next block; false when none comes.
  bool TakeBlock() {
    const std::optional<CoapMessage> part = home_.ReceiveMessage(Pump());
    if (!part) return false;
    const std::string text = part->Text();
    bodies_[text[0]] += text;
    const CoapBlock block = part->Block(kOptBlock1).value_or(CoapBlock());
    home_.SetRemote(home_.Datagrams().back().other);
    home_.Send(
        Request(CoapType::kAck, block.more ? Code(2, 31) : Code(2, 1), part->messageId, part->token)
            .AddBlock(kOptBlock1, block));
    return true;
  }

  size_t NumUnfinished() const {
    return static_cast<size_t>(std::count_if(bodies_.begin(), bodies_.end(), [](const auto &body) {
      return body.second.size() < kLen;
    }));
  }

  std::map<char, std::string> bodies_;
};

TEST_F(BigAnswers, Ten_FourTravelAtATimeAndAllArrive) {
  AnswerAll(10);
  size_t mostUnfinished = 0;
  while (TakeBlock()) mostUnfinished = std::max(mostUnfinished, NumUnfinished());
  EXPECT_EQ(mostUnfinished, 4u);
  ASSERT_EQ(bodies_.size(), 10u);
  for (const auto &[letter, text] : bodies_) EXPECT_EQ(text, std::string(kLen, letter));
}

TEST_F(BigAnswers, SmallOneBehindThem_DoesNotWaitForThem) {
  AnswerAll(10);
  EXPECT_EQ(Answer(AskOnce(GetWith({})), "small"), 0u);
  while (bodies_.count('s') == 0) ASSERT_TRUE(TakeBlock());
  EXPECT_EQ(bodies_['s'], "small");
  EXPECT_EQ(bodies_.size(), 5u);
  EXPECT_EQ(NumUnfinished(), 5u);
}

TEST_F(BigAnswers, ThatWait_TakeTheLastAnswerOrNone) {
  AnswerAll(6);
  EXPECT_EQ(Answer(app_.handles[4], std::string(kLen, 'E')), 0u);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), app_.handles[5]), 0u);
  while (TakeBlock()) {
  }
  EXPECT_EQ(bodies_.size(), 6u);  // an abort is an empty message
  EXPECT_EQ(bodies_['E'], std::string(kLen, 'E'));
  EXPECT_EQ(bodies_.count('e') + bodies_.count('f'), 0u);
}

TEST_F(BigAnswers, ThatWait_EndWithTheirUri) {
  AnswerAll(10);
  const CoapRpcUriKey key = KeyOf("a/b");
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key), 0u);
  while (TakeBlock()) {
  }
  for (void *handle : app_.handles) EXPECT_EQ(Answer(handle, "late"), 1900001302u);
}

TEST_F(BigAnswers, OfAPeerThatIsGone_MakeRoomInTheEnd) {
  AnswerAll(5);
  home_.SetRemote(Address());
  for (int i = 0; i < 1200; ++i) Tick();
  while (TakeBlock()) {
  }
  EXPECT_EQ(bodies_['e'], std::string(kLen, 'e'));
}

TEST_F(BigAnswers, MoreThan256Waiting_Gives503UntilTheyAreTaken) {
  ServeAsync();
  constexpr int kNum = 1 + 256;  // one is under way
  for (int i = 0; i < kNum; ++i) EXPECT_EQ(Answer(AskOnce(GetWith({})), std::to_string(i)), 0u);
  EXPECT_EQ(Ask(asker_, GetWith({7})).code, Code(5, 3));
  EXPECT_EQ(app_.handles.size(), static_cast<size_t>(kNum));
  std::set<std::string> texts = {NextAtHome().Text()};
  AskOnce(GetWith({}));
  for (int i = 0; i < 2 * kNum && texts.size() < kNum; ++i) texts.insert(NextAtHome().Text());
  EXPECT_EQ(texts.size(), size_t{kNum});
}

}  // namespace
}  // namespace coap_rpc_test
