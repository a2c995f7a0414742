// Mirrors at the edges: tables of two instances, and what applications do in callbacks.
#include "mirror_pair.h"

namespace coap_rpc_test {
namespace {

struct Hooks {
  std::function<void()> onAny;
  std::function<void(uint32_t, uint32_t)> onState;
  uint64_t numSynced = 0;
  std::map<std::string, std::string> rows;
  static Hooks &Of(uint64_t userData) { return *reinterpret_cast<Hooks *>(userData); }
};

CoapRpcMirrorParam ParamOf(Hooks &hooks) {
  CoapRpcMirrorParam param = {};
  param.keyLen = 4;
  param.valLen = 8;
  param.userData = reinterpret_cast<uint64_t>(&hooks);
  param.onAdded = [](uint64_t u, const void *, const void *) {
    if (Hooks::Of(u).onAny) Hooks::Of(u).onAny();
  };
  param.onRemoved = param.onAdded;
  param.onChanged = [](uint64_t u, const void *, const void *, const void *) {
    if (Hooks::Of(u).onAny) Hooks::Of(u).onAny();
  };
  param.onSynced = [](uint64_t u, uint64_t) {
    ++Hooks::Of(u).numSynced;
    if (Hooks::Of(u).onAny) Hooks::Of(u).onAny();
  };
  param.onState = [](uint64_t u, uint32_t s, uint32_t c) {
    if (Hooks::Of(u).onState) Hooks::Of(u).onState(s, c);
    if (Hooks::Of(u).onAny) Hooks::Of(u).onAny();
  };
  return param;
}

class MirrorAttack : public TwoInstances {
 protected:
  CoapRpcMirror *Open(const CoapRpcMirrorParam &param, Side &side) {
    CoapRpcCallAddr addr = {};
    addr.dstIp = server_;
    addr.dstPort = kCoapPort;
    CoapRpcMirror *mirror = nullptr;
    EXPECT_EQ(COAP_RpcMirrorOpen(side.Ctx(), &source_.Key(), &addr, &param, &mirror), 0u);
    return mirror;
  }
  static CoapRpcMirrorState StateOf(CoapRpcMirror *mirror) {
    CoapRpcMirrorState state = {};
    COAP_RpcMirrorGetState(mirror, &state);
    return state;
  }
  Source source_{4, 8};
  Hooks hooks_;
};

// Keys that an order reads as numbers.
TEST_F(MirrorAttack, KeysOfAnOrder_AreAligned) {
  static uint32_t numOdd;
  numOdd = 0;
  source_.Serve(server_, {});
  source_.Fill(10);
  CoapRpcMirrorParam param = ParamOf(hooks_);
  param.numInFlight = 1;
  param.keyCmp = [](const void *a, const void *b) -> int32_t {
    numOdd += reinterpret_cast<uintptr_t>(a) % 4 != 0 || reinterpret_cast<uintptr_t>(b) % 4 != 0;
    return memcmp(a, b, 4);
  };
  CoapRpcMirror *mirror = Open(param, asker_);
  ASSERT_TRUE(RunUntil([&] { return StateOf(mirror).state == COAP_RPC_MIRROR_SYNCED; }));
  EXPECT_EQ(numOdd, 0u);
  COAP_RpcMirrorClose(mirror);
}

// Everything that callbacks may do, at each of the first calls.
TEST_F(MirrorAttack, CallbacksDoAnything) {
  for (int what = 0; what < 7; ++what) {
    for (uint32_t at = 0; at < 40; at += 5) {
      Hooks hooks, otherHooks;
      Source source(4, 8);
      if (source_.rows.empty()) {
        source_.Serve(server_, {});
        source_.Fill(12);
      }
      const CoapRpcMirrorParam param = ParamOf(hooks);
      CoapRpcMirror *mirror = nullptr;
      CoapRpcMirror *other = nullptr;
      uint32_t num = 0;
      hooks.onAny = [&] {
        if (num++ != at) return;
        const CoapRpcMirrorParam otherParam = ParamOf(otherHooks);
        switch (what) {
          case 0:
            COAP_RpcMirrorClose(std::exchange(mirror, nullptr));
            break;
          case 1:
            COAP_RpcMirrorClose(std::exchange(other, nullptr));
            break;
          case 2:
            COAP_RpcMirrorClose(std::exchange(mirror, nullptr));
            COAP_RpcMirrorClose(std::exchange(other, nullptr));
            mirror = Open(param, asker_);
            break;
          case 3:
            COAP_RpcProcIo(asker_.Ctx());
            COAP_RpcProcIo(server_.Ctx());
            COAP_RpcProcIo(asker_.Ctx());
            break;
          case 4:
            server_.Detach(source_.Key());
            server_.Attach(source_.Key());
            break;
          case 5: {
            CoapRpcMirror *quick = Open(otherParam, asker_);
            COAP_RpcMirrorClose(quick);
            quick = Open(otherParam, asker_);

            COAP_RpcMirrorClose(quick);
            break;
          }
          case 6:
            for (int i = 0; i < 3; ++i) {
              source_.Put("cb" + std::to_string(i), std::to_string(at));
              source_.Delete("cb0");
            }
            break;
        }
      };
      mirror = Open(param, asker_);
      other = Open(ParamOf(otherHooks), server_);
      for (int i = 0; i < 30; ++i) {
        if (i == 15) {
          source_.Put("0001", std::to_string(at) + std::to_string(what));
          source_.Delete("0002");
          source_.Put("0002", "z" + std::to_string(at));
        }
        Steps(1);
      }
      if (mirror) {
        EXPECT_TRUE(RunUntil(
            [&] {
              return StateOf(mirror).state == COAP_RPC_MIRROR_SYNCED &&
                     StateOf(mirror).version == source_.State().head;
            },
            1000))
            << what << " " << at;
      }
      if (mirror) COAP_RpcMirrorClose(mirror);
      if (other) COAP_RpcMirrorClose(other);
    }
  }
}

// Two mirrors of one URI, one of them with a source of its own.
TEST_F(MirrorAttack, Ipv6) {
  CoapRpcIpAddr loopback = {};
  loopback.family = COAP_RPC_IPV6;
  reinterpret_cast<uint8_t *>(&loopback.addr)[15] = 1;
  Side server(loopback);
  source_.Serve(server, {});
  source_.Fill(500);
  CoapRpcCallAddr addr = {};
  addr.dstIp = loopback;
  addr.dstPort = kCoapPort;
  const CoapRpcMirrorParam param = ParamOf(hooks_);
  CoapRpcMirror *first = nullptr, *second = nullptr;
  ASSERT_EQ(COAP_RpcMirrorOpen(asker_.Ctx(), &source_.Key(), &addr, &param, &first), 0u);
  addr.srcIp = loopback;
  ASSERT_EQ(COAP_RpcMirrorOpen(asker_.Ctx(), &source_.Key(), &addr, &param, &second), 0u);
  const auto isEqual = [&](CoapRpcMirror *m) {
    return StateOf(m).state == COAP_RPC_MIRROR_SYNCED && StateOf(m).version == source_.State().head;
  };
  bool isDone = false;
  for (int i = 0; i < 1000 && !isDone; ++i) {
    server.Host().AdvanceMs(10);
    Steps(1);
    isDone = isEqual(first) && isEqual(second);
  }
  EXPECT_TRUE(isDone);
  for (int i = 0; i < 5; ++i) {
    server.Host().AdvanceMs(10);
    Steps(1);
  }
  EXPECT_EQ(source_.State().numObservers, 2u);
  COAP_RpcMirrorClose(first);
  COAP_RpcMirrorClose(second);
}

TEST_F(MirrorAttack, ShortHeartbeatWithDeadTimesAndLargeTuples) {
  Source source(16, 60'000);
  source.Serve(server_, {});
  source.Fill(20);
  CoapRpcMirrorParam param = ParamOf(hooks_);
  param.keyLen = 16;
  param.valLen = 60'000;
  param.heartbeatMs = 100;
  param.numInFlight = 128;
  CoapRpcCallAddr addr = {};
  addr.dstIp = server_;
  addr.dstPort = kCoapPort;
  CoapRpcMirror *mirror = nullptr;
  ASSERT_EQ(COAP_RpcMirrorOpen(asker_.Ctx(), &source.Key(), &addr, &param, &mirror), 0u);
  for (int i = 0; i < 30; ++i) {
    EXPECT_TRUE(RunUntil(
        [&] {
          return StateOf(mirror).state == COAP_RPC_MIRROR_SYNCED &&
                 StateOf(mirror).version == source.State().head;
        },
        3000))
        << i;
    source.Put("k", std::to_string(i));
    source.Delete("k2");
    source.Put("k2", "x");
  }
  COAP_RpcMirrorClose(mirror);
}

// The URI goes and comes while a mirror reads it.
TEST_F(MirrorAttack, UriDetachedWhileItIsRead) {
  source_.Serve(server_, {});
  source_.Fill(2000);
  CoapRpcMirror *mirror = Open(ParamOf(hooks_), asker_);
  for (int i = 0; i < 40; ++i) {
    Steps(1);
    server_.Detach(source_.Key());
    Steps(i % 3);
    server_.Attach(source_.Key());
  }
  EXPECT_TRUE(RunUntil([&] { return StateOf(mirror).state == COAP_RPC_MIRROR_SYNCED; }, 1000));
  COAP_RpcMirrorClose(mirror);
}

TEST_F(MirrorAttack, ServerRestartsDuringAFullSync) {
  source_.Serve(server_, {});
  source_.Fill(2000);
  CoapRpcMirror *mirror = Open(ParamOf(hooks_), asker_);
  for (int i = 0; i < 10; ++i) {
    Steps(1);
    server_.Stop();
    Steps(i % 3);
    server_.Start();
    source_.Serve(server_, {});
  }
  EXPECT_TRUE(RunUntil(
      [&] {
        return StateOf(mirror).state == COAP_RPC_MIRROR_SYNCED &&
               StateOf(mirror).replid == source_.State().replid;
      },
      1000));
  COAP_RpcMirrorClose(mirror);
}

}  // namespace
}  // namespace coap_rpc_test
