// bench_cpp.cpp: what a request costs by the C++ interface, compared with the C interface.
//
//   bench_cpp [<pairs of batches>]
//
// One process, one node, one thread: batches of requests alternate between a path that is served by
// the C interface and one that is served by a lambda, and batches of calls between COAP_RpcCall and
// Node::call.  Each batch is timed by the processor time of the turns of the loop that it takes;
// the sockets of the raw client are not in it.  A figure is the median of the ratios of
// neighbouring batches, so that drift and other users of the machine cancel out.  "same" compares
// one path with itself, and shows how far a figure can be trusted.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "coap_svc_rpc.hpp"

using namespace coaprpc;

namespace {

constexpr int kBatch = 32;
constexpr char kServer[] = "127.0.0.77";
constexpr size_t kAnswerBytes = 32;

void convert(const char *text, size_t len, char *out) {
  std::transform(text, text + len, out, [](char c) { return static_cast<char>(c ^ 0x20); });
}

int32_t onRequest(uint64_t, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len, uint8_t *out,
                  uint32_t) {
  convert(reinterpret_cast<char *>(payload), len, reinterpret_cast<char *>(out));
  return static_cast<int32_t>(len);
}

int64_t cpuNs() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

[[noreturn]] void die(const char *why) {
  std::fprintf(stderr, "bench_cpp: %s\n", why);
  std::exit(1);
}

// Client sends requests of one path and takes their answers.
class Client {
 public:
  Client() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_port = htons(5683);
    server.sin_addr.s_addr = inet_addr(kServer);
    if (connect(fd_, reinterpret_cast<sockaddr *>(&server), sizeof(server)) != 0) die("connect");
  }
  ~Client() { close(fd_); }

  // Paths have one character, so that both take the same steps.
  void send(char path) {
    const auto high = static_cast<uint8_t>(++mid_ >> 8), low = static_cast<uint8_t>(mid_);
    std::vector<uint8_t> message = {0x42, 2, high, low, high, low, 0xB1, static_cast<uint8_t>(path),
                                    0xFF};
    message.insert(message.end(), kAnswerBytes, 'a');
    if (::send(fd_, message.data(), message.size(), 0) < 0) die("send");
  }

  int takeAnswers() {
    uint8_t answer[1500];
    int num = 0;
    for (ssize_t len; (len = recv(fd_, answer, sizeof(answer), 0)) > 0; ++num) {
      if (len != 7 + kAnswerBytes || answer[1] != 0x44 || answer[7] != 'A') die("a wrong answer");
    }
    return num;
  }

 private:
  int fd_;
  uint16_t mid_ = 0;
};

// Server answers calls between the turns, so that it takes none of their time.
class Server {
 public:
  Server() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = inet_addr("127.0.0.1");
    socklen_t len = sizeof(own);
    auto *address = reinterpret_cast<sockaddr *>(&own);
    if (bind(fd_, address, len) != 0 || getsockname(fd_, address, &len) != 0) die("bind");
    address_ = "127.0.0.1:" + std::to_string(ntohs(own.sin_port));
  }
  ~Server() { close(fd_); }

  const Address &address() const { return address_; }

  // A message begins with type, code and Message ID, and its token of 8 bytes.
  void answer() {
    uint8_t message[1500];
    sockaddr_in peer = {};
    auto *from = reinterpret_cast<sockaddr *>(&peer);
    socklen_t len = sizeof(peer);
    while (recvfrom(fd_, message, sizeof(message), 0, from, &len) > 0) {
      message[0] = 0x68;
      message[1] = 0x44;
      message[12] = 0xFF;
      std::fill_n(message + 13, kAnswerBytes, 'A');
      sendto(fd_, message, 13 + kAnswerBytes, 0, from, len);
    }
  }

 private:
  int fd_;
  Address address_;
};

// timeTurns turns the loop until `isDone`.  Returns the time of the turns.
template <typename IsDone>
int64_t timeTurns(Node &node, IsDone isDone) {
  int64_t ns = 0;
  do {
    const int64_t start = cpuNs();
    must(node.turn());
    ns += cpuNs() - start;
  } while (!isDone());
  return ns;
}

int64_t serveBatch(Node &node, Client &client, char path) {
  for (int i = 0; i < kBatch; ++i) client.send(path);
  int num = 0;
  return timeTurns(node, [&] { return (num += client.takeAnswers()) == kBatch; });
}

