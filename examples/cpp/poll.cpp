// poll.cpp: a node in a main loop that waits with poll(), here for lines of the standard input as
// well.  The path "line" tells the last one.
//
//   poll        then, in another terminal: coap-client coap://127.0.0.2/line
#include <poll.h>
#include <unistd.h>

#include <coap_svc_rpc.hpp>
#include <cstdio>

using namespace coaprpc;

int main() {
  Node node = must(Node::make({.listen = "127.0.0.2"}));
  std::string line = "nothing yet\n";
  must(node.serve("line", [&](const Request &) { return line; }));
  std::puts("serving line on 127.0.0.2");
  std::fflush(stdout);

  for (;;) {
    pollfd watched[] = {{STDIN_FILENO, POLLIN, 0}, {node.pollFd(), POLLIN, 0}};
    poll(watched, 2, node.pollTimeoutMs());
    must(node.turn());
    if (watched[0].revents == 0) continue;
    char text[256];
    const ssize_t len = read(STDIN_FILENO, text, sizeof(text));
    if (len <= 0) return 0;
    line.assign(text, static_cast<size_t>(len));
  }
}
