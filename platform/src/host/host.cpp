/* host.cpp: the host, all its services. */
#include "host/host.h"

#include <stdexcept>
#include <utility>

#include "host/edge.h"
#include "log/asserts.h"

using kestrel::Format;
using kestrel::HandleOf;
using kestrel::Log;
using kestrel::Pool;

namespace {

constexpr char kMemModule[] = "kestrel.mem";

kestrel::UvPtr<uv_timer_t> NewTimerHandle(uv_loop_t *loop) {
  auto handle = kestrel::NewUvHandle<uv_timer_t>(
      nullptr, [loop](uv_timer_t *timer) { return uv_timer_init(loop, timer); });
  if (!handle) throw std::runtime_error("cannot make a timer in the event loop");
  return handle;
}

bool TakesDbg(void *owner, uint32_t level) {
  return kestrel::Guarded(false, [&] { return static_cast<Log *>(owner)->TakesDebug(level); });
}

void WriteDbg(void *owner, bool toSyslog, uint32_t level, const char *text) {
  kestrel::Quietly([&] {
    auto *log = static_cast<Log *>(owner);
    toSyslog ? log->Syslog(level, text) : log->Debug(level, text);
  });
}

// ReportTagLeaks lists the tags that still hold something, up to a readable number of them.
void ReportTagLeaks(Log &log, const Pool &pool) {
  constexpr uint32_t kMaxShown = 32;
  uint32_t shown = 0;
  for (uint32_t i = 0; i < pool.TagCount(); ++i) {
    const KestrelMemTagStat tag = pool.TagStat(i);
    if (tag.liveCount == 0 || ++shown > kMaxShown) continue;
    log.Note(KST_LOG_WARN, kMemModule,
             Format("pool %s: leak: %llu allocations, %llu bytes, tag %s(%u)", pool.Name().c_str(),
                    static_cast<unsigned long long>(tag.liveCount),
                    static_cast<unsigned long long>(tag.liveBytes), tag.tag, tag.num));
  }
  if (shown > kMaxShown) {
    log.Note(KST_LOG_WARN, kMemModule,
             Format("pool %s: leak: %u more tags", pool.Name().c_str(), shown - kMaxShown));
  }
}

uint64_t ReportPoolLeaks(Log &log, const Pool &pool) {
  const KestrelMemStat stat = pool.Stat();
  if (stat.liveCount == 0) return 0;
  log.Note(KST_LOG_WARN, kMemModule,
           Format("pool %s: %llu allocations, %llu bytes were never freed", pool.Name().c_str(),
                  static_cast<unsigned long long>(stat.liveCount),
                  static_cast<unsigned long long>(stat.liveBytes)));
  ReportTagLeaks(log, pool);
  return stat.liveCount;
}

}  // namespace

Kestrel::Kestrel(const KestrelParam &param)
    : loop_(param.loop),
      timers_(NewTimerHandle(loop_.Get())),
      watches_(loop_.Get()),
      log_(param, kestrel::MonotonicMs),
      dbg_{TakesDbg, WriteDbg, &log_} {
  AddPool(param.name, param.memLimitBytes);
  log_.OnFirstDrop([this] { WatchDrops(); });
  kestrel::AddAssertLog(&log_);
}

Kestrel::~Kestrel() { kestrel::RemoveAssertLog(&log_); }

Pool &Kestrel::AddPool(const char *name, uint64_t limitBytes) {
  return pools_.emplace_back(
      name, limitBytes, [this](const std::string &pool, const char *tag, uint32_t num) {
        log_.NoteAt(
            kMemModule, num, KST_LOG_ERROR,
            Format("pool %s: free of what is not live in it, tag %s(%u)", pool.c_str(), tag, num));
      });
}

bool Kestrel::DropPool(uint64_t handle, uint64_t &leaked) {
  for (auto pool = std::next(pools_.begin()); pool != pools_.end(); ++pool) {
    if (HandleOf(&*pool) != handle) continue;
    leaked = ReportPoolLeaks(log_, *pool);
    pools_.erase(pool);
    return true;
  }
  return false;
}

uint64_t Kestrel::ReportLeaks() {
  log_.TellDropped(true);
  uint64_t leaked = 0;
  for (const Pool &pool : pools_) leaked += ReportPoolLeaks(log_, pool);
  return leaked;
}

uint32_t Kestrel::ListenForConsoles(const KestrelDispAccess &access) {
  if (consoles_) return KESTREL_EXISTS;
  auto consoles = std::make_unique<kestrel::ConsoleServer>(loop_.Get(), disp_, log_);
  const uint32_t ret = consoles->Listen(access);
  if (ret == KESTREL_OK) consoles_ = std::move(consoles);
  return ret;
}

uint32_t Kestrel::DropConsoles() {
  if (disp_.IsRunning()) return KESTREL_BUSY;
  if (!consoles_) return KESTREL_NOT_FOUND;
  consoles_.reset();
  return KESTREL_OK;
}

void Kestrel::WatchDrops() {
  if (dropTimer_ == 0) dropTimer_ = timers_.Start(OnDropWindow, log_.WindowMs(), this);
}

uint32_t Kestrel::OnDropWindow(void *param) {
  auto *host = static_cast<Kestrel *>(param);
  kestrel::Quietly([&] {
    if (host->log_.TellDropped(false)) return;
    host->timers_.Stop(std::exchange(host->dropTimer_, 0));
  });
  return 0;
}