const std::string g_payload(kAnswerBytes, 'a');

bool callByC(Node &node, const Address &server, int &numEnds) {
  CoapRpcCallAddr addr = {};
  addr.dstIp = server.ip();
  addr.dstPort = server.port();
  CoapRpcCall call = {};
  call.method = COAP_RPC_POST;
  call.path = "c";
  call.payload = reinterpret_cast<const uint8_t *>(g_payload.data());
  call.payloadLen = kAnswerBytes;
  call.userData = reinterpret_cast<uint64_t>(&numEnds);
  call.onRsp = [](uint64_t userData, const CoapRpcCallRsp *rsp) {
    if (rsp->payloadLen != kAnswerBytes) die("a wrong answer");
    ++*reinterpret_cast<int *>(userData);
  };
  uint64_t id = 0;
  return COAP_RpcCall(node.ctx(), &addr, &call, &id) == 0;
}

bool callByCpp(Node &node, const Address &server, int &numEnds) {
  node.call(server, "c", g_payload).then([&](const Result<Answer> &answer) {
    if (!answer || answer->payload.size() != kAnswerBytes) die("a wrong answer");
    ++numEnds;
  });
  return true;
}

template <typename Ask>
int64_t callBatch(Node &node, Server &server, Ask ask) {
  int numEnds = 0;
  const int64_t start = cpuNs();
  for (int i = 0; i < kBatch; ++i) {
    if (!ask(node, server.address(), numEnds)) die("a call failed");
  }
  const int64_t ns = cpuNs() - start;
  return ns + timeTurns(node, [&] {
           server.answer();
           return numEnds == kBatch;
         });
}

double medianOf(std::vector<double> &numbers) {
  std::nth_element(numbers.begin(), numbers.begin() + numbers.size() / 2, numbers.end());
  return numbers[numbers.size() / 2];
}

// compare alternates batches, and which of them is first.
template <typename RunC, typename RunCpp>
void compare(const char *what, int numPairs, RunC runC, RunCpp runCpp) {
  std::vector<double> ratios, c, cpp;
  for (int i = 0; i < numPairs; ++i) {
    const int64_t first = i % 2 == 0 ? runC() : runCpp();
    const int64_t second = i % 2 == 0 ? runCpp() : runC();
    const auto [nsC, nsCpp] = i % 2 == 0 ? std::pair(first, second) : std::pair(second, first);
    c.push_back(static_cast<double>(nsC) / kBatch);
    cpp.push_back(static_cast<double>(nsCpp) / kBatch);
    ratios.push_back(cpp.back() / c.back());
  }
  std::printf("%-10s C++ / C %.3f   (%.0f ns, %.0f ns)\n", what, medianOf(ratios), medianOf(cpp),
              medianOf(c));
}

}  // namespace

int main(int argc, char **argv) {
  const int numPairs = argc > 1 ? std::atoi(argv[1]) : 5000;
  Node node = must(Node::make({.listen = kServer}));
  CoapRpcUriKey key = {};
  key.uri[0] = 'c';
  CoapRpcSerVtblReg reg = {};
  reg.onRequest = onRequest;
  const CoapRpcSerListenAddr addr = {Address(kServer).ip(), Address::kCoapPort, {}};
  must(check(COAP_RpcSerRegVtbl(node.ctx(), &key, &reg, nullptr)));
  must(check(COAP_RpcSerSetDirect(node.ctx(), &key, nullptr)));
  must(check(COAP_RpcSerSetUri(node.ctx(), &key, &addr)));
  must(node.serve("p", [](std::string_view text) {
    std::string out(text.size(), '\0');
    convert(text.data(), text.size(), out.data());
    return out;
  }));
  must(check(COAP_RpcSetNstart(node.ctx(), kBatch)));

  Client client;
  compare(
      "same", numPairs, [&] { return serveBatch(node, client, 'c'); },
      [&] { return serveBatch(node, client, 'c'); });
  compare(
      "request", numPairs, [&] { return serveBatch(node, client, 'c'); },
      [&] { return serveBatch(node, client, 'p'); });

  Server server;
  compare(
      "call", numPairs, [&] { return callBatch(node, server, callByC); },
      [&] { return callBatch(node, server, callByCpp); });
}
