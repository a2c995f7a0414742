/* host_console_socket.cpp: the socket file: path, mode, owner, and who may connect. */
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <thread>

#include "console_host.h"

using host_test::BindUnix;
using host_test::ConsoleHost;
using host_test::ConsolePeer;
using host_test::HostPtr;

namespace {

class HostConsoleSocket : public ConsoleHost {
 protected:
  uint32_t ListenAt(const char *path) {
    const KestrelDispAccess where{path, 0, 0};
    return KestrelDispListen(host_.get(), &where);
  }

  mode_t Mode() const {
    struct stat file {};
    return stat(path_.c_str(), &file) == 0 ? file.st_mode & 07777u : 0;
  }
};

// ReceiveAs connects as another user and returns what the host says, at most 255 bytes.
std::string ReceiveAs(uid_t user, const std::string &path, Kestrel *host) {
  int result[2];
  if (pipe(result) != 0) return "";
  const pid_t child = fork();
  if (child == 0) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    char bytes[255];
    ssize_t len = 0;
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (setuid(user) == 0 && connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0) {
      len = recv(fd, bytes, sizeof bytes, 0);
    }
    _exit(write(result[1], bytes, static_cast<size_t>(std::max<ssize_t>(len, 0))) == len ? 0 : 1);
  }
  close(result[1]);
  int status = 0;
  host_test::TurnUntil(host, [&] { return waitpid(child, &status, WNOHANG) == child; });
  char bytes[255];
  const ssize_t len = read(result[0], bytes, sizeof bytes);
  close(result[0]);
  return std::string(bytes, static_cast<size_t>(std::max<ssize_t>(len, 0)));
}

}  // namespace

TEST_F(HostConsoleSocket, BadPaths_AreRefused) {
  EXPECT_EQ(KestrelDispListen(host_.get(), nullptr), uint32_t{KESTREL_BAD_ARGUMENT});
  EXPECT_EQ(ListenAt(nullptr), uint32_t{KESTREL_BAD_ARGUMENT});
  EXPECT_EQ(ListenAt(""), uint32_t{KESTREL_BAD_ARGUMENT});
  EXPECT_EQ(ListenAt(std::string(108, 'x').c_str()), uint32_t{KESTREL_BAD_ARGUMENT});
  EXPECT_EQ(ListenAt("/no/such/folder/socket"), uint32_t{KESTREL_SYSTEM});
  EXPECT_EQ(ListenAt(folder_.Path().c_str()), uint32_t{KESTREL_EXISTS});
}

TEST_F(HostConsoleSocket, File_IsForItsOwnerOnly) {
  const mode_t before = umask(0);
  EXPECT_EQ(Listen(), 0u);
  umask(before);
  EXPECT_EQ(Mode(), 0600u);
}

TEST_F(HostConsoleSocket, File_IsForItsOwnerWhateverTheUmask) {
  const mode_t before = umask(0777);
  EXPECT_EQ(Listen(), 0u);
  umask(before);
  EXPECT_EQ(Mode(), 0600u);
}

// Another thread looks at the file all the time while it is made again and again.
TEST_F(HostConsoleSocket, File_IsNeverWider) {
  const mode_t before = umask(0);
  std::atomic<bool> isDone = false;
  std::atomic<mode_t> seen = 0;
  std::thread watcher([&] {
    while (!isDone) seen |= Mode();
  });
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(Listen(), 0u);
    ASSERT_EQ(KestrelDispUnlisten(host_.get()), 0u);
  }
  isDone = true;
  watcher.join();
  umask(before);
  EXPECT_EQ(seen & 0177u, 0u);
}

TEST_F(HostConsoleSocket, StaleFile_IsReplaced) {
  close(BindUnix(path_, true));
  ASSERT_EQ(access(path_.c_str(), F_OK), 0);
  EXPECT_EQ(Listen(), 0u);
  EXPECT_EQ(Ask("run demo hello\n"), "= hello\n. 0 success\n");
}

TEST_F(HostConsoleSocket, LiveSocket_IsNotTakenOver) {
  const int live = BindUnix(path_, true);
  EXPECT_EQ(Listen(), uint32_t{KESTREL_EXISTS});
  EXPECT_TRUE(ConsolePeer(path_).IsConnected());
  close(live);
}

TEST_F(HostConsoleSocket, OtherFile_IsLeftAlone) {
  std::ofstream(path_) << "precious";
  EXPECT_EQ(Listen(), uint32_t{KESTREL_EXISTS});
  std::string content;
  std::ifstream(path_) >> content;
  EXPECT_EQ(content, "precious");
}

TEST_F(HostConsoleSocket, SecondHost_GetsNothing) {
  ASSERT_EQ(Listen(), 0u);
  const HostPtr second(MakeHost());
  const KestrelDispAccess where{path_.c_str(), 0, 0};
  EXPECT_EQ(KestrelDispListen(second.get(), &where), uint32_t{KESTREL_EXISTS});
  EXPECT_EQ(Ask("run demo hello\n"), "= hello\n. 0 success\n");
}

TEST_F(HostConsoleSocket, FileOfAnother_IsNotRemoved) {
  ASSERT_EQ(Listen(), 0u);
  ASSERT_EQ(unlink(path_.c_str()), 0);
  const int other = BindUnix(path_, true);
  EXPECT_EQ(KestrelDispUnlisten(host_.get()), 0u);
  EXPECT_EQ(access(path_.c_str(), F_OK), 0);
  close(other);
}

TEST_F(HostConsoleSocket, OtherUser_IsTurnedAway) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can act as another user";
  constexpr uid_t kNobody = 65534;
  ASSERT_EQ(Listen(), 0u);
  EXPECT_EQ(ReceiveAs(kNobody, path_, host_.get()), "");
  // Even when somebody opens the file and the folder.
  ASSERT_EQ(chmod(path_.c_str(), 0666), 0);
  ASSERT_EQ(chmod(folder_.Path().c_str(), 0755), 0);
  EXPECT_EQ(ReceiveAs(kNobody, path_, host_.get()),
            "! only the host's own user and root may connect\n");
  EXPECT_EQ(log_.Texts().back(), "refused a console of another user");
  EXPECT_EQ(ReceiveAs(0, path_, host_.get()), kGreeting);
}

TEST_F(HostConsoleSocket, NoDescriptorsLeft_TurnsAwayAndRecovers) {
  ASSERT_EQ(Listen(), 0u);
  ConsolePeer peer(path_);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const int highest = dup(0);
  close(highest);
  const rlimit none{static_cast<rlim_t>(highest), before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_TRUE(UntilEnd(peer));
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(peer.Received(), "! the host has no descriptors left\n");
  EXPECT_EQ(Ask("run demo hello\n"), "= hello\n. 0 success\n");
}
