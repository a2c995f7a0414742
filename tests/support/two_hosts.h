/* two_hosts.h: two processes, each in a network namespace of its own with the address 10.77.0.1 or
 * 10.77.0.2, and the link between them.
 *
 * A namespace's only way out is a tunnel device, whose other end the test holds: a Link carries the
 * packets from one to the other, or does not.
 *
 * Hosts on the manual clock live beat by beat: each lives for kBeatMs of its time, then the link
 * carries what they sent.  How fast the machine is does not matter to them. */
#ifndef TWO_HOSTS_H
#define TWO_HOSTS_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>

#include "link.h"
#include "own_network.h"

namespace coap_rpc_test {

inline constexpr uint32_t kFirstHostIp = 0x0A4D0001;  // 10.77.0.1; the second one follows

inline constexpr uint64_t kBeatMs = 10;

// Channel is the talk between two processes: messages of one write each, and beats.
class Channel {
 public:
  Channel() = default;
  Channel(int fd, int beatFd) : fd_(fd), beatFd_(beatFd) {}

  bool Send(const std::string &text) const {
    return send(fd_, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
  }
  bool SendFd(int fd) const;
  int ReceiveFd() const;

  // Receive returns the next message; "" when none waits.
  std::string Receive() const {
    const ssize_t len = recv(fd_, nullptr, 0, MSG_DONTWAIT | MSG_PEEK | MSG_TRUNC);
    std::string text(len > 0 ? static_cast<size_t>(len) : 0, '\0');
    if (len > 0) recv(fd_, text.data(), text.size(), MSG_DONTWAIT);
    return text;
  }

  // The host says that it is done with the last beat and waits for the next; false: there is none.
  bool NextBeat() const { return GiveBeat() && TakeBeat(); }

  // The other end; both do nothing when the host has ended.
  bool GiveBeat() const { return send(beatFd_, "b", 1, MSG_NOSIGNAL) == 1; }
  bool TakeBeat() const {
    char byte = 0;
    return recv(beatFd_, &byte, 1, 0) == 1;
  }

 private:
  union FdBuffer {
    cmsghdr align;
    char bytes[CMSG_SPACE(sizeof(int))];
  };

  int fd_ = -1;
  int beatFd_ = -1;
};

inline bool Channel::SendFd(int fd) const {
  char byte = 'f';
  iovec part = {&byte, 1};
  FdBuffer buffer = {};
  msghdr message = {};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = buffer.bytes;
  message.msg_controllen = sizeof(buffer.bytes);
  cmsghdr *head = CMSG_FIRSTHDR(&message);
  head->cmsg_level = SOL_SOCKET;
  head->cmsg_type = SCM_RIGHTS;
  head->cmsg_len = CMSG_LEN(sizeof(int));
  memcpy(CMSG_DATA(head), &fd, sizeof(fd));
  return sendmsg(fd_, &message, MSG_NOSIGNAL) == 1;
}

inline int Channel::ReceiveFd() const {
  char byte = 0;
  iovec part = {&byte, 1};
  FdBuffer buffer = {};
  msghdr message = {};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = buffer.bytes;
  message.msg_controllen = sizeof(buffer.bytes);
  if (recvmsg(fd_, &message, 0) != 1) return -1;
  const cmsghdr *head = CMSG_FIRSTHDR(&message);
  if (!head || head->cmsg_type != SCM_RIGHTS) return -1;
  int fd = -1;
  memcpy(&fd, CMSG_DATA(head), sizeof(fd));
  return fd;
}

// SetInterfaceIpv4 gives an interface its address, in place of the one that it has.
inline bool SetInterfaceIpv4(const char *name, uint32_t ipv4) {
  ifreq request = {};
  strncpy(request.ifr_name, name, IFNAMSIZ - 1);
  const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const auto set = [&](unsigned long what, uint32_t value) {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(value);
    memcpy(&request.ifr_addr, &addr, sizeof(addr));
    return ioctl(control, what, &request) == 0;
  };
  const bool isSet = set(SIOCSIFADDR, ipv4) && set(SIOCSIFNETMASK, 0xFFFFFF00);
  close(control);
  return isSet;
}

// OpenTunnel makes a tunnel device with an address in the present network.  Returns -1 when the
// system does not let it.
inline int OpenTunnel(uint32_t ipv4) {
  const int fd = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  ifreq request = {};
  strncpy(request.ifr_name, "link0", IFNAMSIZ - 1);
  request.ifr_flags = IFF_TUN | IFF_NO_PI;
  if (fd < 0) return -1;
  if (ioctl(fd, TUNSETIFF, &request) == 0 && SetInterfaceIpv4("link0", ipv4) &&
      SetInterfaceUp("link0")) {
    return fd;
  }
  close(fd);
  return -1;
}

// HostProcess runs `main` in a process and network namespace of its own.
class HostProcess {
 public:
  using Main = std::function<void(const Channel &)>;

  HostProcess(uint32_t ipv4, const Main &main) {
    int ends[2] = {-1, -1};
    int beats[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0 ||
        socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, beats) != 0) {
      return;
    }
    pid_ = fork();
    if (pid_ == 0) Run(ipv4, Channel(ends[1], beats[1]), main);
    close(ends[1]);
    close(beats[1]);
    channel_ = Channel(ends[0], beats[0]);
    tunnel_ = channel_.ReceiveFd();
  }
  ~HostProcess() {
    if (tunnel_ >= 0) close(tunnel_);
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  HostProcess(const HostProcess &) = delete;
  HostProcess &operator=(const HostProcess &) = delete;

  bool HasNetwork() const { return tunnel_ >= 0; }
  int Tunnel() const { return tunnel_; }
  const Channel &Talk() const { return channel_; }

  // HasEnded looks without waiting; a `main` that failed an expectation fails the test.
  bool HasEnded() {
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, WNOHANG) != pid_) return pid_ <= 0;
    pid_ = -1;
    EXPECT_EQ(status, 0);
    return true;
  }

 private:
  [[noreturn]] static void Run(uint32_t ipv4, const Channel &channel, const Main &main) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int tunnel = EnterOwnNetwork() ? OpenTunnel(ipv4) : -1;
    if (tunnel < 0) _exit(0);
    channel.SendFd(tunnel);
    close(tunnel);
    main(channel);
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }

  pid_t pid_ = -1;
  int tunnel_ = -1;
  Channel channel_;
};

// HostTime is the time of hosts that live beat by beat.
class HostTime {
 public:
  uint64_t Ms() const { return nowMs_; }

  // Beat waits until all hosts are done with the last beat, carries what they sent, and lets them
  // live for the next one.  Those that are null or have ended are left out.
  void Beat(Link *link, std::initializer_list<const HostProcess *> hosts) {
    for (const HostProcess *host : hosts) {
      if (host) host->Talk().TakeBeat();
    }
    link->Carry(nowMs_, 0);
    for (const HostProcess *host : hosts) {
      if (host) host->Talk().GiveBeat();
    }
    nowMs_ += kBeatMs;
  }

 private:
  uint64_t nowMs_ = 0;
};

}  // namespace coap_rpc_test

#endif /* TWO_HOSTS_H */
