/* host_support.cpp: what the tests of the reference host share. */
#include "host_support.h"

#include <poll.h>
#include <uv.h>

#include "kst_log.h"

namespace host_test {

KestrelParam LogLines::Param() {
  KestrelParam param{};
  param.logLevel = KESTREL_LEVEL_DEBUG;
  param.logSinks = KESTREL_SINK_CALLBACK;
  param.logCallback = OnRecord;
  param.logCallbackParam = this;
  return param;
}

void LogLines::OnRecord(void *self, const KestrelLogRecord *record) {
  static_cast<LogLines *>(self)->lines_.push_back(
      {record->channel, record->level, record->module, record->line, record->func, record->text});
}

std::vector<std::string> LogLines::Texts() const {
  std::vector<std::string> texts;
  for (const LogLine &line : lines_) texts.push_back(line.text);
  return texts;
}

bool TurnUntil(Kestrel *host, const std::function<bool()> &isDone) {
  constexpr uint64_t kPatienceNs = 300'000'000'000u;
  const uint64_t endNs = uv_hrtime() + kPatienceNs;
  while (!isDone() && uv_hrtime() < endNs) {
    pollfd waiting{KestrelPollFd(host), POLLIN, 0};
    const int timeoutMs = KestrelPollTimeoutMs(host);
    poll(&waiting, 1, timeoutMs < 0 ? 100 : timeoutMs);
    KestrelTurn(host);
  }
  return isDone();
}

bool LogOnce(uint64_t log, uint32_t line, uint32_t level, const char *text) {
  if (KST_LogFirstHalf_(log, "m", line, level) != 0) return false;
  KST_LogSecondHalf_(log, "m", line, level, "Func", "%s", text);
  return true;
}

}  // namespace host_test
