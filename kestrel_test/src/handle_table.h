/* handle_table.h: which handles are alive, by kind of object.
 *
 * Every handle that a host gives out is entered here while its object lives, so that a stale
 * or mistaken handle is complained of instead of crashing the test. */
#ifndef HANDLE_TABLE_H
#define HANDLE_TABLE_H

#include <cstdint>
#include <map>

#include "complaint.h"

namespace coap_rpc_test {

template <typename Object>
class HandleTable {
 public:
  // Add makes the address `at`, which lies inside `object`, a handle of it.
  static uint64_t Add(Object *object, const void *at) {
    const uint64_t handle = reinterpret_cast<uintptr_t>(at);
    Live()[handle] = object;
    return handle;
  }

  static void Remove(uint64_t handle) { Live().erase(handle); }

  // Find returns the object; null for 0, and for an unknown handle after a complaint.
  static Object *Find(uint64_t handle, const char *caller) {
    if (handle == 0) return nullptr;
    const auto found = Live().find(handle);
    if (found != Live().end()) return found->second;
    Complain("%s: no such handle: 0x%llx", caller, static_cast<unsigned long long>(handle));
    return nullptr;
  }

 private:
  static std::map<uint64_t, Object *> &Live() {
    static std::map<uint64_t, Object *> live;
    return live;
  }
};

}  // namespace coap_rpc_test

#endif /* HANDLE_TABLE_H */
