/* mirror_client.h: a client with mirrors, and a raw peer that is their server as a test says. */
#ifndef MIRROR_CLIENT_H
#define MIRROR_CLIENT_H

#include <poll.h>
#include <xxhash.h>

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/common/coap_rpc_sync_format.h"
#include "wire_client.h"

namespace coap_rpc_test {

inline constexpr uint64_t kLife = 0x0102030405060708;
inline constexpr char kLifeArg[] = "id=0102030405060708";
inline constexpr uint16_t kFormatCbor = 60;

// SyncPageText is a page before it is written.
struct SyncPageText {
  uint64_t flags = 0;
  uint64_t from = 0;
  uint64_t to = 0;
  uint64_t head = 0;
  uint64_t floor = 0;
  uint64_t digest = 0;
  uint64_t replid = kLife;
  struct Change {
    uint64_t version;
    std::string key;
    std::optional<std::string> val;  // none: deleted
  };
  std::vector<Change> changes = {};
};

inline uint64_t DigestOf(const std::vector<std::string> &tuples) {
  uint64_t digest = 0;
  for (const std::string &tuple : tuples) digest += XXH64(tuple.data(), tuple.size(), 0);
  return digest;
}

// CborText writes the little CBOR that pages are made of.
class CborText {
 public:
  CborText &Head(uint8_t major, uint64_t number) {
    const int len = number < 24 ? 0 : number < 256 ? 1 : number < 65536 ? 2 : number >> 32 ? 8 : 4;
    const uint8_t info[] = {0, 24, 25, 0, 26, 0, 0, 0, 27};
    bytes_ += static_cast<char>(uint64_t{major} << 5 | (len == 0 ? number : info[len]));
    for (int i = len - 1; i >= 0; --i) bytes_ += static_cast<char>(number >> 8 * i);
    return *this;
  }
  CborText &Number(uint64_t number) { return Head(0, number); }
  CborText &String(const std::string &text) {
    Head(2, text.size());
    bytes_ += text;
    return *this;
  }
  CborText &Null() {
    bytes_ += '\xf6';
    return *this;
  }
  const std::string &Bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

inline std::string Written(const SyncPageText &page) {
  CborText out;
  out.Head(4, 8 + 3 * page.changes.size()).Number(1).Number(page.flags).Number(page.replid);
  out.Number(page.from).Number(page.to).Number(page.head).Number(page.floor).Number(page.digest);
  uint64_t before = page.from;
  for (const SyncPageText::Change &change : page.changes) {
    out.Number(change.version - before).String(change.key);
    before = change.version;
    if (change.val) {
      out.String(*change.val);
    } else {
      out.Null();
    }
  }
  return out.Bytes();
}

// MirrorApp is what the callbacks of a mirror were given, and what they do.
struct MirrorApp {
  std::vector<std::string> told;  // "+k001=v001", "k001:v001>v002", "-k001=v001", "synced 3", ...
  std::function<void(const std::string &)> onTold;

  static MirrorApp &Of(uint64_t userData) { return *reinterpret_cast<MirrorApp *>(userData); }
  static std::string Text(const void *bytes) {
    return std::string(static_cast<const char *>(bytes), 4);
  }
  void Tell(const std::string &text) {
    told.push_back(text);
    if (onTold) onTold(text);
  }
  static void OnAdded(uint64_t userData, const void *key, const void *val) {
    Of(userData).Tell("+" + Text(key) + "=" + Text(val));
  }
  static void OnChanged(uint64_t userData, const void *key, const void *was, const void *is) {
    Of(userData).Tell(Text(key) + ":" + Text(was) + ">" + Text(is));
  }
  static void OnRemoved(uint64_t userData, const void *key, const void *val) {
    Of(userData).Tell("-" + Text(key) + "=" + Text(val));
  }
  static void OnSynced(uint64_t userData, uint64_t version) {
    Of(userData).Tell("synced " + std::to_string(version));
  }
  static std::string StateText(uint32_t state, uint32_t code) {
    static const char *const kNames[] = {"?",      "CONNECTING", "FULL_SYNC", "SYNCED",
                                         "BEHIND", "STALE",      "REFUSED"};
    return kNames[state] + (code != 0 ? " " + std::to_string(code - 1900000000) : "");
  }
  static void OnState(uint64_t userData, uint32_t state, uint32_t code) {
    Of(userData).Tell(StateText(state, code));
  }
  std::string Take() {
    std::string all;
    for (const std::string &text : told) all += (all.empty() ? "" : ", ") + text;
    told.clear();
    return all;
  }
};

inline CoapRpcMirrorParam MirrorParamOf(MirrorApp *app) {
  CoapRpcMirrorParam param = {};
  param.keyLen = param.valLen = 4;
  param.userData = reinterpret_cast<uint64_t>(app);
  param.onAdded = MirrorApp::OnAdded;
  param.onChanged = MirrorApp::OnChanged;
  param.onRemoved = MirrorApp::OnRemoved;
  param.onSynced = MirrorApp::OnSynced;
  param.onState = MirrorApp::OnState;
  return param;
}

class MirrorClient : public WireClient {
 protected:
  static constexpr int kMaxWaitMs = 50;

  // Next takes what is there before any time goes by.
  CoapMessage Next() {
    const std::optional<CoapMessage> message = peer_.ReceiveNow();
    return message ? *message : WireClient::Next();
  }

  CoapRpcCallAddr To(const RawPeer &peer) const {
    CoapRpcCallAddr addr = {};
    addr.dstIp.family = COAP_RPC_IPV4;
    addr.dstIp.addr.ipv4 = kPeerIp;
    addr.dstPort = peer.Local().port;
    return addr;
  }
  CoapRpcMirrorParam Param() { return MirrorParamOf(&app_); }

