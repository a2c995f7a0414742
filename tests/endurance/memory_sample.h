/* memory_sample.h: what the process holds at one time. */
#ifndef MEMORY_SAMPLE_H
#define MEMORY_SAMPLE_H

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

namespace coap_rpc_test {

struct MemorySample {
  uint64_t rssBytes = 0;     // resident
  uint64_t mallocBytes = 0;  // in use by allocations; a sanitizer's own malloc is not counted
  uint64_t numFds = 0;       // open descriptors
};

inline uint64_t ResidentBytes() {
  unsigned long long total = 0;
  unsigned long long resident = 0;
  FILE *file = fopen("/proc/self/statm", "r");
  if (!file) return 0;
  const int numRead = fscanf(file, "%llu %llu", &total, &resident);
  fclose(file);
  return numRead == 2 ? resident * static_cast<uint64_t>(getpagesize()) : 0;
}

inline uint64_t NumOpenFds() {
  DIR *folder = opendir("/proc/self/fd");
  if (!folder) return 0;
  uint64_t num = 0;
  while (readdir(folder)) ++num;
  closedir(folder);
  return num - 3;  // this folder, the one above, and the descriptor of the listing
}

inline MemorySample TakeMemorySample() {
  const struct mallinfo2 info = mallinfo2();
  return {ResidentBytes(), info.uordblks + info.hblkhd, NumOpenFds()};
}

}  // namespace coap_rpc_test

#endif /* MEMORY_SAMPLE_H */
