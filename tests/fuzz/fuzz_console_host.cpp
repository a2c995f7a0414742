// Bytes of operators' consoles into the socket on which the reference host serves its display
// commands.  An input is a sequence of steps for a few consoles: connect, send, receive, turn the
// host's loop, end sending, close.  In the end every console that asks for no more has to get all
// that it asked for, and the connection closed.
#include <cstdarg>
#include <cstring>
#include <optional>

#include "console_peer.h"
#include "fuzz_support.h"
#include "kestrel_console.h"
#include "kst_disp.h"

namespace fuzz {
namespace {

using host_test::ConsolePeer;
using host_test::HostPtr;
using host_test::TempFolder;

constexpr int kMaxSteps = 64;
constexpr int kMaxTurns = 5000;
constexpr uint32_t kMaxLines = 50;  // that a command prints
constexpr size_t kNumConsoles = 3;
constexpr uint32_t kMaxConsoles = 2;  // that the host takes
constexpr uint64_t kMaxQueuedBytes = 100'000;
constexpr char kTags[] = {KESTREL_CONSOLE_GREETING, KESTREL_CONSOLE_OUTPUT, KESTREL_CONSOLE_PIECE,
                          KESTREL_CONSOLE_ERROR,    KESTREL_CONSOLE_OBJECT, KESTREL_CONSOLE_COMMAND,
                          KESTREL_CONSOLE_HELP,     KESTREL_CONSOLE_END};

uint64_t g_disp;

uint32_t CountOf(va_list args) { return std::min(va_arg(args, uint32_t), kMaxLines); }

uint32_t OnHello(void *, ...) {
  KST_DispPrintf_(g_disp, "hello\n");
  return 0;
}

// OnDump prints all its lines on one page.
uint32_t OnDump(void *self, ...) {
  va_list args;
  va_start(args, self);
  const uint32_t count = CountOf(args);
  va_end(args);
  for (uint32_t i = 0; i < count; ++i) KST_DispPrintf_(g_disp, "%*u\n", 2000, i);
  return 0;
}

// OnLines prints each line on a page of its own.
uint32_t OnLines(void *self, ...) {
  va_list args;
  va_start(args, self);
  const uint32_t count = CountOf(args);
  va_end(args);
  uint32_t at = 0;
  KST_DispGetLastCtx_(g_disp, &at);
  KST_DispPrintf_(g_disp, "line %u", at);
  if (++at < count) KST_DispSaveCtx_(g_disp, "k", 1, &at, sizeof(at));
  return 0;
}

// OnEcho prints a text without end, and has another page for as long as its object is there.
uint32_t OnEcho(void *self, ...) {
  va_list args;
  va_start(args, self);
  const char *text = va_arg(args, const char *);
  va_end(args);
  for (int i = 0; i < 20; ++i) KST_DispPrintf_(g_disp, "%s%s%s", text, text, text);
  return 0;
}

// OnGone takes the object away of which it is a command, and then has another page.
uint32_t OnGone(void *, ...) {
  KST_DispUnregObj(g_disp, "other");
  KST_DispSaveCtx_(g_disp, "", 0, "", 0);
  return 0;
}

// CheckReplies stops the program at a line that no console would understand.
void CheckReplies(const std::string &received) {
  for (size_t at = 0; at < received.size();) {
    const size_t end = received.find('\n', at);
    if (end == received.npos) return;
    Check(end - at + 1 <= KESTREL_CONSOLE_MAX_REPLY, "a reply is too long");
    Check(end - at >= 2 && memchr(kTags, received[at], sizeof(kTags)) && received[at + 1] == ' ',
          "a reply has no tag");
    at = end + 1;
  }
}

class Consoles {
 public:
  explicit Consoles(const std::string &path) : path_(path) {
    KestrelParam param = {};
    param.logSinks = KESTREL_SINK_NONE;
    host_.reset(KestrelNew(&param, nullptr, 0));
    Check(host_ != nullptr, "no host");
    g_disp = KestrelDisp(host_.get());
    KST_DispRegObj(g_disp, "demo", this);
    KST_DispRegObj(g_disp, "other", this);
    Register(OnHello, "hello", "demo", nullptr);
    Register(OnHello, "hello", "other", nullptr);
    Register(OnLines, "demo lines", "demo", "uniCount");
    Register(OnDump, "demo dump", "demo", "uniCount");
    Register(OnEcho, "demo echo", "demo", "pcText");
    Register(OnGone, "gone", "other", nullptr);
    const KestrelDispAccess access{path_.c_str(), kMaxConsoles, kMaxQueuedBytes};
    Check(KestrelDispListen(host_.get(), &access) == KESTREL_OK, "the host does not listen");
  }

  void Run(Input &input) {
    peers_[0].emplace(path_);
    for (int i = 0; i < kMaxSteps && !input.IsEmpty(); ++i) Step(input);
    for (auto &peer : peers_) {
      if (peer) Finish(*peer);
    }
  }

 private:
  static void Register(KST_DISP_FUNC handler, const char *command, const char *object,
                       const char *param) {
    if (param) {
      KST_DispRegFunc_(g_disp, "Handler", handler, command, 128, object, 1, param);
    } else {
      KST_DispRegFunc_(g_disp, "Handler", handler, command, 128, object, 0);
    }
  }

  void Step(Input &input) {
    const uint8_t kind = input.Byte();
    auto &peer = peers_[kind / 16 % kNumConsoles];
    if (!peer) peer.emplace(path_);
    switch (kind % 16) {
      default: {
        const std::string line = input.Line();
        peer->Send(line + "\n");
        return Turn(kind % 4);
      }
      case 8: {
        const std::vector<uint8_t> bytes = input.Framed();
        peer->Send({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
        return Turn(1);
      }
      case 9:
        return peer->Receive();
      case 10:
        return peer->EndSending();
      case 11:
        return peer.reset();
      case 12:
        return Turn(40);
    }
  }

  void Turn(int count) {
    for (int i = 0; i < count; ++i) KestrelTurn(host_.get());
  }

  // Finish waits for the end of all answers.
  void Finish(ConsolePeer &peer) {
    if (!peer.IsConnected()) return;
    peer.EndSending();
    for (int i = 0; i < kMaxTurns && !peer.IsAtEnd(); ++i) {
      Turn(1);
      for (auto &other : peers_) {
        if (other && other->IsConnected()) other->Receive();
      }
    }
    Check(peer.IsAtEnd(), "a console waits for ever");
    CheckReplies(peer.Received());
  }

  std::string path_;
  HostPtr host_;
  std::optional<ConsolePeer> peers_[kNumConsoles];
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const host_test::TempFolder folder;
  fuzz::Input input(data, size);
  fuzz::Consoles(folder.Socket()).Run(input);
  return 0;
}
