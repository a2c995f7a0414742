/* host_watch.cpp: watching descriptors for readability. */
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <vector>

#include "host_support.h"

using host_test::HostPtr;
using host_test::TurnUntil;

namespace {

// Pipe is a pipe that is closed with the test.
struct Pipe {
  Pipe() { EXPECT_EQ(0, pipe2(ends, O_NONBLOCK | O_CLOEXEC)); }
  ~Pipe() {
    close(ends[0]);
    close(ends[1]);
  }
  void Write() const { EXPECT_EQ(1, write(ends[1], "x", 1)); }
  void Read() const {
    char byte;
    EXPECT_EQ(1, read(ends[0], &byte, 1));
  }
  int ReadEnd() const { return ends[0]; }

  int ends[2];
};

// Watcher counts calls and may act in them.
struct Watcher {
  uint32_t calls = 0;
  std::function<void(int fd)> act;

  static void OnReady(void *param, int fd) {
    auto *watcher = static_cast<Watcher *>(param);
    ++watcher->calls;
    if (watcher->act) watcher->act(fd);
  }
};

class HostWatch : public testing::Test {
 protected:
  HostWatch() {
    KestrelParam param{};
    param.logSinks = KESTREL_SINK_NONE;
    m_host.reset(KestrelNew(&param, nullptr, 0));
  }
  uint32_t Watch(int fd, Watcher &watcher) {
    return KestrelWatch(m_host.get(), fd, Watcher::OnReady, &watcher);
  }
  uint32_t Unwatch(int fd) { return KestrelUnwatch(m_host.get(), fd); }
  void Turn() { EXPECT_EQ(KESTREL_OK, static_cast<int>(KestrelTurn(m_host.get()))); }

  HostPtr m_host;
};

}  // namespace

TEST_F(HostWatch, Readable_CallsUntilItIsRead) {
  const Pipe pipe;
  Watcher watcher;
  ASSERT_EQ(KESTREL_OK, static_cast<int>(Watch(pipe.ReadEnd(), watcher)));
  Turn();
  EXPECT_EQ(0u, watcher.calls);
  pipe.Write();
  Turn();
  Turn();
  EXPECT_EQ(2u, watcher.calls);
  pipe.Read();
  Turn();
  EXPECT_EQ(2u, watcher.calls);
}

TEST_F(HostWatch, SecondWatch_IsRefused) {
  const Pipe pipe;
  Watcher watcher;
  EXPECT_EQ(KESTREL_OK, static_cast<int>(Watch(pipe.ReadEnd(), watcher)));
  EXPECT_EQ(KESTREL_EXISTS, static_cast<int>(Watch(pipe.ReadEnd(), watcher)));
  EXPECT_EQ(KESTREL_OK, static_cast<int>(Unwatch(pipe.ReadEnd())));
  EXPECT_EQ(KESTREL_NOT_FOUND, static_cast<int>(Unwatch(pipe.ReadEnd())));
  EXPECT_EQ(KESTREL_OK, static_cast<int>(Watch(pipe.ReadEnd(), watcher)));
}

TEST_F(HostWatch, WhatCannotBePolled_IsRefused) {
  Watcher watcher;
  EXPECT_EQ(KESTREL_BAD_ARGUMENT, static_cast<int>(Watch(-1, watcher)));
  EXPECT_EQ(KESTREL_BAD_ARGUMENT,
            static_cast<int>(KestrelWatch(m_host.get(), 0, nullptr, nullptr)));
  const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  EXPECT_EQ(KESTREL_SYSTEM, static_cast<int>(Watch(file, watcher)));
  close(file);
  EXPECT_EQ(KESTREL_SYSTEM, static_cast<int>(Watch(file, watcher)));
}

TEST_F(HostWatch, CallbackUnwatchesItself) {
  const Pipe pipe;
  Watcher watcher;
  watcher.act = [&](int fd) { Unwatch(fd); };
  Watch(pipe.ReadEnd(), watcher);
  pipe.Write();
  Turn();
  Turn();
  EXPECT_EQ(1u, watcher.calls);
}

TEST_F(HostWatch, CallbackUnwatchesAnotherThatIsReadyToo) {
  const Pipe one, two;
  Watcher first, second;
  first.act = [&](int) { Unwatch(two.ReadEnd()); };
  second.act = [&](int) { Unwatch(one.ReadEnd()); };
  Watch(one.ReadEnd(), first);
  Watch(two.ReadEnd(), second);
  one.Write();
  two.Write();
  Turn();
  EXPECT_EQ(1u, first.calls + second.calls);
}

TEST_F(HostWatch, CallbackWatchesAgain) {
  const Pipe pipe;
  Watcher first, second;
  first.act = [&](int fd) {
    Unwatch(fd);
    EXPECT_EQ(KESTREL_OK, static_cast<int>(Watch(fd, second)));
  };
  Watch(pipe.ReadEnd(), first);
  pipe.Write();
  Turn();
  Turn();
  EXPECT_EQ(1u, first.calls);
  EXPECT_EQ(1u, second.calls);
}

TEST_F(HostWatch, EndOfFile_IsReadable) {
  int ends[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
  Watcher watcher;
  Watch(ends[0], watcher);
  close(ends[1]);
  Turn();
  EXPECT_EQ(1u, watcher.calls);
  Unwatch(ends[0]);
  close(ends[0]);
}

TEST_F(HostWatch, DeletedHost_LeavesTheDescriptorOpen) {
  const Pipe pipe;
  Watcher watcher;
  Watch(pipe.ReadEnd(), watcher);
  m_host.reset();
  pipe.Write();
  pipe.Read();
  EXPECT_EQ(0u, watcher.calls);
}

// A refused datagram shows as an error on the connected socket; the watch must outlive it.
TEST_F(HostWatch, SocketError_DoesNotEndTheWatch) {
  sockaddr_in closed{};
  closed.sin_family = AF_INET;
  closed.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof closed;
  const int peer = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(0, bind(peer, reinterpret_cast<sockaddr *>(&closed), len));
  ASSERT_EQ(0, getsockname(peer, reinterpret_cast<sockaddr *>(&closed), &len));
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(0, connect(fd, reinterpret_cast<sockaddr *>(&closed), len));
  close(peer);

  std::vector<int> errors;
  Watcher watcher;
  watcher.act = [&](int readable) {
    char byte;
    if (recv(readable, &byte, 1, MSG_DONTWAIT) < 0) errors.push_back(errno);
  };
  Watch(fd, watcher);
  for (size_t sent = 1; sent <= 3; ++sent) {
    ASSERT_EQ(1, send(fd, "x", 1, 0));
    ASSERT_TRUE(TurnUntil(m_host.get(), [&] { return errors.size() >= sent; }));
  }
  EXPECT_EQ((std::vector<int>{ECONNREFUSED, ECONNREFUSED, ECONNREFUSED}), errors);
  Unwatch(fd);
  close(fd);
}
