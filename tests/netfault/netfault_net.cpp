#include "netfault_net.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "own_network.h"

namespace netfault {
namespace {

using coap_rpc_test::in6_ifreq;

constexpr char kDevice[] = "link0";
constexpr char kAlias[] = "link0:1";       // of a second IPv4 address
constexpr uint32_t kIpv4Net = 0x0A4E0000;  // 10.78.0.0
constexpr uint8_t kIpv6Prefix[] = {0xFD, 0x78};
constexpr uint32_t kIpv6PrefixLen = 64;

// A new namespace, in a user namespace of our own when that is what it takes.
bool UnshareNetwork() {
  return unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
}

ifreq DeviceRequest() {
  ifreq request = {};
  strncpy(request.ifr_name, kDevice, IFNAMSIZ - 1);
  return request;
}

bool Control(int family, unsigned long what, void *request) {
  const int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool isDone = fd >= 0 && ioctl(fd, what, request) == 0;
  if (fd >= 0) close(fd);
  return isDone;
}

bool SetFlag(bool isUp) {
  ifreq request = DeviceRequest();
  request.ifr_flags = static_cast<short>(isUp ? IFF_UP | IFF_RUNNING | IFF_NOARP : IFF_NOARP);
  return Control(AF_INET, SIOCSIFFLAGS, &request);
}

ifreq AddressRequest(uint32_t value) {
  ifreq request = DeviceRequest();
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(value);
  memcpy(&request.ifr_addr, &addr, sizeof(addr));
  return request;
}

bool SetIpv4(unsigned long what, uint32_t value) {
  ifreq request = AddressRequest(value);
  return Control(AF_INET, what, &request);
}

in6_addr Ipv6Of(uint32_t host) {
  in6_addr addr = {};
  memcpy(addr.s6_addr, kIpv6Prefix, sizeof(kIpv6Prefix));
  addr.s6_addr[15] = static_cast<uint8_t>(host);
  return addr;
}

bool ChangeIpv6(unsigned long what, uint32_t host) {
  in6_ifreq request = {};
  request.ifr6_addr = Ipv6Of(host);
  request.ifr6_prefixlen = kIpv6PrefixLen;
  request.ifr6_ifindex = static_cast<int>(if_nametoindex(kDevice));
  return Control(AF_INET6, what, &request);
}

int OpenTunnel() {
  const int fd = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  ifreq request = DeviceRequest();
  request.ifr_flags = IFF_TUN | IFF_NO_PI;
  if (fd < 0 || ioctl(fd, TUNSETIFF, &request) == 0) return fd;
  close(fd);
  return -1;
}

// HearsItself says whether an address works: a datagram from a socket there to itself arrives.
bool HearsItself(const in6_addr &addr) {
  sockaddr_in6 own = {};
  socklen_t len = sizeof(own);
  own.sin6_family = AF_INET6;
  own.sin6_addr = addr;
  auto *name = reinterpret_cast<sockaddr *>(&own);
  char byte = 'x';
  const int fd = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool hears = bind(fd, name, len) == 0 && getsockname(fd, name, &len) == 0 &&
                     sendto(fd, &byte, 1, 0, name, len) == 1 &&
                     recv(fd, &byte, 1, MSG_DONTWAIT) == 1;
  close(fd);
  return hears;
}

// The kernel makes a new IPv6 address work in its own time.
bool WaitForIpv6(uint32_t host) {
  constexpr int kMaxRounds = 5000;
  constexpr useconds_t kRoundUs = 1000;
  for (int i = 0; i < kMaxRounds; ++i) {
    if (HearsItself(Ipv6Of(host))) return true;
    usleep(kRoundUs);
  }
  return false;
}

// RouteMessage is a request about the route to one address.
class RouteMessage {
 public:
  RouteMessage(bool isIpv6, uint32_t host, uint8_t type, bool isAdded) : isIpv6_(isIpv6) {
    Head()->nlmsg_type = isAdded ? RTM_NEWROUTE : RTM_DELROUTE;
    Head()->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    if (isAdded) Head()->nlmsg_flags |= NLM_F_CREATE | NLM_F_REPLACE;
    auto *route = reinterpret_cast<rtmsg *>(bytes_ + sizeof(nlmsghdr));
    route->rtm_family = isIpv6 ? AF_INET6 : AF_INET;
    route->rtm_dst_len = static_cast<uint8_t>(8 * AddrLen());
    route->rtm_table = RT_TABLE_MAIN;
    route->rtm_protocol = RTPROT_STATIC;
    route->rtm_scope = isAdded ? RT_SCOPE_UNIVERSE : RT_SCOPE_NOWHERE;
    route->rtm_type = type;
    PutHost(RTA_DST, host);
  }

  void PutHost(uint16_t attribute, uint32_t host) {
    const in6_addr ipv6 = Ipv6Of(host);
    const uint32_t ipv4 = htonl(kIpv4Net + host);
    Put(attribute, isIpv6_ ? static_cast<const void *>(&ipv6) : &ipv4, AddrLen());
  }
  void Put(uint16_t attribute, const void *value, size_t len) {
    const rtattr attr = {static_cast<uint16_t>(sizeof(rtattr) + len), attribute};
    memcpy(bytes_ + size_, &attr, sizeof(attr));
    memcpy(bytes_ + size_ + sizeof(attr), value, len);
    size_ += sizeof(attr) + len;
    Head()->nlmsg_len = static_cast<uint32_t>(size_);
  }

