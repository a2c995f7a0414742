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
    return KestrelDispListen(m_host.get(), &where);
  }

  mode_t Mode() const {
    struct stat file {};
    return stat(m_path.c_str(), &file) == 0 ? file.st_mode & 07777u : 0;
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
  EXPECT_EQ(uint32_t{KESTREL_BAD_ARGUMENT}, KestrelDispListen(m_host.get(), nullptr));
  EXPECT_EQ(uint32_t{KESTREL_BAD_ARGUMENT}, ListenAt(nullptr));
  EXPECT_EQ(uint32_t{KESTREL_BAD_ARGUMENT}, ListenAt(""));
  EXPECT_EQ(uint32_t{KESTREL_BAD_ARGUMENT}, ListenAt(std::string(108, 'x').c_str()));
  EXPECT_EQ(uint32_t{KESTREL_SYSTEM}, ListenAt("/no/such/folder/socket"));
  EXPECT_EQ(uint32_t{KESTREL_EXISTS}, ListenAt(m_folder.Path().c_str()));
}

TEST_F(HostConsoleSocket, File_IsForItsOwnerOnly) {
  const mode_t before = umask(0);
  EXPECT_EQ(0u, Listen());
  umask(before);
  EXPECT_EQ(0600u, Mode());
}

TEST_F(HostConsoleSocket, File_IsForItsOwnerWhateverTheUmask) {
  const mode_t before = umask(0777);
  EXPECT_EQ(0u, Listen());
  umask(before);
  EXPECT_EQ(0600u, Mode());
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
    ASSERT_EQ(0u, Listen());
    ASSERT_EQ(0u, KestrelDispUnlisten(m_host.get()));
  }
  isDone = true;
  watcher.join();
  umask(before);
  EXPECT_EQ(0u, seen & 0177u);
}

TEST_F(HostConsoleSocket, StaleFile_IsReplaced) {
  close(BindUnix(m_path, true));
  ASSERT_EQ(0, access(m_path.c_str(), F_OK));
  EXPECT_EQ(0u, Listen());
  EXPECT_EQ("= hello\n. 0 success\n", Ask("run demo hello\n"));
}

TEST_F(HostConsoleSocket, LiveSocket_IsNotTakenOver) {
  const int live = BindUnix(m_path, true);
  EXPECT_EQ(uint32_t{KESTREL_EXISTS}, Listen());
  EXPECT_TRUE(ConsolePeer(m_path).IsConnected());
  close(live);
}

TEST_F(HostConsoleSocket, OtherFile_IsLeftAlone) {
  std::ofstream(m_path) << "precious";
  EXPECT_EQ(uint32_t{KESTREL_EXISTS}, Listen());
  std::string content;
  std::ifstream(m_path) >> content;
  EXPECT_EQ("precious", content);
}

TEST_F(HostConsoleSocket, SecondHost_GetsNothing) {
  ASSERT_EQ(0u, Listen());
  const HostPtr second(MakeHost());
  const KestrelDispAccess where{m_path.c_str(), 0, 0};
  EXPECT_EQ(uint32_t{KESTREL_EXISTS}, KestrelDispListen(second.get(), &where));
  EXPECT_EQ("= hello\n. 0 success\n", Ask("run demo hello\n"));
}

TEST_F(HostConsoleSocket, FileOfAnother_IsNotRemoved) {
  ASSERT_EQ(0u, Listen());
  ASSERT_EQ(0, unlink(m_path.c_str()));
  const int other = BindUnix(m_path, true);
  EXPECT_EQ(0u, KestrelDispUnlisten(m_host.get()));
  EXPECT_EQ(0, access(m_path.c_str(), F_OK));
  close(other);
}

TEST_F(HostConsoleSocket, OtherUser_IsTurnedAway) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can act as another user";
  constexpr uid_t kNobody = 65534;
  ASSERT_EQ(0u, Listen());
  EXPECT_EQ("", ReceiveAs(kNobody, m_path, m_host.get()));
  // Even when somebody opens the file and the folder.
  ASSERT_EQ(0, chmod(m_path.c_str(), 0666));
  ASSERT_EQ(0, chmod(m_folder.Path().c_str(), 0755));
  EXPECT_EQ("! only the host's own user and root may connect\n",
            ReceiveAs(kNobody, m_path, m_host.get()));
  EXPECT_EQ("refused a console of another user", m_log.Texts().back());
  EXPECT_EQ(kGreeting, ReceiveAs(0, m_path, m_host.get()));
}

TEST_F(HostConsoleSocket, NoDescriptorsLeft_TurnsAwayAndRecovers) {
  ASSERT_EQ(0u, Listen());
  ConsolePeer peer(m_path);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const int highest = dup(0);
  close(highest);
  const rlimit none{static_cast<rlim_t>(highest), before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_TRUE(UntilEnd(peer));
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ("! the host has no descriptors left\n", peer.Received());
  EXPECT_EQ("= hello\n. 0 success\n", Ask("run demo hello\n"));
}
