/* console.cpp: one operator's console, connected to the host. */
#include "console/console.h"

#include <sys/socket.h>

#include <cerrno>

#include "disp/disp_list.h"
#include "host/edge.h"

namespace kestrel {

namespace {

// A page is run while fewer bytes wait for the console.
constexpr size_t kEnoughWaitingBytes = 65536;

// Pages or requests of one console in one turn of the loop.
constexpr uint32_t kStepsPerTurn = 16;

bool IsTransient(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

}  // namespace

bool Console::Open(uv_loop_t *loop) {
  poll_ = NewUvHandle<uv_poll_t>(
      this, [&](uv_poll_t *handle) { return uv_poll_init(loop, handle, socket_.Get()); });
  idle_ =
      NewUvHandle<uv_idle_t>(this, [&](uv_idle_t *handle) { return uv_idle_init(loop, handle); });
  if (!poll_ || !idle_) return false;
  output_.Line(KESTREL_CONSOLE_GREETING, KESTREL_CONSOLE_HELLO);
  Rearm();
  return true;
}

void Console::OnReady(uv_poll_t *handle, int status, int events) {
  auto *self = static_cast<Console *>(handle->data);
  self->Do([&] {
    if (status < 0) self->isBroken_ = true;
    if ((events & UV_READABLE) != 0) self->Read();
    if ((events & UV_WRITABLE) != 0) self->Write();
  });
}

void Console::OnIdle(uv_idle_t *handle) {
  auto *self = static_cast<Console *>(handle->data);
  self->Do([&] { self->Work(); });
}

// Do does one turn's work.  A console that the host has no memory for is given up.
template <typename Task>
void Console::Do(Task task) {
  if (!Guarded(false, [&] { return task(), true; })) isBroken_ = true;
  if (!IsOver()) return Rearm();
  const OnGone onGone = std::move(onGone_);
  onGone(*this);
}

void Console::Read() {
  char bytes[16384];
  const ssize_t len = recv(socket_.Get(), bytes, sizeof bytes, 0);
  if (len < 0) {
    if (!IsTransient(errno)) isBroken_ = true;
    return;
  }
  if (len == 0) isAtEnd_ = true;
  const bool hasStop = input_.Feed({bytes, static_cast<size_t>(len)});
  if (hasStop && run_) EndRun(KESTREL_STOPPED);
}

void Console::Write() {
  const std::string_view waiting = output_.Waiting();
  if (waiting.empty()) return;
  const ssize_t len = send(socket_.Get(), waiting.data(), waiting.size(), MSG_NOSIGNAL);
  if (len >= 0) return output_.Sent(static_cast<size_t>(len));
  if (!IsTransient(errno)) isBroken_ = true;
}

void Console::Work() {
  for (uint32_t i = 0; i < kStepsPerTurn && HasWork(); ++i) {
    run_ ? RunPage() : Answer(input_.Take());
  }
  Write();
}

bool Console::HasWork() const {
  return (run_ || !input_.IsEmpty()) && output_.Waiting().size() < kEnoughWaitingBytes;
}

bool Console::IsOver() const {
  const bool isAnswered = !run_ && input_.IsEmpty() && output_.Waiting().empty();
  return isBroken_ || (isAtEnd_ && isAnswered);
}

void Console::Rearm() {
  int events = 0;
  if (!isAtEnd_ && !input_.IsFull()) events |= UV_READABLE;
  if (!output_.Waiting().empty()) events |= UV_WRITABLE;
  events != 0 ? uv_poll_start(poll_.get(), events, OnReady) : uv_poll_stop(poll_.get());
  HasWork() ? uv_idle_start(idle_.get(), OnIdle) : uv_idle_stop(idle_.get());
}

void Console::Answer(const ConsoleRequest &request) {
  if (request.isTooLong) {
    return Refuse("the request is longer than " + std::to_string(KESTREL_CONSOLE_MAX_REQUEST) +
                  " bytes");
  }
  if (request.isStopped) return output_.End(KESTREL_STOPPED);
  if (request.word == "run") return StartRun(request.rest);
  if (request.word == "objects") return ListObjects();
  if (request.word == "commands") return ListCommands();
  if (request.word == "help") return ListHelp();
  if (request.word != "object") return Refuse("unknown request");
  object_ = request.rest;
  output_.End(KESTREL_OK);
}

void Console::Refuse(const std::string &reason) {
  output_.Line(KESTREL_CONSOLE_ERROR, reason);
  output_.End(KESTREL_BAD_LINE);
}

void Console::StartRun(const std::string &line) {
  if (line.find('\0') != line.npos) return Refuse("the command line has control characters");
  run_.emplace(OnOutput, this);
  const char *object = object_.empty() ? nullptr : object_.c_str();
  const uint32_t result = disp_.Start(*run_, line.c_str(), object);
  if (result != KESTREL_OK) EndRun(result);
}

void Console::RunPage() {
  const uint32_t result = disp_.Step(*run_);
  if (result != DispService::kMorePages) EndRun(result);
}

void Console::EndRun(uint32_t result) {
  run_.reset();
  output_.End(result);
}

uint32_t Console::OnOutput(void *self, uint32_t error, const char *text, size_t len) {
  ConsoleOutput &output = static_cast<Console *>(self)->output_;
  if (error == 0) return output.Print({text, len}) ? 0 : 1;
  output.Line(KESTREL_CONSOLE_ERROR, {text, len});
  return 0;
}

void Console::ListObjects() {
  const auto visit = [](void *self, const char *object) {
    static_cast<Console *>(self)->output_.Line(KESTREL_CONSOLE_OBJECT, object);
    return uint32_t{0};
  };
  ListDispObjects(disp_.Registry(), visit, this);
  output_.End(KESTREL_OK);
}

void Console::ListCommands() {
  const auto visit = [](void *self, const KestrelDispCommand *command) {
    std::vector<std::string_view> texts{command->object, command->command};
    texts.insert(texts.end(), command->params, command->params + command->paramCount);
    static_cast<Console *>(self)->output_.Fields(KESTREL_CONSOLE_COMMAND, texts);
    return uint32_t{0};
  };
  ListDispCommands(disp_.Registry(), nullptr, "", visit, this);
  output_.End(KESTREL_OK);
}

void Console::ListHelp() {
  for (const auto &[name, object] : disp_.Registry().All()) {
    for (const auto &[text, command] : object.commands) {
      std::vector<std::string_view> texts{name, text, command.about};
      texts.insert(texts.end(), command.paramsAbout.begin(), command.paramsAbout.end());
      output_.Fields(KESTREL_CONSOLE_HELP, texts);
    }
  }
  output_.End(KESTREL_OK);
}

}  // namespace kestrel
