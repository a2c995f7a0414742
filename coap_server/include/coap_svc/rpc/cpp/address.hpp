/* address.hpp: where a peer or a server is: an IP address and a UDP port. */
#ifndef COAP_RPC_CPP_ADDRESS_HPP
#define COAP_RPC_CPP_ADDRESS_HPP

#include <arpa/inet.h>

#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/cpp/result.hpp"

COAPRPC_BEGIN

/* Address is made from "127.0.0.2", "127.0.0.2:5684", "::1" or "[::1]:5684".  Without a port it has
 * CoAP's, 5683.  Any other text makes an address that is not valid; whatever uses it fails. */
class Address {
 public:
  static constexpr uint16_t kCoapPort = 5683;

  Address() = default;
  Address(std::string_view text) { parse(text); }
  Address(const char *text) : Address(std::string_view(text ? text : "")) {}
  Address(const std::string &text) : Address(std::string_view(text)) {}
  Address(const CoapRpcIpAddr &ip, uint32_t port) : ip_(ip), port_(port) {}

  bool isValid() const { return ip_.family != 0 && port_ != 0 && port_ <= UINT16_MAX; }
  const CoapRpcIpAddr &ip() const { return ip_; }
  uint32_t port() const { return port_; }

  /* text is as an Address is made from; empty when it is not valid. */
  std::string text() const {
    if (!isValid()) return {};
    const std::string host = hostText();
    const bool isIpv4 = ip_.family == COAP_RPC_IPV4;
    return (isIpv4 ? host : "[" + host + "]") + ":" + std::to_string(port_);
  }

  bool operator==(const Address &other) const {
    return port_ == other.port_ && ip_.family == other.ip_.family && hasIpOf(other);
  }

 private:
  void parse(std::string_view text) {
    if (!text.empty() && text.front() == '[') return parseBracketed(text.substr(1));
    const size_t colon = text.find(':');
    if (colon == text.npos) return set(text, {});
    const bool isIpv6 = text.find(':', colon + 1) != text.npos;
    isIpv6 ? set(text, {}) : set(text.substr(0, colon), text.substr(colon));
  }

  void parseBracketed(std::string_view text) {
    const size_t end = text.find(']');
    if (end == text.npos || text.substr(0, end).find(':') == text.npos) return;
    set(text.substr(0, end), text.substr(end + 1));
  }

  // set takes a host and nothing or a colon and a port.
  void set(std::string_view host, std::string_view port) {
    if (!port.empty() && !setPort(port.substr(1), port.front())) return;
    char text[INET6_ADDRSTRLEN] = {};
    if (host.size() >= sizeof(text) || host.find('\0') != host.npos) return;
    std::memcpy(text, host.data(), host.size());
    setIp(text);
  }

  bool setPort(std::string_view text, char separator) {
    uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    port_ = port;
    return separator == ':' && error == std::errc() && end == text.data() + text.size() &&
           port != 0;
  }

  void setIp(const char *text) {
    in_addr ipv4 = {};
    in6_addr ipv6 = {};
    if (inet_pton(AF_INET, text, &ipv4) == 1) {
      ip_.family = COAP_RPC_IPV4;
      ip_.addr.ipv4 = ntohl(ipv4.s_addr);
    } else if (inet_pton(AF_INET6, text, &ipv6) == 1) {
      ip_.family = COAP_RPC_IPV6;
      std::memcpy(ip_.addr.ipv6, &ipv6, sizeof(ipv6));
    }
  }

  bool hasIpOf(const Address &other) const {
    if (ip_.family == COAP_RPC_IPV4) return ip_.addr.ipv4 == other.ip_.addr.ipv4;
    return std::memcmp(ip_.addr.ipv6, other.ip_.addr.ipv6, sizeof(ip_.addr.ipv6)) == 0;
  }

  std::string hostText() const {
    char text[INET6_ADDRSTRLEN] = {};
    const in_addr ipv4 = {htonl(ip_.addr.ipv4)};
    const bool isIpv4 = ip_.family == COAP_RPC_IPV4;
    const void *bytes = isIpv4 ? static_cast<const void *>(&ipv4) : ip_.addr.ipv6;
    return inet_ntop(isIpv4 ? AF_INET : AF_INET6, bytes, text, sizeof(text)) ? text : "";
  }

  CoapRpcIpAddr ip_ = {};
  uint32_t port_ = kCoapPort;
};

namespace detail {

inline CoapRpcSerListenAddr listenOf(const Address &address) {
  CoapRpcSerListenAddr listen = {};
  listen.listenAddr = address.ip();
  listen.port = static_cast<uint16_t>(address.port());
  return listen;
}

inline CoapRpcCallAddr callAddrOf(const Address &from, const Address &to) {
  CoapRpcCallAddr addr = {};
  addr.srcIp = from.ip();
  addr.dstIp = to.ip();
  addr.dstPort = to.port();
  return addr;
}

}  // namespace detail
COAPRPC_END
#endif /* COAP_RPC_CPP_ADDRESS_HPP */
