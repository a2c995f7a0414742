#include "load.h"

#include <algorithm>

namespace coap_rpc_test {
namespace {

constexpr TableKind kSmall = {"t/json", COAP_RPC_CON, true, 0, 40};
constexpr TableKind kBig = {"t/idl", COAP_RPC_CON, false, 60, 250};
constexpr TableKind kNon = {"t/non", COAP_RPC_NON, true, 0, 10};
constexpr uint32_t kNumPostKeys = 8;
constexpr size_t kMaxPending = 16;  // calls at once

CoapRpcUriKey PostKey(uint32_t pktType) { return KeyOf("post", COAP_RPC_CON, 0, pktType); }

std::string PostName(uint32_t i) { return "p00" + std::to_string(i); }

MirroredTable::Patience PatienceOf(const LoadParam &param) {
  return {param.renewMs, param.doubtMs, param.renewAtRest};
}

template <typename Tables>
std::string TextOf(const Tables &tables) {
  std::string text;
  for (const auto &table : tables) {
    text += std::to_string(table.Data().size()) + " tuples";
    for (const auto &[key, val] : table.Data()) text += " " + key + "=" + val;
    text += "\n";
  }
  return text;
}

}  // namespace

LoadCounts &LoadCounts::operator+=(const LoadCounts &other) {
  calls.asked += other.calls.asked;
  calls.answered += other.calls.answered;
  calls.repeated += other.calls.repeated;
  calls.served += other.calls.served;
  mirrors.payloads += other.mirrors.payloads;
  mirrors.bytes += other.mirrors.bytes;
  mirrors.renewals += other.mirrors.renewals;
  mirrors.cancels += other.mirrors.cancels;
  mirrors.rebuilt += other.mirrors.rebuilt;
  posted += other.posted;
  postsSeen += other.postsSeen;
  postsRepeated += other.postsRepeated;
  changes += other.changes;
  return *this;
}

std::string LoadCounts::Text() const {
  const auto num = [](uint64_t value) { return std::to_string(value); };
  return "calls " + num(calls.asked) + " answered " + num(calls.answered) + " repeated " +
         num(calls.repeated) + "; posts " + num(posted) + " seen " + num(postsSeen) + " repeated " +
         num(postsRepeated) + "; table changes " + num(changes) + "; payloads " +
         num(mirrors.payloads) + " with " + num(mirrors.bytes) + " bytes; renewals " +
         num(mirrors.renewals) + ", cancels " + num(mirrors.cancels) + ", mirrors rebuilt " +
         num(mirrors.rebuilt);
}

Load::Load(CoapRpcCtx *ctx, const LoadParam &param, uint64_t nowMs)
    : param_(param),
      node_{ctx, Ipv4Address(param.selfIp), Ipv4Address(param.peerIp), std::mt19937(param.seed),
            nowMs},
      calls_(node_, param.patienceMs, std::max(param.patienceMs, param.maxPatienceMs)),
      tables_{{{node_, kSmall}, {node_, kBig}, {node_, kNon}}},
      mirrors_{{{node_, kSmall, PatienceOf(param)},
                {node_, kBig, PatienceOf(param)},
                {node_, kNon, PatienceOf(param)}}},
      callPace_(param.callPeriodMs),
      postPace_(5 * param.callPeriodMs),
      smallPace_(param.callPeriodMs),
      bigPace_(3 * param.callPeriodMs),
      wholePace_(100 * param.callPeriodMs) {
  calls_.Start();
  StartPosts();
  for (PublishedTable &table : tables_) table.Start();
  Attach();
  for (MirroredTable &mirror : mirrors_) mirror.Start();
  ResetTables();
}

void Load::Attach() {
  calls_.Attach();
  node_.Attach(PostKey(COAP_RPC_UNICAST));
  for (PublishedTable &table : tables_) table.Attach();
}

void Load::Detach() {
  calls_.Detach();
  node_.Detach(PostKey(COAP_RPC_UNICAST));
  for (PublishedTable &table : tables_) table.Detach();
}

void Load::LeaveAll() {
  for (MirroredTable &mirror : mirrors_) mirror.Leave();
}

void Load::BeginAllAgain() {
  for (MirroredTable &mirror : mirrors_) mirror.BeginAgain();
}

void Load::MoveTo(uint32_t selfIp) {
  LeaveAll();
  Detach();
  node_.self = Ipv4Address(selfIp);
  Attach();
  BeginAllAgain();
}

void Load::SetPeer(uint32_t peerIp) {
  LeaveAll();
  node_.peer = Ipv4Address(peerIp);
  BeginAllAgain();
}

void Load::StartPosts() {
  CoapRpcSerVtblReg ser = {};
  ser.userData = reinterpret_cast<uint64_t>(this);
  ser.onRequest = OnPost;
  CoapRpcCliVtblReg cli = {};
  cli.buildReq = Responses::BuildReq;
  const CoapRpcUriKey served = PostKey(COAP_RPC_UNICAST);  // the packet type that takes posts
  const CoapRpcUriKey sent = PostKey(COAP_RPC_BROADCAST);
  EXPECT_EQ(COAP_RpcSerRegVtbl(node_.ctx, &served, &ser, nullptr), 0u);
  EXPECT_EQ(COAP_RpcCliRegVtbl(node_.ctx, &sent, &cli), 0u);
}

int32_t Load::OnPost(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len,
                     uint8_t *, uint32_t) {
  const std::string text(payload, payload + len);
  EXPECT_EQ(text.size(), 9u) << text;
  reinterpret_cast<Load *>(userData)->tables_[0].Set(text.substr(0, 4), text.substr(5, 4));
  return 0;
}

void Load::ResetTables() {
  for (uint32_t i = 0; i < kNumPostKeys; ++i) tables_[0].Set(PostName(i), "none");
  for (PublishedTable &table : tables_) table.Reset();
}

void Load::Verify() {
  for (MirroredTable &mirror : mirrors_) mirror.Verify();
}

void Load::Step(uint64_t nowMs) {
  node_.nowMs = nowMs;
  if (!isQuiet_) Begin();
  calls_.Step();
  for (MirroredTable &mirror : mirrors_) mirror.Step(isQuiet_);
  LookAfterPosts();
}

void Load::Begin() {
  if (callPace_.IsDue(node_) && calls_.NumPending() < kMaxPending) calls_.Ask();
  if (postPace_.IsDue(node_)) BeginPost();
  ChangeTables();
}

void Load::ChangeTables() {
  if (smallPace_.IsDue(node_)) {
    tables_[0].Change(1);
    tables_[2].Change(1);
  }
  if (bigPace_.IsDue(node_)) tables_[1].Change(1 + node_.Below(3));
  if (wholePace_.IsDue(node_)) tables_[1].Change(kBig.numKeys);
}

void Load::BeginPost() {
  const std::string key = PostName(node_.Below(kNumPostKeys));
  if (posts_.count(key) != 0) return;
  Post &post = posts_[key];
  post.val = std::to_string(1000 + node_.Below(9000));
  ++counts_.posted;
  SendPost(key, &post);
}

void Load::SendPost(const std::string &key, Post *post) {
  post->dueMs = node_.nowMs + param_.patienceMs;
  node_.Call(COAP_RpcCliConReq, PostKey(COAP_RPC_BROADCAST), COAP_RPC_POST, key + "=" + post->val);
}

void Load::LookAfterPosts() {
  const Tuples &seen = mirrors_[0].Data();
  for (auto post = posts_.begin(); post != posts_.end();) {
    const auto tuple = seen.find(post->first);
    if (tuple != seen.end() && tuple->second == post->second.val) {
      ++counts_.postsSeen;
      post = posts_.erase(post);
      continue;
    }
    if (post->second.dueMs <= node_.nowMs) {
      ++counts_.postsRepeated;
      SendPost(post->first, &post->second);
    }
    ++post;
  }
}

bool Load::IsQuiet() const {
  return isQuiet_ && calls_.IsQuiet() && posts_.empty() &&
         std::all_of(mirrors_.begin(), mirrors_.end(),
                     [](const MirroredTable &mirror) { return mirror.IsEqual(); });
}

std::string Load::TablesText() const { return TextOf(tables_); }

std::string Load::MirrorsText() const { return TextOf(mirrors_); }

std::string Load::StateText() const {
  std::string text = "pending calls " + std::to_string(calls_.NumPending()) + ", pending posts " +
                     std::to_string(posts_.size()) + ", mirrors";
  for (const MirroredTable &mirror : mirrors_) text += mirror.IsEqual() ? " equal" : " different";
  return text;
}

LoadCounts Load::Counts() const {
  LoadCounts counts = counts_;
  counts.calls = calls_.Counts();
  for (const PublishedTable &table : tables_) counts.changes += table.NumChanges();
  for (const MirroredTable &mirror : mirrors_) {
    LoadCounts of;
    of.mirrors = mirror.Counts();
    counts += of;
  }
  return counts;
}

}  // namespace coap_rpc_test
