/* netfault_random.h: random numbers of libcoap (message ids, tokens, times) and of the library
 * (lives of sets), from a seed.
 *
 * Programs that use it are linked with --wrap for getrandom. */
#ifndef NETFAULT_RANDOM_H
#define NETFAULT_RANDOM_H

#include <cstdint>

namespace netfault {

// SeedLibraryRandom gives all instances of the process one sequence of numbers.
void SeedLibraryRandom(uint32_t seed);

}  // namespace netfault

#endif /* NETFAULT_RANDOM_H */
