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
  if (handle == nullptr) throw std::runtime_error("cannot make a timer in the event loop");
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
    : m_loop(param.loop),
      m_timers(NewTimerHandle(m_loop.Get())),
      m_watches(m_loop.Get()),
      m_log(param, kestrel::MonotonicMs),
      m_dbg{TakesDbg, WriteDbg, &m_log} {
  AddPool(param.name, param.memLimitBytes);
  m_log.OnFirstDrop([this] { WatchDrops(); });
  kestrel::AddAssertLog(&m_log);
}

Kestrel::~Kestrel() { kestrel::RemoveAssertLog(&m_log); }

Pool &Kestrel::AddPool(const char *name, uint64_t limitBytes) {
  return m_pools.emplace_back(
      name, limitBytes, [this](const std::string &pool, const char *tag, uint32_t num) {
        m_log.NoteAt(
            kMemModule, num, KST_LOG_ERROR,
            Format("pool %s: free of what is not live in it, tag %s(%u)", pool.c_str(), tag, num));
      });
}

bool Kestrel::DropPool(uint64_t handle, uint64_t &leaked) {
  for (auto pool = std::next(m_pools.begin()); pool != m_pools.end(); ++pool) {
    if (HandleOf(&*pool) != handle) continue;
    leaked = ReportPoolLeaks(m_log, *pool);
    m_pools.erase(pool);
    return true;
  }
  return false;
}

uint64_t Kestrel::ReportLeaks() {
  m_log.TellDropped(true);
  uint64_t leaked = 0;
  for (const Pool &pool : m_pools) leaked += ReportPoolLeaks(m_log, pool);
  return leaked;
}

uint32_t Kestrel::ListenForConsoles(const KestrelDispAccess &access) {
  if (m_consoles != nullptr) return KESTREL_EXISTS;
  auto consoles = std::make_unique<kestrel::ConsoleServer>(m_loop.Get(), m_disp, m_log);
  const uint32_t ret = consoles->Listen(access);
  if (ret == KESTREL_OK) m_consoles = std::move(consoles);
  return ret;
}

uint32_t Kestrel::DropConsoles() {
  if (m_disp.IsRunning()) return KESTREL_BUSY;
  if (m_consoles == nullptr) return KESTREL_NOT_FOUND;
  m_consoles.reset();
  return KESTREL_OK;
}

void Kestrel::WatchDrops() {
  if (m_dropTimer == 0) m_dropTimer = m_timers.Start(OnDropWindow, m_log.WindowMs(), this);
}

uint32_t Kestrel::OnDropWindow(void *param) {
  auto *host = static_cast<Kestrel *>(param);
  kestrel::Quietly([&] {
    if (host->m_log.TellDropped(false)) return;
    host->m_timers.Stop(std::exchange(host->m_dropTimer, 0));
  });
  return 0;
}
