// Nodes on the reference host: their loops, and their end wherever it comes.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <uv.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "coap_svc_rpc.hpp"
#include "own_sockets.h"
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

using coaprpc::Answer;
using coaprpc::must;
using coaprpc::Node;
using coaprpc::NodeParam;
using coaprpc::Result;
using std::chrono::milliseconds;

std::string Own() { return OwnHost(Role::kServer); }

NodeParam Quiet() { return {.listen = Own(), .logLevel = KESTREL_LEVEL_OFF}; }

// Ask lets a node ask itself, and do `done` with the answer.
template <typename Done>
void Ask(Node &node, Done done) {
  must(node.serve("a", [](const coaprpc::Request &) { return "x"; }));
  node.call(Own(), "a").then([done](const Result<Answer> &answer) {
    EXPECT_EQ(must(answer).payload, "x");
    done();
  });
}

TEST(Host, Run_EndsByStop) {
  Node node = must(Node::make(Quiet()));
  Ask(node, [&] { node.stop(); });
  EXPECT_TRUE(node.run());
}

TEST(Host, Stats_AreThoseOfTheNode) {
  Node node = must(Node::make(Quiet()));
  EXPECT_EQ(node.stats().callbacks, 0u);
  Ask(node, [&] { node.stop(); });
  EXPECT_TRUE(node.run());
  EXPECT_EQ(node.stats().calls, 1u);
  EXPECT_EQ(node.stats().callEnds[COAP_RPC_CALL_ANSWERED], 1u);
  const Node other = std::move(node);
  EXPECT_EQ(other.stats().calls, 1u);
  EXPECT_EQ(node.stats().calls, 0u);  // NOLINT: moved from
}

TEST(Host, Run_EndsByTime_AndInsideItIsRefused) {
  Node node = must(Node::make(Quiet()));
  std::string why;
  const auto timer = must(node.every(milliseconds(1), [&] { why = node.run().error().what(); }));
  EXPECT_TRUE(node.run(milliseconds(50)));
  EXPECT_EQ(why, "the loop is running");
}

TEST(Host, Turn_ServesADescriptor) {
  Node node = must(Node::make(Quiet()));
  bool isDone = false;
  Ask(node, [&] { isDone = true; });
  while (!isDone) {
    pollfd poll = {node.pollFd(), POLLIN, 0};
    ::poll(&poll, 1, node.pollTimeoutMs());
    must(node.turn());
  }
}

TEST(Host, ForeignLoop_RunsIt) {
  uv_loop_t loop;
  uv_loop_init(&loop);
  {
    NodeParam param = Quiet();
    param.loop = &loop;
    Node node = must(Node::make(param));
    EXPECT_FALSE(node.run());
    Ask(node, [&] { uv_stop(&loop); });
    uv_run(&loop, UV_RUN_DEFAULT);
  }
  uv_run(&loop, UV_RUN_DEFAULT);
  EXPECT_EQ(uv_loop_close(&loop), 0);
}

TEST(Host, MovedWhileRunning_RunsOn) {
  Node node = must(Node::make(Quiet()));
  Node other = must(Node::make(Quiet()));
  Ask(node, [&] {
    other = std::move(node);
    other.stop();
  });
  EXPECT_TRUE(node.run());
  EXPECT_FALSE(node.run());
  EXPECT_EQ(node.pollFd(), -1);
  EXPECT_EQ(node.pollTimeoutMs(), -1);
  node.stop();
  EXPECT_NE(other.ctx(), nullptr);
}

// Whatever calls: an answer, a handler, a timer, a coroutine.
class DestroyedInside : public testing::Test {
 protected:
  void Destroy() {
    node_.reset();
    isDestroyed_ = true;
  }
  void RunAndLook() {
    const Result<void> result = node_->run();
    EXPECT_TRUE(result);
    EXPECT_TRUE(isDestroyed_);
    EXPECT_EQ(numAfter_, 0);
  }

  std::optional<Node> node_ = must(Node::make(Quiet()));
  bool isDestroyed_ = false;
  int numAfter_ = 0;
};

TEST_F(DestroyedInside, Answer_NobodyHearsMore) {
  must(node_->serve("a", [](const coaprpc::Request &) { return "x"; }));
  for (int i = 0; i < 10; ++i) {
    node_->call(Own(), "a").then([this](const Result<Answer> &) {
      isDestroyed_ ? void(++numAfter_) : Destroy();
    });
  }
  RunAndLook();
}

