// Peers that take turns at one URI: their sessions are kept for their next requests.
#include <map>
#include <memory>
#include <set>

#include "async_server.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "usage.h"

namespace coap_rpc_test {
namespace {

// Peer asks from one port, and takes answers at port 5683, of one address.
struct Peer {
  RawPeer asker;
  RawPeer home;

  explicit Peer(int i) : asker({HostOf(i), 0}), home({HostOf(i), kCoapPort}) {}

  // The last digits of the number differ between processes that run at the same time.
  static std::string HostOf(int i) {
    const uint32_t block = static_cast<uint32_t>(getpid()) % 64;
    return "127." + std::to_string(100 + block) + "." + std::to_string(i / 200) + "." +
           std::to_string(i % 200 + 1);
  }
};

class AnswerSessions : public Async {
 protected:
  AnswerSessions() {
    ServeAsync();
    app_.onAsync = [this](void *handle) {
      if (!isAnswering_) return;
      EXPECT_EQ(Answer(handle, "{}"), 0u);
    };
  }

  Peer &PeerAt(int i) {
    std::unique_ptr<Peer> &peer = peers_[i];
    if (!peer) {
      peer = std::make_unique<Peer>(i);
      peer->asker.SetRemote(Address());
    }
    return *peer;
  }

  // AskFrom lets a peer ask.  Returns the code of a refusal, or 0.
  uint8_t AskFrom(int i, const std::string &path = "a/b") {
    RawPeer &asker = PeerAt(i).asker;
    asker.Send(Get(CoapType::kCon, path, "q"));
    const std::optional<CoapMessage> answer = asker.ReceiveMessage(Io());
    EXPECT_TRUE(answer);
    return answer ? answer->code : Code(0, 0);
  }

  // PortOfAnswer takes a peer's next answer.  Returns the port that it came from.
  uint16_t PortOfAnswer(int i, bool isAcknowledged = true) {
    RawPeer &home = PeerAt(i).home;
    const std::optional<CoapMessage> post = home.ReceiveMessage(Io());
    EXPECT_TRUE(post) << i;
    if (!post) return 0;
    const UdpAddress from = home.Datagrams().back().other;
    home.SetRemote(from);
    if (isAcknowledged) home.Send(AckOf(*post));
    COAP_RpcProcIo(Ctx());
    return from.port;
  }

  uint16_t Call(int i, const std::string &path = "a/b") {
    EXPECT_EQ(AskFrom(i, path), Code(0, 0));
    return PortOfAnswer(i);
  }

  std::function<void()> Io() {
    return [this] { COAP_RpcProcIo(Ctx()); };
  }

  uint32_t NumSessions() const { return Ctx()->lib->numAnswerSessions; }
  uint32_t NumSpare() const { return Ctx()->lib->numSpareSessions; }

