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
    return test->unlistenResult_ = KestrelDispUnlisten(test->host_.get());
  }
  uint32_t unlistenResult_ = 0;
};

std::string LinesUpTo(uint32_t count) {
  std::string lines;
  for (uint32_t i = 0; i < count; ++i) lines += "= line " + std::to_string(i) + "\n";
  return lines;
}

}  // namespace

TEST_F(HostConsole, Run_GivesLinesAndStatus) {
  ASSERT_EQ(Listen(), 0u);
  EXPECT_EQ(Ask("run demo hello\n"), "= hello\n. 0 success\n");
  EXPECT_EQ(Ask("run demo part\n"), "- a part\n. 0 success\n");
  EXPECT_EQ(Ask("run demo lines 3\n"), "= line 0\n= line 1\n= line 2\n. 0 success\n");
  EXPECT_EQ(Ask("run demo hello\r\n"), "= hello\n. 0 success\n");
}

TEST_F(HostConsole, Errors_AreTold) {
  ASSERT_EQ(Listen(), 0u);
  EXPECT_EQ(Ask("run demo no\n"), "! unknown command \"demo no\"\n. 10 unknown command\n");
  EXPECT_EQ(Ask("run demo lines\n"), "! missing parameter uniCount\n. 12 missing parameter\n");
  EXPECT_EQ(Ask(std::string("run demo\0hello\n", 15)),
            "! the command line has control characters\n. 8 malformed command line\n");
  EXPECT_EQ(Ask("jump\n"), "! unknown request\n. 8 malformed command line\n");
  EXPECT_EQ(Ask("\n"), "! unknown request\n. 8 malformed command line\n");
}

TEST_F(HostConsole, Lists_ObjectsAndCommands) {
  ASSERT_EQ(Listen(), 0u);
  KST_DispRegObj(Disp(), "strange\nname", this);
  EXPECT_EQ(Ask("objects\n"), "o demo\no strange?name\n. 0 success\n");
  EXPECT_EQ(Ask("commands\n"),
            "c demo\tdemo dump\tuniCount\nc demo\tdemo hello\nc demo\tdemo lines\tuniCount\n"
            "c demo\tdemo part\n. 0 success\n");
}

TEST_F(HostConsole, Help_TellsWhatIsSaidAboutCommands) {
  ASSERT_EQ(Listen(), 0u);
  KST_DispDescribe(Disp(), "demo", "demo lines", "lines\twith\nnumbers", 1, "how many");
  KST_DispDescribe(Disp(), "demo", "demo dump", "all at once", 0);
  EXPECT_EQ(Ask("help\n"),
            "h demo\tdemo dump\tall at once\t\nh demo\tdemo hello\t\n"
            "h demo\tdemo lines\tlines?with?numbers\thow many\nh demo\tdemo part\t\n"
            ". 0 success\n");
}

TEST_F(HostConsole, Describe_RefusesWhatItCannotPlace) {
  EXPECT_NE(KST_DispDescribe(0, "demo", "demo hello", "text", 0), 0u);
  EXPECT_NE(KST_DispDescribe(Disp(), nullptr, "demo hello", "text", 0), 0u);
  EXPECT_NE(KST_DispDescribe(Disp(), "demo", nullptr, "text", 0), 0u);
  EXPECT_NE(KST_DispDescribe(Disp(), "nobody", "demo hello", "text", 0), 0u);
  EXPECT_NE(KST_DispDescribe(Disp(), "demo", "demo nothing", "text", 0), 0u);
  EXPECT_NE(KST_DispDescribe(Disp(), "demo", "demo hello", "text", 1, "too much"), 0u);
  EXPECT_NE(KST_DispDescribe(Disp(), "demo", "demo hello", "text", 5, "", "", "", "", ""), 0u);
  EXPECT_EQ(KST_DispDescribe(Disp(), "demo", "demo hello", nullptr, 0), 0u);
  EXPECT_EQ(KST_DispDescribe(Disp(), "demo", "demo lines", nullptr, 1, nullptr), 0u);
}

TEST_F(HostConsole, Object_IsForTheRunsThatFollow) {
  ASSERT_EQ(Listen(), 0u);
  EXPECT_EQ(
      Ask("object nobody\nrun demo hello\nobject demo\nrun demo hello\nobject\nrun demo hello\n"),
      ". 0 success\n! unknown object \"nobody\"\n. 9 unknown object\n"
      ". 0 success\n= hello\n. 0 success\n. 0 success\n= hello\n. 0 success\n");
}

TEST_F(HostConsole, HalfARequest_WaitsForTheOtherHalf) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer peer(path_);
  ASSERT_TRUE(Until(peer, kGreeting));
  for (const char c : std::string("run demo hello")) {
    peer.Send({&c, 1});
    Turns(1);
  }
  peer.Receive();
  EXPECT_EQ(peer.Received(), kGreeting);
  peer.Send("\n");
  EXPECT_TRUE(Until(peer, "= hello\n. 0 success\n"));
}

