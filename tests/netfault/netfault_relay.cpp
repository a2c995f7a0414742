// The relay and the networks do what they are told: packets are counted, on paper and in the
// kernel.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "netfault_link.h"
#include "netfault_net.h"
#include "netfault_socket.h"

namespace netfault {
namespace {

constexpr uint64_t kLater = 1'000'000;
constexpr uint32_t kNum = 1000;

// AnyPacket is an IPv4 packet with a UDP datagram of `payloadLen` bytes.
Bytes AnyPacket(size_t payloadLen = 100) {
  Bytes packet(28 + payloadLen);
  packet[0] = 0x45;
  packet[9] = 17;
  return packet;
}

class NetfaultLink : public testing::Test {
 protected:
  void Take(uint32_t num) {
    for (uint32_t i = 0; i < num; ++i) link_.Take(kMirror, AnyPacket(), 0);
  }
  // Delivered counts the packets that come up to a time.
  uint32_t Delivered(uint64_t nowMs = kLater) {
    uint32_t num = 0;
    while (link_.Next(nowMs)) ++num;
    return num;
  }

  Link link_{1};
  Quality &quality_ = link_.To(kMirror);
};

TEST_F(NetfaultLink, GoodLink_DeliversAllInOrder_AfterItsDelay) {
  quality_.delayMs = 20;
  for (uint8_t i = 0; i < 100; ++i) link_.Take(kMirror, AnyPacket(i), 5);
  EXPECT_EQ(link_.NextDueMs(), 25u);
  EXPECT_FALSE(link_.Next(24));
  for (uint8_t i = 0; i < 100; ++i) {
    const auto packet = link_.Next(25);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->first, kMirror);
    EXPECT_EQ(packet->second, AnyPacket(i));
  }
  EXPECT_EQ(link_.NextDueMs(), UINT64_MAX);
}

TEST_F(NetfaultLink, Loss_LosesThatShare_InItsDirectionOnly) {
  quality_.loss.percent = 30;
  Take(kNum);
  for (uint32_t i = 0; i < kNum; ++i) link_.Take(kPublisher, AnyPacket(), 0);
  EXPECT_NEAR(static_cast<double>(link_.Counts(kMirror).lost), 300, 60);
  EXPECT_EQ(link_.Counts(kPublisher).lost, 0u);
  EXPECT_EQ(Delivered(), 2 * kNum - link_.Counts(kMirror).lost);
}

TEST_F(NetfaultLink, LoseNext_LosesExactlyThese) {
  quality_.loseNext = 3;
  Take(10);
  EXPECT_EQ(Delivered(), 7u);
}

TEST_F(NetfaultLink, Down_LosesAll) {
  quality_.isUp = false;
  Take(10);
  quality_.isUp = true;
  Take(1);
  EXPECT_EQ(Delivered(), 1u);
}

TEST_F(NetfaultLink, MaxSize_LosesLargerOnes) {
  quality_.maxSize = static_cast<uint32_t>(AnyPacket(100).size());
  link_.Take(kMirror, AnyPacket(101), 0);
  link_.Take(kMirror, AnyPacket(100), 0);
  EXPECT_EQ(Delivered(), 1u);
}

TEST_F(NetfaultLink, Copy_ComesAgainLater_WithTheSameBytes) {
  quality_.copy = {100, 4000};
  link_.Take(kMirror, AnyPacket(), 0);
  const auto first = link_.Next(5);
  ASSERT_TRUE(first);
  EXPECT_FALSE(link_.Next(4004));
  const auto second = link_.Next(4005);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->second, first->second);
}

TEST_F(NetfaultLink, Copy_OfAShare) {
  quality_.copy = {20, 0};
  Take(kNum);
  EXPECT_NEAR(static_cast<double>(link_.Counts(kMirror).copied), 200, 50);
  EXPECT_EQ(Delivered(), kNum + link_.Counts(kMirror).copied);
}

TEST_F(NetfaultLink, Renumbered_DiffersInTheMessageIdAndChecksum) {
  quality_.renumbered = {100, 0};
  link_.Take(kMirror, AnyPacket(), 0);
  const Bytes other = link_.Next(kLater)->second;
  const Bytes first = link_.Next(kLater)->second;
  for (size_t i = 0; i < first.size(); ++i) {
    const bool isNumber = i == 30 || i == 31, isChecksum = i == 26 || i == 27;
    EXPECT_TRUE(isNumber || isChecksum || first[i] == other[i]) << i;
  }
  EXPECT_NE(Bytes(first.begin() + 30, first.begin() + 32),
            Bytes(other.begin() + 30, other.begin() + 32));
}

TEST_F(NetfaultLink, Late_IsOvertaken) {
  quality_.late = {100, 200};
  link_.Take(kMirror, AnyPacket(1), 0);
  quality_.late = {};
  link_.Take(kMirror, AnyPacket(2), 10);
  EXPECT_EQ(link_.Next(kLater)->second, AnyPacket(2));
  EXPECT_EQ(link_.Next(kLater)->second, AnyPacket(1));
  EXPECT_EQ(link_.Counts(kMirror).delayed, 1u);
}

