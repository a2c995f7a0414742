/* kestrel.cpp: the application's interface to a host, by service. */
#include "kestrel.h"

#include <iterator>

#include "disp/disp_list.h"
#include "host/edge.h"
#include "host/host.h"

using kestrel::FromHandle;
using kestrel::HandleOf;
using kestrel::Pool;

namespace {

// WithoutMemory is what becomes of a call that threw.
template <typename Run>
uint32_t WithoutMemory(Run run) {
  return kestrel::Guarded(uint32_t{KESTREL_NO_MEMORY}, run);
}

constexpr const char *kResultTexts[] = {
    "success",
    "bad argument",
    "no memory",
    "refused by the system",
    "not found",
    "exists already",
    "busy",
    "the loop belongs to the application",
    "malformed command line",
    "unknown object",
    "unknown command",
    "several objects have this command",
    "missing parameter",
    "too many parameters",
    "not a decimal number",
    "cut at the limit of pages",
    "stopped by the sink",
};
static_assert(std::size(kResultTexts) == KESTREL_STOPPED + 1);

}  // namespace

const char *KestrelResultText(uint32_t result) {
  return result < std::size(kResultTexts) ? kResultTexts[result] : "unknown result";
}

uint64_t KestrelMem(Kestrel *host) { return HandleOf(&host->OwnPool()); }

uint64_t KestrelLog(Kestrel *host) { return HandleOf<KST_LogObj>(&host->GetLog()); }

uint64_t KestrelDisp(Kestrel *host) { return HandleOf(&host->Disp()); }

uint64_t KestrelTmr(Kestrel *host) { return HandleOf(&host->Timers()); }

uint64_t KestrelDbg(Kestrel *host) { return HandleOf(&host->Dbg()); }

uint32_t KestrelRun(Kestrel *host) { return host->GetLoop().Run(); }

uint32_t KestrelTurn(Kestrel *host) { return host->GetLoop().Turn(); }

uint32_t KestrelStop(Kestrel *host) { return host->GetLoop().Stop(); }

int KestrelPollFd(Kestrel *host) { return uv_backend_fd(host->GetLoop().Get()); }

int KestrelPollTimeoutMs(Kestrel *host) { return host->GetLoop().TimeoutMs(); }

uint32_t KestrelWatch(Kestrel *host, int fd, KestrelFdReady ready, void *param) {
  return WithoutMemory([&] { return host->Watches().Watch(fd, ready, param); });
}

uint32_t KestrelUnwatch(Kestrel *host, int fd) { return host->Watches().Unwatch(fd); }

uint32_t KestrelPoolNew(Kestrel *host, const char *name, uint64_t limitBytes, uint64_t *pool) {
  if (!name || !pool) return KESTREL_BAD_ARGUMENT;
  return WithoutMemory([&] {
    *pool = HandleOf(&host->AddPool(name, limitBytes));
    return uint32_t{KESTREL_OK};
  });
}

uint32_t KestrelPoolDelete(Kestrel *host, uint64_t pool, uint64_t *leaked) {
  return WithoutMemory([&] {
    uint64_t count = 0;
    if (!host->DropPool(pool, count)) return uint32_t{KESTREL_NOT_FOUND};
    if (leaked) *leaked = count;
    return uint32_t{KESTREL_OK};
  });
}

uint32_t KestrelMemStatGet(uint64_t pool, KestrelMemStat *stat) {
  if (pool == 0) return KESTREL_BAD_ARGUMENT;
  *stat = FromHandle<Pool>(pool)->Stat();
  return KESTREL_OK;
}

uint32_t KestrelMemTagGet(uint64_t pool, uint32_t index, KestrelMemTagStat *stat) {
  if (pool == 0) return KESTREL_BAD_ARGUMENT;
  const Pool &source = *FromHandle<Pool>(pool);
  if (index >= source.TagCount()) return KESTREL_NOT_FOUND;
  *stat = source.TagStat(index);
  return KESTREL_OK;
}

void KestrelLogStatGet(Kestrel *host, KestrelLogStat *stat) { *stat = host->GetLog().Stat(); }

void KestrelLogSiteGet(Kestrel *host, const char *module, uint32_t line, KestrelLogSite *site) {
  *site = host->GetLog().SiteAccount(module, line);
}

uint32_t KestrelDispRun(Kestrel *host, const KestrelDispRequest *request) {
  if (!request || !request->line) return KESTREL_BAD_ARGUMENT;
  return WithoutMemory([&] { return host->Disp().Run(*request); });
}

uint32_t KestrelDispListen(Kestrel *host, const KestrelDispAccess *access) {
  if (!access || !access->path) return KESTREL_BAD_ARGUMENT;
  return WithoutMemory([&] { return host->ListenForConsoles(*access); });
}

uint32_t KestrelDispUnlisten(Kestrel *host) { return host->DropConsoles(); }

void KestrelDispObjects(Kestrel *host, KestrelDispVisitObject visit, void *param) {
  kestrel::ListDispObjects(host->Disp().Registry(), visit, param);
}

void KestrelDispCommands(Kestrel *host, const char *object, const char *prefix,
                         KestrelDispVisitCommand visit, void *param) {
  kestrel::ListDispCommands(host->Disp().Registry(), object, prefix ? prefix : "", visit, param);
}
