#include "failing_sends.h"

#include <sys/socket.h>

#include <cerrno>

namespace {

coap_rpc_test::FailingSends *g_sends = nullptr;

}  // namespace

extern "C" {

ssize_t __real_sendmsg(int fd, const msghdr *message, int flags);

ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags) {
  if (!g_sends) return __real_sendmsg(fd, message, flags);
  g_sends->Refuse();
  return -1;
}

}  // extern "C"

namespace coap_rpc_test {

FailingSends::FailingSends(int error) : error_(error) { g_sends = this; }
FailingSends::~FailingSends() { g_sends = nullptr; }

void FailingSends::Refuse() {
  ++numRefused_;
  errno = error_;
}

}  // namespace coap_rpc_test
