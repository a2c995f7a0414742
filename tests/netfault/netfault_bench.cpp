#include "netfault_bench.h"

#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>

#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "netfault_random.h"
#include "render.h"
#include "test_sleep.h"

namespace netfault {
namespace {

using coap_rpc_test::Format;
using coap_rpc_test::TestHost;
using coap_rpc_test::TestInstance;

constexpr uint32_t kHosts[] = {1, 2};  // of the sides' addresses at the start
constexpr uint16_t kFirstPort = 40'000;
constexpr size_t kPacketSize = 65'536;
constexpr uint64_t kUsualLagMs = 5000;
constexpr size_t kMaxLogs = 1000;
constexpr const char *kNames[] = {"publisher", "mirror"};

NetName NameOf(uint32_t index) {
  NetName name = {};
  snprintf(name.data(), name.size(), "k%05u", index);
  return name;
}

NetCounters ValueOf(uint32_t random) { return {random, random % 1000, random / 3, random % 77}; }

int ErrnoOf(const std::string &name) {
  static const std::map<std::string, int> codes = {
      {"EPERM", EPERM}, {"ENOBUFS", ENOBUFS}, {"ENETUNREACH", ENETUNREACH}, {"EAGAIN", EAGAIN}};
  const auto code = codes.find(name);
  return code != codes.end() ? code->second : 0;
}

RouteKind RouteOf(const std::string &name) {
  static const std::map<std::string, RouteKind> kinds = {{"prohibit", RouteKind::kProhibit},
                                                         {"unreachable", RouteKind::kUnreachable},
                                                         {"blackhole", RouteKind::kBlackhole}};
  const auto kind = kinds.find(name);
  return kind != kinds.end() ? kind->second : RouteKind::kNormal;
}

uint64_t NextTimerMs(TestHost &host) {
  uint64_t next = UINT64_MAX;
  for (const auto &timer : host.Timers().Running()) {
    next = std::min(next, timer.dueMs - host.Timers().NowMs());
  }
  return next;
}

// SumPart is that of the tuple with the sum, which NetSum leaves out.
uint64_t SumPart(const NetTable &table) {
  const auto sum = table.find(kNetSum);
  return sum == table.end() ? 0 : NetSumOf(kNetSum, sum->second);
}

uint64_t FullSum(const NetTable &table) { return NetSum(table) ^ SumPart(table); }

// PublishedSum is the same for a table that a publisher keeps, without adding up.
uint64_t PublishedSum(const NetTable &table) {
  const auto sum = table.find(kNetSum);
  return sum == table.end() ? 0 : sum->second.rxBytes ^ SumPart(table);
}

unsigned NoSleep(unsigned) { return 0; }

void CountEnd(uint64_t num, const CoapRpcRequestEnd *end) {
  *reinterpret_cast<uint32_t *>(num) += end->num;
}

}  // namespace

std::string State::Text() const {
  std::string text = Format("%u missing, %u stale, %u not deleted", difference.numMissing,
                            difference.numStale, difference.numExtra);
  if (!difference.IsNone()) text += " (" + difference.example + ")";
  text += isSure ? "; believes itself current" : "; knows that it is old";
  text += Format("; %u observers", numObservers);
  if (hasQueued) text += ", changes queued";
  if (isSending) text += ", payload under way";
  if (!IsReported()) return text + "; nothing reported";
  return text + Format("; reported: %u disconnects, %u errors, %u bad documents, %u ends",
                       news.numDisconnects, news.numErrors, news.numRefused, news.numEnded);
}

std::string Verdict::Text() const {
  if (isRight) return Format("right after %.1f s", seconds);
  if (isLate) return Format("LATE: right after %.1f s", seconds);
  return Format("WRONG after %.0f s: ", seconds) + (hasBegun ? "" : "never right; ") + state.Text();
}

Difference Compare(const NetTable &published, const NetTable &mirrored) {
  Difference diff;
  const auto note = [&](const NetName &name, uint32_t &count) {
    if (diff.IsNone()) diff.example = name.data();
    ++count;
  };
  for (const auto &[name, counters] : published) {
    const auto copy = mirrored.find(name);
    if (copy == mirrored.end()) {
      note(name, diff.numMissing);
    } else if (!(copy->second == counters)) {
      note(name, diff.numStale);
    }
  }
  for (const auto &[name, counters] : mirrored) {
    if (published.count(name) == 0) note(name, diff.numExtra);
  }
  return diff;
}

Bench::Bench(const Scenario &scenario, Trace trace)
    : scenario_(scenario),
      trace_(std::move(trace)),
      random_(scenario.seed),
      link_(scenario.seed + 1),
      publisher_(scenario.isIdl, scenario.policy.kind == Policy::kMirror) {
  SeedLibraryRandom(scenario.seed + 2);
  SetTestSleep(NoSleep);
  for (const Side side : {kPublisher, kMirror}) {
    nodes_[side].network = std::make_unique<Network>(scenario.isIpv6, kHosts[side]);
  }
  nodes_[kMirror].sockets.port = kFirstPort - 1;
}

Bench::~Bench() {
  Stop(kMirror);
  Stop(kPublisher);
  SetSocketPolicy(nullptr);
  SetTestSleep(nullptr);
}

void Bench::Say(const std::string &text) const {
  if (trace_) trace_(Format("%9.3f ", static_cast<double>(nowMs_) / 1000) + text);
}

// ---- processes

void Bench::StartProcess(Side side) {
  Node &node = nodes_[side];
  Enter(side);
  node.host = std::make_unique<TestHost>();
  CoapRpcInitParam param = coap_rpc_test::ParamOf(*node.host);
  param.logEnable = 0;  // half of the time of a run would go into lines that nobody reads
  node.instance = std::make_unique<TestInstance>(param);
  COAP_RpcSetLibLogLevel(node.Ctx(), 0);
  COAP_RpcRefreshTaskTimer(node.Ctx());
  node.isFrozen = false;
  node.lagMs = 0;
}

void Bench::StartPublisher() {
  Node &node = nodes_[kPublisher];
  StartProcess(kPublisher);
  publisher_.Serve(node.Ctx(), node.network->AddressOf(node.network->Host()));
}

CoapRpcCliAddr Bench::PeerAddr() const {
  const Network &network = *nodes_[kMirror].network;
  CoapRpcCliAddr addr = {};
  addr.srcIp = network.AddressOf(network.Host());
  addr.dstIp = network.AddressOf(peerHost_);
  addr.dstPort = kCoapPort;
  addr.codeType = COAP_RPC_GET;
  return addr;
}

void Bench::StartMirror(bool isSamePort) {
  Node &node = nodes_[kMirror];
  if (!isSamePort) ++node.sockets.port;
  StartProcess(kMirror);
  COAP_RpcSetOnRequestEnd(node.Ctx(), CountEnd, reinterpret_cast<uint64_t>(&former_.numEnded));
  const auto publisher = [this] {
    return nodes_[kPublisher].IsAlive() ? nodes_[kPublisher].Ctx() : nullptr;
  };
  mirror_ = MakeMirror(scenario_.policy,
                       {node.Ctx(), node.host->Tmr(), PeerAddr(), scenario_.isIdl, publisher});
  mirror_->Start();
  lastSign_ = UINT32_MAX;
}

void Bench::Start(Side side, bool isSamePort) {
  if (nodes_[side].IsAlive()) return;
  side == kPublisher ? StartPublisher() : StartMirror(isSamePort);
}

uint32_t Bench::PeerHostOf(Side side) const {
  return side == kMirror ? peerHost_ : nodes_[kMirror].network->Host();
}

// What a process sends while it is taken down is not sent by one that dies.
void Bench::Stop(Side side) {
  Node &node = nodes_[side];
  if (!node.IsAlive()) return;
  Enter(side);
  Drain(side);
  if (side == kPublisher) publisher_.Leave();
  node.instance.reset();
  if (node.host) node.host->Timers().StopAll();
  node.host.reset();
  Drain(side, true);
  if (side != kMirror) return;
  const MirrorNews news = mirror_->News();
  former_.numDisconnects += news.numDisconnects;
  mirror_.reset();
}

// ---- packets and time

void Bench::Enter(Side side) {
  nodes_[side].network->Enter();
  SetSocketPolicy(&nodes_[side].sockets);
}

void Bench::Drain(Side side, bool isSwallowed) {
  static std::array<uint8_t, kPacketSize> bytes;
  ssize_t len = 0;
  while ((len = read(nodes_[side].network->Tunnel(), bytes.data(), bytes.size())) > 0) {
    Bytes packet(bytes.begin(), bytes.begin() + len);
    if (isSwallowed || !LayoutOf(packet)) continue;
    digest_.Add(nowMs_, side, packet);
    if (trace_) Say(std::string(kNames[side]) + " sends " + CoapText(packet));
    link_.Take(Other(side), std::move(packet), nowMs_);
  }
}

// Serve lets a node do what there is to do at its sockets.
void Bench::Serve(Side side) {
  Node &node = nodes_[side];
  if (!node.Runs()) return;
  Enter(side);
  while (COAP_RpcProcIo(node.Ctx()) != 0) {
  }
  Drain(side);
}

bool Bench::HasPort(Side side, const Bytes &packet) const {
  const std::optional<Layout> layout = LayoutOf(packet);
  if (!layout || !layout->HasUdpHeader() || packet.size() < layout->payloadAt) return true;
  const uint32_t port =
      static_cast<uint32_t>(packet[layout->transportAt + 2]) << 8 | packet[layout->transportAt + 3];
  if (!nodes_[side].IsAlive()) return false;
  if (side == kPublisher) return port == kCoapPort;
  nodes_[side].network->Enter();
  return IsPortTaken(static_cast<uint16_t>(port), scenario_.isIpv6);
}

// The systems' own ICMP depends on the real time; ours comes in place of it.
void Bench::Deliver() {
  std::array<bool, kNumSides> isServed = {};
  while (std::optional<std::pair<Side, Bytes>> packet = link_.Next(nowMs_)) {
    const auto &[to, bytes] = *packet;
    if (!HasPort(to, bytes)) {
      if (scenario_.hasIcmp) {
        const Bytes answer = PortUnreachable(bytes);
        static_cast<void>(
            !write(nodes_[Other(to)].network->Tunnel(), answer.data(), answer.size()));
        isServed[Other(to)] = true;
      }
      continue;
    }
    static_cast<void>(!write(nodes_[to].network->Tunnel(), bytes.data(), bytes.size()));
    isServed[to] = true;
  }
  for (const Side side : {kPublisher, kMirror}) {
    if (isServed[side] && !scenario_.isPolled) Serve(side);
  }
}

void Bench::Advance(uint64_t ms) {
  nowMs_ += ms;
  for (const Side side : {kPublisher, kMirror}) {
    Node &node = nodes_[side];
    if (node.isFrozen) node.lagMs += ms;
    if (!node.Runs()) continue;
    Enter(side);
    node.host->AdvanceMs(ms + std::exchange(node.lagMs, 0));
    if (node.host->Logs().Records().size() > kMaxLogs) node.host->ClearLogs();
    Drain(side);
  }
}

uint64_t Bench::NextAtMs(uint64_t limitMs) const {
  uint64_t next = std::min({limitMs, link_.NextDueMs(), nextChangeAtMs_});
  for (const Node &node : nodes_) {
    if (!node.Runs()) continue;
    const uint64_t timer = NextTimerMs(*node.host);
    if (timer != UINT64_MAX) next = std::min(next, nowMs_ + timer);
  }
  return std::max(next, nowMs_ + 1);
}

// Wake moves time to whatever happens next.
void Bench::Wake(uint64_t limitMs) {
  Advance(NextAtMs(limitMs) - nowMs_);
  Deliver();
  NoteEqual();
  while (nextChangeAtMs_ <= nowMs_) {
    ChangeOne(scenario_.deletionPercent);
    nextChangeAtMs_ += static_cast<uint64_t>(std::max(1.0, 1000 / changesPerSecond_));
  }
}

void Bench::RunMs(uint64_t ms) {
  const uint64_t end = nowMs_ + ms;
  while (nowMs_ < end) Wake(end);
}

// ---- what happens

void Bench::Do(const Event &event) {
  std::string text = event.who + ' ' + event.what;
  for (const std::string &arg : event.args) text += ' ' + arg;
  Say("=== " + text);
  if (event.who == "changes") return DoChanges(event.Number(0));
  if (event.who == "publisher") return DoNode(kPublisher, event);
  if (event.who == "mirror") return DoNode(kMirror, event);
  if (event.who != "to-mirror") DoLink(kPublisher, event);
  if (event.who != "to-publisher") DoLink(kMirror, event);
}

void Bench::DoLink(Side to, const Event &event) {
  Quality &quality = link_.To(to);
  const std::map<std::string, Chance *> chances = {{"loss", &quality.loss},
                                                   {"late", &quality.late},
                                                   {"copy", &quality.copy},
                                                   {"renumbered", &quality.renumbered},
                                                   {"flip", &quality.flip},
                                                   {"forge", &quality.forge},
                                                   {"fragment-loss", &quality.fragmentLoss}};
  const std::map<std::string, uint32_t *> numbers = {{"delay", &quality.delayMs},
                                                     {"jitter", &quality.jitterMs},
                                                     {"max-size", &quality.maxSize},
                                                     {"lose-next", &quality.loseNext}};
  if (event.what == "up" || event.what == "down") quality.isUp = event.what == "up";
  const auto chance = chances.find(event.what);
  if (chance != chances.end()) *chance->second = {event.Number(0), event.Count(1)};
  const auto number = numbers.find(event.what);
  if (number != numbers.end()) *number->second = event.Count(0);
}

void Bench::DoNode(Side side, const Event &event) {
  Node &node = nodes_[side];
  const std::string &what = event.what;
  const std::string arg = event.args.empty() ? "" : event.args[0];
  if (what == "interface") return node.network->SetUp(arg == "up");
  if (what == "address") return node.network->SetAddress(event.Count(0));
  if (what == "mtu") return node.network->SetMtu(event.Count(0));
  if (what == "route") return node.network->SetRoute(RouteOf(arg), PeerHostOf(side));
  if (what == "sends") node.sockets.sendErrno = ErrnoOf(arg);
  if (what == "freeze" || what == "thaw") node.isFrozen = what == "freeze";
  if (what == "stop") return Stop(side);
  if (what == "start") return Start(side, arg == "same-port");
  if (side == kPublisher) return DoPublisher(event);
  DoMirror(event);
}

void Bench::DoPublisher(const Event &event) {
  Node &node = nodes_[kPublisher];
  Enter(kPublisher);
  if (event.what == "detach") publisher_.Detach();
  if (event.what == "attach") publisher_.Attach(node.network->AddressOf(node.network->Host()));
  if (event.what == "erase") Erase(NameOf(event.Count(0)));
  for (uint32_t i = 0; event.what == "change" && i < event.Count(0); ++i) ChangeOne(0);
  for (uint32_t i = 0; event.what == "delete" && i < event.Count(0); ++i) ChangeOne(100);
  Drain(kPublisher);
}

void Bench::DoMirror(const Event &event) {
  if (event.what == "peer") peerHost_ = event.Count(0);
  if (event.what == "observe") Ask(COAP_RpcCliObserveReq);
  if (event.what == "verify") Ask(COAP_RpcCliObserveReqVerify);
  if (event.what == "batch") Ask(COAP_RpcCliObserveReqBatch);
  if (event.what == "cancel") Ask(COAP_RpcCliObserveUnReq);
}

void Bench::Ask(decltype(&COAP_RpcCliObserveReq) ask) {
  if (!nodes_[kMirror].IsAlive() || scenario_.policy.kind == Policy::kMirror) return;
  const CoapRpcUriKey key = TableKey();
  const CoapRpcCliReqParam param = {};
  const CoapRpcCliAddr addr = PeerAddr();
  Enter(kMirror);
  ask(nodes_[kMirror].Ctx(), &key, &param, &addr);
  Drain(kMirror);
}

void Bench::DoChanges(double num) {
  changesPerSecond_ = num;
  nextChangeAtMs_ = num > 0 ? nowMs_ + 1 : UINT64_MAX;
}

void Bench::Set(const NetName &name, const NetCounters &counters) {
  publisher_.Set(name, counters);
  NoteSum();
}

void Bench::Erase(const NetName &name) {
  publisher_.Erase(name);
  NoteSum();
}

void Bench::NoteSum() {
  if (!sums_.empty() && sums_.back().first == nowMs_) sums_.pop_back();
  sums_.emplace_back(nowMs_, PublishedSum(publisher_.Table()));
}

// A tenth of the names has no tuple at the start, so that there are tuples to come.
void Bench::ChangeOne(double deletionPercent) {
  if (!nodes_[kPublisher].Runs() || scenario_.numTuples == 0) return;
  const uint32_t numNames = scenario_.numTuples + scenario_.numTuples / 10 + 1;
  const NetName name = NameOf(static_cast<uint32_t>(random_() % numNames));
  const bool isDeletion = static_cast<double>(random_() % 10'000) < deletionPercent * 100;
  const auto value = static_cast<uint32_t>(random_());
  Enter(kPublisher);
  if (isDeletion && publisher_.Table().count(name) != 0) {
    Erase(name);
  } else {
    Set(name, ValueOf(value));
  }
  Drain(kPublisher);
}

// ---- the verdict

uint64_t Bench::MirrorSum() {
  if (!mirror_) return 0;
  const MirrorNews news = mirror_->News();
  const uint32_t sign = news.numDocuments + news.numRefused;
  if (sign != lastSign_) mirrorSum_ = FullSum(instead_ ? *instead_ : mirror_->Table());
  lastSign_ = sign;
  return mirrorSum_;
}

// While the table changes a mirror is often out of date for a moment: it is right when it has what
// was right a moment ago.
bool Bench::IsEqual() {
  while (sums_.size() > 1 && sums_[1].first + kUsualLagMs < nowMs_) sums_.pop_front();
  const uint64_t sum = MirrorSum();
  return std::any_of(sums_.begin(), sums_.end(), [&](const auto &at) { return at.second == sum; });
}

void Bench::NoteEqual() {
  const bool wasRight = std::exchange(isRight_, IsEqual());
  if (wasRight == isRight_) return;
  Say(isRight_ ? "=== right" : "=== wrong");
  if (isRight_) recoveredAtMs_ = nowMs_;
  turnedAtMs_ = nowMs_;
}

// WaitUntilRight waits until the mirror has been right for `watchMs`.
bool Bench::WaitUntilRight(uint64_t patienceMs, uint64_t watchMs) {
  const uint64_t from = nowMs_;
  while (true) {
    NoteEqual();
    const uint64_t end = isRight_ ? std::max(turnedAtMs_, from) + watchMs : from + patienceMs;
    if (nowMs_ >= end) return isRight_;
    Wake(end);
  }
}

void Bench::PlayTimeline() {
  const uint64_t base = nowMs_;
  DoChanges(scenario_.changesPerSecond);
  for (const Event &event : scenario_.events) {
    if (base + event.atMs > nowMs_) RunMs(base + event.atMs - nowMs_);
    Do(event);
  }
  disturbedAtMs_ = nowMs_;
  RunMs(scenario_.tailMs);
  DoChanges(0);
}

bool Bench::Begin() {
  for (const Node &node : nodes_) {
    if (!node.network->IsGood()) return false;
  }
  for (uint32_t i = 0; i < scenario_.numTuples; ++i) Set(NameOf(i), ValueOf(i));
  StartPublisher();
  if (scenario_.isBaseStart) {
    while (numPlayed_ < scenario_.events.size() && scenario_.events[numPlayed_].atMs == 0) {
      Do(scenario_.events[numPlayed_++]);
    }
  }
  StartMirror(false);
  return true;
}

State Bench::Look() const {
  State state;
  const CoapRpcUriKey key = TableKey();
  const NetTable none;
  const NetTable *mirrored = instead_;
  if (!mirrored) mirrored = mirror_ ? &mirror_->Table() : &none;
  state.difference = Compare(publisher_.Table(), *mirrored);
  if (mirror_) state.news = mirror_->News();
  state.news.numDisconnects += former_.numDisconnects;
  state.news.numEnded = former_.numEnded;
  if (!nodes_[kPublisher].IsAlive() || !nodes_[kMirror].IsAlive()) return state;
  const auto *entry = COAP_RpcSerFindUriVtbl(nodes_[kPublisher].Ctx()->ser, &key);
  state.isSure = mirror_->IsSure();
  state.numObservers = entry->observerNum;
  state.hasQueued = entry->tupleChgList.next != &entry->tupleChgList;
  state.isSending = entry->isSendingLargeBlock != 0;
  return state;
}

Verdict Bench::MakeVerdict(uint64_t sinceMs) const {
  Verdict verdict;
  const uint64_t at = isRight_ ? recoveredAtMs_ : nowMs_;
  verdict.seconds = at > sinceMs ? static_cast<double>(at - sinceMs) / 1000 : 0;
  verdict.isLate = isRight_ && verdict.seconds > scenario_.policy.LimitSeconds();
  verdict.isRight = isRight_ && !verdict.isLate;
  verdict.virtualSeconds = static_cast<double>(nowMs_) / 1000;
  verdict.state = Look();
  verdict.digest = digest_.Value();
  verdict.counts = {link_.Counts(kPublisher), link_.Counts(kMirror)};
  return verdict;
}

Verdict Bench::Run() {
  if (!Begin()) return Verdict();
  if (!scenario_.isBaseStart && !WaitUntilRight(scenario_.limitMs, 0)) {
    Verdict verdict = MakeVerdict(0);
    verdict.hasBegun = false;
    return verdict;
  }
  Say("=== timeline");
  PlayTimeline();
  WaitUntilRight(scenario_.limitMs, scenario_.watchMs);
  return MakeVerdict(disturbedAtMs_);
}

}  // namespace netfault
