// What becomes of changes whose payload travels in blocks: delivered, or pending again.
#include <memory>
#include <optional>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "flight_server.h"

namespace coap_rpc_test {
namespace {

// Payloads in blocks.
class FlightInBlocks : public FlightServer {
 protected:
  void StartLarge() {
    StartRelation();
    app_.padding = 1500;
    Update("k001", "v001");
    Update("k002", "v002");
    Delete("k003");
  }

  static Texts Padded(Texts texts) {
    for (std::string &text : texts) {
      if (text[0] == 'u') text += std::string(1500, 'p');
    }
    return texts;
  }

  CoapMessage BlockRequest(uint32_t num) {
    return Request(CoapType::kCon, kCodeGet, ++mid_, {0xB0})
        .AddPath("obs")
        .AddBlock(kOptBlock2, {num, false, 6});
  }

  // NextLarge fetches the next payload in blocks.
  Texts NextLarge(RawPeer &peer) {
    CoapMessage first = NextNotification(peer);
    while (first.code == Code(2, 1)) first = NextNotification(peer);
    const Bytes body = ReadBlocks(first, "obs", "", mid_,
                                  [&](const CoapMessage &next) { return Ask(peer, next); });
    mid_ = static_cast<uint16_t>(mid_ + 100);
    return ElementsOf(body);
  }

  // LastRequest fetches the next payload in blocks and gives the request for its last one.
  CoapMessage LastRequest() {
    CoapMessage last;
    const CoapMessage first = NextNotification(peer_);
    ReadBlocks(first, "obs", "", mid_, [&](const CoapMessage &next) {
      last = next;
      return Ask(next);
    });
    mid_ = static_cast<uint16_t>(mid_ + 100);
    return last;
  }

  // StartNewer lets a newer payload begin when all blocks of the older one were sent.
  void StartNewer(size_t padding) {
    host_.AdvanceMs(1000);
    app_.padding = padding;
    Update("k002", "new2");
    NextNotification(peer_);
  }

