/* host_console.cpp: the socket's protocol: requests, answers, pages, stopping. */
#include <uv.h>

#include "console_host.h"

using host_test::ConsoleHost;
using host_test::ConsolePeer;

namespace {

class HostConsole : public ConsoleHost {
 protected:
  static uint32_t OnUnlisten(void *self, ...) {
    auto *test = static_cast<HostConsole *>(static_cast<ConsoleHost *>(self));
    return test->m_unlistenResult = KestrelDispUnlisten(test->m_host.get());
  }
  uint32_t m_unlistenResult = 0;
};

std::string LinesUpTo(uint32_t count) {
  std::string lines;
  for (uint32_t i = 0; i < count; ++i) lines += "= line " + std::to_string(i) + "\n";
  return lines;
}

}  // namespace

TEST_F(HostConsole, Run_GivesLinesAndStatus) {
  ASSERT_EQ(0u, Listen());
  EXPECT_EQ("= hello\n. 0 success\n", Ask("run demo hello\n"));
  EXPECT_EQ("- a part\n. 0 success\n", Ask("run demo part\n"));
  EXPECT_EQ("= line 0\n= line 1\n= line 2\n. 0 success\n", Ask("run demo lines 3\n"));
  EXPECT_EQ("= hello\n. 0 success\n", Ask("run demo hello\r\n"));
}

TEST_F(HostConsole, Errors_AreTold) {
  ASSERT_EQ(0u, Listen());
  EXPECT_EQ("! unknown command \"demo no\"\n. 10 unknown command\n", Ask("run demo no\n"));
  EXPECT_EQ("! missing parameter uniCount\n. 12 missing parameter\n", Ask("run demo lines\n"));
  EXPECT_EQ("! the command line has control characters\n. 8 malformed command line\n",
            Ask(std::string("run demo\0hello\n", 15)));
  EXPECT_EQ("! unknown request\n. 8 malformed command line\n", Ask("jump\n"));
  EXPECT_EQ("! unknown request\n. 8 malformed command line\n", Ask("\n"));
}

TEST_F(HostConsole, Lists_ObjectsAndCommands) {
  ASSERT_EQ(0u, Listen());
  KST_DispRegObj(Disp(), "strange\nname", this);
  EXPECT_EQ("o demo\no strange?name\n. 0 success\n", Ask("objects\n"));
  EXPECT_EQ(
      "c demo\tdemo dump\tuniCount\nc demo\tdemo hello\nc demo\tdemo lines\tuniCount\n"
      "c demo\tdemo part\n. 0 success\n",
      Ask("commands\n"));
}

TEST_F(HostConsole, Object_IsForTheRunsThatFollow) {
  ASSERT_EQ(0u, Listen());
  EXPECT_EQ(
      ". 0 success\n! unknown object \"nobody\"\n. 9 unknown object\n"
      ". 0 success\n= hello\n. 0 success\n. 0 success\n= hello\n. 0 success\n",
      Ask("object nobody\nrun demo hello\nobject demo\nrun demo hello\nobject\nrun demo hello\n"));
}

TEST_F(HostConsole, HalfARequest_WaitsForTheOtherHalf) {
  ASSERT_EQ(0u, Listen());
  ConsolePeer peer(m_path);
  ASSERT_TRUE(Until(peer, kGreeting));
  for (const char c : std::string("run demo hello")) {
    peer.Send({&c, 1});
    Turns(1);
  }
  peer.Receive();
  EXPECT_EQ(kGreeting, peer.Received());
  peer.Send("\n");
  EXPECT_TRUE(Until(peer, "= hello\n. 0 success\n"));
}

TEST_F(HostConsole, HalfARequestAtTheEnd_IsDropped) {
  ASSERT_EQ(0u, Listen());
  EXPECT_EQ("= hello\n. 0 success\n", Ask("run demo hello\nrun demo hel"));
}

TEST_F(HostConsole, Stop_EndsAPagedCommand) {
  ASSERT_EQ(0u, Listen());
  ConsolePeer peer(m_path);
  peer.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(m_host.get(), [&] { return m_numPages > 100; }));
  peer.Send("stop\n");
  EXPECT_TRUE(Until(peer, ". 16 stopped by the sink\n"));
  const uint32_t numPages = m_numPages;
  Turns(10);
  EXPECT_EQ(numPages, m_numPages);
  peer.Send("run demo hello\n");
  EXPECT_TRUE(Until(peer, "= hello\n. 0 success\n"));
}

