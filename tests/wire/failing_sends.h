/* failing_sends.h: a socket of a server that refuses what it is to send.
 *
 * Programs that use it are linked with the target failing_sends. */
#ifndef FAILING_SENDS_H
#define FAILING_SENDS_H

#include <cstdint>

namespace coap_rpc_test {

// FailingSends lets every send of an endpoint fail while it lives.  One may live at a time.
class FailingSends {
 public:
  explicit FailingSends(int error);
  ~FailingSends();
  FailingSends(const FailingSends &) = delete;
  FailingSends &operator=(const FailingSends &) = delete;

  uint32_t NumRefused() const { return numRefused_; }

  // Refuse sets errno, and counts.
  void Refuse();

 private:
  int error_;
  uint32_t numRefused_ = 0;
};

}  // namespace coap_rpc_test

#endif /* FAILING_SENDS_H */
