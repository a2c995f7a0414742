/* mirror_pair.h: a server that keeps versions of a table, and mirrors of it at a client.
 *
 * The table that the callbacks of a mirror make is compared with the server's whenever the mirror
 * says that it is synced. */
#ifndef MIRROR_PAIR_H
#define MIRROR_PAIR_H

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "two_instances.h"

namespace coap_rpc_test {

using Rows = std::map<std::string, std::string>;

// Source is a table at the server.
class Source {
 public:
  Source(uint16_t keyLen, uint16_t valLen) : keyLen_(keyLen), valLen_(valLen) {}

  void Serve(Side &side, const CoapRpcSerSyncParam &param) {
    side_ = &side;
    CoapRpcSerVtblReg reg = {};
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = keyLen_;
    ob.valLen = valLen_;
    ob.tupleKeyCmp = ObserveApp::KeyCmp;  // the first four bytes tell keys apart
    ASSERT_EQ(COAP_RpcSerRegVtbl(side.Ctx(), &key_, &reg, &ob), 0u);
    ASSERT_EQ(COAP_RpcSerSetUriSync(side.Ctx(), &key_, &param), 0u);
    side.Attach(key_);
    for (const auto &[key, val] : rows) Publish(key, val);
  }
  void Put(const std::string &key, const std::string &val) {
    rows[Padded(key, keyLen_)] = Padded(val, valLen_);
    Publish(Padded(key, keyLen_), Padded(val, valLen_));
  }
  void Delete(const std::string &key) {
    rows.erase(Padded(key, keyLen_));
    COAP_RpcSerObserveDataDel(side_->Ctx(), &key_, Padded(key, keyLen_).data());
    Note();
  }
  static std::string Name(uint32_t i) { return std::to_string(10'000 + i).substr(1); }
  void Fill(uint32_t num) {
    for (uint32_t i = 0; i < num; ++i) Put(Name(i), Name(i));
  }
  CoapRpcSerSyncState State() {
    CoapRpcSerSyncState state = {};
    EXPECT_EQ(COAP_RpcSerGetSyncState(side_->Ctx(), &key_, &state), 0u);
    return state;
  }
  // DigestAt is what the set's was at a version; 0 is also what is not known.
  uint64_t DigestAt(uint64_t replid, uint64_t version) { return digests_[{replid, version}]; }

  const CoapRpcUriKey &Key() const { return key_; }
  uint16_t KeyLen() const { return keyLen_; }
  uint16_t ValLen() const { return valLen_; }

  Rows rows;

 private:
  static std::string Padded(std::string text, size_t len) {
    text.resize(len, '.');
    return text;
  }
  void Publish(const std::string &key, const std::string &val) {
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(side_->Ctx(), &key_, key.data(), val.data()), 0u);
    Note();
  }
  void Note() {
    const CoapRpcSerSyncState state = State();
    digests_[{state.replid, state.head}] = state.digest;
  }

  Side *side_ = nullptr;
  const uint16_t keyLen_;
  const uint16_t valLen_;
  CoapRpcUriKey key_ = KeyOf("table", COAP_RPC_CON, 1);
  std::map<std::pair<uint64_t, uint64_t>, uint64_t> digests_;
};

// Copy is a mirror of a source, with the table that its callbacks make.
class Copy {
 public:
  explicit Copy(Source &source) : source_(source) {}
  ~Copy() { Close(); }
  Copy(const Copy &) = delete;
  Copy &operator=(const Copy &) = delete;

  void Open(Side &side, const CoapRpcIpAddr &server, uint32_t heartbeatMs = 0,
            uint32_t numInFlight = 0) {
    CoapRpcCallAddr addr = {};
    addr.dstIp = server;
    addr.dstPort = kCoapPort;
    CoapRpcMirrorParam param = {};
    param.keyLen = source_.KeyLen();
    param.valLen = source_.ValLen();
    param.heartbeatMs = heartbeatMs;
    param.numInFlight = numInFlight;
    param.userData = reinterpret_cast<uint64_t>(this);
    param.onAdded = OnAdded;
    param.onChanged = OnChanged;
    param.onRemoved = OnRemoved;
    param.onSynced = OnSynced;
    ASSERT_EQ(COAP_RpcMirrorOpen(side.Ctx(), &source_.Key(), &addr, &param, &mirror_), 0u);
  }
  void Close() {
    COAP_RpcMirrorClose(std::exchange(mirror_, nullptr));
    rows_.clear();
  }
  void Forget() { mirror_ = nullptr; }

  CoapRpcMirrorState State() const {
    CoapRpcMirrorState state = {};
    EXPECT_EQ(COAP_RpcMirrorGetState(mirror_, &state), 0u);
    return state;
  }
  // IsEqual says whether the mirror is synced with the source, and then both tables equal it.
  bool IsEqual() {
    const CoapRpcMirrorState state = State();
    const CoapRpcSerSyncState source = source_.State();
    if (state.state != COAP_RPC_MIRROR_SYNCED || state.replid != source.replid ||
        state.version != source.head) {
      return false;
    }
    EXPECT_EQ(rows_, source_.rows);
    EXPECT_EQ(Table(), source_.rows);
    return true;
  }
  Rows Table() const {
    Rows rows;
    const uint32_t keyLen = source_.KeyLen();
    for (const uint8_t *tuple = COAP_RpcMirrorNext(mirror_, nullptr); tuple;
         tuple = COAP_RpcMirrorNext(mirror_, tuple)) {
      rows[Text(tuple, keyLen)] = Text(tuple + keyLen, source_.ValLen());
    }
    return rows;
  }
  uint32_t numAdded = 0, numChanged = 0, numRemoved = 0;
  std::vector<uint64_t> synced;

 private:
  static Copy &Of(uint64_t userData) { return *reinterpret_cast<Copy *>(userData); }
  static std::string Text(const void *bytes, size_t len) {
    return std::string(static_cast<const char *>(bytes), len);
  }
  std::string Key(const void *key) const { return Text(key, source_.KeyLen()); }
  std::string Val(const void *val) const { return Text(val, source_.ValLen()); }

  static void OnAdded(uint64_t userData, const void *key, const void *val) {
    Copy &self = Of(userData);
    ++self.numAdded;
    EXPECT_TRUE(self.rows_.emplace(self.Key(key), self.Val(val)).second);
  }
  static void OnChanged(uint64_t userData, const void *key, const void *was, const void *is) {
    Copy &self = Of(userData);
    ++self.numChanged;
    EXPECT_EQ(std::exchange(self.rows_[self.Key(key)], self.Val(is)), self.Val(was));
  }
  static void OnRemoved(uint64_t userData, const void *key, const void *val) {
    Copy &self = Of(userData);
    ++self.numRemoved;
    EXPECT_EQ(self.rows_[self.Key(key)], self.Val(val));
    self.rows_.erase(self.Key(key));
  }
  static void OnSynced(uint64_t userData, uint64_t version) {
    Copy &self = Of(userData);
    self.synced.push_back(version);
    const CoapRpcMirrorState state = self.State();
    EXPECT_EQ(state.version, version);
    EXPECT_EQ(self.source_.DigestAt(state.replid, version), state.digest) << version;
  }

  Source &source_;
  CoapRpcMirror *mirror_ = nullptr;
  Rows rows_;
};

}  // namespace coap_rpc_test

#endif /* MIRROR_PAIR_H */