TEST_F(DestroyedInside, Handler) {
  must(node_->serve("a", [this](const coaprpc::Request &) {
    Destroy();
    return "x";
  }));
  node_->call(Own(), "a").then([this](const Result<Answer> &) { ++numAfter_; });
  RunAndLook();
}

TEST_F(DestroyedInside, HandlerThatAnswersLater) {
  coaprpc::Later later;
  must(node_->serve("a", [&](const coaprpc::Request &request) {
    later = request.later();
    Destroy();
    return later;
  }));
  node_->call(Own(), "a").then([this](const Result<Answer> &) { ++numAfter_; });
  RunAndLook();
  EXPECT_FALSE(later.isOpen());
}

TEST_F(DestroyedInside, Timer) {
  auto timer = must(node_->every(milliseconds(1), [this] { Destroy(); }));
  RunAndLook();
}

TEST_F(DestroyedInside, Coroutine) {
  must(node_->serve("a", [](const coaprpc::Request &) { return "x"; }));
  const auto ask = [this]() -> coaprpc::Task<> {
    static_cast<void>(co_await node_->call(Own(), "a"));
    Destroy();
  };
  must(node_->spawn(ask()));
  RunAndLook();
}

TEST_F(DestroyedInside, Turn) {
  auto timer = must(node_->every(milliseconds(1), [this] { Destroy(); }));
  while (!isDestroyed_) must(node_->turn());
}

TEST(Host, DestroyedInsideAForeignLoop_EndsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        NodeParam param = Quiet();
        param.loop = uv_default_loop();
        std::optional<Node> node = must(Node::make(param));
        const auto timer = must(node->every(milliseconds(1), [&] { node.reset(); }));
        uv_run(uv_default_loop(), UV_RUN_DEFAULT);
      },
      "terminate");
}

// Console is a socket in a folder of its own.
class Console : public testing::Test {
 protected:
  Console() {
    char folder[] = "/tmp/cpp_host.XXXXXX";
    folder_ = mkdtemp(folder);
    path_ = folder_ + "/console";
    param_.console = path_.c_str();
  }
  ~Console() override { std::filesystem::remove_all(folder_); }

  // Said is what the node says to a console that sends a request.
  std::string Said(Node &node, const std::string &request) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_un addr = {AF_UNIX, {}};
    path_.copy(addr.sun_path, sizeof(addr.sun_path) - 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0) return {};
    EXPECT_EQ(write(fd, request.data(), request.size()), static_cast<ssize_t>(request.size()));
    shutdown(fd, SHUT_WR);
    std::string said;
    for (char bytes[4096]; ssize_t num = read(fd, bytes, sizeof(bytes));) {
      if (num > 0) {
        said.append(bytes, static_cast<size_t>(num));
      } else {
        must(node.run(milliseconds(1)));
      }
    }
    close(fd);
    return said;
  }

  NodeParam param_ = Quiet();
  std::string folder_, path_;
};

TEST_F(Console, ShowsTheNodeAndItsNumbers) {
  Node node = must(Node::make(param_));
  Ask(node, [&] { node.stop(); });
  must(node.run());
  EXPECT_NE(Said(node, "run disp server resource\n").find("uri(a)"), std::string::npos);
  EXPECT_NE(Said(node, "run disp server stats\n").find("name(in.requests)/of(get)/kind(counter)/unit(-)/value(1)"),
            std::string::npos);
}

TEST_F(Console, ThatIsServedAlready_IsAnError) {
  const Node first = must(Node::make(param_));
  EXPECT_STREQ(Node::make(param_).error().what(), "the console's socket cannot be opened");
}

TEST(Host, BadParameters_AreErrors) {
  EXPECT_STREQ(Node::make({.listen = "nowhere"}).error().what(), "listen is not an address");
  EXPECT_STREQ(Node::make({.logLevel = 99}).error().what(), "the host did not start");
  EXPECT_STREQ(Node::make({.logLevel = KESTREL_LEVEL_OFF, .memLimitBytes = 100}).error().what(),
               "the instance did not start; the log says why");
}

TEST(Host, TenThousandNodes_LeaveNothing) {
  { const Node first = must(Node::make(Quiet())); }
  const size_t numDescriptors = OpenDescriptors().size();
  for (int i = 0; i < 10000; ++i) {
    Node node = must(Node::make(Quiet()));
    must(node.serve("a", [text = std::string(40, 'x')](const coaprpc::Request &) { return text; }));
    if (i % 10 != 0) continue;
    node.call(Own(), "a").then([](const Result<Answer> &) {});
    must(node.turn());
  }
  EXPECT_EQ(OpenDescriptors().size(), numDescriptors);
}

}  // namespace
}  // namespace coap_rpc_test
