/* libcoap_memory.h: libcoap's allocator under the control of a test.  Programs that use it are
 * linked with the target libcoap_memory.  What it gives out counts as unwritten (fresh_memory.h). */
#ifndef LIBCOAP_MEMORY_H
#define LIBCOAP_MEMORY_H

#include <coap3/coap.h>

#include <cstdint>
#include <functional>

namespace coap_rpc_test {

// Need is one request for memory.
struct Need {
  coap_memory_tag_t tag;
  size_t size;
  bool isGrowth;  // of memory that there is already
};

// NoMemory refuses the requests that it is made for while it lives.  One may live at a time.
class NoMemory {
 public:
  using Match = std::function<bool(const Need &need)>;

  explicit NoMemory(Match match);
  ~NoMemory();
  NoMemory(const NoMemory &) = delete;
  NoMemory &operator=(const NoMemory &) = delete;

  int NumRefused() const { return numRefused_; }

  // Refuses says whether a request is refused, and counts it then.
  bool Refuses(const Need &need);

 private:
  Match match_;
  int numRefused_ = 0;
};

// NumLibcoapLive is the number of allocations that libcoap has and has not given back.
int64_t NumLibcoapLive();

}  // namespace coap_rpc_test

#endif /* LIBCOAP_MEMORY_H */
