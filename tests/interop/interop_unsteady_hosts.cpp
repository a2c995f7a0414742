// Two hosts under a mixed load, and what happens to hosts and links: delay, an outage of a minute,
// an address that changes, a process that is killed, and all that a bad link does at once.  After
// each, everything is answered and every mirror equal within two minutes of the hosts' time.
#include <cstdlib>
#include <memory>

#include "load.h"
#include "two_hosts.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kSecondHostIp = kFirstHostIp + 1;
constexpr uint32_t kMovedIp = kFirstHostIp + 8;
constexpr uint64_t kSettledWithinSeconds = 120;

// LoadedHost is what runs in one of the two processes.  It says once a second what its tables and
// mirrors are ("rest", when it was told to begin nothing new and nothing is open).
class LoadedHost {
 public:
  LoadedHost(uint32_t ip, uint32_t peerIp, const Channel &channel) : channel_(channel), side_(ip) {
    COAP_RpcSetLibLogLevel(side_.Ctx(), 3);
    load_ = std::make_unique<Load>(side_.Ctx(),
                                   LoadParam{ip, peerIp, ip, 1000, 30'000, 30'000, 40'000}, 0);
  }
  ~LoadedHost() { side_.Stop(); }

  void Run() {
    while (channel_.NextBeat() && Obey(channel_.Receive())) {
      Step();
      if (nowMs_ % kReportPeriodMs == 0) Report();
    }
  }

 private:
  static constexpr uint64_t kReportPeriodMs = 1000;

  void Step() {
    side_.Host().AdvanceMs(kBeatMs);
    nowMs_ += kBeatMs;
    load_->Step(nowMs_);
    side_.Host().ClearLogs();
  }

  void Report() {
    if (load_->IsQuiet()) {
      channel_.Send("rest " + load_->TablesText() + "|" + load_->MirrorsText());
    } else {
      channel_.Send("open " + load_->StateText());
    }
  }

  // Obey returns false when it is to stop.
  bool Obey(const std::string &order) {
    const auto ip =
        static_cast<uint32_t>(strtoul(order.substr(order.find(' ') + 1).c_str(), nullptr, 10));
    if (order == "quiet") load_->SetQuiet(true);
    if (order.rfind("peer ", 0) == 0) load_->SetPeer(ip);
    if (order.rfind("move ", 0) == 0) {
      EXPECT_TRUE(SetInterfaceIpv4("link0", ip));
      load_->MoveTo(ip);
    }
    return order != "stop";
  }

  const Channel &channel_;
  Side side_;
  std::unique_ptr<Load> load_;
  uint64_t nowMs_ = 0;
};

class UnsteadyHosts : public testing::Test {
 protected:
  void SetUp() override {
    for (size_t i = 0; i < 2; ++i) StartHost(i);
    if (!hosts_[0]->HasNetwork() || !hosts_[1]->HasNetwork()) {
      GTEST_SKIP() << "network namespaces and tunnel devices cannot be made here";
    }
    Carry(15);
  }

  void StartHost(size_t which) {
    const uint32_t ip = which == 0 ? kFirstHostIp : kSecondHostIp;
    const uint32_t peerIp = which == 0 ? kSecondHostIp : kFirstHostIp;
    hosts_[which] = std::make_unique<HostProcess>(
        ip, [=](const Channel &channel) { LoadedHost(ip, peerIp, channel).Run(); });
    link_.SetTunnel(which, hosts_[which]->Tunnel());
  }

  // KillHost takes a process down at once; nobody hears of it.
  void KillHost(size_t which) {
    link_.SetTunnel(which, -1);
    hosts_[which].reset();
  }

  // Carry lets the hosts talk for `seconds` of their time.
  void Carry(uint64_t seconds) {
    CarryUntil(seconds, [] { return false; });
  }

  template <typename Condition>
  bool CarryUntil(uint64_t limitSeconds, Condition condition) {
    const uint64_t endMs = time_.Ms() + limitSeconds * 1000;
    while (!condition()) {
      if (time_.Ms() >= endMs) return false;
      Beat();
    }
    return true;
  }

  void Beat() {
    time_.Beat(&link_, {hosts_[0].get(), hosts_[1].get()});
    Listen();
  }

  void Listen() {
    for (size_t i = 0; i < 2; ++i) {
      const std::string text = hosts_[i] ? hosts_[i]->Talk().Receive() : "";
      if (!text.empty()) states_[i] = text;
      if (text.rfind("rest ", 0) != 0) continue;
      const size_t bar = text.find('|');
      tables_[i] = text.substr(5, bar - 5);
      mirrors_[i] = text.substr(bar + 1);
    }
  }

  void Tell(const std::string &order) {
    for (const auto &host : hosts_) EXPECT_TRUE(host->Talk().Send(order));
  }

  // ExpectSettled ends the test: all is answered and equal in time, and all memory is freed.
  void ExpectSettled() {
    const uint64_t startMs = time_.Ms();
    Tell("quiet");
    tables_ = mirrors_ = {};
    EXPECT_TRUE(CarryUntil(kSettledWithinSeconds,
                           [this] {
                             return !tables_[0].empty() && mirrors_[0] == tables_[1] &&
                                    mirrors_[1] == tables_[0];
                           }))
        << states_[0] << "\n"
        << states_[1];
    printf("settled after %llu s of the hosts' time\n",
           static_cast<unsigned long long>((time_.Ms() - startMs) / 1000));
    Tell("stop");
    for (auto &host : hosts_) {
      while (!host->HasEnded()) Beat();
    }
  }

  Link link_{-1, -1, {}};
  HostTime time_;
  std::array<std::unique_ptr<HostProcess>, 2> hosts_;
  std::array<std::string, 2> tables_;
  std::array<std::string, 2> mirrors_;
  std::array<std::string, 2> states_;  // what they said last
};

TEST_F(UnsteadyHosts, LinkWithDelay_IsOnlySlower) {
  link_.SetQuality({0, 0, 0, 200, 100});
  Carry(30);
  ExpectSettled();
}

TEST_F(UnsteadyHosts, LinkDownForAMinute_IsForgottenAfterIt) {
  link_.SetQuality({.isUp = false});
  Carry(60);
  link_.SetQuality({});
  ExpectSettled();
}

TEST_F(UnsteadyHosts, AddressThatChangesAndComesBack_IsFollowed) {
  for (const uint32_t ip : {kMovedIp, kSecondHostIp}) {
    EXPECT_TRUE(hosts_[1]->Talk().Send("move " + std::to_string(ip)));
    Carry(10);  // the other one hears of it late
    EXPECT_TRUE(hosts_[0]->Talk().Send("peer " + std::to_string(ip)));
    Carry(10);
  }
  ExpectSettled();
}

TEST_F(UnsteadyHosts, ProcessKilledAndRestarted_IsServedAndServesAgain) {
  for (size_t which = 0; which < 2; ++which) {
    KillHost(which);
    Carry(20);
    StartHost(which);
    Carry(10);
  }
  ExpectSettled();
}

TEST_F(UnsteadyHosts, LossDuplicatesReorderingAndDelayTogether_NothingIsMissing) {
  link_.SetQuality({10, 10, 10, 250, 250});
  Carry(60);
  link_.SetQuality({});
  ExpectSettled();
}

}  // namespace
}  // namespace coap_rpc_test
