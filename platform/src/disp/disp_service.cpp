/* disp_service.cpp: from a command line to the pages of its handler. */
#include "disp/disp_service.h"

#include <cstring>
#include <optional>
#include <utility>

#include "disp/disp_line.h"

namespace kestrel {

namespace {

constexpr char kBusyText[] = "a display command is running";

// ScopedValue sets a variable for the time of a block.
template <typename Type>
class ScopedValue {
 public:
  ScopedValue(Type &variable, Type value) : variable_(variable), before_(variable) {
    variable = value;
  }
  ~ScopedValue() { variable_ = before_; }
  ScopedValue(const ScopedValue &) = delete;
  ScopedValue &operator=(const ScopedValue &) = delete;

 private:
  Type &variable_;
  Type before_;
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

void DispRun::Send(uint32_t error, std::string_view text) {
  if (isStopped_ || !sink_) return;
  isStopped_ = sink_(sinkParam_, error, text.data(), text.size()) != 0;
}

uint32_t DispRun::Fail(KestrelResult result, const std::string &reason) {
  Send(1, reason);
  return result;
}

uint32_t DispService::Run(const KestrelDispRequest &request) {
  const uint32_t maxPages =
      request.maxPages != 0 ? request.maxPages : uint32_t{KESTREL_DISP_DEFAULT_PAGES};
  DispRun run(request.sink, request.sinkParam);
  uint32_t ret = Start(run, request.line, request.object);
  if (ret != KESTREL_OK) return ret;
  for (uint32_t page = 1;; ++page) {
    ret = Step(run);
    if (ret != kMorePages) return ret;
    if (page == maxPages) {
      return run.Fail(KESTREL_MORE_PAGES,
                      "stopped after " + std::to_string(page) + " pages, there are more");
    }
  }
}

uint32_t DispService::Start(DispRun &run, const char *line, const char *object) {
  if (run_) return run.Fail(KESTREL_BUSY, kBusyText);
  const ScopedValue<DispRun *> running(run_, &run);
  return Prepare(run, LineOf(line), object);
}

uint32_t DispService::Prepare(DispRun &run, std::string_view line, const char *object) const {
  std::string reason;
  const auto words = SplitDispLine(line, reason);
  if (!words) return run.Fail(KESTREL_BAD_LINE, reason);

  DispMatch match{};
  const uint32_t ret = Choose(run, *words, line, object, match);
  if (ret != KESTREL_OK) return ret;
  run.objectName_ = *match.objectName;
  run.objectSerial_ = match.object->serial;
  run.record_ = match.object->record;
  run.handler_ = match.command->handler;
  return ReadArgs(run, *words, match);
}

uint32_t DispService::Choose(DispRun &run, const std::vector<std::string> &words,
                             std::string_view line, const char *object, DispMatch &match) const {
  if (object && !registry_.FindObject(object)) {
    return run.Fail(KESTREL_UNKNOWN_OBJECT, "unknown object " + QuoteForReply(object));
  }
  const auto matches = registry_.Match(words, object);
  if (matches.empty()) {
    return run.Fail(KESTREL_UNKNOWN_COMMAND, "unknown command " + QuoteForReply(line));
  }
  if (matches.size() > 1) {
    return run.Fail(KESTREL_AMBIGUOUS,
                    "several objects have this command, name one of: " + NamesOf(matches));
  }
  match = matches.front();
  return KESTREL_OK;
}

uint32_t DispService::ReadArgs(DispRun &run, const std::vector<std::string> &words,
                               const DispMatch &match) {
  const auto &params = match.command->params;
  const size_t given = words.size() - match.wordCount;
  if (given < params.size()) {
    return run.Fail(KESTREL_MISSING_PARAM, "missing parameter " + params[given]);
  }
  if (given > params.size()) {
    return run.Fail(KESTREL_EXTRA_PARAM, "unexpected parameter " +
                                             QuoteForReply(words[match.wordCount + params.size()]));
  }
  run.args_.count = static_cast<uint32_t>(given);
  for (size_t i = 0; i < given; ++i) {
    const std::string &word = words[match.wordCount + i];
    run.args_.values[i] = {match.command->IsText(i), word, 0};
    if (run.args_.values[i].isText) continue;
    const auto number = ParseDispNumber(word);
    if (!number) {
      return run.Fail(KESTREL_BAD_NUMBER, "parameter " + params[i] +
                                              " must be a decimal number up to 4294967295, not " +
                                              QuoteForReply(word));
    }
    run.args_.values[i].number = *number;
  }
  return KESTREL_OK;
}

uint32_t DispService::Step(DispRun &run) {
  if (run_) return run.Fail(KESTREL_BUSY, kBusyText);
  if (!StillRegistered(run)) {
    return run.Fail(KESTREL_UNKNOWN_OBJECT,
                    "the object " + QuoteForReply(run.objectName_) + " is gone");
  }
  const ScopedValue<DispRun *> running(run_, &run);
  run.last_ = std::exchange(run.next_, {});
  CallDispHandler(run.handler_, run.record_, run.args_);
  if (run.isStopped_) return KESTREL_STOPPED;
  return run.next_.isSet && StillRegistered(run) ? kMorePages : uint32_t{KESTREL_OK};
}

bool DispService::StillRegistered(const DispRun &run) const {
  const DispObject *object = registry_.FindObject(run.objectName_);
  return object && object->serial == run.objectSerial_;
}

void DispService::Print(std::string_view text) {
  if (run_ && !text.empty()) run_->Send(0, text);
}

void DispService::SaveContext(const void *key, uint32_t keyLen, const void *counter,
                              uint32_t counterLen) {
  if (!run_ || keyLen > KST_DISP_MAX_KEY_LEN || counterLen > KST_DISP_MAX_COUNTER_LEN) {
    return;
  }
  CopyBytes(run_->next_.key, key, keyLen);
  CopyBytes(run_->next_.counter, counter, counterLen);
  run_->next_.isSet = true;
}

const void *DispService::LastContext(void *counter) const {
  if (!run_ || !run_->last_.isSet) return nullptr;
  const auto &last = run_->last_;
  if (!last.counter.empty()) std::memcpy(counter, last.counter.data(), last.counter.size());
  return last.key.data();
}

}  // namespace kestrel
