/* contract_host_kestrel.cpp: the reference host, as the host-contract suite sees it. */
#include <poll.h>
#include <time.h>

#include <algorithm>

#include "contract_host.h"
#include "kestrel.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kOneHourMs = 3'600'000;

uint64_t MonotonicMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

class KestrelContractHost : public ContractHost {
 public:
  explicit KestrelContractHost(const ContractHostParam &param);
  ~KestrelContractHost() override { KestrelDelete(host_); }

  bool IsMade() const { return host_ != nullptr; }

  uint64_t Mem() override { return KestrelMem(host_); }
  uint64_t Log() override { return KestrelLog(host_); }
  uint64_t Disp() override { return KestrelDisp(host_); }
  uint64_t Tmr() override { return KestrelTmr(host_); }
  uint64_t Dbg() override { return KestrelDbg(host_); }
  void AdvanceMs(uint32_t ms) override;
  bool HasExactTime() override { return false; }
  std::vector<ContractLogLine> LogLines() override { return lines_; }
  uint64_t LogCount(const std::string &module, uint32_t line) override;
  std::vector<ContractAssert> Asserts() override;
  ContractDispResult RunCommand(const std::string &objName, const std::string &command,
                                const std::vector<std::string> &args) override;
  uint64_t LiveAllocations() override;

 private:
  static void OnRecord(void *self, const KestrelLogRecord *record);

  std::vector<ContractLogLine> lines_;
  uint64_t numAssertsBefore_;
  Kestrel *host_;
};

KestrelParam ParamFor(const ContractHostParam &param) {
  KestrelParam kestrel{};
  kestrel.memLimitBytes = param.memLimitBytes;
  kestrel.logLevel = param.logLevel + 1;
  kestrel.logSinks = KESTREL_SINK_CALLBACK;
  kestrel.logBurst = param.logRecordsPerSite != 0 ? param.logRecordsPerSite : UINT32_MAX;
  kestrel.logWindowMs = kOneHourMs;
  return kestrel;
}

KestrelContractHost::KestrelContractHost(const ContractHostParam &param)
    : numAssertsBefore_(KestrelAssertCount()) {
  KestrelParam kestrel = ParamFor(param);
  kestrel.logCallback = OnRecord;
  kestrel.logCallbackParam = this;
  host_ = KestrelNew(&kestrel, nullptr, 0);
}

void KestrelContractHost::OnRecord(void *self, const KestrelLogRecord *record) {
  if (record->channel != KESTREL_CHANNEL_LOG) return;
  static_cast<KestrelContractHost *>(self)->lines_.push_back(
      {record->module, record->line, record->level, record->func, record->text});
}

void KestrelContractHost::AdvanceMs(uint32_t ms) {
  const uint64_t endMs = MonotonicMs() + ms + 1;  // the present millisecond may be nearly over
  for (uint64_t nowMs = MonotonicMs(); nowMs < endMs; nowMs = MonotonicMs()) {
    const int restMs = static_cast<int>(endMs - nowMs);
    const int dueMs = KestrelPollTimeoutMs(host_);
    pollfd waiting{KestrelPollFd(host_), POLLIN, 0};
    poll(&waiting, 1, dueMs < 0 ? restMs : std::min(dueMs, restMs));
    KestrelTurn(host_);
  }
}

uint64_t KestrelContractHost::LogCount(const std::string &module, uint32_t line) {
  KestrelLogSite site{};
  KestrelLogSiteGet(host_, module.c_str(), line, &site);
  return site.counted;
}

std::vector<ContractAssert> KestrelContractHost::Asserts() {
  std::vector<ContractAssert> asserts;
  KestrelAssert one{};
  const uint64_t numOurs = KestrelAssertCount() - numAssertsBefore_;
  for (uint32_t back = 0; back < numOurs && KestrelAssertGet(back, &one) == KESTREL_OK; ++back) {
    asserts.insert(asserts.begin(), {one.path, one.line});
  }
  return asserts;
}

ContractDispResult KestrelContractHost::RunCommand(const std::string &objName,
                                                   const std::string &command,
                                                   const std::vector<std::string> &args) {
  std::string line = command;
  for (const std::string &arg : args) line += " \"" + arg + "\"";

  std::string output;
  const auto takeText = [](void *param, uint32_t error, const char *text, size_t len) {
    if (error == 0) static_cast<std::string *>(param)->append(text, len);
    return uint32_t{0};
  };
  const KestrelDispRequest request{line.c_str(), objName.c_str(), 0, takeText, &output};
  const bool ran = KestrelDispRun(host_, &request) == KESTREL_OK;
  return {ran, output};
}

uint64_t KestrelContractHost::LiveAllocations() {
  KestrelMemStat stat{};
  KestrelMemStatGet(Mem(), &stat);
  return stat.liveCount;
}

}  // namespace

std::unique_ptr<ContractHost> MakeContractHost(const ContractHostParam &param) {
  auto host = std::make_unique<KestrelContractHost>(param);
  if (!host->IsMade()) return nullptr;
  return host;
}

}  // namespace coap_rpc_test
