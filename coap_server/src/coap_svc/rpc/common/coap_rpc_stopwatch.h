/* coap_rpc_stopwatch.h: how long callbacks and runs of the I/O take. */
#ifndef COAP_RPC_STOPWATCH_H
#define COAP_RPC_STOPWATCH_H

#include <algorithm>
#include <ctime>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_probe.h"
#include "coap_svc/rpc/common/coap_rpc_times.h"

namespace coap_rpc {

inline uint64_t NsOf(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

inline uint64_t MonotonicNs() { return NsOf(CLOCK_MONOTONIC); }

// CoarseNs costs a sixth of it, and moves in steps of a few milliseconds.
inline uint64_t CoarseNs() { return NsOf(CLOCK_MONOTONIC_COARSE); }

inline void AddTime(uint64_t ns, uint64_t &sum, uint64_t &longest) {
  sum += ns;
  longest = std::max(longest, ns);
}

// CallbackTime is the time that a callback of the application takes.  The instance outlives it; the
// URI may be removed meanwhile.
class CallbackTime {
 public:
  // `uri` is null when no server URI is concerned.
  CallbackTime(CoapRpcCtx *ctx, const char *path, CoapRpcUriCounts *uri)
      : ctx_(ctx), path_(path), uri_(uri), outer_(Innermost(ctx)), sinceNs_(MonotonicNs()) {
    ctx_->callback = this;
    COAP_RPC_PROBE2(callback__begin, ctx_, path_);
  }
  ~CallbackTime() {
    const uint64_t ns = MonotonicNs() - sinceNs_;
    ctx_->callback = outer_;
    ++ctx_->counts.callbacks;
    AddTime(ns, ctx_->counts.callbackNs, ctx_->counts.callbackMaxNs);
    CountTime(ctx_->counts.callbackTimes, ns);
    if (uri_) AddTime(ns, uri_->stats.callbackNs, uri_->stats.callbackMaxNs);
    COAP_RPC_PROBE3(callback__end, ctx_, path_, ns);
  }
  CallbackTime(const CallbackTime &) = delete;
  CallbackTime &operator=(const CallbackTime &) = delete;

  // Forget is told when the URI that has this path is removed.
  static void Forget(const CoapRpcCtx *ctx, const char *path) {
    for (CallbackTime *time = Innermost(ctx); time; time = time->outer_) {
      if (time->path_ != path) continue;
      time->path_ = "";
      time->uri_ = nullptr;
    }
  }

 private:
  static CallbackTime *Innermost(const CoapRpcCtx *ctx) {
    return static_cast<CallbackTime *>(ctx->callback);
  }

  CoapRpcCtx *ctx_;
  const char *path_;  // for probes; may have no terminator
  CoapRpcUriCounts *uri_;
  CallbackTime *outer_;  // whose callback this one is called in
  uint64_t sinceNs_;
};

}  // namespace coap_rpc

#endif /* COAP_RPC_STOPWATCH_H */
