/* fd_capture.cpp: what a piece of code writes to the standard output and the standard error. */
#include "fd_capture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include <gtest/gtest.h>

namespace coap_rpc_test {
namespace {

void FlushAll() {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(stdout);
  std::fflush(stderr);
}

// Redirection leads one file descriptor into memory until Restore.
class Redirection {
 public:
  explicit Redirection(int fd) : fd_(fd), original_(dup(fd)), memory_(memfd_create("fd", 0)) {
    if (original_ < 0 || memory_ < 0 || dup2(memory_, fd_) < 0) {
      ADD_FAILURE() << "cannot redirect file descriptor " << fd_;
    }
  }

  ~Redirection() {
    close(memory_);
    close(original_);
  }

  Redirection(const Redirection &) = delete;
  Redirection &operator=(const Redirection &) = delete;

  void Restore() { dup2(original_, fd_); }

  std::string Text() const {
    std::string text;
    char piece[4096];
    lseek(memory_, 0, SEEK_SET);
    for (ssize_t len = read(memory_, piece, sizeof piece); len > 0;
         len = read(memory_, piece, sizeof piece)) {
      text.append(piece, static_cast<size_t>(len));
    }
    return text;
  }

 private:
  int fd_;
  int original_;
  int memory_;
};

// Redirected redirects both descriptors for its life, also when the block throws.
class Redirected {
 public:
  ~Redirected() { End(); }

  void End() {
    FlushAll();
    out.Restore();
    err.Restore();
  }

  Redirection out{STDOUT_FILENO};
  Redirection err{STDERR_FILENO};
};

}  // namespace

CapturedText CaptureFds(const std::function<void()> &block) {
  FlushAll();
  Redirected both;
  block();
  both.End();
  return {both.out.Text(), both.err.Text()};
}

}  // namespace coap_rpc_test