TEST_F(HostConsole, Stop_EndsWhatStandsBeforeIt) {
  ASSERT_EQ(0u, Listen());
  EXPECT_EQ(". 16 stopped by the sink\n. 16 stopped by the sink\n= hello\n. 0 success\n",
            Ask("run demo lines 4294967295\nrun demo hello\nstop\nrun demo hello\n"));
  EXPECT_EQ("= hello\n. 0 success\n", Ask("stop\nrun demo hello\n"));
}

TEST_F(HostConsole, HundredThousandPages_AllArrive) {
  ASSERT_EQ(0u, Listen());
  EXPECT_TRUE(Ask("run demo lines 100000\n") == LinesUpTo(100000) + std::string(kSuccess));
}

TEST_F(HostConsole, ObjectThatGoesBetweenPages_EndsTheCommand) {
  ASSERT_EQ(0u, Listen());
  ConsolePeer peer(m_path);
  peer.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(m_host.get(), [&] { return m_numPages > 100; }));
  KST_DispUnregObj(Disp(), "demo");
  EXPECT_TRUE(Until(peer, "! the object \"demo\" is gone\n. 9 unknown object\n"));
}

TEST_F(HostConsole, SeveralConsoles_RunAtTheSameTime) {
  ASSERT_EQ(0u, Listen());
  ConsolePeer slow(m_path);
  ConsolePeer fast(m_path);
  slow.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(m_host.get(), [&] { return m_numPages > 100; }));
  fast.Send("run demo lines 3\n");
  EXPECT_TRUE(Until(fast, "= line 0\n= line 1\n= line 2\n. 0 success\n"));
  const KestrelDispRequest request{"demo hello", nullptr, 0, nullptr, nullptr};
  EXPECT_EQ(0u, KestrelDispRun(m_host.get(), &request));
}

TEST_F(HostConsole, Unlisten_DisconnectsAndRemovesTheFile) {
  EXPECT_EQ(uint32_t{KESTREL_NOT_FOUND}, KestrelDispUnlisten(m_host.get()));
  ASSERT_EQ(0u, Listen());
  EXPECT_EQ(uint32_t{KESTREL_EXISTS}, Listen());
  ConsolePeer peer(m_path);
  peer.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(m_host.get(), [&] { return m_numPages > 100; }));
  EXPECT_EQ(0u, KestrelDispUnlisten(m_host.get()));
  EXPECT_TRUE(UntilEnd(peer));
  EXPECT_FALSE(ConsolePeer(m_path).IsConnected());
  EXPECT_NE(0, access(m_path.c_str(), F_OK));
  EXPECT_EQ(0u, Listen());
}

TEST_F(HostConsole, Unlisten_InsideACommand_IsRefused) {
  Register(OnUnlisten, "demo unlisten");
  ASSERT_EQ(0u, Listen());
  EXPECT_EQ(". 0 success\n", Ask("run demo unlisten\n"));
  EXPECT_EQ(uint32_t{KESTREL_BUSY}, m_unlistenResult);
}

TEST_F(HostConsole, Delete_EndsEverything) {
  ASSERT_EQ(0u, Listen());
  ConsolePeer peer(m_path);
  peer.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(m_host.get(), [&] { return m_numPages > 100; }));
  m_host.reset();
  peer.Receive();
  EXPECT_TRUE(peer.IsAtEnd());
  EXPECT_NE(0, access(m_path.c_str(), F_OK));
}

TEST_F(HostConsole, LoopOfTheApplication_IsLeftClean) {
  uv_loop_t loop;
  ASSERT_EQ(0, uv_loop_init(&loop));
  KestrelParam param = m_log.Param();
  param.loop = &loop;
  host_test::HostPtr host(KestrelNew(&param, nullptr, 0));
  const KestrelDispAccess access{m_path.c_str(), 0, 0};
  ASSERT_EQ(0u, KestrelDispListen(host.get(), &access));
  ConsolePeer peer(m_path);
  peer.Send("objects\n");
  for (int i = 0; i < 1000 && !peer.Ends(kSuccess); ++i) {
    uv_run(&loop, UV_RUN_NOWAIT);
    peer.Receive();
  }
  EXPECT_EQ("* kestrel-console 1\n. 0 success\n", peer.Received());
  host.reset();
  uv_run(&loop, UV_RUN_DEFAULT);
  EXPECT_EQ(0, uv_loop_close(&loop));
  peer.Receive();
  EXPECT_TRUE(peer.IsAtEnd());
}
