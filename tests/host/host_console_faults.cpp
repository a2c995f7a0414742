/* host_console_faults.cpp: consoles that flood, stall, die, or send nonsense. */
#include <sys/socket.h>

#include <algorithm>

#include "console_host.h"

using host_test::ConsoleHost;
using host_test::ConsolePeer;
using host_test::TurnUntil;

namespace {

class HostConsoleFaults : public ConsoleHost {
 protected:
  static uint32_t OnMega(void *self, ...) {
    const std::string mega(1 << 20, 'x');
    KST_DispPrintf_(static_cast<HostConsoleFaults *>(static_cast<ConsoleHost *>(self))->Disp(),
                    "%s\n", mega.c_str());
    return 0;
  }
};

}  // namespace

TEST_F(HostConsoleFaults, LineOfAMegabyte_IsAnErrorAndTheConsoleStays) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer peer(path_);
  const std::string mega = "run " + std::string(1 << 20, 'x') + "\nrun demo hello\n";
  size_t sent = 0;
  ASSERT_TRUE(TurnUntil(host_.get(), [&] {
    sent += peer.Send(std::string_view(mega).substr(sent));
    return sent == mega.size();
  }));
  EXPECT_TRUE(Until(peer,
                    "! the request is longer than 4160 bytes\n. 8 malformed command line\n"
                    "= hello\n. 0 success\n"));
}

TEST_F(HostConsoleFaults, LongestRequest_IsTaken) {
  ASSERT_EQ(Listen(), 0u);
  const std::string longest = "run " + std::string(4156, 'x') + "\n";
  EXPECT_EQ(Ask(longest),
            "! the command line is longer than 4096 bytes\n. 8 malformed command line\n");
  EXPECT_EQ(Ask("x" + longest),
            "! the request is longer than 4160 bytes\n. 8 malformed command line\n");
}

TEST_F(HostConsoleFaults, PeerThatNeverReads_HoldsItsCommandBack) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer stalled(path_);
  stalled.Send("run demo lines 4294967295\n");
  uint32_t before = 0;
  ASSERT_TRUE(TurnUntil(host_.get(), [&] {
    const bool hasStopped = numPages_ > 0 && numPages_ == before;
    before = numPages_;
    return hasStopped;
  }));
  Turns(1000);
  EXPECT_EQ(numPages_, before);
  EXPECT_NE(KestrelPollTimeoutMs(host_.get()), 0);
  EXPECT_EQ(Ask("run demo hello\n"), "= hello\n. 0 success\n");
  // What was held back comes when the peer reads again.
  EXPECT_TRUE(TurnUntil(host_.get(), [&] {
    stalled.Receive();
    return numPages_ > 2 * before;
  }));
}

TEST_F(HostConsoleFaults, PeerThatDies_IsForgotten) {
  ASSERT_EQ(Listen(1), 0u);
  {
    ConsolePeer dying(path_);
    dying.Send("run demo lines 4294967295\n");
    ASSERT_TRUE(TurnUntil(host_.get(), [&] { return numPages_ > 100; }));
  }
  const uint32_t atDeath = numPages_;
  Turns(10);
  EXPECT_LT(numPages_ - atDeath, 1000u);
  EXPECT_EQ(Ask("run demo hello\n"), "= hello\n. 0 success\n");
}

TEST_F(HostConsoleFaults, PageBeyondTheQueue_IsCutWithAMessage) {
  ASSERT_EQ(Listen(0, 100000), 0u);
  const std::string answer = Ask("run demo dump 100000\n");
  EXPECT_TRUE(answer.starts_with("= line 0\n= line 1\n"));
  EXPECT_TRUE(
      answer.ends_with("! output was cut: more than 100000 bytes were waiting for this console\n"
                       ". 16 stopped by the sink\n"))
      << answer.substr(answer.size() - 200);
  EXPECT_GT(answer.size(), 99000u);
  EXPECT_LT(answer.size(), 101000u);
  EXPECT_EQ(Ask("run demo hello\n"), "= hello\n. 0 success\n");
}

TEST_F(HostConsoleFaults, LongPage_ArrivesWhole) {
  ASSERT_EQ(Listen(), 0u);
  const std::string answer = Ask("run demo dump 100000\n");
  EXPECT_EQ(std::count(answer.begin(), answer.end(), '\n'), 100001);
  EXPECT_TRUE(answer.ends_with("= line 99999\n. 0 success\n"));
}

TEST_F(HostConsoleFaults, LineOfAMegabyte_ComesInPieces) {
  Register(OnMega, "demo mega");
  ASSERT_EQ(Listen(), 0u);
  std::string expected;
  size_t left = 1 << 20;
  for (; left > 32765; left -= 32765) expected += "- " + std::string(32765, 'x') + "\n";
  expected += "= " + std::string(left, 'x') + "\n. 0 success\n";
  EXPECT_TRUE(expected == Ask("run demo mega\n"));
}

TEST_F(HostConsoleFaults, FloodOfConnections_IsTurnedAway) {
  ASSERT_EQ(Listen(2), 0u);
  std::vector<ConsolePeer> peers;
  for (int i = 0; i < 60; ++i) peers.emplace_back(path_);
  ASSERT_TRUE(Until(peers[0], kGreeting));
  ASSERT_TRUE(Until(peers[1], kGreeting));
  for (size_t i = 2; i < peers.size(); ++i) {
    ASSERT_TRUE(UntilEnd(peers[i])) << i;
    EXPECT_EQ(peers[i].Received(), "! too many consoles are connected\n");
  }
  peers[0].Close();
  Turns(2);
  EXPECT_EQ(Ask("run demo hello\n"), "= hello\n. 0 success\n");
}

TEST_F(HostConsoleFaults, FloodOfRequests_IsAnsweredInOrder) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer peer(path_);
  std::string requests;
  for (int i = 0; i < 20000; ++i) requests += "run demo part\n";
  requests += "objects\n";
  size_t sent = 0;
  ASSERT_TRUE(TurnUntil(host_.get(), [&] {
    sent += peer.Send(std::string_view(requests).substr(sent));
    peer.Receive();
    return sent == requests.size() && peer.Ends("o demo\n. 0 success\n");
  }));
  std::string expected(kGreeting);
  for (int i = 0; i < 20000; ++i) expected += "- a part\n. 0 success\n";
  EXPECT_TRUE(peer.Received() == expected + "o demo\n. 0 success\n");
}

TEST_F(HostConsoleFaults, Garbage_IsAnswered) {
  ASSERT_EQ(Listen(), 0u);
  std::string garbage;
  for (int i = 0; i < 4000; ++i) garbage += static_cast<char>(i * 7);
  garbage.erase(std::remove(garbage.begin(), garbage.end(), '\n'), garbage.end());
  EXPECT_EQ(Ask(garbage + "\nrun demo hello\n"),
            "! unknown request\n. 8 malformed command line\n= hello\n. 0 success\n");
}
