/* bench_scrape.cpp: how long a scrape of the exporter holds the thread of a host.
 *
 *   bench_scrape [<URIs>...]   for each number of URIs (1000, 10000)
 *
 * A host with that many URIs, a tenth of them observable with tuples, and the exporter's own
 * poller, which lists the commands and runs all of them.  Prints, for the median and the longest of
 * some scrapes, the processor time of the host's thread in all and in its longest turn: what other
 * processes do on a busy machine does not count. */
#include <kestrel.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/coap_rpc_stats.h"
#include "host_poller.h"
#include "kestrel_param.h"

namespace {

constexpr uint32_t kNumScrapes = 7;
constexpr uint32_t kTuplesOfUri = 10;
constexpr int kMaxWaitMs = 5;

double CpuMs() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

int32_t CompareKeys(const void *a, const void *b) { return memcmp(a, b, 4); }

Kestrel *NewHost() {
  KestrelParam param = {};
  param.logLevel = KESTREL_LEVEL_ERROR;
  return KestrelNew(&param, nullptr, 0);
}

// ScrapedHost is a host with tables, whose turns are timed.
class ScrapedHost {
 public:
  ScrapedHost(uint32_t numUris, const std::string &path) : host_(NewHost()) {
    if (!host_) abort();
    CoapRpcInitParam param = coap_rpc_test::ParamOn(host_, "shop");
    param.logHandle = KestrelLog(host_);
    param.dbgHandle = KestrelDbg(host_);
    ctx_ = COAP_RpcInit(&param);
    if (!ctx_ || COAP_RpcShowStats(ctx_) != 0) abort();
    for (uint32_t i = 0; i < numUris; ++i) Register(i);
    const KestrelDispAccess access = {path.c_str(), 0, 0};
    if (KestrelDispListen(host_, &access) != KESTREL_OK) abort();
  }
  ~ScrapedHost() {
    COAP_RpcUninit(ctx_);
    KestrelDelete(host_);
  }

  void Turn() {
    pollfd waiting = {KestrelPollFd(host_), POLLIN, 0};
    poll(&waiting, 1, kMaxWaitMs);
    const double begin = CpuMs();
    KestrelTurn(host_);
    const double took = CpuMs() - begin;
    sumMs_ += took;
    longestMs_ = std::max(longestMs_, took);
  }

  void Reset() { sumMs_ = longestMs_ = 0; }
  double SumMs() const { return sumMs_; }
  double LongestMs() const { return longestMs_; }

 private:
  void Register(uint32_t i) {
    CoapRpcUriKey key = {};
    snprintf(key.uri, sizeof(key.uri), "plant/unit/%05u", i);
    key.observe = i % 10 == 0;
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = 4;
    ob.tupleKeyCmp = CompareKeys;
    if (COAP_RpcSerRegVtbl(ctx_, &key, &reg, key.observe != 0 ? &ob : nullptr) != 0) abort();
    for (uint32_t tuple = 0; key.observe != 0 && tuple < kTuplesOfUri; ++tuple) {
      COAP_RpcSerObserveDataUpdate(ctx_, &key, &tuple, &tuple);
    }
  }

  Kestrel *host_;
  CoapRpcCtx *ctx_ = nullptr;
  double sumMs_ = 0;
  double longestMs_ = 0;
};

// Scrape turns the host while a scraper on another thread waits for a round.
void Scrape(ScrapedHost &host, exporter::HostPoller &poller) {
  std::atomic<bool> isDone = false;
  size_t numRows = 0;
  std::thread scraper([&] {
    exporter::HostView view;
    do {
      view = poller.Look(exporter::HostPoller::Clock::now() + std::chrono::seconds(6));
    } while (!view.isUp || view.tables.empty());
    for (const auto &entry : view.tables) numRows += entry.second->rows.size();
    isDone = true;
  });
  while (!isDone) host.Turn();
  scraper.join();
  if (numRows == 0) abort();
}

double MedianOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Run(uint32_t numUris) {
  char folder[] = "/tmp/bench_scrape.XXXXXX";
  if (!mkdtemp(folder)) abort();
  const std::string path = std::string(folder) + "/socket";
  {
    ScrapedHost host(numUris, path);
    exporter::HostPoller poller("host", path);
    std::vector<double> sums;
    std::vector<double> longest;
    Scrape(host, poller);  // connects first
    for (uint32_t i = 0; i < kNumScrapes; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // a round a second
      host.Reset();
      Scrape(host, poller);
      sums.push_back(host.SumMs());
      longest.push_back(host.LongestMs());
    }
    printf("%u URIs: in all %.2f ms (at most %.2f), longest turn %.3f ms (at most %.3f)\n", numUris,
           MedianOf(sums), *std::max_element(sums.begin(), sums.end()), MedianOf(longest),
           *std::max_element(longest.begin(), longest.end()));
  }
  unlink(path.c_str());
  rmdir(folder);
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<uint32_t> sizes;
  for (int i = 1; i < argc; ++i)
    sizes.push_back(static_cast<uint32_t>(strtoul(argv[i], nullptr, 10)));
  if (sizes.empty()) sizes = {1000, 10000};
  for (const uint32_t size : sizes) Run(size);
  return 0;
}
