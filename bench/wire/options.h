/* options.h: "--name value" pairs of the command line, and the loopback addresses. */
#ifndef BENCH_WIRE_OPTIONS_H
#define BENCH_WIRE_OPTIONS_H

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace coap_rpc_bench {

inline constexpr uint32_t kServerIpv4 = 0x7F000001;
inline constexpr uint32_t kAskerIpv4 = 0x7F000002;

class Options {
 public:
  Options(int argc, char **argv) : argc_(argc), argv_(argv) {}

  const char *Text(const char *name, const char *otherwise) const {
    for (int i = 1; i + 1 < argc_; ++i) {
      if (strcmp(argv_[i], name) == 0) return argv_[i + 1];
    }
    return otherwise;
  }
  uint32_t Number(const char *name, uint32_t otherwise) const {
    const char *text = Text(name, nullptr);
    return text ? static_cast<uint32_t>(strtoul(text, nullptr, 10)) : otherwise;
  }
  bool Is(const char *name, const char *value) const { return strcmp(Text(name, ""), value) == 0; }

 private:
  int argc_;
  char **argv_;
};

inline sockaddr_in Ipv4Address(uint32_t ipv4, uint16_t port) {
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(ipv4);
  return addr;
}

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_OPTIONS_H */
