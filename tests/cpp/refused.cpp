// What the C++ interface refuses to compile.  CASE chooses one of them; without it there is none.
// test_refused.cmake looks for the text of each.
#include <memory>

#include "coap_svc_rpc.hpp"

using namespace coaprpc;

struct Good {
  Big<uint32_t> number;
};

#if CASE == 1  // use Big<> for numbers of more than one byte
struct Bad {
  uint32_t number;
};
#elif CASE == 2  // use Big<> for numbers of more than one byte
struct Bad {
  char name[8];
  const char *pointer;
};
#elif CASE == 3  // is a trivially copyable record, or has size, encode and decode
struct Bad {
  std::string text;
};
#elif CASE == 4  // has at least one member
struct Bad {};
#elif CASE == 5  // needs 'static T decode
struct Bad {
  static constexpr size_t size = 4;
  std::string text;
  void encode(std::span<uint8_t, size>) const {}
};
#elif CASE == 6  // needs 'void encode
struct Bad {
  static constexpr size_t size = 4;
  static Bad decode(std::span<const uint8_t, size>) { return {}; }
};
#elif CASE == 7  // also needs 'static constexpr size_t size'
struct Bad {
  void encode(std::span<uint8_t, 4>) const {}
  static Bad decode(std::span<const uint8_t, 4>) { return {}; }
};
#elif CASE == 8  // has 1 to 65,000 bytes
struct Bad {
  char bytes[65001];
};
#elif CASE == 18  // bits that belong to no member
struct Bad {
  uint8_t low : 3, high : 4;
};
#elif CASE == 9  // more than 65,000 bytes together
struct Bad {
  char bytes[64998];
};
#else
using Bad = Good;
#endif

void use(Node &node) {
  must(must(node.table<Good, Bad>("t")).set({}, {}));
#if CASE == 10  // a handler takes a const Request &, or the payload
  must(node.serve("a", [](int) { return ""; }));
#elif CASE == 11  // a handler returns a text, a Reply, nothing
  must(node.serve("a", [](const Request &) { return 7; }));
#elif CASE == 12  // the function takes a Result<Answer>
  node.call("::1", "a").then([](const std::string &) {});
#elif CASE == 13  // the function takes a Result<Answer>
  auto observation = node.observe("::1", "a", [](int) {});
#elif CASE == 14  // fn takes no argument
  auto timer = node.every(std::chrono::seconds(1), [](int) {});
#elif CASE == 15  // the function takes a version
  must(must(node.table<Good, Good>("t")).onConfirmed([](const char *) {}));
#elif CASE == 16  // nodiscard
  node.call("::1", "a");
#elif CASE == 17  // nodiscard
  node.every(std::chrono::seconds(1), [] {});
#endif
}