TEST_F(HostConsole, HalfARequestAtTheEnd_IsDropped) {
  ASSERT_EQ(Listen(), 0u);
  EXPECT_EQ(Ask("run demo hello\nrun demo hel"), "= hello\n. 0 success\n");
}

TEST_F(HostConsole, Stop_EndsAPagedCommand) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer peer(path_);
  peer.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(host_.get(), [&] { return numPages_ > 100; }));
  peer.Send("stop\n");
  EXPECT_TRUE(Until(peer, ". 16 stopped by the sink\n"));
  const uint32_t numPages = numPages_;
  Turns(10);
  EXPECT_EQ(numPages_, numPages);
  peer.Send("run demo hello\n");
  EXPECT_TRUE(Until(peer, "= hello\n. 0 success\n"));
}

TEST_F(HostConsole, Stop_EndsWhatStandsBeforeIt) {
  ASSERT_EQ(Listen(), 0u);
  EXPECT_EQ(Ask("run demo lines 4294967295\nrun demo hello\nstop\nrun demo hello\n"),
            ". 16 stopped by the sink\n. 16 stopped by the sink\n= hello\n. 0 success\n");
  EXPECT_EQ(Ask("stop\nrun demo hello\n"), "= hello\n. 0 success\n");
}

TEST_F(HostConsole, HundredThousandPages_AllArrive) {
  ASSERT_EQ(Listen(), 0u);
  EXPECT_TRUE(Ask("run demo lines 100000\n") == LinesUpTo(100000) + std::string(kSuccess));
}

TEST_F(HostConsole, ObjectThatGoesBetweenPages_EndsTheCommand) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer peer(path_);
  peer.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(host_.get(), [&] { return numPages_ > 100; }));
  KST_DispUnregObj(Disp(), "demo");
  EXPECT_TRUE(Until(peer, "! the object \"demo\" is gone\n. 9 unknown object\n"));
}

TEST_F(HostConsole, SeveralConsoles_RunAtTheSameTime) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer slow(path_);
  ConsolePeer fast(path_);
  slow.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(host_.get(), [&] { return numPages_ > 100; }));
  fast.Send("run demo lines 3\n");
  EXPECT_TRUE(Until(fast, "= line 0\n= line 1\n= line 2\n. 0 success\n"));
  const KestrelDispRequest request{"demo hello", nullptr, 0, nullptr, nullptr};
  EXPECT_EQ(KestrelDispRun(host_.get(), &request), 0u);
}

TEST_F(HostConsole, Unlisten_DisconnectsAndRemovesTheFile) {
  EXPECT_EQ(KestrelDispUnlisten(host_.get()), uint32_t{KESTREL_NOT_FOUND});
  ASSERT_EQ(Listen(), 0u);
  EXPECT_EQ(Listen(), uint32_t{KESTREL_EXISTS});
  ConsolePeer peer(path_);
  peer.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(host_.get(), [&] { return numPages_ > 100; }));
  EXPECT_EQ(KestrelDispUnlisten(host_.get()), 0u);
  EXPECT_TRUE(UntilEnd(peer));
  EXPECT_FALSE(ConsolePeer(path_).IsConnected());
  EXPECT_NE(access(path_.c_str(), F_OK), 0);
  EXPECT_EQ(Listen(), 0u);
}

TEST_F(HostConsole, Unlisten_InsideACommand_IsRefused) {
  Register(OnUnlisten, "demo unlisten");
  ASSERT_EQ(Listen(), 0u);
  EXPECT_EQ(Ask("run demo unlisten\n"), ". 0 success\n");
  EXPECT_EQ(unlistenResult_, uint32_t{KESTREL_BUSY});
}

TEST_F(HostConsole, Delete_EndsEverything) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer peer(path_);
  peer.Send("run demo lines 4294967295\n");
  ASSERT_TRUE(host_test::TurnUntil(host_.get(), [&] { return numPages_ > 100; }));
  host_.reset();
  peer.Receive();
  EXPECT_TRUE(peer.IsAtEnd());
  EXPECT_NE(access(path_.c_str(), F_OK), 0);
}

TEST_F(HostConsole, LoopOfTheApplication_IsLeftClean) {
  uv_loop_t loop;
  ASSERT_EQ(uv_loop_init(&loop), 0);
  KestrelParam param = log_.Param();
  param.loop = &loop;
  host_test::HostPtr host(KestrelNew(&param, nullptr, 0));
  const KestrelDispAccess access{path_.c_str(), 0, 0};
  ASSERT_EQ(KestrelDispListen(host.get(), &access), 0u);
  ConsolePeer peer(path_);
  peer.Send("objects\n");
  for (int i = 0; i < 1000 && !peer.Ends(kSuccess); ++i) {
    uv_run(&loop, UV_RUN_NOWAIT);
    peer.Receive();
  }
  EXPECT_EQ(peer.Received(), "* kestrel-console 1\n. 0 success\n");
  host.reset();
  uv_run(&loop, UV_RUN_DEFAULT);
  EXPECT_EQ(uv_loop_close(&loop), 0);
  peer.Receive();
  EXPECT_TRUE(peer.IsAtEnd());
}