  CoapRpcMirror *Open(const CoapRpcMirrorParam &param) {
    const CoapRpcUriKey key = KeyOf("obs", COAP_RPC_CON, 0);
    const CoapRpcCallAddr addr = To(peer_);
    CoapRpcMirror *mirror = nullptr;
    EXPECT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &mirror), 0u);
    EXPECT_NE(mirror, nullptr);
    EXPECT_EQ(app_.Take(), "");
    return mirror;
  }

  CoapRpcMirrorState State() {
    CoapRpcMirrorState state = {};
    EXPECT_EQ(COAP_RpcMirrorGetState(mirror_, &state), 0u);
    return state;
  }

  // Answer makes the NON answer to a request.
  CoapMessage AnswerWith(const CoapMessage &request, const SyncPageText &page) {
    return AnswerBytes(request, Written(page));
  }
  CoapMessage AnswerBytes(const CoapMessage &request, const std::string &payload) {
    CoapMessage answer = Request(CoapType::kNon, Code(2, 5), ++mid_, request.token);
    answer.AddUint(kOptContentFormat, kFormatCbor).PayloadText(payload);
    return answer;
  }
  CoapMessage Error(const CoapMessage &request, uint8_t code) {
    return Request(CoapType::kNon, code, ++mid_, request.token);
  }
  // Reply sends a message to where the latest one came from.
  void Reply(const CoapMessage &message) {
    for (const PeerDatagram &datagram : peer_.Datagrams()) {
      if (!datagram.isSent) peer_.SetRemote(datagram.other);
    }
    peer_.Send(message);
  }
  // Say sends a message, which is taken at once: no time goes by.
  void Say(const CoapMessage &message) {
    Reply(message);
    pollfd io = {COAP_RpcGetIoFd(Ctx()), POLLIN, 0};
    poll(&io, 1, kMaxWaitMs);
    COAP_RpcProcIo(Ctx());
  }
  void Say(const CoapMessage &request, const SyncPageText &page) { Say(AnswerWith(request, page)); }

  // Expected is the request of a pull, but for its number and token.
  CoapMessage Pull(const CoapMessage &like, const std::vector<std::string> &args) {
    CoapMessage pull = Request(CoapType::kNon, kCodeGet, like.messageId, like.token).AddPath("obs");
    pull.AddText(kOptUriQuery, "_sync=1");
    for (const std::string &arg : args) pull.AddText(kOptUriQuery, arg);
    return pull;
  }
  CoapMessage Registration(const CoapMessage &like) {
    CoapMessage get = Request(CoapType::kNon, kCodeGet, like.messageId, like.token);
    return get.Add(kOptObserve).AddPath("obs").AddText(kOptUriQuery, "_sync=1");
  }

  // Notification makes one for the latest registration.
  CoapMessage Notification(const SyncPageText &page) {
    CoapMessage message = Request(CoapType::kNon, Code(2, 5), ++mid_, registration_.token);
    message.AddUint(kOptObserve, ++number_).AddUint(kOptContentFormat, kFormatCbor);
    return message.PayloadText(Written(page));
  }

  // Sync leads a new mirror to a table of one tuple, k001=v001, at version 2 of a server that it
  // observes.
  void Sync(CoapRpcMirrorParam param) {
    mirror_ = Open(param);
    SyncOpened();
  }
  void SyncOpened() {
    Say(Next(), {.flags = coap_rpc::kSyncNotObserving, .head = 2, .digest = One()});
    registration_ = Next();
    const CoapMessage answer = AnswerWith(registration_, {.head = 2, .digest = One()});
    Say(CoapMessage(answer).AddUint(kOptObserve, number_));
    for (int i = 0; i < 2; ++i) SayRange(Next());
    Say(Next(), {.flags = 1, .from = 2, .to = 2, .head = 2, .digest = One()});
    EXPECT_EQ(State().state, COAP_RPC_MIRROR_SYNCED);
    TakeConfirmation();
    app_.Take();
  }
  // TakeConfirmation answers the pull that says, after a full sync, what the mirror has.
  void TakeConfirmation() {
    const CoapMessage pull = Next();
    EXPECT_EQ(pull, Pull(pull, {kLifeArg, "since=2"}));
    Say(pull, {.flags = 1, .from = 2, .to = 2, .head = 2, .digest = One()});
  }
  static std::string QueryOf(const CoapMessage &request) {
    std::string query;
    for (const Bytes &arg : request.Values(kOptUriQuery)) {
      query += (query.empty() ? "" : "&") + std::string(arg.begin(), arg.end());
    }
    return query;
  }
  // SayRange answers one of the ranges (0, 1] and (1, 2].
  void SayRange(const CoapMessage &pull) {
    const bool isFirst = QueryOf(pull).find("since=0") != std::string::npos;
    if (isFirst) {
      Say(pull, {.from = 0, .to = 1, .head = 2, .digest = One()});
    } else {
      Say(pull, {.from = 1, .to = 2, .head = 2, .digest = One(), .changes = {{2, "k001", "v001"}}});
    }
  }
  static uint64_t One() { return DigestOf({"k001v001"}); }

  MirrorApp app_;
  CoapRpcMirror *mirror_ = nullptr;
  CoapMessage registration_;
  uint16_t mid_ = 1000;
  uint32_t number_ = 10;
};

}  // namespace coap_rpc_test

#endif /* MIRROR_CLIENT_H */
