/* host.h: the host, all its services in the order in which they come and go. */
#ifndef KESTREL_SRC_HOST_HOST_H
#define KESTREL_SRC_HOST_HOST_H

#include <list>
#include <memory>
#include <string>

#include "console/console_server.h"
#include "dbg/dbg_channel.h"
#include "disp/disp_service.h"
#include "host/fd_watches.h"
#include "host/loop.h"
#include "kestrel.h"
#include "log/log.h"
#include "mem/pool.h"
#include "tmr/loop_timers.h"

struct Kestrel {
 public:
  // `param` has its defaults filled in.  Throws what its services throw.
  explicit Kestrel(const KestrelParam &param);
  ~Kestrel();
  Kestrel(const Kestrel &) = delete;
  Kestrel &operator=(const Kestrel &) = delete;

  kestrel::Loop &GetLoop() { return loop_; }
  kestrel::FdWatches &Watches() { return watches_; }
  kestrel::LoopTimers &Timers() { return timers_; }
  kestrel::Log &GetLog() { return log_; }
  kestrel::DispService &Disp() { return disp_; }
  kestrel::DbgChannel &Dbg() { return dbg_; }
  kestrel::Pool &OwnPool() { return pools_.front(); }

  // AddPool throws std::bad_alloc.
  kestrel::Pool &AddPool(const char *name, uint64_t limitBytes);

  // DropPool reports the leaks of an added pool and deletes it; false when `handle` is invalid.
  bool DropPool(uint64_t handle, uint64_t &leaked);

  // ListenForConsoles and DropConsoles are KestrelDispListen and KestrelDispUnlisten.
  // ListenForConsoles throws std::bad_alloc.
  uint32_t ListenForConsoles(const KestrelDispAccess &access);
  uint32_t DropConsoles();

  // ReportLeaks reports the leaks of all pools and returns how many there are.
  uint64_t ReportLeaks();

 private:
  void WatchDrops();
  static uint32_t OnDropWindow(void *param);

  kestrel::Loop loop_;
  kestrel::LoopTimers timers_;
  kestrel::FdWatches watches_;
  kestrel::Log log_;
  kestrel::DbgChannel dbg_;
  kestrel::DispService disp_;
  std::unique_ptr<kestrel::ConsoleServer> consoles_;
  std::list<kestrel::Pool> pools_;  // the own one first
  uint64_t dropTimer_ = 0;          // runs while the log has dropped records to tell of
};

#endif /* KESTREL_SRC_HOST_HOST_H */
