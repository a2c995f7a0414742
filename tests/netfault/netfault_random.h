/* netfault_random.h: libcoap's random numbers (message ids, tokens, times), from a seed. */
#ifndef NETFAULT_RANDOM_H
#define NETFAULT_RANDOM_H

#include <cstdint>

namespace netfault {

// SeedLibraryRandom gives all instances of the process one sequence of numbers.
void SeedLibraryRandom(uint32_t seed);

}  // namespace netfault

#endif /* NETFAULT_RANDOM_H */