  const uint8_t *Bytes() const { return bytes_; }
  size_t Size() const { return size_; }

 private:
  nlmsghdr *Head() { return reinterpret_cast<nlmsghdr *>(bytes_); }
  size_t AddrLen() const { return isIpv6_ ? 16 : 4; }

  const bool isIpv6_;
  alignas(nlmsghdr) uint8_t bytes_[128] = {};
  size_t size_ = sizeof(nlmsghdr) + sizeof(rtmsg);
};

void SendRoute(const RouteMessage &message) {
  const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  std::array<uint8_t, 512> answer;
  if (sendto(fd, message.Bytes(), message.Size(), 0, nullptr, 0) > 0) {
    static_cast<void>(!recv(fd, answer.data(), answer.size(), 0));
  }
  close(fd);
}

uint8_t RouteTypeOf(RouteKind kind) {
  switch (kind) {
    case RouteKind::kProhibit:
      return RTN_PROHIBIT;
    case RouteKind::kUnreachable:
      return RTN_UNREACHABLE;
    case RouteKind::kBlackhole:
      return RTN_BLACKHOLE;
    default:
      return RTN_UNSPEC;
  }
}

}  // namespace

bool CanMakeNetworks() {
  static const bool canMake = Network(false, 1).IsGood();
  return canMake;
}

Network::Network(bool isIpv6, uint32_t host) : isIpv6_(isIpv6), host_(host), isGood_(Make()) {}

Network::~Network() {
  if (tunnel_ >= 0) close(tunnel_);
  if (namespace_ >= 0) close(namespace_);
}

bool Network::Make() {
  if (!UnshareNetwork()) return false;
  namespace_ = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  tunnel_ = OpenTunnel();
  if (namespace_ < 0 || tunnel_ < 0 || !coap_rpc_test::SetInterfaceUp("lo")) return false;
  return isIpv6_ ? SetFlag(true) && AddAddress() : AddAddress() && SetFlag(true);
}

void Network::Enter() const { static_cast<void>(!setns(namespace_, CLONE_NEWNET)); }

bool Network::AddAddress() {
  if (isIpv6_) {
    const bool isAdded = ChangeIpv6(SIOCSIFADDR, host_) && WaitForIpv6(host_);
    DiscardQueued();
    return isAdded;
  }
  return SetIpv4(SIOCSIFADDR, kIpv4Net + host_) && SetIpv4(SIOCSIFNETMASK, 0xFFFFFF00);
}

// What the kernel and we have sent to make an address work.
void Network::DiscardQueued() const {
  std::array<uint8_t, 2048> bytes;
  while (read(tunnel_, bytes.data(), bytes.size()) > 0) {
  }
}

void Network::RemoveIpv6Address() {
  if (isIpv6_) ChangeIpv6(SIOCDIFADDR, host_);
}

// An interface that goes down loses its IPv6 addresses; who switches it on again adds them.
void Network::SetUp(bool isUp) {
  Enter();
  SetFlag(isUp);
  if (isUp && isIpv6_) AddAddress();
}

void Network::SetAddress(uint32_t host) {
  Enter();
  RemoveIpv6Address();
  host_ = host;
  AddAddress();
}

void Network::SetMtu(uint32_t numBytes) {
  Enter();
  ifreq request = DeviceRequest();
  request.ifr_mtu = static_cast<int>(numBytes);
  Control(AF_INET, SIOCSIFMTU, &request);
}

void Network::SetRoute(RouteKind kind, uint32_t peerHost) {
  Enter();
  const bool isAdded = kind != RouteKind::kNormal;
  SendRoute(RouteMessage(isIpv6_, peerHost, RouteTypeOf(kind), isAdded));
}

void Network::AddSource(uint32_t host, uint32_t peerHost) {
  Enter();
  if (isIpv6_) {
    ChangeIpv6(SIOCSIFADDR, host);
    WaitForIpv6(host);
  } else {
    ifreq alias = AddressRequest(kIpv4Net + host);
    strncpy(alias.ifr_name, kAlias, IFNAMSIZ - 1);
    Control(AF_INET, SIOCSIFADDR, &alias);
  }
  RouteMessage route(isIpv6_, peerHost, RTN_UNICAST, true);
  const unsigned device = if_nametoindex(kDevice);
  route.Put(RTA_OIF, &device, sizeof(device));
  route.PutHost(RTA_PREFSRC, host);
  SendRoute(route);
  DiscardQueued();
}

CoapRpcIpAddr Network::AddressOf(uint32_t host) const {
  CoapRpcIpAddr addr = {};
  addr.family = isIpv6_ ? COAP_RPC_IPV6 : COAP_RPC_IPV4;
  const in6_addr ipv6 = Ipv6Of(host);
  if (isIpv6_) {
    memcpy(addr.addr.ipv6, &ipv6, sizeof(ipv6));
  } else {
    addr.addr.ipv4 = kIpv4Net + host;
  }
  return addr;
}

}  // namespace netfault
