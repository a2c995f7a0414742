/* fixed_random.h: libcoap's random bytes as a test wants them. */
#ifndef FIXED_RANDOM_H
#define FIXED_RANDOM_H

#include <coap3/coap.h>

#include <cstring>
#include <random>

namespace coap_rpc_test {

// FixedRandom makes all of libcoap's random bytes the same one while it lives.
class FixedRandom {
 public:
  explicit FixedRandom(uint8_t byte = 0xAA) {
    g_byte = byte;
    coap_set_prng(Fixed);
  }
  ~FixedRandom() { coap_set_prng(FromSystem); }
  FixedRandom(const FixedRandom &) = delete;
  FixedRandom &operator=(const FixedRandom &) = delete;

 private:
  static int Fixed(void *bytes, size_t len) {
    memset(bytes, g_byte, len);
    return 1;
  }
  static int FromSystem(void *bytes, size_t len) {
    std::random_device system;
    auto *out = static_cast<uint8_t *>(bytes);
    for (size_t i = 0; i < len; ++i) out[i] = static_cast<uint8_t>(system());
    return 1;
  }

  static inline uint8_t g_byte = 0;
};

}  // namespace coap_rpc_test

#endif /* FIXED_RANDOM_H */
