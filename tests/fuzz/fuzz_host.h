/* fuzz_host.h: a lean host for fuzz targets: it counts what it gives out and renders what it is
 * told, but records nothing.
 *
 * The platform functions with a handle are defined here; the clocks and module tables are those of
 * TestProcess, and the display service is that of the reference host, so that its line parser is
 * under test as well.  What a target does not free stops the program. */
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include <cstdint>
#include <vector>

#include "coap_svc/rpc/coap_rpc.h"
#include "disp/disp_service.h"
#include "fuzz_support.h"
#include "kst_log.h"
#include "kst_tmr.h"

namespace fuzz {

inline constexpr char kInstanceName[] = "fuzz-rpc";

// KeyOf is a zero-padded key.
CoapRpcUriKey KeyOf(const char *uri, uint32_t msgType = 0, uint32_t observe = 0,
                    uint32_t pktType = 0);

class Host {
 public:
  Host();
  ~Host();  // stops the program when memory, timers or display objects were not given back
  Host(const Host &) = delete;
  Host &operator=(const Host &) = delete;

  // Param is a start-up record with all of the host's handles.
  CoapRpcInitParam Param();

  // AdvanceMs moves the time at once.  A timer that has fallen due ticks once, however many periods
  // have passed, as on a host that was held up.
  void AdvanceMs(uint32_t ms);

  // FailAllocation lets the n-th allocation from now fail; 0: none.
  void FailAllocation(uint32_t n) { failAt_ = n; }

  kestrel::DispService &Display() { return disp_; }

  // The operations of the platform functions.
  void *Malloc(size_t size);
  void Free(void *p);
  uint64_t StartTimer(KST_TmrTick tick, uint32_t periodMs, void *param);
  void StopTimer(uint64_t id);

 private:
  struct Timer {
    uint64_t id;
    KST_TmrTick tick;
    uint32_t periodMs;
    void *param;
    uint64_t dueMs;
  };

  Timer *FirstDue();

  KST_LogObj log_ = {};
  kestrel::DispService disp_;
  std::vector<Timer> timers_;
  uint64_t lastTimerId_ = 0;
  uint64_t numLive_ = 0;
  uint32_t failAt_ = 0;
};

}  // namespace fuzz

#endif /* FUZZ_HOST_H */
