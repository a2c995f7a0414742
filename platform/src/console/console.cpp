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
  m_poll = NewUvHandle<uv_poll_t>(
      this, [&](uv_poll_t *handle) { return uv_poll_init(loop, handle, m_socket.Get()); });
  m_idle =
      NewUvHandle<uv_idle_t>(this, [&](uv_idle_t *handle) { return uv_idle_init(loop, handle); });
  if (m_poll == nullptr || m_idle == nullptr) return false;
  m_output.Line(KESTREL_CONSOLE_GREETING, KESTREL_CONSOLE_HELLO);
  Rearm();
  return true;
}

void Console::OnReady(uv_poll_t *handle, int status, int events) {
  auto *self = static_cast<Console *>(handle->data);
  self->Do([&] {
    if (status < 0) self->m_isBroken = true;
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
  if (!Guarded(false, [&] { return task(), true; })) m_isBroken = true;
  if (!IsOver()) return Rearm();
  const OnGone onGone = std::move(m_onGone);
  onGone(*this);
}

void Console::Read() {
  char bytes[16384];
  const ssize_t len = recv(m_socket.Get(), bytes, sizeof bytes, 0);
  if (len < 0) {
    if (!IsTransient(errno)) m_isBroken = true;
    return;
  }
  if (len == 0) m_isAtEnd = true;
  const bool hasStop = m_input.Feed({bytes, static_cast<size_t>(len)});
  if (hasStop && m_run) EndRun(KESTREL_STOPPED);
}

void Console::Write() {
  const std::string_view waiting = m_output.Waiting();
  if (waiting.empty()) return;
  const ssize_t len = send(m_socket.Get(), waiting.data(), waiting.size(), MSG_NOSIGNAL);
  if (len >= 0) return m_output.Sent(static_cast<size_t>(len));
  if (!IsTransient(errno)) m_isBroken = true;
}

void Console::Work() {
  for (uint32_t i = 0; i < kStepsPerTurn && HasWork(); ++i) {
    m_run ? RunPage() : Answer(m_input.Take());
  }
  Write();
}

bool Console::HasWork() const {
  return (m_run || !m_input.IsEmpty()) && m_output.Waiting().size() < kEnoughWaitingBytes;
}

bool Console::IsOver() const {
  const bool isAnswered = !m_run && m_input.IsEmpty() && m_output.Waiting().empty();
  return m_isBroken || (m_isAtEnd && isAnswered);
}

void Console::Rearm() {
  int events = 0;
  if (!m_isAtEnd && !m_input.IsFull()) events |= UV_READABLE;
  if (!m_output.Waiting().empty()) events |= UV_WRITABLE;
  events != 0 ? uv_poll_start(m_poll.get(), events, OnReady) : uv_poll_stop(m_poll.get());
  HasWork() ? uv_idle_start(m_idle.get(), OnIdle) : uv_idle_stop(m_idle.get());
}

void Console::Answer(const ConsoleRequest &request) {
  if (request.isTooLong) {
    return Refuse("the request is longer than " + std::to_string(KESTREL_CONSOLE_MAX_REQUEST) +
                  " bytes");
  }
  if (request.isStopped) return m_output.End(KESTREL_STOPPED);
  if (request.word == "run") return StartRun(request.rest);
  if (request.word == "objects") return ListObjects();
  if (request.word == "commands") return ListCommands();
  if (request.word != "object") return Refuse("unknown request");
  m_object = request.rest;
  m_output.End(KESTREL_OK);
}

void Console::Refuse(const std::string &reason) {
  m_output.Line(KESTREL_CONSOLE_ERROR, reason);
  m_output.End(KESTREL_BAD_LINE);
}

void Console::StartRun(const std::string &line) {
  if (line.find('\0') != line.npos) return Refuse("the command line has control characters");
  m_run.emplace(OnOutput, this);
  const char *object = m_object.empty() ? nullptr : m_object.c_str();
  const uint32_t result = m_disp.Start(*m_run, line.c_str(), object);
  if (result != KESTREL_OK) EndRun(result);
}

void Console::RunPage() {
  const uint32_t result = m_disp.Step(*m_run);
  if (result != DispService::kMorePages) EndRun(result);
}

void Console::EndRun(uint32_t result) {
  m_run.reset();
  m_output.End(result);
}

uint32_t Console::OnOutput(void *self, uint32_t error, const char *text, size_t len) {
  ConsoleOutput &output = static_cast<Console *>(self)->m_output;
  if (error == 0) return output.Print({text, len}) ? 0 : 1;
  output.Line(KESTREL_CONSOLE_ERROR, {text, len});
  return 0;
}

void Console::ListObjects() {
  const auto visit = [](void *self, const char *object) {
    static_cast<Console *>(self)->m_output.Line(KESTREL_CONSOLE_OBJECT, object);
    return uint32_t{0};
  };
  ListDispObjects(m_disp.Registry(), visit, this);
  m_output.End(KESTREL_OK);
}

void Console::ListCommands() {
  const auto visit = [](void *self, const KestrelDispCommand *command) {
    static_cast<Console *>(self)->m_output.Command(command->object, command->command,
                                                   command->params, command->paramCount);
    return uint32_t{0};
  };
  ListDispCommands(m_disp.Registry(), nullptr, "", visit, this);
  m_output.End(KESTREL_OK);
}

}  // namespace kestrel
