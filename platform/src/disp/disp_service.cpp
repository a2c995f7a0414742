/* disp_service.cpp: from a command line to the pages of its handler. */
#include "disp/disp_service.h"

#include <cstring>
#include <optional>
#include <utility>

#include "disp/disp_line.h"

namespace kestrel {

namespace {

// ScopedValue sets a variable for the time of a block.
template <typename Type>
class ScopedValue {
 public:
  ScopedValue(Type &variable, Type value) : m_variable(variable), m_before(variable) {
    variable = value;
  }
  ~ScopedValue() { m_variable = m_before; }
  ScopedValue(const ScopedValue &) = delete;
  ScopedValue &operator=(const ScopedValue &) = delete;

 private:
  Type &m_variable;
  Type m_before;
};

std::string NamesOf(const std::vector<DispMatch> &matches) {
  std::string names;
  for (const DispMatch &match : matches) names += (names.empty() ? "" : ", ") + *match.objectName;
  return names;
}

// LineOf takes just enough of a line to see that it is too long: a line end may follow the limit.
std::string_view LineOf(const char *line) {
  return {line, strnlen(line, KESTREL_DISP_MAX_LINE + 3)};
}

void CopyBytes(std::vector<char> &to, const void *from, uint32_t len) {
  const auto *bytes = static_cast<const char *>(from);
  to.assign(bytes, bytes + len);
  to.reserve(1);  // gives an empty key an address, too
}

}  // namespace

void DispService::RunState::Send(uint32_t error, std::string_view text) {
  if (isStopped || request.sink == nullptr) return;
  isStopped = request.sink(request.sinkParam, error, text.data(), text.size()) != 0;
}

uint32_t DispService::RunState::Fail(KestrelResult result, const std::string &reason) {
  Send(1, reason);
  return result;
}

uint32_t DispService::Run(const KestrelDispRequest &request) {
  RunState run{request, false, {}, {}};
  if (m_run != nullptr) return run.Fail(KESTREL_BUSY, "a display command is running");
  const ScopedValue<RunState *> running(m_run, &run);
  Invocation invocation;
  const uint32_t ret = Prepare(run, invocation);
  return ret == KESTREL_OK ? RunPages(run, invocation) : ret;
}

uint32_t DispService::Prepare(RunState &run, Invocation &invocation) const {
  std::string reason;
  const auto words = SplitDispLine(LineOf(run.request.line), reason);
  if (!words) return run.Fail(KESTREL_BAD_LINE, reason);

  DispMatch match{};
  const uint32_t ret = Choose(run, *words, match);
  if (ret != KESTREL_OK) return ret;
  invocation.objectName = *match.objectName;
  invocation.objectSerial = match.object->serial;
  invocation.record = match.object->record;
  invocation.handler = match.command->handler;
  return ReadArgs(run, *words, match, invocation.args);
}

uint32_t DispService::Choose(RunState &run, const std::vector<std::string> &words,
                             DispMatch &match) const {
  const char *object = run.request.object;
  if (object != nullptr && m_registry.FindObject(object) == nullptr) {
    return run.Fail(KESTREL_UNKNOWN_OBJECT, "unknown object " + QuoteForReply(object));
  }
  const auto matches = m_registry.Match(words, object);
  if (matches.empty()) {
    return run.Fail(KESTREL_UNKNOWN_COMMAND,
                    "unknown command " + QuoteForReply(LineOf(run.request.line)));
  }
  if (matches.size() > 1) {
    return run.Fail(KESTREL_AMBIGUOUS,
                    "several objects have this command, name one of: " + NamesOf(matches));
  }
  match = matches.front();
  return KESTREL_OK;
}

uint32_t DispService::ReadArgs(RunState &run, const std::vector<std::string> &words,
                               const DispMatch &match, DispArgs &args) {
  const auto &params = match.command->params;
  const size_t given = words.size() - match.wordCount;
  if (given < params.size()) {
    return run.Fail(KESTREL_MISSING_PARAM, "missing parameter " + params[given]);
  }
  if (given > params.size()) {
    return run.Fail(KESTREL_EXTRA_PARAM, "unexpected parameter " +
                                             QuoteForReply(words[match.wordCount + params.size()]));
  }
  args.count = static_cast<uint32_t>(given);
  for (size_t i = 0; i < given; ++i) {
    const std::string &word = words[match.wordCount + i];
    args.values[i] = {match.command->IsText(i), word, 0};
    if (args.values[i].isText) continue;
    const auto number = ParseDispNumber(word);
    if (!number) {
      return run.Fail(KESTREL_BAD_NUMBER, "parameter " + params[i] +
                                              " must be a decimal number up to 4294967295, not " +
                                              QuoteForReply(word));
    }
    args.values[i].number = *number;
  }
  return KESTREL_OK;
}

uint32_t DispService::RunPages(RunState &run, const Invocation &invocation) {
  const uint32_t maxPages =
      run.request.maxPages != 0 ? run.request.maxPages : uint32_t{KESTREL_DISP_DEFAULT_PAGES};
  for (uint32_t page = 1;; ++page) {
    CallDispHandler(invocation.handler, invocation.record, invocation.args);
    if (run.isStopped) return KESTREL_STOPPED;
    if (!run.next.isSet || !StillRegistered(invocation)) return KESTREL_OK;
    if (page == maxPages) {
      return run.Fail(KESTREL_MORE_PAGES,
                      "stopped after " + std::to_string(page) + " pages, there are more");
    }
    run.last = std::exchange(run.next, {});
  }
}

bool DispService::StillRegistered(const Invocation &invocation) const {
  const DispObject *object = m_registry.FindObject(invocation.objectName);
  return object != nullptr && object->serial == invocation.objectSerial;
}

void DispService::Print(std::string_view text) {
  if (m_run != nullptr && !text.empty()) m_run->Send(0, text);
}

void DispService::SaveContext(const void *key, uint32_t keyLen, const void *counter,
                              uint32_t counterLen) {
  if (m_run == nullptr || keyLen > KST_DISP_MAX_KEY_LEN || counterLen > KST_DISP_MAX_COUNTER_LEN) {
    return;
  }
  CopyBytes(m_run->next.key, key, keyLen);
  CopyBytes(m_run->next.counter, counter, counterLen);
  m_run->next.isSet = true;
}

const void *DispService::LastContext(void *counter) const {
  if (m_run == nullptr || !m_run->last.isSet) return nullptr;
  const Context &last = m_run->last;
  if (!last.counter.empty()) std::memcpy(counter, last.counter.data(), last.counter.size());
  return last.key.data();
}

}  // namespace kestrel
