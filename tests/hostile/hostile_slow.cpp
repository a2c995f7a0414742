// Peers that begin and do not go on: observers that vanish, transfers that stop or crawl.
#include "hostile_server.h"

namespace coap_rpc_test {
namespace {

class HostileSlow : public HostileServer {
 protected:
  CoapMessage Register(const std::string &path, uint8_t token, CoapType type = CoapType::kCon) {
    return Request(type, kCodeGet, ++mid_, {token}).AddPath(path).AddUint(kOptObserve, 0);
  }

  void Wait(uint64_t ms) {
    for (uint64_t passed = 0; passed < ms; passed += 1000) {
      host_.AdvanceMs(1000);
      ServeWaiting();
    }
  }

  CoapRpcSerUriVtbl *EntryOf(const char *path, uint32_t msgType) {
    const CoapRpcUriKey key = KeyOf(path, msgType, 1);
    return COAP_RpcSerFindUriVtbl(Ctx()->ser, &key);
  }

  // MessageFor serves until a peer gets a message.
  CoapMessage MessageFor(Sender &peer) {
    CoapMessage message;
    for (int i = 0; i < 10; ++i) {
      ServeWaiting();
      const Bytes datagram = peer.Receive();
      if (!datagram.empty() && Parse(datagram, &message).empty()) break;
    }
    return message;
  }

  CoapMessage Part(uint32_t num) {
    CoapMessage part = Post(CoapType::kCon, "sync", std::string(64, 'u'));
    return part.AddBlock(kOptBlock1, {num, true, 2}).AddUint(kOptSize1, 64'000);
  }
};

// Observers register and vanish, in waves of 500, with a change to notify in between.
TEST_F(HostileSlow, ObserversThatVanish_TenThousandTimes) {
  constexpr int kWave = 500;
  constexpr int kNumWaves = 20;
  uint64_t heapOfWave = 0;
  for (int wave = 0; wave < kNumWaves; ++wave) {
    for (int i = 0; i < kWave; ++i) {
      const auto port = static_cast<uint16_t>(20'000 + wave * kWave + i);
      Sender observer = SenderAt(OwnIpv4(Role::kOtherPeer), port);
      observer.Send(Register(i % 2 == 0 ? "obs" : "idl", static_cast<uint8_t>(i)));
      ServeWaiting();
    }
    EXPECT_EQ(NumObservers(), uint32_t{kWave});
    Change("v" + std::to_string(100 + wave));
    Wait(100'000);
    EXPECT_EQ(NumObservers(), 0u);
    // Sessions outlive their observers by 300 s: from the fourth wave on they are replaced.
    const uint64_t heap = Usage::Now(host_.Pool()).heapBytes;
    if (wave == 4) heapOfWave = heap;
    if (wave > 4) {
      EXPECT_LE(heap, heapOfWave + 64 * 1024) << wave;
    }
  }
  ExpectAllForgotten();
}

TEST_F(HostileSlow, ObserverThatVanishes_KeepsItsUriForOthers) {
  {
    Sender vanishing = SenderAt(OwnIpv4(Role::kOtherPeer));
    vanishing.Send(Register("obs", 1));
    ServeWaiting();
  }
  RawPeer observer;
  observer.SetRemote(Address());
  observer.Send(Register("obs", 2));
  Drain(observer);
  Change("v002");
  const auto tick = [this] {
    host_.AdvanceMs(1000);
    ServeWaiting();
  };
  const std::optional<CoapMessage> notification = observer.ReceiveMessage(tick, 5);
  ASSERT_TRUE(notification);
  EXPECT_EQ(notification->code, Code(2, 5));
  EXPECT_NE(notification->Text().find("v002"), std::string::npos);
}

// A peer that fetches some blocks of a notification and stops.
TEST_F(HostileSlow, PeersThatStopFetching_GetThePayloadAgainAfter20Seconds) {
  CoapRpcSerUriVtbl *entry = EntryOf("bigidl", COAP_RPC_NON);
  for (int round = 0; round < 10; ++round) {
    Sender peer = SenderAt(OwnIpv4(Role::kOtherPeer));
    peer.Send(Register("bigidl", 1, CoapType::kNon));
    EXPECT_EQ(MessageFor(peer).code, Code(2, 5)) << round;
    EXPECT_EQ(entry->isSendingLargeBlock, 1u) << round;
    for (uint32_t num = 1; num <= 5; ++num) {
      peer.Send(Get(CoapType::kNon, "bigidl").AddBlock(kOptBlock2, {num, false, 6}));
      EXPECT_EQ(MessageFor(peer).payload.size(), 1024u) << num;
    }
    // The payload is given up, and begins again.
    Wait(21'000);
    const std::optional<CoapBlock> again = MessageFor(peer).Block(kOptBlock2);
    EXPECT_TRUE(again && again->num == 0) << round;
    peer.Send(Request(CoapType::kNon, kCodeGet, ++mid_, {1}).AddPath("bigidl").AddUint(6, 1));
    ServeWaiting();
    EXPECT_EQ(entry->isSendingLargeBlock, 0u) << round;
  }
  ExpectAllForgotten();
}

// A hundred peers fetch a block every fifteen seconds, which keeps a payload of 60 KiB for each.
TEST_F(HostileSlow, PeersThatFetchSlowly_HoldABoundedNumberOfPayloads) {
  std::vector<std::unique_ptr<Sender>> peers;
  const uint64_t bytesBefore = host_.Pool().LiveBytes();
  for (uint32_t i = 0; i < 100; ++i) {
    peers.push_back(
        std::make_unique<Sender>(OwnIpv4(Role::kOtherPeer), 0, OwnIpv4(Role::kServer), kCoapPort));
    peers.back()->Send(Register("bigidl", 1, CoapType::kNon));
    EXPECT_EQ(MessageFor(*peers.back()).code, Code(2, 5)) << i;
  }
  for (uint32_t num = 1; num <= 10; ++num) {
    for (const auto &peer : peers) {
      peer->Send(Get(CoapType::kNon, "bigidl").AddBlock(kOptBlock2, {num, false, 6}));
      ServeWaiting();
      peer->Discard();
    }
    Wait(15'000);
    EXPECT_LE(host_.Pool().LiveBytes(), bytesBefore + 66 * 66'000) << num;
    ExpectServing();
  }
  peers.clear();
  Change("v003");  // notifications that nobody acknowledges; each sixth NON is a CON
  for (int i = 0; i < 6; ++i) {
    Change("v" + std::to_string(200 + i));
    Wait(25'000);
  }
  ExpectAllForgotten();
}

// Two hundred peers send a block of an upload every ten seconds.
TEST_F(HostileSlow, UploadsThatCrawl_HoldABoundedNumberOfBodies) {
  std::vector<std::unique_ptr<Sender>> peers;
  for (int i = 0; i < 200; ++i) {
    peers.push_back(
        std::make_unique<Sender>(OwnIpv4(Role::kOtherPeer), 0, OwnIpv4(Role::kServer), kCoapPort));
  }
  for (uint32_t num = 0; num < 20; ++num) {
    for (const auto &peer : peers) {
      peer->Send(Part(num));
      ServeWaiting();
      peer->Discard();
    }
    Wait(10'000);
    const Usage now = Usage::Now(host_.Pool());
    EXPECT_LE(now.heapBytes, base_.heapBytes + 64 * 65'000 + 200 * 2000) << num;
    EXPECT_LE(now.numFds, base_.numFds + 200 + 1) << num;
    ExpectServing();
  }
  peers.clear();
  ExpectAllForgotten();
}

}  // namespace
}  // namespace coap_rpc_test
