/* console_connection.cpp: what may be at the other end of the socket. */
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "client.h"
#include "connection.h"
#include "history_file.h"
#include "kestrel_console.h"

namespace {

using console::Connection;
using console::Reply;

constexpr int kPatienceMs = 600'000;
constexpr int kImpatienceMs = 20;

// FakeHost greets one console with any bytes, then closes, or stays until it is destroyed.
class FakeHost {
 public:
  explicit FakeHost(const std::string &bytes, bool stays = true) {
    char folder[] = "/tmp/console_connection.XXXXXX";
    EXPECT_NE(mkdtemp(folder), nullptr);
    folder_ = folder;
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, Path().data(), Path().size());
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&addr), sizeof addr), 0);
    EXPECT_EQ(listen(fd_, 1), 0);
    thread_ = std::thread([=, this] { Serve(bytes, stays); });
  }
  ~FakeHost() {
    thread_.join();
    if (console_ >= 0) close(console_);
    close(fd_);
    std::filesystem::remove_all(folder_);
  }
  FakeHost(const FakeHost &) = delete;
  FakeHost &operator=(const FakeHost &) = delete;

  std::string Path() const { return folder_ + "/socket"; }

 private:
  void Serve(const std::string &bytes, bool stays) {
    console_ = accept(fd_, nullptr, nullptr);
    size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t len = send(console_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (len <= 0) break;
      sent += static_cast<size_t>(len);
    }
    if (!stays) shutdown(console_, SHUT_RDWR);
  }

  std::string folder_;
  int fd_ = -1;
  int console_ = -1;
  std::thread thread_;
};

// ReasonAgainst gives why a console does not open a connection to such a host.
std::string ReasonAgainst(const std::string &bytes, bool stays = true) {
  FakeHost host(bytes, stays);
  std::string reason;
  Connection connection(stays && bytes.empty() ? kImpatienceMs : kPatienceMs);
  EXPECT_FALSE(connection.Open(host.Path(), reason));
  return reason;
}

TEST(Connection, Greeting_Opens) {
  FakeHost host("* kestrel-console 1\n= hello\n", false);
  std::string reason;
  Connection connection(kPatienceMs);
  ASSERT_TRUE(connection.Open(host.Path(), reason)) << reason;
  const Reply reply = connection.Next();
  EXPECT_EQ(reply.kind, Reply::Kind::kLine);
  EXPECT_EQ(reply.tag, '=');
  EXPECT_EQ(reply.text, "hello");
  EXPECT_EQ(connection.Next().text, "the host closed the connection");
}

TEST(Connection, LineWithoutText_IsATag) {
  FakeHost host("* kestrel-console 1\n\n=\n");
  std::string reason;
  Connection connection(kPatienceMs);
  ASSERT_TRUE(connection.Open(host.Path(), reason)) << reason;
  EXPECT_EQ(connection.Next().tag, '\0');
  const Reply reply = connection.Next();
  EXPECT_EQ(reply.tag, '=');
  EXPECT_EQ(reply.text, "");
}

// The answers come before they are asked for, which the client does not see.
TEST(Client, OlderHost_HasNoHelp) {
  FakeHost host(
      "* kestrel-console 1\nc demo\tdemo row\tuniRow\n. 0 success\n"
      "! unknown request\n. 8 malformed command line\n");
  std::string reason;
  Connection connection(kPatienceMs);
  ASSERT_TRUE(connection.Open(host.Path(), reason)) << reason;
  console::Client client(connection);
  std::vector<console::HostCommand> commands;
  testing::internal::CaptureStderr();
  EXPECT_EQ(client.CommandsWithHelp(commands), console::Outcome::kOk);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(commands[0].about, "");
  EXPECT_EQ(console::UsageOf(commands[0]), "demo row <uniRow>");
}