  const Texts all_ = Padded({"u:k001=v001", "u:k002=v002", "d:k003"});
};

class ConFlightInBlocks : public FlightInBlocks {};

TEST_P(FlightInBlocks, Fetched_NothingIsPending) {
  StartLarge();
  EXPECT_EQ(NextLarge(peer_), all_);
  host_.AdvanceMs(9000);
  EXPECT_EQ(NumInFlight(), 3u);  // the last block may be asked for again
  host_.AdvanceMs(2000);
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_TRUE(Pending().empty());
  ExpectSilence(peer_);
}

TEST_P(FlightInBlocks, LastBlockAskedForAgain_IsDelivered) {
  StartLarge();
  const CoapMessage last = LastRequest();
  host_.AdvanceMs(2000);
  EXPECT_EQ(Ask(last).code, Code(2, 5));
  EXPECT_TRUE(Pending().empty());
  host_.AdvanceMs(9000);
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_TRUE(Pending().empty());
}

// The peer may have dropped what it had of the older payload when it saw the newer one.
TEST_P(ConFlightInBlocks, LastBlockAskedForAgainAfterANewerPayloadInBlocks_ComesAgain) {
  StartLarge();
  const CoapMessage last = LastRequest();
  StartNewer(1500);
  const CoapMessage again = Ask(last);
  EXPECT_EQ(again.code, Code(2, 5));
  EXPECT_EQ(again.Values(kOptBlock2), Ask(last).Values(kOptBlock2));
  EXPECT_EQ(Pending(), (Texts{"1k001", "2k003"}));
  EXPECT_EQ(NumInFlight(), 1u);
  EXPECT_EQ(Ask(BlockRequest(1)).code, Code(2, 5));  // the newer one goes on
  host_.AdvanceMs(1000);
  EXPECT_EQ(NextLarge(peer_), Padded({"u:k001=v001", "d:k003"}));
}

TEST_P(ConFlightInBlocks, LastBlockAskedForAgainAfterANewerPayload_ComesAgain) {
  StartLarge();
  const CoapMessage last = LastRequest();
  StartNewer(0);
  EXPECT_EQ(Ask(last).code, Code(2, 5));
  EXPECT_EQ(Pending(), (Texts{"1k001", "2k003"}));
  EXPECT_EQ(NextChanges(peer_), (Texts{"u:k001=v001", "d:k003"}));
}

TEST_P(FlightInBlocks, RequestPastTheEnd_ChangesNothing) {
  StartLarge();
  NextNotification(peer_);
  EXPECT_EQ(Ask(BlockRequest(1)).code, Code(2, 5));
  EXPECT_EQ(Ask(BlockRequest(40)).code, Code(4, 0));
  host_.AdvanceMs(2000);
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  EXPECT_EQ(Ask(BlockRequest(2)).code, Code(2, 5));
}

TEST_P(FlightInBlocks, RenewedInTheMiddle_ComesAgain) {
  StartLarge();
  NextNotification(peer_);
  Ask(BlockRequest(1));
  Update("k002", "new2");
  const CoapMessage answer = Register(peer_, CoapType::kCon, {1});
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(NextLarge(peer_), Padded({"u:k001=v001", "d:k003", "u:k002=new2"}));
  host_.AdvanceMs(1000);
  EXPECT_TRUE(Pending().empty());
}

TEST_P(FlightInBlocks, RenewedInTheMiddleByNon_ComesAgainAtOnce) {
  StartLarge();
  NextNotification(peer_);
  Ask(BlockRequest(1));
  const CoapMessage first = Register(peer_, CoapType::kNon, {1});
  EXPECT_EQ(first.code, Code(2, 5));
  const Bytes body =
      ReadBlocks(first, "obs", "", mid_, [&](const CoapMessage &next) { return Ask(next); });
  EXPECT_EQ(ElementsOf(body), all_);
}

TEST_P(FlightInBlocks, RenewedForEver_HoldsNoMoreAndComesInTheEnd) {
  StartLarge();
  NextNotification(peer_);
  Ask(BlockRequest(1));
  Register(peer_, CoapType::kCon, {1});
  const uint64_t live = host_.Pool().LiveCount();
  for (int i = 0; i < 20; ++i) {
    NextNotification(peer_);
    Ask(BlockRequest(1));
    Register(peer_, CoapType::kCon, {1});
    EXPECT_EQ(NumInFlight() + Pending().size(), 3u);
    EXPECT_LE(host_.Pool().LiveCount(), live) << host_.Pool().LeakText();
  }
  EXPECT_EQ(NextLarge(peer_), all_);
}

// The payload was not begun: the renewal leaves it alone, and further requests get 2.01.
TEST_P(FlightInBlocks, RenewedBeforeItIsFetched_GoesOn) {
  StartLarge();
  const CoapMessage first = NextNotification(peer_);
  Update("k004", "v004");
  EXPECT_EQ(Register(peer_, CoapType::kNon, {1}).code, Code(2, 1));
  EXPECT_EQ(Pending(), Texts{"1k004"});
  const Bytes body =
      ReadBlocks(first, "obs", "", mid_, [&](const CoapMessage &next) { return Ask(next); });
  EXPECT_EQ(ElementsOf(body), all_);
}

TEST_P(FlightInBlocks, GivenUp_ComesAgain) {
  StartLarge();
  NextNotification(peer_);
  Ask(BlockRequest(1));
  host_.AdvanceMs(18'000);
  EXPECT_EQ(NumInFlight(), 3u);
  EXPECT_FALSE(peer_.ReceiveNow());
  EXPECT_EQ(NextLarge(peer_), all_);
}

// The time without a request for a block counts from the acknowledgement of the first one.
TEST_P(ConFlightInBlocks, FirstBlockIsRepeated_ThePayloadIsKept) {
  StartLarge();
  const CoapMessage first = Unanswered(peer_);
  PassTime(30'000);
  EXPECT_EQ(entry_->isSendingLargeBlock, 1u);
  EXPECT_EQ(app_.numBuilt, 3u);
  DropWhatCame();
  peer_.Send(AckOf(first));
  host_.AdvanceMs(15'000);
  const Bytes body =
      ReadBlocks(first, "obs", "", mid_, [&](const CoapMessage &next) { return Ask(next); });
  EXPECT_EQ(ElementsOf(body), all_);
  EXPECT_EQ(app_.numBuilt, 3u);
}

TEST_P(FlightInBlocks, AcknowledgedAndNotFetched_IsGivenUpAsBefore) {
  StartLarge();
  NextNotification(peer_);
  host_.AdvanceMs(18'000);
  EXPECT_EQ(app_.numBuilt, 3u);
  EXPECT_FALSE(peer_.ReceiveNow());
  host_.AdvanceMs(2500);
  EXPECT_EQ(app_.numBuilt, 6u);
}

// A peer for which the payload is too large acknowledges it and does not fetch it.
TEST_P(FlightInBlocks, GivenUpForEver_GivesWayInTheEnd) {
  StartLarge();
  uint64_t code = 0;
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(NextNotification(peer_).code, Code(2, 5)) << i;
    EXPECT_EQ(NumInFlight(), 3u);
    code = entry_->etag;
    host_.AdvanceMs(19'500);
  }
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_TRUE(Pending().empty());
  EXPECT_NE(entry_->etag, code);
  app_.padding = 0;
  Update("k004", "v004");
  EXPECT_EQ(NextChanges(peer_), Texts{"u:k004=v004"});
}

TEST_P(FlightInBlocks, GivenUpNowAndThen_ComesInTheEnd) {
  StartLarge();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 8; ++j) {
      NextNotification(peer_);
      host_.AdvanceMs(19'500);
    }
    EXPECT_EQ(NextLarge(peer_), all_);
    host_.AdvanceMs(11'000);
    Update("k001", "v001");
    Update("k002", "v002");
    Delete("k003");
  }
}

TEST_P(ConFlightInBlocks, FirstBlockNeverAcknowledged_ItsChangesArePendingAgain) {
  StartLarge();
  Unanswered(peer_);
  PassTime(110'000);
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  EXPECT_EQ(Pending(), (Texts{"1k001", "1k002", "2k003"}));
}

// A peer that fetches has the first block, whatever became of its acknowledgement.
TEST_P(FlightInBlocks, FetchedButNeverAcknowledged_IsDelivered) {
  StartLarge();
  const CoapMessage first = Unanswered(peer_);
  const Bytes body =
      ReadBlocks(first, "obs", "", mid_, [&](const CoapMessage &next) { return Ask(next); });
  EXPECT_EQ(ElementsOf(body), all_);
  PassTime(110'000);
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_TRUE(Pending().empty());
}

TEST_P(ConFlightInBlocks, StillFetchedWhenTheFirstBlockIsGivenUp_IsDelivered) {
  StartLarge();
  Unanswered(peer_);
  for (int i = 0; i < 10 && entry_->observerNum != 0; ++i) {
    PassTime(10'000);
    DropWhatCame();
    Ask(BlockRequest(1));
  }
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(NumInFlight(), 3u);
  EXPECT_FALSE(Ask(BlockRequest(IsJson() ? 3 : 2)).Block(kOptBlock2)->more);
  PassTime(11'000);
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_TRUE(Pending().empty());
}

TEST_P(ConFlightInBlocks, Reset_TheUriIsFreeAtOnce) {
  StartLarge();
  peer_.Send(RstOf(Unanswered(peer_)));
  Tick();
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  EXPECT_EQ(Pending(), (Texts{"1k001", "1k002", "2k003"}));
  Register(peer_, CoapType::kCon, {2});
  EXPECT_EQ(NextLarge(peer_), Padded({"u:k001=v001", "u:k002=v002", "d:k003"}));
}

TEST_P(FlightInBlocks, ObserverLeavesBeforeItFetches_ItsChangesArePendingAgain) {
  StartLarge();
  NextNotification(peer_);
  Ask(Observe(CoapType::kCon, {1}, "", 1));
  EXPECT_EQ(Pending(), (Texts{"1k001", "1k002", "2k003"}));
}

TEST_P(FlightInBlocks, SessionGone_ItsChangesArePendingAgain) {
  StartLarge();
  NextNotification(peer_);
  Ask(BlockRequest(1));
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  Tick();
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_EQ(Pending(), (Texts{"1k001", "1k002", "2k003"}));
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
}

TEST_P(FlightInBlocks, NewerPayloadToAnotherObserver_TheOlderOneUndoesNothing) {
  StartLarge();
  NextNotification(peer_);
  Ask(BlockRequest(1));
  RawPeer newer;
  JoinNewer(newer);
  Update("k001", "new1");
  Delete("k002");
  EXPECT_EQ(NextLarge(newer), Padded({"u:k001=new1", "d:k002"}));
  host_.AdvanceMs(11'000);
  EXPECT_EQ(NumInFlight(), 1u);  // k003 of the older one
  host_.AdvanceMs(8000);         // which is given up
  EXPECT_EQ(NextChanges(newer), Texts{"d:k003"});
  EXPECT_TRUE(Pending().empty());
}

INSTANTIATE_TEST_SUITE_P(Relations, FlightInBlocks, AllRelations(), RelationName);
INSTANTIATE_TEST_SUITE_P(Relations, ConFlightInBlocks, Relations(COAP_RPC_CON), RelationName);

}  // namespace
}  // namespace coap_rpc_test
