#include "net_dev.h"

#include <cinttypes>
#include <cstdio>
#include <memory>

NetTable ReadNetDev() {
  NetTable table;
  const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen("/proc/net/dev", "r"), std::fclose);
  char line[512];
  while (file && std::fgets(line, sizeof(line), file.get())) {
    NetName name = {};
    NetCounters now = {};
    // name: bytes packets and six more received, then bytes packets sent.  Headings do not match.
    const int numRead = std::sscanf(
        line, " %15[^: ]: %" SCNu64 " %" SCNu64 " %*u %*u %*u %*u %*u %*u %" SCNu64 " %" SCNu64,
        name.data(), &now.rxBytes, &now.rxPackets, &now.txBytes, &now.txPackets);
    if (numRead == 5) table[name] = now;
  }
  return table;
}
