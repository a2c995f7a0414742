/* edge.h: what happens at the C interface: handles become objects, exceptions become results,
 * printf arguments become texts, and control characters are recognised. */
#ifndef KESTREL_SRC_HOST_EDGE_H
#define KESTREL_SRC_HOST_EDGE_H

#include <cstdarg>
#include <cstdint>
#include <string>

#include "kst_base.h"

namespace kestrel {

// HandleOf and FromHandle convert between an object and its handle; null is 0.
template <typename Type>
uint64_t HandleOf(Type *object) {
  return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(object));
}

template <typename Type>
Type *FromHandle(uint64_t handle) {
  return reinterpret_cast<Type *>(static_cast<uintptr_t>(handle));
}

// Guarded calls `run` and gives its result, or `fallback` when it throws.
template <typename Result, typename Run>
Result Guarded(Result fallback, Run run) noexcept {
  try {
    return run();
  } catch (...) {
    return fallback;
  }
}

// Quietly calls `run`, which has no result, and drops what it throws.
template <typename Run>
void Quietly(Run run) noexcept {
  try {
    run();
  } catch (...) {
    return;
  }
}

// IsControl tells a control character of ASCII.
inline bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

// FormatV renders a printf text of any length; empty when the format cannot be rendered.
// Throws std::bad_alloc.
std::string FormatV(const char *fmt, va_list args) __attribute__((format(printf, 1, 0)));

// Format is FormatV for plain arguments.
std::string Format(const char *fmt, ...) KST_PRINTF(1, 2);

}  // namespace kestrel

#endif /* KESTREL_SRC_HOST_EDGE_H */