TEST(Client, HelpOfTheHost_GoesToItsCommand) {
  FakeHost host(
      "* kestrel-console 1\nc demo\tdemo row\tuniRow\n. 0 success\n"
      "h demo\tdemo gone\tx\nh demo\nh demo\tdemo row\ta row\tits number\tmore\n. 0 success\n");
  std::string reason;
  Connection connection(kPatienceMs);
  ASSERT_TRUE(connection.Open(host.Path(), reason)) << reason;
  console::Client client(connection);
  std::vector<console::HostCommand> commands;
  EXPECT_EQ(client.CommandsWithHelp(commands), console::Outcome::kOk);
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(commands[0].about, "a row");
  EXPECT_EQ(commands[0].paramsAbout, std::vector<std::string>{"its number"});
}

TEST(Connection, OtherProtocol_IsRefused) {
  EXPECT_EQ(ReasonAgainst("* kestrel-console 2\n"),
            "the host speaks another protocol (kestrel-console 2)");
}

TEST(Connection, OtherProgram_IsNoHost) {
  EXPECT_EQ(ReasonAgainst("220 mail.example\n"), "this is no host's socket");
}

TEST(Connection, LineWithoutEnd_IsNoHost) {
  EXPECT_EQ(ReasonAgainst(std::string(2 * KESTREL_CONSOLE_MAX_REPLY, 'x')),
            "this is no host's socket");
}

TEST(Connection, ErrorInsteadOfGreeting_IsTheReason) {
  EXPECT_EQ(ReasonAgainst("! too many consoles\n"), "too many consoles");
}

TEST(Connection, SilentHost_IsGivenUp) { EXPECT_EQ(ReasonAgainst(""), "the host does not answer"); }

TEST(Connection, HostThatCloses_IsLost) {
  EXPECT_EQ(ReasonAgainst("", false), "the host closed the connection");
}

TEST(Connection, NobodyListens_SystemsReason) {
  std::string reason;
  EXPECT_FALSE(Connection(kPatienceMs).Open("/tmp/console_connection.none/socket", reason));
  EXPECT_EQ(reason, "No such file or directory");
}

TEST(Connection, InvalidPath_IsRefused) {
  for (const std::string &path : {std::string(), std::string(108, 'x')}) {
    std::string reason;
    EXPECT_FALSE(Connection(kPatienceMs).Open(path, reason));
    EXPECT_EQ(reason, "the path of the socket must have 1 to 107 bytes");
  }
}

// A home folder of its own for a test.
class HistoryFile : public testing::Test {
 protected:
  HistoryFile() {
    char folder[] = "/tmp/console_history.XXXXXX";
    EXPECT_NE(mkdtemp(folder), nullptr);
    folder_ = folder;
    unsetenv("XDG_STATE_HOME");
    unsetenv("HOME");
  }
  ~HistoryFile() override { std::filesystem::remove_all(folder_); }

  std::string folder_;
};

TEST_F(HistoryFile, StateFolder_ComesFirst) {
  setenv("XDG_STATE_HOME", folder_.c_str(), 1);
  setenv("HOME", "/nonexistent", 1);
  EXPECT_EQ(console::HistoryPath(), folder_ + "/kestrel-console/history");
  EXPECT_TRUE(std::filesystem::is_directory(folder_ + "/kestrel-console"));
}

TEST_F(HistoryFile, Home_WhenThereIsNoStateFolder) {
  setenv("XDG_STATE_HOME", "relative", 1);
  setenv("HOME", folder_.c_str(), 1);
  EXPECT_EQ(console::HistoryPath(), folder_ + "/.local/state/kestrel-console/history");
}

TEST_F(HistoryFile, NoFolder_NoHistory) {
  EXPECT_EQ(console::HistoryPath(), "");
  setenv("HOME", "relative", 1);
  EXPECT_EQ(console::HistoryPath(), "");
  setenv("HOME", "/proc/nonexistent", 1);
  EXPECT_EQ(console::HistoryPath(), "");
}

}  // namespace
