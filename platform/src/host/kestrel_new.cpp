/* kestrel_new.cpp: checks the description of a host, makes and deletes it. */
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>

#include "host/edge.h"
#include "host/host.h"
#include "kestrel.h"

namespace {

constexpr uint32_t kMaxLogFiles = 1000;
constexpr uint32_t kAllSinks = KESTREL_SINK_STDERR | KESTREL_SINK_FILE | KESTREL_SINK_SYSLOG |
                               KESTREL_SINK_CALLBACK | KESTREL_SINK_NONE;

template <typename Number>
void SetDefault(Number &member, Number value) {
  if (member == 0) member = value;
}

KestrelParam WithDefaults(const KestrelParam *given) {
  KestrelParam param = given ? *given : KestrelParam{};
  if (!param.name) param.name = "kestrel";
  SetDefault<uint32_t>(param.logLevel, KESTREL_LEVEL_INFO);
  SetDefault<uint32_t>(param.logSinks, KESTREL_SINK_STDERR);
  SetDefault<uint64_t>(param.logFileBytes, 4u << 20);
  SetDefault<uint32_t>(param.logFileCount, 3);
  SetDefault<uint32_t>(param.logWindowMs, 1000);
  SetDefault<uint32_t>(param.logBurst, 100);
  SetDefault<uint32_t>(param.debugBurst, 100);
  return param;
}

void Demand(bool isGood, const char *otherwise) {
  if (!isGood) throw std::invalid_argument(otherwise);
}

void CheckSinks(const KestrelParam &param) {
  const uint32_t sinks = param.logSinks;
  Demand((sinks & ~kAllSinks) == 0, "logSinks has unknown bits");
  Demand((sinks & KESTREL_SINK_NONE) == 0 || sinks == KESTREL_SINK_NONE,
         "KESTREL_SINK_NONE does not go with other sinks");
  Demand((sinks & KESTREL_SINK_FILE) == 0 || (param.logFile && *param.logFile != '\0'),
         "the file sink needs logFile");
  Demand((sinks & KESTREL_SINK_CALLBACK) == 0 || param.logCallback,
         "the callback sink needs logCallback");
}

void Check(const KestrelParam &param) {
  Demand(param.logLevel <= KESTREL_LEVEL_OFF, "logLevel is unknown");
  Demand(param.logFileCount <= kMaxLogFiles, "logFileCount is greater than 1000");
  CheckSinks(param);
}

void SetError(char *error, uint32_t errorSize, const char *reason) {
  if (error && errorSize != 0) std::snprintf(error, errorSize, "%s", reason);
}

}  // namespace

Kestrel *KestrelNew(const KestrelParam *param, char *error, uint32_t errorSize) {
  try {
    const KestrelParam full = WithDefaults(param);
    Check(full);
    return std::make_unique<Kestrel>(full).release();
  } catch (const std::exception &failure) {
    SetError(error, errorSize, failure.what());
  } catch (...) {
    SetError(error, errorSize, "unknown failure");
  }
  return nullptr;
}

uint64_t KestrelDelete(Kestrel *host) {
  const std::unique_ptr<Kestrel> owned(host);
  if (!host) return 0;
  return kestrel::Guarded(uint64_t{0}, [host] { return host->ReportLeaks(); });
}
