// Queued asynchronous answers: after others that are sent in blocks, and to a peer that
// acknowledges none.
#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include "async_server.h"

namespace coap_rpc_test {
namespace {

// BigAnswers are queued answers of several blocks each, a letter repeated.
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

TEST_F(BigAnswers, ThatReplaceSmallOnes_TravelFourAtATimeAsWell) {
  ServeAsync();
  for (size_t i = 0; i < 10; ++i) AskOnce(GetWith({}));
  for (void *handle : app_.handles) EXPECT_EQ(Answer(handle, "small"), 0u);
  for (size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(Answer(app_.handles[i], std::string(kLen, Letter(i))), 0u);
  }
  size_t mostUnfinished = 0;
  while (TakeBlock()) mostUnfinished = std::max(mostUnfinished, NumUnfinished());
  EXPECT_EQ(mostUnfinished, 4u);
  ASSERT_EQ(bodies_.size(), 10u);
  for (const auto &[letter, text] : bodies_) EXPECT_EQ(text, std::string(kLen, letter));
}

TEST_F(BigAnswers, SmallOneAfterThem_DoesNotWaitForThem) {
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

TEST_F(BigAnswers, ThatAreReplacedBySmallOnes_MakeRoom) {
  AnswerAll(5);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(Answer(app_.handles[i], "small"), 0u);
  while (bodies_['e'].size() < kLen) ASSERT_TRUE(TakeBlock());
  EXPECT_EQ(bodies_['s'], "smallsmallsmallsmall");
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
  EXPECT_EQ(Answer(AskOnce(GetWith({})), std::string(kLen, 'E')), 0u);
  while (TakeBlock()) {
  }
  EXPECT_EQ(bodies_['E'], std::string(kLen, 'E'));
  EXPECT_EQ(bodies_.count('e'), 0u);  // it waited, and was given up with the others
}

// WaitingAnswers are more and more of them, while no time passes.
class WaitingAnswers : public Async {
 protected:
  WaitingAnswers() {
    ServeAsync();
    app_.onAsync = [this](void *handle) {
      EXPECT_EQ(Answer(handle, std::to_string(app_.handles.size()) + suffix_), 0u);
    };
  }

  uint8_t AskNow(RawPeer &peer) {
    peer.Send(GetWith({}));
    const std::optional<CoapMessage> answer =
        peer.ReceiveMessage([this] { COAP_RpcProcIo(Ctx()); });
    EXPECT_TRUE(answer);
    return answer ? answer->code : Code(0, 0);
  }

  // AskUntilRefused returns how many requests were taken.
  int AskUntilRefused() {
    int num = 0;
    for (; num < 3000; ++num) {
      const uint8_t code = AskNow(asker_);
      if (code == Code(0, 0)) continue;
      EXPECT_EQ(code, Code(5, 3));
      break;
    }
    return num;
  }

  // Others makes `num` other peers, for each of which an answer is under way.
  void Others(int num) {
    for (int i = 0; i < num; ++i) {
      others_.push_back(
          std::make_unique<RawPeer>(UdpAddress{"127.251.1." + std::to_string(i + 1), 0}));
      others_.back()->SetRemote(Address());
      EXPECT_EQ(AskNow(*others_.back()), Code(0, 0));
    }
  }

  std::string suffix_;
  std::vector<std::unique_ptr<RawPeer>> others_;
};

TEST_F(WaitingAnswers, MoreThan2048_Gives503UntilTheyAreTaken) {
  constexpr size_t kNum = 1 + 2048;  // one is under way
  EXPECT_EQ(AskUntilRefused(), static_cast<int>(kNum));
  EXPECT_EQ(app_.handles.size(), kNum);
  std::set<std::string> texts = {NextAtHome().Text()};
  EXPECT_EQ(AskNow(asker_), Code(0, 0));
  for (size_t i = 0; i < 2 * kNum && texts.size() < kNum + 1; ++i) {
    texts.insert(NextAtHome().Text());
  }
  EXPECT_EQ(texts.size(), kNum + 1);
}

TEST_F(WaitingAnswers, InBlocks_CountAsEight) {
  suffix_ = std::string(3000, 'x');
  EXPECT_EQ(AskUntilRefused(), 4 + 256);  // four are under way
}

TEST_F(WaitingAnswers, OfManyPeers_ShareWhatMayWait) {
  Others(63);
  EXPECT_EQ(AskUntilRefused(), 1 + 16384 / 64);
}

TEST_F(WaitingAnswers, ForAPeerThatTakesNone_EndWithTheFirst) {
  for (int i = 0; i < 10; ++i) EXPECT_EQ(AskNow(asker_), Code(0, 0));
  suffix_ = std::string(3000, 'x');
  for (int i = 0; i < 6; ++i) EXPECT_EQ(AskNow(asker_), Code(0, 0));
  EXPECT_EQ(Answer(app_.handles.back(), "held"), 0u);
  host_.AdvanceMs(98'000);
  EXPECT_EQ(Answer(app_.handles.back(), "late"), 1900001302u);
  // The second one went out when the first was given up, then a transfer that had begun.
  std::set<std::string> texts;
  host_.AdvanceMs(6 * 98'000);
  while (const std::optional<CoapMessage> message = home_.ReceiveNow()) {
    texts.insert(message->Text().substr(0, 2));
  }
  EXPECT_EQ(texts, (std::set<std::string>{"1", "2", "11"}));
  EXPECT_EQ(AskNow(asker_), Code(0, 0));
}

}  // namespace
}  // namespace coap_rpc_test
