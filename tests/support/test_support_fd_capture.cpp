/* test_support_fd_capture.cpp: captured output. */
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include "fd_capture.h"

namespace coap_rpc_test {
namespace {

TEST(SupportFdCapture, AllWaysOfWriting_AreCaptured) {
  ssize_t numWritten = 0;
  const CapturedText text = CaptureFds([&] {
    std::printf("stream ");
    std::fflush(stdout);
    numWritten = write(STDOUT_FILENO, "plain ", 6);
    std::cout << "cout";
    std::fprintf(stderr, "error");
  });
  EXPECT_EQ(numWritten, 6);
  EXPECT_EQ(text.out, "stream plain cout");
  EXPECT_EQ(text.err, "error");
}

TEST(SupportFdCapture, MuchOutput_ArrivesWhole) {
  const std::string much(1'000'000, 'x');
  EXPECT_EQ(CaptureFds([&] { std::cout << much; }).out, much);
}

TEST(SupportFdCapture, Silence_IsEmpty) {
  const CapturedText text = CaptureFds([] {});
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(text.err, "");
}

TEST(SupportFdCapture, Again_StartsEmptyAndRestores) {
  EXPECT_EQ(CaptureFds([] { std::cout << "first"; }).out, "first");
  EXPECT_EQ(CaptureFds([] { std::cout << "second"; }).out, "second");
  const CapturedText outer = CaptureFds([] { std::cerr << "third"; });
  EXPECT_EQ(outer.out, "");
  EXPECT_EQ(outer.err, "third");
}

}  // namespace
}  // namespace coap_rpc_test
