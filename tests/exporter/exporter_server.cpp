/* exporter_server.cpp: a host with tables for the exporter.
 *
 *   exporter_server <socket> <number of uris>
 *
 * The object "shop" has "disp server uriVtbl" with that many URIs, of which some have names that
 * hurt who does not escape them, "disp server stats" and "disp server times", whose values grow
 * with each run, and "disp runs", the number of runs so far of all its commands.  It also has
 * "reset all", which nobody may run. Ends with its standard input. */
#include <kestrel.h>
#include <kst_disp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Shop {
  Kestrel *host;
  uint32_t numUris;
  uint32_t numRuns = 0;
  uint32_t numResets = 0;
  uint32_t numRows = 0;  // runs of "disp server uriVtbl"

  uint64_t Disp() const { return KestrelDisp(host); }
};

const char *const kHostile[] = {"quote\"back\\slash",
                                "<img src=x onerror=document.title=1>",
                                "</script><script>document.title=2</script>",
                                "ctl\x1b[31m",
                                "bytes\xff\xfe",
                                "a&amp;b",
                                "{curly=\"x\"} 1"};
constexpr uint32_t kNumHostile = sizeof kHostile / sizeof *kHostile;

uint32_t DispUris(void *self, ...) {
  auto *shop = static_cast<Shop *>(self);
  uint32_t at = 0;
  if (!KST_DispGetLastCtx_(shop->Disp(), &at)) {
    ++shop->numRuns;
    ++shop->numRows;
  }
  if (at >= shop->numUris) {
    KST_DispPrintf_(shop->Disp(), " ***total %u server uriVtbl(s) ***\n", at);
    return 0;
  }
  char plain[32];
  std::snprintf(plain, sizeof plain, "u/%05u", at);
  KST_DispPrintf_(shop->Disp(), "server Vtbl[%3u]: uri(%s)/observe(0)/observerNum(%u)\n", at,
                  at < kNumHostile ? kHostile[at] : plain, at == 9 ? shop->numRows : 7);
  ++at;
  KST_DispSaveCtx_(shop->Disp(), "k", 1, &at, sizeof at);
  return 0;
}

uint32_t DispStats(void *self, ...) {
  auto *shop = static_cast<Shop *>(self);
  ++shop->numRuns;
  KST_DispPrintf_(shop->Disp(),
                  "server stats[0]: name(in.requests)/of(get)/kind(counter)/unit(-)/value(%u)\n"
                  "server stats[1]: name(bad)/of(-)/kind(counter)/unit(-)/value(0)\n"
                  "server stats[2]: name(pool.used)/of(-)/kind(gauge)/unit(bytes)/value(4096)\n",
                  shop->numRuns * 3);
  return 0;
}

uint32_t DispTimes(void *self, ...) {
  auto *shop = static_cast<Shop *>(self);
  KST_DispPrintf_(shop->Disp(),
                  "server times[0]: name(callbacks)/below(1024)/unit(ns)/count(%u)\n"
                  "server times[1]: name(callbacks)/below(2048)/unit(ns)/count(1)\n"
                  "server times[2]: name(callbacks)/below(inf)/unit(ns)/count(0)/sum(%u)\n",
                  shop->numRuns * 3, shop->numRuns * 1000);
  return 0;
}

uint32_t DispRuns(void *self, ...) {
  auto *shop = static_cast<Shop *>(self);
  KST_DispPrintf_(shop->Disp(), "name(runs)/rows(%u)/resets(%u)\n", shop->numRows, shop->numResets);
  return 0;
}

uint32_t ResetAll(void *self, ...) {
  ++static_cast<Shop *>(self)->numResets;
  return 0;
}

void OnInput(void *host, int fd) {
  char bytes[64];
  if (read(fd, bytes, sizeof bytes) <= 0) KestrelStop(static_cast<Kestrel *>(host));
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  KestrelParam param = {};
  param.logLevel = KESTREL_LEVEL_ERROR;
  Kestrel *host = KestrelNew(&param, nullptr, 0);
  if (!host) return 1;
  Shop shop{host, static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10))};
  const uint64_t disp = shop.Disp();
  KST_DispRegObj(disp, "shop", &shop);
  KST_DispRegFunc_(disp, "DispUris", DispUris, "disp server uriVtbl", 128, "shop", 0);
  KST_DispRegFunc_(disp, "DispStats", DispStats, "disp server stats", 128, "shop", 0);
  KST_DispRegFunc_(disp, "DispTimes", DispTimes, "disp server times", 128, "shop", 0);
  KST_DispRegFunc_(disp, "DispRuns", DispRuns, "disp runs", 128, "shop", 0);
  KST_DispRegFunc_(disp, "ResetAll", ResetAll, "reset all", 128, "shop", 0);
  const KestrelDispAccess access = {argv[1], 0, 0};
  const uint32_t ret = KestrelDispListen(host, &access);
  if (ret == KESTREL_OK) {
    std::puts("ready");
    std::fflush(stdout);
    KestrelWatch(host, STDIN_FILENO, OnInput, host);
    KestrelRun(host);
  }
  KestrelDelete(host);
  return ret == KESTREL_OK ? 0 : 1;
}
