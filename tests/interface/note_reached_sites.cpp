/* note_reached_sites.cpp: the file of reached sites, which only builds that measure coverage keep.
 *
 * Many processes write it at the same time: a line is appended with one call. */
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace coap_rpc {
namespace {

constexpr size_t kMaxSites = 1024;
constexpr size_t kLineSize = 256;

struct Reached {
  const char *where;
  uint32_t number;
  char kind;
};

Reached g_reached[kMaxSites];
size_t g_numReached = 0;

// IsNew is true once for each site of the process.
bool IsNew(const Reached &site) {
  for (size_t i = 0; i < g_numReached; ++i) {
    const Reached &old = g_reached[i];
    if (old.where == site.where && old.number == site.number && old.kind == site.kind) return false;
  }
  return g_numReached < kMaxSites;
}

// Append returns false when it cannot write now: tests take file descriptors away.
bool Append(const char *line, size_t len) {
  const int fd = open(COAP_RPC_REACHED_SITES, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  const bool isWritten = write(fd, line, len) == static_cast<ssize_t>(len);
  close(fd);
  return isWritten;
}

}  // namespace

void NoteReached(const char *kind, const char *where, uint32_t number) {
  const Reached site = {where, number, kind[0]};
  if (!IsNew(site)) return;
  const int callersErrno = errno;
  char line[kLineSize];
  const int len = snprintf(line, sizeof(line), "%s %s %u\n", kind, where, number);
  if (Append(line, static_cast<size_t>(len))) g_reached[g_numReached++] = site;
  errno = callersErrno;
}

}  // namespace coap_rpc
