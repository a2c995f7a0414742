/* netfault_bench.h: plays a scenario and says whether the mirror became right.
 *
 * Publisher and mirror are two instances in this process, each with a namespace of its own.  Time
 * is that of the hosts under test control, so a run takes as long as its work and a seed gives the
 * same run, packet by packet. */
#ifndef NETFAULT_BENCH_H
#define NETFAULT_BENCH_H

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include "netfault_apps.h"
#include "netfault_link.h"
#include "netfault_net.h"
#include "netfault_scenario.h"
#include "netfault_socket.h"
#include "test_instance.h"

namespace netfault {

// Difference is what a mirror has wrong.
struct Difference {
  uint32_t numMissing = 0, numStale = 0, numExtra = 0;
  std::string example;  // one key

  bool IsNone() const { return numMissing + numStale + numExtra == 0; }
};
Difference Compare(const NetTable &published, const NetTable &mirrored);

// State is what both sides know about it.
struct State {
  Difference difference;
  bool isSure = false;  // the mirror believes itself up to date, as by its check code
  uint32_t numObservers = 0;
  bool hasQueued = false;  // changes that the publisher has not sent yet
  bool isSending = false;  // a payload in blocks
  MirrorNews news;         // of the application, its former lives included

  bool IsReported() const {
    return news.numDisconnects + news.numErrors + news.numRefused + news.numEnded != 0;
  }
  std::string Text() const;
};

struct Verdict {
  bool isRight = false;       // and in time
  bool isLate = false;        // right, but later than it had to be
  double seconds = 0;         // from the last event until it had recovered, or until the end
  bool hasBegun = true;       // false: never right before the faults
  State state;                // at the end
  double virtualSeconds = 0;  // the whole run
  uint64_t digest = 0;        // of all packets
  std::array<LinkCounts, kNumSides> counts;

  std::string Text() const;
};

// Node is one side: a namespace, and the host and instance in it while its process lives.
struct Node {
  std::unique_ptr<Network> network;
  std::unique_ptr<coap_rpc_test::TestHost> host;
  std::unique_ptr<coap_rpc_test::TestInstance> instance;
  SocketPolicy sockets;
  bool isFrozen = false;
  uint64_t lagMs = 0;  // of a frozen host

  bool IsAlive() const { return instance != nullptr; }
  bool Runs() const { return IsAlive() && !isFrozen; }
  CoapRpcCtx *Ctx() const { return instance->Get(); }
};

class Bench {
 public:
  using Trace = std::function<void(const std::string &)>;

  explicit Bench(const Scenario &scenario, Trace trace = nullptr);
  ~Bench();
  Bench(const Bench &) = delete;
  Bench &operator=(const Bench &) = delete;

  Verdict Run();

  // For tests: parts of a run.
  bool Begin();
  void RunMs(uint64_t ms);
  void Do(const Event &event);
  PublisherApp &Publisher() { return publisher_; }
  const NetTable *MirrorTable() const { return mirror_ ? &mirror_->Table() : nullptr; }
  const LinkCounts &Counts(Side to) const { return link_.Counts(to); }
  uint64_t NowMs() const { return nowMs_; }
  State Look() const;
  // Overrides what is compared with the publisher's table.
  void CompareInstead(const NetTable *table) {
    instead_ = table;
    lastSign_ = UINT32_MAX;
  }

 private:
  void StartProcess(Side side);
  void StartPublisher();
  void StartMirror(bool isSamePort);
  void Start(Side side, bool isSamePort);
  void Stop(Side side);
  uint32_t PeerHostOf(Side side) const;

  void Enter(Side side);
  void Serve(Side side);
  void Drain(Side side, bool isSwallowed = false);
  void Deliver();
  void Advance(uint64_t ms);
  uint64_t NextAtMs(uint64_t limitMs) const;
  void Wake(uint64_t limitMs);
  bool HasPort(Side side, const Bytes &packet) const;

  void DoLink(Side to, const Event &event);
  void DoNode(Side side, const Event &event);
  void DoPublisher(const Event &event);
  void DoMirror(const Event &event);
  void DoChanges(double num);
  void Set(const NetName &name, const NetCounters &counters);
  void Erase(const NetName &name);
  void NoteSum();
  void ChangeOne(double deletionPercent);
  void Ask(decltype(&COAP_RpcCliObserveReq) ask);

  uint64_t MirrorSum();
  bool IsEqual();
  void NoteEqual();
  bool WaitUntilRight(uint64_t patienceMs, uint64_t watchMs);
  void PlayTimeline();
  CoapRpcCliAddr PeerAddr() const;
  Verdict MakeVerdict(uint64_t sinceMs) const;
  void Say(const std::string &text) const;

  const Scenario scenario_;
  const Trace trace_;
  std::mt19937 random_;
  Link link_;
  std::array<Node, kNumSides> nodes_;
  PublisherApp publisher_;
  std::unique_ptr<MirrorApp> mirror_;
  MirrorNews former_;  // of mirrors before the present one
  const NetTable *instead_ = nullptr;
  Digest digest_;
  uint64_t nowMs_ = 0;
  uint64_t nextChangeAtMs_ = UINT64_MAX;
  double changesPerSecond_ = 0;
  uint32_t peerHost_ = 1;
  uint64_t numPlayed_ = 0;                          // events
  std::deque<std::pair<uint64_t, uint64_t>> sums_;  // of the publisher's table, and since when
  uint32_t lastSign_ = UINT32_MAX;                  // of the mirror when its sum was taken
  uint64_t mirrorSum_ = 0;
  bool isRight_ = false;
  uint64_t turnedAtMs_ = 0;  // right or wrong since then
  uint64_t recoveredAtMs_ = 0;
  uint64_t disturbedAtMs_ = 0;  // last event
};

}  // namespace netfault

#endif /* NETFAULT_BENCH_H */
