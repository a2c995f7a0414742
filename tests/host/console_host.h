/* console_host.h: a host with display commands that listens for consoles. */
#ifndef CONSOLE_HOST_H
#define CONSOLE_HOST_H

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

#include "console_peer.h"
#include "kst_disp.h"

namespace host_test {

// ConsoleHost has an object "demo" with the commands
//   demo hello            one line
//   demo lines uniCount   N lines, each a page
//   demo dump uniCount    N lines on one page
//   demo part             a line without line feed
class ConsoleHost : public testing::Test {
 protected:
  ConsoleHost() {
    host_.reset(MakeHost());
    Register(OnHello, "demo hello");
    Register(OnPart, "demo part");
    RegisterWithCount(OnLines, "demo lines");
    RegisterWithCount(OnDump, "demo dump");
  }

  Kestrel *MakeHost() {
    const KestrelParam param = log_.Param();
    Kestrel *host = KestrelNew(&param, nullptr, 0);
    KST_DispRegObj(KestrelDisp(host), "demo", this);
    return host;
  }

  uint64_t Disp() const { return KestrelDisp(host_.get()); }

  void Register(KST_DISP_FUNC handler, const char *command) {
    KST_DispRegFunc_(Disp(), "Handler", handler, command, 128, "demo", 0);
  }
  void RegisterWithCount(KST_DISP_FUNC handler, const char *command) {
    KST_DispRegFunc_(Disp(), "Handler", handler, command, 128, "demo", 1, "uniCount");
  }

  uint32_t Listen(uint32_t maxConsoles = 0, uint64_t maxQueuedBytes = 0) {
    const KestrelDispAccess access{path_.c_str(), maxConsoles, maxQueuedBytes};
    return KestrelDispListen(host_.get(), &access);
  }

  // Until runs the loop until the peer has received something that ends so.
  bool Until(ConsolePeer &peer, std::string_view ending) {
    return TurnUntil(host_.get(), [&] {
      peer.Receive();
      return peer.Ends(ending);
    });
  }

  bool UntilEnd(ConsolePeer &peer) {
    return TurnUntil(host_.get(), [&] {
      peer.Receive();
      return peer.IsAtEnd();
    });
  }

  // Turns runs the loop a number of times.
  void Turns(int count) {
    for (int i = 0; i < count; ++i) KestrelTurn(host_.get());
  }

  // Ask connects, sends, and returns everything up to the end of the answer, without the greeting.
  std::string Ask(const std::string &request) {
    ConsolePeer peer(path_);
    peer.Send(request);
    peer.EndSending();
    EXPECT_TRUE(UntilEnd(peer));
    EXPECT_TRUE(peer.Received().starts_with(kGreeting)) << peer.Received();
    return peer.Received().substr(std::min(peer.Received().size(), kGreeting.size()));
  }

  static constexpr std::string_view kGreeting = "* kestrel-console 1\n";
  static constexpr std::string_view kSuccess = ". 0 success\n";

  TempFolder folder_;
  std::string path_ = folder_.Socket();
  LogLines log_;
  HostPtr host_;
  uint32_t numPages_ = 0;  // of "demo lines", ever

 private:
  static uint32_t OnHello(void *self, ...) {
    KST_DispPrintf_(static_cast<ConsoleHost *>(self)->Disp(), "hello\n");
    return 0;
  }
  static uint32_t OnPart(void *self, ...) {
    KST_DispPrintf_(static_cast<ConsoleHost *>(self)->Disp(), "a part");
    return 0;
  }
  static uint32_t OnDump(void *self, ...) {
    va_list args;
    va_start(args, self);
    const uint32_t count = va_arg(args, uint32_t);
    va_end(args);
    for (uint32_t i = 0; i < count; ++i) {
      KST_DispPrintf_(static_cast<ConsoleHost *>(self)->Disp(), "line %u\n", i);
    }
    return 0;
  }
  static uint32_t OnLines(void *self, ...) {
    va_list args;
    va_start(args, self);
    const uint32_t count = va_arg(args, uint32_t);
    va_end(args);
    auto *test = static_cast<ConsoleHost *>(self);
    uint32_t at = 0;
    KST_DispGetLastCtx_(test->Disp(), &at);
    ++test->numPages_;
    KST_DispPrintf_(test->Disp(), "line %u\n", at);
    if (++at < count) KST_DispSaveCtx_(test->Disp(), "k", 1, &at, sizeof at);
    return 0;
  }
};

}  // namespace host_test

#endif /* CONSOLE_HOST_H */