TEST_F(NetfaultLink, Jitter_SpreadsPackets) {
  quality_.delayMs = 10;
  quality_.jitterMs = 100;
  Take(kNum);
  EXPECT_EQ(Delivered(9), 0u);
  EXPECT_NEAR(Delivered(59), 500, 80);
  Delivered(110);
  EXPECT_EQ(link_.Counts(kMirror).delivered, kNum);
}

TEST_F(NetfaultLink, SameSeed_SameFate) {
  Link other(1), third(2);
  for (Link *link : {&link_, &other, &third}) {
    link->To(kMirror).loss.percent = 50;
    for (uint32_t i = 0; i < kNum; ++i) link->Take(kMirror, AnyPacket(i), i);
  }
  uint32_t numUnlike = 0;
  for (uint64_t now = 0; now < kNum + 10; ++now) {
    const auto packet = link_.Next(now);
    EXPECT_EQ(packet, other.Next(now));
    numUnlike += packet != third.Next(now);
  }
  EXPECT_GT(numUnlike, 100u);
}

// ---- in the kernel

class NetfaultNetwork : public testing::TestWithParam<bool> {
 protected:
  static constexpr uint16_t kPort = 5683;
  static constexpr uint32_t kPublisherHost = 1, kMirrorHost = 2;

  void SetUp() override {
    if (!CanMakeNetworks()) GTEST_SKIP() << "no network namespaces here";
    publisher_ = std::make_unique<Network>(GetParam(), kPublisherHost);
    mirror_ = std::make_unique<Network>(GetParam(), kMirrorHost);
    ASSERT_TRUE(publisher_->IsGood() && mirror_->IsGood());
    mirror_->Enter();
    receiver_ = Open();
    ASSERT_EQ(bind(receiver_, Name(kMirrorHost), Len()), 0);
    publisher_->Enter();
    sender_ = Open();
    ASSERT_EQ(connect(sender_, Name(kMirrorHost), Len()), 0);
  }
  void TearDown() override {
    SetSocketPolicy(nullptr);
    if (sender_ >= 0) close(sender_);
    if (receiver_ >= 0) close(receiver_);
  }

