#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_caller.h"

#include <coap3/coap.h>

#include <cstdint>
#include <cstring>

namespace coap_rpc {
namespace {

constexpr size_t kLoggerCodeSize = 4096;       // more than the logger takes in any build
constexpr uintptr_t kLoggerStackSize = 65536;  // more than its frame

// Frame is how a function that keeps a frame pointer begins its stack frame.
struct Frame {
  const Frame *caller;
  const void *returnAddress;
};

// IsLogger tells whether an address lies in the code of one of libcoap's loggers.
[[maybe_unused]] bool IsLogger(const void *address) {
  const auto code = reinterpret_cast<uintptr_t>(address);
#ifdef COAP_LOG_HAS_GATE
  if (code - reinterpret_cast<uintptr_t>(&coap_log_asked_impl) < kLoggerCodeSize) return true;
#endif
  return code - reinterpret_cast<uintptr_t>(&coap_log_impl) < kLoggerCodeSize;
}

// FrameOfLogger returns the logger's frame; null unless it surely is one: the handler may have been
// called by code that keeps no frame pointer.
const Frame *FrameOfLogger(const void *handlerReturn, const void *handlerFrame) {
#if defined(__x86_64__) || defined(__aarch64__)
  if (!IsLogger(handlerReturn)) return nullptr;
  const Frame *frame = static_cast<const Frame *>(handlerFrame)->caller;
  const auto from = reinterpret_cast<uintptr_t>(handlerFrame);
  const auto to = reinterpret_cast<uintptr_t>(frame);
  return to - from < kLoggerStackSize && to % alignof(Frame) == 0 ? frame : nullptr;
#else
  static_cast<void>(handlerReturn);
  static_cast<void>(handlerFrame);
  return nullptr;
#endif
}

}  // namespace

const void *CallerOfLogger(const void *handlerReturn, const void *handlerFrame) {
  const Frame *logger = FrameOfLogger(handlerReturn, handlerFrame);
  return logger ? logger->returnAddress : nullptr;
}

size_t CallerNames::HomeOf(const void *caller) {
  // Fibonacci hashing: call sites lie a few bytes apart.
  const uint64_t address = reinterpret_cast<uintptr_t>(caller);
  return static_cast<size_t>((address * 0x9E3779B97F4A7C15u) >> kHashShift);
}

const char *CallerNames::Find(const void *caller) const {
  if (!caller) return nullptr;
  for (size_t step = 0; step < kMaxSteps; ++step) {
    const Slot &slot = slots_[(HomeOf(caller) + step) % kNumSlots];
    if (slot.caller == caller) return slot.name;
  }
  return nullptr;
}

void CallerNames::Remember(const void *caller, const char *name) {
  const size_t len = strlen(name);
  if (!caller || len >= kNameSize) return;
  Slot *slot = &slots_[HomeOf(caller)];
  for (size_t step = 0; step < kMaxSteps && slot->caller; ++step) {
    slot = &slots_[(HomeOf(caller) + step) % kNumSlots];
  }
  if (slot->caller) slot = &slots_[HomeOf(caller)];
  slot->caller = caller;
  memcpy(slot->name, name, len + 1);
}

}  // namespace coap_rpc
