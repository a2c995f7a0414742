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
  Pipe() { EXPECT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0); }
  ~Pipe() {
    close(ends[0]);
    close(ends[1]);
  }
  void Write() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
  void Read() const {
    char byte;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
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
    host_.reset(KestrelNew(&param, nullptr, 0));
  }
  uint32_t Watch(int fd, Watcher &watcher) {
    return KestrelWatch(host_.get(), fd, Watcher::OnReady, &watcher);
  }
  uint32_t Unwatch(int fd) { return KestrelUnwatch(host_.get(), fd); }
  void Turn() { EXPECT_EQ(static_cast<int>(KestrelTurn(host_.get())), KESTREL_OK); }

  HostPtr host_;
};

}  // namespace

TEST_F(HostWatch, Readable_CallsUntilItIsRead) {
  const Pipe pipe;
  Watcher watcher;
  ASSERT_EQ(static_cast<int>(Watch(pipe.ReadEnd(), watcher)), KESTREL_OK);
  Turn();
  EXPECT_EQ(watcher.calls, 0u);
  pipe.Write();
  Turn();
  Turn();
  EXPECT_EQ(watcher.calls, 2u);
  pipe.Read();
  Turn();
  EXPECT_EQ(watcher.calls, 2u);
}

TEST_F(HostWatch, SecondWatch_IsRefused) {
  const Pipe pipe;
  Watcher watcher;
  EXPECT_EQ(static_cast<int>(Watch(pipe.ReadEnd(), watcher)), KESTREL_OK);
  EXPECT_EQ(static_cast<int>(Watch(pipe.ReadEnd(), watcher)), KESTREL_EXISTS);
  EXPECT_EQ(static_cast<int>(Unwatch(pipe.ReadEnd())), KESTREL_OK);
  EXPECT_EQ(static_cast<int>(Unwatch(pipe.ReadEnd())), KESTREL_NOT_FOUND);
  EXPECT_EQ(static_cast<int>(Watch(pipe.ReadEnd(), watcher)), KESTREL_OK);
}

TEST_F(HostWatch, WhatCannotBePolled_IsRefused) {
  Watcher watcher;
  EXPECT_EQ(static_cast<int>(Watch(-1, watcher)), KESTREL_BAD_ARGUMENT);
  EXPECT_EQ(static_cast<int>(KestrelWatch(host_.get(), 0, nullptr, nullptr)), KESTREL_BAD_ARGUMENT);
  const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  EXPECT_EQ(static_cast<int>(Watch(file, watcher)), KESTREL_SYSTEM);
  close(file);
  EXPECT_EQ(static_cast<int>(Watch(file, watcher)), KESTREL_SYSTEM);
}

TEST_F(HostWatch, CallbackUnwatchesItself) {
  const Pipe pipe;
  Watcher watcher;
  watcher.act = [&](int fd) { Unwatch(fd); };
  Watch(pipe.ReadEnd(), watcher);
  pipe.Write();
  Turn();
  Turn();
  EXPECT_EQ(watcher.calls, 1u);
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
  EXPECT_EQ(first.calls + second.calls, 1u);
}

TEST_F(HostWatch, CallbackWatchesAgain) {
  const Pipe pipe;
  Watcher first, second;
  first.act = [&](int fd) {
    Unwatch(fd);
    EXPECT_EQ(static_cast<int>(Watch(fd, second)), KESTREL_OK);
  };
  Watch(pipe.ReadEnd(), first);
  pipe.Write();
  Turn();
  Turn();
  EXPECT_EQ(first.calls, 1u);
  EXPECT_EQ(second.calls, 1u);
}

TEST_F(HostWatch, EndOfFile_IsReadable) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  Watcher watcher;
  Watch(ends[0], watcher);
  close(ends[1]);
  Turn();
  EXPECT_EQ(watcher.calls, 1u);
  Unwatch(ends[0]);
  close(ends[0]);
}

TEST_F(HostWatch, DeletedHost_LeavesTheDescriptorOpen) {
  const Pipe pipe;
  Watcher watcher;
  Watch(pipe.ReadEnd(), watcher);
  host_.reset();
  pipe.Write();
  pipe.Read();
  EXPECT_EQ(watcher.calls, 0u);
}

// A refused datagram shows as an error on the connected socket; the watch must outlive it.
TEST_F(HostWatch, SocketError_DoesNotEndTheWatch) {
  sockaddr_in closed{};
  closed.sin_family = AF_INET;
  closed.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof closed;
  const int peer = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(peer, reinterpret_cast<sockaddr *>(&closed), len), 0);
  ASSERT_EQ(getsockname(peer, reinterpret_cast<sockaddr *>(&closed), &len), 0);
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&closed), len), 0);
  close(peer);

  std::vector<int> errors;
  Watcher watcher;
  watcher.act = [&](int readable) {
    char byte;
    if (recv(readable, &byte, 1, MSG_DONTWAIT) < 0) errors.push_back(errno);
  };
  Watch(fd, watcher);
  for (size_t sent = 1; sent <= 3; ++sent) {
    ASSERT_EQ(send(fd, "x", 1, 0), 1);
    ASSERT_TRUE(TurnUntil(host_.get(), [&] { return errors.size() >= sent; }));
  }
  EXPECT_EQ(errors, (std::vector<int>{ECONNREFUSED, ECONNREFUSED, ECONNREFUSED}));
  Unwatch(fd);
  close(fd);
}