  bool isAnswering_ = true;
  std::map<int, std::unique_ptr<Peer>> peers_;
};

TEST_F(AnswerSessions, SixteenPeersInTurns_OpenSixteenSockets) {
  std::map<int, std::set<uint16_t>> ports;
  for (int i = 0; i < 16; ++i) ports[i].insert(Call(i));
  const uint32_t numFds = NumFds();
  for (int i = 0; i < 16 * 20; ++i) ports[i % 16].insert(Call(i % 16));
  EXPECT_EQ(NumFds(), numFds);
  EXPECT_EQ(NumSessions(), 16u);
  for (const auto &[i, portsOfPeer] : ports) EXPECT_EQ(portsOfPeer.size(), 1u) << i;
}

TEST_F(AnswerSessions, OpenRequestsOfPeersInTurns_ShareTheirPeersSession) {
  isAnswering_ = false;
  for (int i = 0; i < 400; ++i) EXPECT_EQ(AskFrom(i % 4), Code(0, 0));
  EXPECT_EQ(NumSessions(), 4u);
  EXPECT_EQ(NumSpare(), 0u);
  for (void *handle : app_.handles) EXPECT_EQ(Answer(handle, "{}"), 0u);
  for (int i = 0; i < 400; ++i) PortOfAnswer(i % 4);
  EXPECT_EQ(NumSpare(), 3u);
}

TEST_F(AnswerSessions, TheEntryShowsTheLastAskers) {
  Call(0);
  const coap_session_t *first = entry_->asyncSession;
  Call(1);
  EXPECT_NE(entry_->asyncSession, first);
  Call(0);
  EXPECT_EQ(entry_->asyncSession, first);
}

TEST_F(AnswerSessions, SpareOnes_AreReleasedAfterAMinute) {
  const uint32_t numFds = NumFds();
  for (int i = 0; i < 5; ++i) Call(i);
  EXPECT_EQ(NumSpare(), 4u);
  host_.AdvanceMs(59'000);
  EXPECT_EQ(NumSpare(), 4u);
  host_.AdvanceMs(2'000);
  EXPECT_EQ(NumSpare(), 0u);
  EXPECT_EQ(NumSessions(), 1u);
  EXPECT_EQ(NumFds(), numFds + 1 + 5 * 2);  // the peers' own
  Call(0);
}

TEST_F(AnswerSessions, SpareOnes_TheOldestOfTooManyIsReleased) {
  std::map<int, uint16_t> ports;
  for (int i = 0; i < 1 + 128; ++i) ports[i] = Call(i);
  EXPECT_EQ(NumSpare(), 128u);
  for (int i = 129; i < 139; ++i) Call(i);
  EXPECT_EQ(NumSpare(), 128u);
  EXPECT_EQ(NumSessions(), 129u);
  EXPECT_EQ(Call(10), ports[10]);
  const uint32_t numBefore = NumSessions();
  EXPECT_NE(Call(5), ports[5]);  // the fifth oldest went
  EXPECT_EQ(NumSessions(), numBefore);
}

TEST_F(AnswerSessions, SpareOnes_MakeRoomForPeersWithOpenRequests) {
  for (int i = 0; i < 129; ++i) Call(i);
  isAnswering_ = false;
  for (int i = 0; i < 500; ++i) {
    RawPeer asker({Peer::HostOf(1000 + i), 0});
    asker.SetRemote(Address());
    asker.Send(GetWith({1}));
    const std::optional<CoapMessage> answer = asker.ReceiveMessage(Io());
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, Code(0, 0)) << i;
    EXPECT_LE(NumSessions(), 500u);
  }
  EXPECT_EQ(NumSpare(), 0u);
  EXPECT_EQ(AskFrom(0), Code(5, 3));
}

TEST_F(AnswerSessions, Entries_ShareNone) {
  Serve(KeyOf("second"), RegOf(&app_, kAsync));
  const uint16_t first = Call(0);
  const uint16_t second = Call(0, "second");
  EXPECT_NE(first, second);
  Call(1);
  Call(1, "second");
  EXPECT_EQ(Call(0), first);
  EXPECT_EQ(Call(0, "second"), second);
}

TEST_F(AnswerSessions, DeletedEntry_TakesItsSessionsAlong) {
  const uint32_t numFds = NumFds();
  for (int i = 0; i < 5; ++i) Call(i);
  isAnswering_ = false;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(AskFrom(i), Code(0, 0));
  COAP_RpcSerDelUriVtbl(Ctx()->ser, entry_);
  EXPECT_EQ(NumSessions(), 0u);
  EXPECT_EQ(NumSpare(), 0u);
  EXPECT_EQ(NumFds(), numFds + 5 * 2);
}

TEST_F(AnswerSessions, EntryDeletedInsideItsCallback_SessionsLastUntilTheTurnEnds) {
  for (int i = 0; i < 5; ++i) Call(i);
  app_.onAsync = [this](void *) { COAP_RpcSerDelUriVtbl(Ctx()->ser, entry_); };
  for (int i = 0; i < 5; ++i) PeerAt(i).home.Send(Bytes{0});  // all their sockets are ready
  PeerAt(3).asker.Send(GetWith({1}));
  Tick();
  EXPECT_EQ(NumSessions(), 0u);
}

TEST_F(AnswerSessions, OfAPeerThatIsGone_AreNotKept) {
  EXPECT_EQ(AskFrom(0), Code(0, 0));
  const uint16_t port = PortOfAnswer(0, false);
  Call(1);
  host_.AdvanceMs(98'000);
  EXPECT_EQ(NumSessions(), 1u);
  while (PeerAt(0).home.ReceiveNow()) {
  }
  EXPECT_NE(Call(0), port);
}

// A peer is gone when its system says so, too.
TEST_F(AnswerSessions, OfAPeerWithoutAPort_AreNotKept) {
  peers_[0] = std::make_unique<Peer>(0);
  PeerAt(0).asker.SetRemote(Address());
  RawPeer asker({Peer::HostOf(77), 0});
  asker.SetRemote(Address());
  asker.Send(GetWith({1}));
  ASSERT_TRUE(asker.ReceiveMessage(Io()));
  EXPECT_EQ(NumSessions(), 1u);
  Call(1);
  host_.AdvanceMs(98'000);
  EXPECT_EQ(NumSessions(), 1u);
}

// Clients is a client's table whose onDisconnect counts.
struct Clients {
  int numGone = 0;

  static void OnDisconnect(uint64_t userData, const CoapRpcIpAddr *) {
    ++reinterpret_cast<Clients *>(userData)->numGone;
  }
};

TEST_F(AnswerSessions, KeepAlive_ReportsNone) {
  Clients clients;
  CoapRpcCliVtblReg reg = {};
  reg.userData = reinterpret_cast<uint64_t>(&clients);
  reg.onDisconnect = Clients::OnDisconnect;
  const CoapRpcUriKey key = KeyOf("c");
  ASSERT_EQ(COAP_RpcCliRegVtbl(Ctx(), &key, &reg), 0u);
  for (int i = 0; i < 3; ++i) {
    Call(i);
    // A request to the session's own port makes it look like a client's.
    PeerAt(i).home.Send(Post(CoapType::kNon, "a/b", "x"));
  }
  ASSERT_EQ(COAP_RpcSetKeepAlive(Ctx(), 3), 0u);
  EXPECT_EQ(NumSpare(), 2u);
  host_.AdvanceMs(50'000);
  EXPECT_EQ(NumSpare(), 0u);
  host_.AdvanceMs(150'000);
  EXPECT_EQ(NumSessions(), 1u);
  EXPECT_EQ(clients.numGone, 0);
}

}  // namespace
}  // namespace coap_rpc_test
