/* fd_capture.h: what a piece of code writes to the standard output and the standard error. */
#ifndef FD_CAPTURE_H
#define FD_CAPTURE_H

#include <functional>
#include <string>

namespace coap_rpc_test {

struct CapturedText {
  std::string out;  // file descriptor 1
  std::string err;  // file descriptor 2
};

// CaptureFds runs `block` with the file descriptors 1 and 2 pointing to memory, and returns what
// arrived there, from C streams, C++ streams and plain writes alike.  Not to be nested.
CapturedText CaptureFds(const std::function<void()> &block);

}  // namespace coap_rpc_test

#endif /* FD_CAPTURE_H */
