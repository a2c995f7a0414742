/* coap_rpc_lib_caller.h: which code called libcoap's logger, and the names already looked up.
 *
 * Looking a name up costs more than handling the request that it is logged for, and libcoap logs
 * several messages for each: a name is looked up once for each place that logs. */
#ifndef COAP_RPC_LIB_CALLER_H
#define COAP_RPC_LIB_CALLER_H

#include <cstddef>

namespace coap_rpc {

// kForeignFrames precede ours in what backtrace() gives: the sanitizers of addresses and threads
// answer it themselves.  gcc and clang say in different ways that there is one.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr int kForeignFrames = 1;
#elif !defined(__has_feature)
inline constexpr int kForeignFrames = 0;
#elif __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr int kForeignFrames = 1;
#else
inline constexpr int kForeignFrames = 0;
#endif

// CallerOfLogger returns the address after the call of libcoap's logger, which called a log
// handler with this return address and frame; null when it is unavailable.
const void *CallerOfLogger(const void *handlerReturn, const void *handlerFrame);

// CallerNames remembers names by the address of the code that logs.  Fixed size: a name takes the
// place of an older one when there is no room, and a long name is not remembered.
class CallerNames {
 public:
  // Find returns the name of a caller, valid until the next Remember; null when not remembered.
  const char *Find(const void *caller) const;

  void Remember(const void *caller, const char *name);

 private:
  static constexpr unsigned kSlotBits = 9;  // libcoap logs from some hundred places
  static constexpr unsigned kHashShift = 64 - kSlotBits;
  static constexpr size_t kNumSlots = size_t{1} << kSlotBits;
  static constexpr size_t kNameSize = 56;
  static constexpr size_t kMaxSteps = 8;

  struct Slot {
    const void *caller;
    char name[kNameSize];
  };

  static size_t HomeOf(const void *caller);

  Slot slots_[kNumSlots];
};

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_CALLER_H */
