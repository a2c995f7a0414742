/* console_server.cpp: takes consoles in, up to a number of them. */
#include "console/console_server.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>

#include "host/edge.h"

namespace kestrel {

namespace {

constexpr char kModule[] = "kestrel.console";
constexpr uint32_t kDefaultConsoles = 16;
constexpr uint64_t kDefaultQueuedBytes = 32u << 20;

// Connections taken in one turn of the loop.
constexpr int kAcceptsPerTurn = 16;

OwnedFd NewSpare() { return OwnedFd(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

}  // namespace

uint32_t ConsoleServer::Listen(const KestrelDispAccess &access) {
  maxConsoles_ = access.maxConsoles != 0 ? access.maxConsoles : kDefaultConsoles;
  maxQueuedBytes_ = access.maxQueuedBytes != 0 ? access.maxQueuedBytes : kDefaultQueuedBytes;
  spare_ = NewSpare();
  const uint32_t ret = listener_.Open(access.path);
  if (ret != KESTREL_OK) return ret;
  poll_ = NewUvHandle<uv_poll_t>(
      this, [&](uv_poll_t *handle) { return uv_poll_init(loop_, handle, listener_.Fd()); });
  const bool isOpen = poll_ && uv_poll_start(poll_.get(), UV_READABLE, OnReady) == 0;
  return isOpen ? KESTREL_OK : KESTREL_SYSTEM;
}

void ConsoleServer::OnReady(uv_poll_t *handle, int status, int) {
  auto *self = static_cast<ConsoleServer *>(handle->data);
  if (status < 0) uv_poll_start(handle, UV_READABLE, OnReady);
  Quietly([&] { self->AcceptSome(); });
}

void ConsoleServer::AcceptSome() {
  for (int i = 0; i < kAcceptsPerTurn; ++i) {
    OwnedFd socket = listener_.Accept();
    if (socket.IsOpen()) {
      TakeIn(std::move(socket));
      continue;
    }
    if (errno == EMFILE || errno == ENFILE) DropOneForWantOfDescriptors();
    return;
  }
}

// A connection that cannot be accepted would wake the loop for ever.
void ConsoleServer::DropOneForWantOfDescriptors() {
  spare_.Close();
  TurnAway(listener_.Accept(), "the host has no descriptors left");
  spare_ = NewSpare();
}

void ConsoleServer::TakeIn(OwnedFd socket) {
  if (!IsAllowedPeer(socket.Get())) {
    log_.NoteAt(kModule, 1, KST_LOG_WARN, "refused a console of another user");
    return TurnAway(socket, "only the host's own user and root may connect");
  }
  if (consoles_.size() >= maxConsoles_) return TurnAway(socket, "too many consoles are connected");
  Welcome(std::move(socket));
}

// TurnAway turns a connection away with a reason, which a fresh socket has room for.
void ConsoleServer::TurnAway(const OwnedFd &socket, const char *reason) {
  if (!socket.IsOpen()) return;
  const std::string line = std::string{KESTREL_CONSOLE_ERROR} + " " + reason + "\n";
  send(socket.Get(), line.data(), line.size(), MSG_NOSIGNAL);
}

void ConsoleServer::Welcome(OwnedFd socket) {
  Console &console = consoles_.emplace_back(
      disp_, std::move(socket), maxQueuedBytes_, [this](const Console &gone) {
        consoles_.remove_if([&](const Console &one) { return &one == &gone; });
      });
  if (!Guarded(false, [&] { return console.Open(loop_); })) consoles_.pop_back();
}

}  // namespace kestrel
