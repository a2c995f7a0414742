#include "netfault_random.h"

#include <coap3/coap.h>
#include <sys/types.h>

#include <random>

extern "C" ssize_t __wrap_getrandom(void *bytes, size_t len, unsigned flags);

namespace netfault {
namespace {

std::mt19937 g_random;

int Fill(void *bytes, size_t len) {
  auto *out = static_cast<uint8_t *>(bytes);
  for (size_t i = 0; i < len; ++i) out[i] = static_cast<uint8_t>(g_random());
  return 1;
}

}  // namespace

void SeedLibraryRandom(uint32_t seed) {
  g_random.seed(seed);
  coap_set_prng(Fill);
}

}  // namespace netfault

ssize_t __wrap_getrandom(void *bytes, size_t len, unsigned) {
  netfault::Fill(bytes, len);
  return static_cast<ssize_t>(len);
}
