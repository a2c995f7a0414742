/* cli_mirror.h: a mirror under test, to which pages are given, and whose questions are read. */
#ifndef CLI_MIRROR_H
#define CLI_MIRROR_H

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "mirror_world.h"

namespace coap_rpc_test {

using coap_rpc::kSyncAtHead;
using coap_rpc::kSyncConfirm;
using coap_rpc::kSyncNotification;
using coap_rpc::kSyncNotObserving;
using coap_rpc::kSyncRestart;
using coap_rpc::MirrorAct;
using coap_rpc::MirrorAsk;

inline constexpr uint64_t kLife = 77;

struct Change {
  uint64_t version;
  std::string key;
  std::string val;  // "": deleted
};

// Page is a page with what it borrows.
struct Page {
  uint64_t flags = 0;
  uint64_t from = 0;
  uint64_t to = 0;
  uint64_t head = 0;
  uint64_t digest = 0;
  std::vector<Change> changes = {};
  uint64_t floor = 0;
  uint64_t replid = kLife;

  coap_rpc::MirrorPage Read() const {
    coap_rpc::MirrorPage page = {};
    page.flags = flags;
    page.replid = replid;
    page.from = from;
    page.to = to;
    page.head = head;
    page.floor = floor;
    page.digest = digest;
    for (const Change &change : changes) {
      const auto bytes = [](const std::string &text) {
        return reinterpret_cast<const uint8_t *>(text.data());
      };
      page.changes[page.num++] = {change.version, bytes(change.key),
                                  change.val.empty() ? nullptr : bytes(change.val)};
    }
    return page;
  }
};

class CliMirror : public ::testing::Test {
 protected:
  CliMirror() { Open({}); }

  void Open(CoapRpcMirrorParam param) {
    param.keyLen = param.valLen = 4;
    if (param.numInFlight == 0) param.numInFlight = 2;
    if (param.heartbeatMs == 0) param.heartbeatMs = 30000;
    mirror_ = std::make_unique<TestMirror>(host_.Mem(), param, random_, nowMs_);
    EXPECT_EQ(Next().act, MirrorAct::kOpen);
  }
  coap_rpc::Mirror &Core() { return mirror_->core; }

  MirrorAsk Next() { return MirrorNext(Core(), nowMs_); }
  MirrorAsk NextPull() {
    MirrorAsk ask = Next();
    if (ask.act == MirrorAct::kRegister) {
      registration_ = ask.token;
      ask = Next();
    }
    EXPECT_EQ(ask.act, MirrorAct::kPull);
    return ask;
  }
  bool IsQuiet() { return Next().act == MirrorAct::kNone; }

  void Say(uint64_t token, const Page &page) { MirrorTakePage(Core(), token, page.Read(), nowMs_); }
  // SayOne answers with one change.
  void SayOne(const MirrorAsk &ask, uint64_t head) {
    Say(ask.token, {.from = ask.since,
                    .to = ask.since + 1,
                    .head = head,
                    .changes = {{ask.since + 1, "a001", "v001"}}});
  }
  void Push(Page page) {
    page.flags |= kSyncNotification;
    Say(registration_, page);
  }
  void Advance(uint64_t ms) {
    nowMs_ += ms;
    MirrorTick(Core(), nowMs_);
  }
  // AdvanceToDue moves time to when the mirror has something to do.
  void AdvanceToDue() { Advance(MirrorDueMs(Core()) - std::min(nowMs_, MirrorDueMs(Core()))); }

  // SendAll sends all that is to be sent now, and says whether a ping was.
  bool SendAll() {
    bool isPing = false;
    for (MirrorAsk ask = Next(); ask.act != MirrorAct::kNone; ask = Next()) {
      isPing = isPing || ask.act == MirrorAct::kPing;
    }
    return isPing;
  }
  bool LetTimeGo() {
    AdvanceToDue();
    return SendAll();
  }

  // Read leads to a full sync of (0, 4] in the ranges (0, 2] and (2, 4].
  void BeginRanges() {
    Say(NextPull().token, {.flags = kSyncNotObserving, .head = 4});
    first_ = NextPull();
    second_ = NextPull();
    EXPECT_EQ(std::pair(first_.since, first_.until), std::pair(uint64_t{0}, uint64_t{2}));
    EXPECT_EQ(std::pair(second_.since, second_.until), std::pair(uint64_t{2}, uint64_t{4}));
    Say(registration_, {.head = 4});
  }
  // Sync leads to a mirror with a001 of version 1 and b001 of version 4, which is all.
  void Sync() {
    BeginRanges();
    Say(first_.token, {.from = 0, .to = 2, .head = 4, .changes = {{1, "a001", "v001"}}});
    Say(second_.token, {.from = 2, .to = 4, .head = 4, .changes = {{4, "b001", "v004"}}});
    Say(NextPull().token,
        {.flags = kSyncAtHead, .from = 4, .to = 4, .head = 4, .digest = Digest()});
    EXPECT_EQ(Core().state, uint32_t{COAP_RPC_MIRROR_SYNCED});
    EXPECT_TRUE(IsQuiet());
    AdvanceToDue();
    const MirrorAsk confirming = NextPull();
    EXPECT_EQ(std::pair(confirming.since, confirming.isFull), std::pair(uint64_t{4}, false));
    Say(confirming.token,
        {.flags = kSyncAtHead, .from = 4, .to = 4, .head = 4, .digest = Digest()});
    EXPECT_TRUE(IsQuiet());
  }
  // FailPulls answers pulls so often with an error that the pauses are long.
  void FailPulls(uint32_t code) {
    MirrorTakeNothing(Core(), registration_, nowMs_);
    for (int i = 0; i < 12; ++i) {
      nowMs_ = std::max(nowMs_, Core().holdMs);
      MirrorTakeFailure(Core(), NextPull().token, code, nowMs_);
    }
    EXPECT_TRUE(IsQuiet());
  }
  uint64_t Digest() { return Core().table.digest; }
  // DigestOf is what the digest of a table is.
  static uint64_t DigestOf(const Rows &rows) {
    uint64_t digest = 0;
    for (const auto &[key, val] : rows) digest += XXH64((key + val).data(), 8, 0);
    return digest;
  }
  Rows Table() { return mirror_->Table(); }
  uint32_t State() { return Core().state; }

  TestHost host_;
  std::mt19937_64 random_{1};
  uint64_t nowMs_ = 1000;
  uint64_t registration_ = 0;
  MirrorAsk first_, second_;
  std::unique_ptr<TestMirror> mirror_;
};

}  // namespace coap_rpc_test

#endif
