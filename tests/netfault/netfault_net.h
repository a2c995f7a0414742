/* netfault_net.h: network namespaces that belong to the bench, and what can be done to each. */
#ifndef NETFAULT_NET_H
#define NETFAULT_NET_H

#include <cstdint>
#include <string>

#include "coap_svc/rpc/coap_rpc_types.h"

namespace netfault {

// CanMakeNetworks says whether the system lets this process make namespaces and tunnel devices.
bool CanMakeNetworks();

// RouteKind is what the namespace does with packets for the other side.
enum class RouteKind { kNormal, kProhibit, kUnreachable, kBlackhole };

// Network is a namespace whose only way out is a tunnel device, "link0".  It has one address at a
// time, 10.78.0.<host> or fd78::<host>.
class Network {
 public:
  Network(bool isIpv6, uint32_t host);
  ~Network();
  Network(const Network &) = delete;
  Network &operator=(const Network &) = delete;

  bool IsGood() const { return isGood_; }
  int Tunnel() const { return tunnel_; }

  // Enter moves the thread here: sockets that it makes from now on belong to this namespace.
  void Enter() const;

  void SetUp(bool isUp);
  void SetAddress(uint32_t host);
  void SetMtu(uint32_t numBytes);
  void SetRoute(RouteKind kind, uint32_t peerHost);
  // AddSource adds an address; the route to the peer prefers it to the one that stays.
  void AddSource(uint32_t host, uint32_t peerHost);

  uint32_t Host() const { return host_; }
  CoapRpcIpAddr AddressOf(uint32_t host) const;

 private:
  bool Make();
  bool AddAddress();
  void DiscardQueued() const;
  void RemoveIpv6Address();

  const bool isIpv6_;
  uint32_t host_;
  int tunnel_ = -1;
  int namespace_ = -1;
  bool isGood_;
};

}  // namespace netfault

#endif /* NETFAULT_NET_H */
