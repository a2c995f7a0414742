// What becomes of changes whose payload is under way: delivered, or pending again.
#include <memory>
#include <optional>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "flight_server.h"

namespace coap_rpc_test {
namespace {

class FlightWire : public FlightServer {};

// Of a NON notification nothing is heard once it was sent.
class ConFlight : public FlightWire {};
class NonFlight : public FlightWire {};

TEST_P(FlightWire, Delivered_NothingIsKept) {
  StartRelation();
  Update("k001", "v001");
  NextNotification(peer_);
  host_.AdvanceMs(1000);
  const uint64_t live = host_.Pool().LiveCount();
  Update("k001", "v002");
  Update("k001", "v003");
  EXPECT_EQ(NextChanges(peer_), Texts{"u:k001=v003"});
  host_.AdvanceMs(200);
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_EQ(host_.Pool().LiveCount(), live) << host_.Pool().LeakText();
  ExpectSilence(peer_);
}

// A NON notification is delivered when it was sent, a CON one when it is acknowledged.
TEST_P(FlightWire, NotAcknowledged_ConIsInFlightAndNonIsNot) {
  StartRelation();
  Update("k001", "v001");
  Delete("k002");
  const CoapMessage notification = Unanswered(peer_);
  host_.AdvanceMs(200);
  EXPECT_EQ(NumInFlight(), IsCon() ? 2u : 0u);
  EXPECT_TRUE(Pending().empty());
  if (!IsCon()) return;
  peer_.Send(AckOf(notification));
  host_.AdvanceMs(200);
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_TRUE(Pending().empty());
}

TEST_P(ConFlight, Display_ShowsWhatIsPendingAlone) {
  StartRelation();
  Update("k001", "v001");
  Unanswered(peer_);
  Update("k002", "v002");
  std::string text;
  for (const std::string &page : host_.RunCommand("disp server tupleChgList", std::string("obs"))) {
    text += page;
  }
  EXPECT_EQ(text.find("6b303031"), std::string::npos) << text;  // k001
  EXPECT_NE(text.find("6b303032"), std::string::npos) << text;
}

TEST_P(FlightWire, Reset_ItsChangesWaitForTheNextObserver) {
  StartRelation();
  Update("k001", "v001");
  Delete("k002");
  peer_.Send(RstOf(Unanswered(peer_)));
  Tick();
  Tick();
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(Pending(), IsCon() ? (Texts{"1k001", "2k002"}) : Texts());
  EXPECT_EQ(NumInFlight(), 0u);
  Register(peer_, CoapType::kCon, {2});
  EXPECT_EQ(NextChanges(peer_), IsCon() ? (Texts{"u:k001=v001", "d:k002"}) : Texts{"u:k001=v001"});
}

TEST_P(FlightWire, PeerThatResetsEverything_GetsOnePayloadForEachRegistration) {
  ServeRelation();
  Update("k001", "v001");
  for (uint8_t i = 1; i <= 5; ++i) {
    Register(peer_, CoapType::kCon, {i});
    peer_.Send(RstOf(Unanswered(peer_)));
    PassTime(3000);
    EXPECT_FALSE(peer_.ReceiveNow());
    EXPECT_EQ(app_.numBuilt, i);
    EXPECT_EQ(Pending().size(), IsCon() ? 1u : 0u);
  }
}

TEST_P(ConFlight, NeverAcknowledged_ItsChangesArePendingAgain) {
  StartRelation();
  Update("k001", "v001");
  Delete("k002");
  Unanswered(peer_);
  PassTime(30'000);
  EXPECT_EQ(NumInFlight(), 2u);
  PassTime(70'000);
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(Pending(), (Texts{"1k001", "2k002"}));
}

// A reset that comes before the tick that looks.
TEST_P(NonFlight, ResetAtOnce_ItWasDeliveredAllTheSame) {
  StartRelation();
  std::optional<CoapMessage> notification;
  for (const char *key : {"k001", "k002"}) {
    Update(key, "v001");
    COAP_RpcSerNotifyObservers(Ctx(), entry_);
    notification = peer_.ReceiveMessage([this] { COAP_RpcProcIo(Ctx()); });
    ASSERT_TRUE(notification);
  }
  EXPECT_EQ(NumInFlight(), 1u);
  peer_.Send(RstOf(*notification));
  for (int i = 0; i < RawPeer::kMaxTries && entry_->observerNum != 0; ++i) COAP_RpcProcIo(Ctx());
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_TRUE(Pending().empty());
}

// Its peer may have the payload, and nobody has what is pending again.
TEST_P(ConFlight, CheckCodeOfAFailedPayload_IsNotUpToDate) {
  StartRelation();
  app_.data = {{"k001", "v001"}};
  Update("k001", "v001");
  const CoapMessage notification = Unanswered(peer_);
  const std::string code = kCheckCode + std::to_string(entry_->etag);
  EXPECT_EQ(notification.Values(kOptEtag), (std::vector<Bytes>{EtagBytes(entry_->etag)}));
  Register(peer_, CoapType::kCon, {1}, code);
  EXPECT_EQ(app_.numWalks, 0u);  // it is under way
  peer_.Send(RstOf(notification));
  Tick();
  Register(peer_, CoapType::kCon, {2}, code);
  EXPECT_EQ(app_.numWalks, 1u);
}

TEST_P(ConFlight, LateAcknowledgement_Delivers) {
  StartRelation();
  Update("k001", "v001");
  const CoapMessage notification = Unanswered(peer_);
  PassTime(40'000);
  peer_.Send(AckOf(notification));
  PassTime(2000);
  EXPECT_EQ(entry_->observerNum, 1u);
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_TRUE(Pending().empty());
}

// While one is under way, libcoap asks for no other of the same observer.
TEST_P(FlightWire, NewerValueThatIsPending_IsNotOvertaken) {
  StartRelation();
  for (const char *key : {"k001", "k002", "k003", "k004"}) Update(key, "old0");
  const CoapMessage notification = Unanswered(peer_);
  Update("k005", "new5");
  Update("k002", "new2");
  Delete("k003");
  peer_.Send(RstOf(notification));
  Tick();
  EXPECT_EQ(Pending(), IsCon() ? (Texts{"1k001", "1k004", "1k005", "1k002", "2k003"})
                               : (Texts{"1k005", "1k002", "2k003"}));
}

TEST_P(FlightWire, NewerValueThatOvertookIt_IsNotUndone) {
  StartRelation();
  Update("k001", "old1");
  Update("k002", "old2");
  const CoapMessage older = Unanswered(peer_);
  // Another observer gets the whole set meanwhile, and a deletion.
  RawPeer newer;
  JoinNewer(newer);
  Update("k001", "new1");
  Delete("k002");
  EXPECT_EQ(NextChanges(newer), (Texts{"u:k001=new1", "d:k002"}));
  peer_.Send(RstOf(older));
  Tick();
  EXPECT_TRUE(Pending().empty());
  EXPECT_EQ(NumInFlight(), 0u);
  ExpectSilence(newer);
}

TEST_P(ConFlight, SeveralUnderWay_EachPutsBackItsOwn) {
  StartRelation();
  Update("k001", "v001");
  Update("k002", "v002");
  const CoapMessage first = Unanswered(peer_);
  RawPeer newer;
  JoinNewer(newer);
  Delete("k003");
  const CoapMessage second = Unanswered(newer);
  EXPECT_EQ(ElementsOf(second.payload), (Texts{"u:k001=v001", "u:k002=v002", "d:k003"}));
  EXPECT_EQ(NumInFlight(), 3u);  // each key once
  peer_.Send(AckOf(first));
  host_.AdvanceMs(200);
  EXPECT_EQ(NumInFlight(), 3u);
  newer.Send(RstOf(second));
  Tick();
  EXPECT_EQ(Pending(), (Texts{"1k001", "1k002", "2k003"}));
}

// Of observers that acknowledge nothing, a bounded number of payloads is kept; the changes of the
// others are pending again.
TEST_P(ConFlight, ManyThatAcknowledgeNothing_AreBounded) {
  ServeRelation();
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (uint32_t i = 0; i < 80; ++i) {
    peers.push_back(std::make_unique<RawPeer>());
    peers.back()->SetRemote(Address());
    Register(*peers.back(), CoapType::kCon, {1});
    Delete("k" + std::to_string(100 + i));
    Unanswered(*peers.back());
    EXPECT_LE(NumFlights(), 65u) << i;
    EXPECT_EQ(NumInFlight() + Pending().size(), i + 1);
  }
}

TEST_P(FlightWire, ObserverCancels_ItsChangesArePendingAgain) {
  StartRelation();
  Update("k001", "v001");
  Delete("k002");
  Unanswered(peer_);
  Ask(Observe(CoapType::kCon, {1}, "", 1));
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(Pending(), IsCon() ? (Texts{"1k001", "2k002"}) : Texts());
}

TEST_P(FlightWire, ObserverCancelsAfterItsAcknowledgement_NothingIsPending) {
  StartRelation();
  Update("k001", "v001");
  const CoapMessage notification = Unanswered(peer_);
  if (IsCon()) peer_.Send(AckOf(notification));
  Ask(Observe(CoapType::kCon, {1}, "", 1));
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_TRUE(Pending().empty());
}

TEST_P(FlightWire, Detached_ItsChangesWaitForTheNextObserver) {
  StartRelation();
  Update("k001", "v001");
  Delete("k002");
  Unanswered(peer_);
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  Tick();
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(NumInFlight(), 0u);
  EXPECT_EQ(Pending(), IsCon() ? (Texts{"1k001", "2k002"}) : Texts());
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
}

TEST_P(FlightWire, StoppedWhileInFlight_LeaksNothing) {
  StartRelation();
  Update("k001", "v001");
  Unanswered(peer_);
  Update("k002", "v002");
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
}

// A record that describes other tuples makes those in flight unreadable.
TEST_P(FlightWire, ObserveRecordReplaced_FreesWhatWasInFlight) {
  StartRelation();
  Update("k001", "v001");
  const CoapMessage notification = Unanswered(peer_);
  CoapRpcSerObVtblReg ob = ObRegOf(IsJson());
  ob.keyLen = 8;
  EXPECT_EQ(COAP_RpcSerAddUriObVtbl(Ctx(), entry_, &ob), 0u);
  EXPECT_EQ(NumInFlight(), 0u);
  peer_.Send(RstOf(notification));
  Tick();
  EXPECT_TRUE(Pending().empty());
}

// The application detaches its URI when the last observer leaves, which libcoap is just telling.
TEST_P(FlightWire, DetachedByTheCallbackOfAReset_NothingIsLost) {
  StartRelation();
  app_.onNum = [this](uint32_t num) {
    if (num == 0) COAP_RpcSerUnsetUri(Ctx(), &key_);
  };
  Update("k001", "v001");
  peer_.Send(RstOf(Unanswered(peer_)));
  Tick();
  app_.onNum = nullptr;
  EXPECT_EQ(Pending().size(), IsCon() ? 1u : 0u);
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
}

INSTANTIATE_TEST_SUITE_P(Relations, FlightWire, AllRelations(), RelationName);
INSTANTIATE_TEST_SUITE_P(Relations, ConFlight, Relations(COAP_RPC_CON), RelationName);
INSTANTIATE_TEST_SUITE_P(Relations, NonFlight, Relations(COAP_RPC_NON), RelationName);

}  // namespace
}  // namespace coap_rpc_test