  int Open() const {
    return socket(GetParam() ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  }
  socklen_t Len() const { return GetParam() ? sizeof(sockaddr_in6) : sizeof(sockaddr_in); }
  const sockaddr *Name(uint32_t host) {
    const CoapRpcIpAddr addr = publisher_->AddressOf(host);
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(kPort);
    ipv4.sin_addr.s_addr = htonl(addr.addr.ipv4);
    name_ = {};
    name_.sin6_family = AF_INET6;
    name_.sin6_port = htons(kPort);
    memcpy(&name_.sin6_addr, addr.addr.ipv6, sizeof(addr.addr.ipv6));
    if (!GetParam()) memcpy(&name_, &ipv4, sizeof(ipv4));
    return reinterpret_cast<sockaddr *>(&name_);
  }

  int SendError(size_t len = 100) {
    const Bytes bytes(len, 'x');
    return send(sender_, bytes.data(), bytes.size(), 0) < 0 ? errno : 0;
  }
  // Carry takes what was sent through the link; returns how many packets there were.
  size_t Carry() {
    Bytes bytes(2048);
    size_t num = 0;
    for (ssize_t len; (len = read(publisher_->Tunnel(), bytes.data(), bytes.size())) > 0;) {
      const Bytes packet(bytes.begin(), bytes.begin() + len);
      if (!LayoutOf(packet)) continue;
      link_.Take(kMirror, packet, 0);
      ++num;
    }
    while (const auto packet = link_.Next(kLater)) {
      EXPECT_GT(write(mirror_->Tunnel(), packet->second.data(), packet->second.size()), 0);
    }
    return num;
  }
  // Sent takes one packet of ours; the system sends some of its own.
  Bytes Sent() {
    Bytes bytes(2048);
    for (ssize_t len; (len = read(publisher_->Tunnel(), bytes.data(), bytes.size())) > 0;) {
      const Bytes packet(bytes.begin(), bytes.begin() + len);
      if (LayoutOf(packet)) return packet;
    }
    ADD_FAILURE() << "nothing was sent";
    return Bytes(64);
  }
  std::vector<Bytes> Received() {
    std::vector<Bytes> all;
    Bytes bytes(4096);
    for (ssize_t len; (len = recv(receiver_, bytes.data(), bytes.size(), 0)) >= 0;) {
      all.emplace_back(bytes.begin(), bytes.begin() + len);
    }
    return all;
  }

  std::unique_ptr<Network> publisher_, mirror_;
  Link link_{1};
  int sender_ = -1, receiver_ = -1;
  sockaddr_in6 name_ = {};
};

INSTANTIATE_TEST_SUITE_P(Families, NetfaultNetwork, testing::Values(false, true),
                         [](const auto &one) { return one.param ? "Ipv6" : "Ipv4"; });

TEST_P(NetfaultNetwork, Datagrams_PassUnchanged) {
  for (int i = 0; i < 50; ++i) EXPECT_EQ(SendError(), 0);
  EXPECT_EQ(Carry(), 50u);
  EXPECT_EQ(Received(), std::vector<Bytes>(50, Bytes(100, 'x')));
}

TEST_P(NetfaultNetwork, FlippedBits_AreFoundByTheChecksum) {
  link_.To(kMirror).flip.percent = 100;
  for (int i = 0; i < 50; ++i) EXPECT_EQ(SendError(), 0);
  EXPECT_EQ(Carry(), 50u);
  EXPECT_EQ(Received().size(), 0u);
}

TEST_P(NetfaultNetwork, ForgedBits_ArriveWrong) {
  link_.To(kMirror).forge.percent = 100;
  for (int i = 0; i < 50; ++i) EXPECT_EQ(SendError(101), 0);
  Carry();
  const std::vector<Bytes> received = Received();
  EXPECT_EQ(received.size(), 50u);
  for (const Bytes &bytes : received) EXPECT_NE(bytes, Bytes(101, 'x'));
}

TEST_P(NetfaultNetwork, RenumberedCopies_Arrive) {
  link_.To(kMirror).renumbered.percent = 100;
  EXPECT_EQ(SendError(), 0);
  Carry();
  EXPECT_EQ(Received().size(), 2u);
}

TEST_P(NetfaultNetwork, SmallMtu_MakesFragments_AndALostOneLosesTheDatagram) {
  publisher_->SetMtu(1280);
  EXPECT_EQ(SendError(1400), 0);
  EXPECT_EQ(Carry(), 2u);
  EXPECT_EQ(Received().size(), 1u);
  link_.To(kMirror).fragmentLoss.percent = 100;
  EXPECT_EQ(SendError(1400), 0);
  EXPECT_EQ(SendError(100), 0);
  EXPECT_EQ(Carry(), 3u);
  EXPECT_EQ(Received().size(), 1u);
}

TEST_P(NetfaultNetwork, InterfaceDown_SendsFail_UntilItIsUp) {
  publisher_->SetUp(false);
  EXPECT_EQ(SendError(), ENETUNREACH);
  publisher_->SetUp(true);
  EXPECT_EQ(SendError(), 0);
  EXPECT_EQ(Carry(), 1u);
}

TEST_P(NetfaultNetwork, Routes_LetSendsFail) {
  publisher_->SetRoute(RouteKind::kProhibit, kMirrorHost);
  EXPECT_EQ(SendError(), EACCES);
  publisher_->SetRoute(RouteKind::kUnreachable, kMirrorHost);
  EXPECT_EQ(SendError(), EHOSTUNREACH);
  publisher_->SetRoute(RouteKind::kBlackhole, kMirrorHost);
  EXPECT_EQ(SendError(), EINVAL);
  publisher_->SetRoute(RouteKind::kNormal, kMirrorHost);
  EXPECT_EQ(SendError(), 0);
  EXPECT_EQ(Carry(), 1u);
}

TEST_P(NetfaultNetwork, Address_ReplacesTheOldOne) {
  mirror_->SetAddress(9);
  EXPECT_EQ(SendError(), 0);
  Carry();
  EXPECT_EQ(Received().size(), 0u);
  mirror_->SetAddress(kMirrorHost);
  EXPECT_EQ(SendError(), 0);
  Carry();
  EXPECT_EQ(Received().size(), 1u);
}

TEST_P(NetfaultNetwork, PortUnreachable_IsHeardByTheSender) {
  EXPECT_EQ(SendError(), 0);
  const Bytes answer = PortUnreachable(Sent());
  ASSERT_GT(write(publisher_->Tunnel(), answer.data(), answer.size()), 0);
  EXPECT_EQ(SendError(), ECONNREFUSED);
}

TEST_P(NetfaultNetwork, SocketPolicy_LetsSendsFail_AndChoosesPorts) {
  SocketPolicy policy;
  policy.sendErrno = EPERM;
  policy.port = 41'000;
  SetSocketPolicy(&policy);
  EXPECT_EQ(SendError(), EPERM);
  publisher_->Enter();
  int fds[2];
  for (int i = 0; i < 2; ++i) {
    fds[i] = Open();
    ASSERT_EQ(connect(fds[i], Name(kMirrorHost), Len()), 0);
    sockaddr_in6 own = {};
    socklen_t len = sizeof(own);
    EXPECT_EQ(getsockname(fds[i], reinterpret_cast<sockaddr *>(&own), &len), 0);
    EXPECT_EQ(ntohs(own.sin6_port), 41'000 + i);
  }
  for (const int fd : fds) close(fd);
}

}  // namespace
}  // namespace netfault
