/* sync_server.h: the server of observe_server.h with versions of its tuples, and readers of them.
 */
#ifndef SYNC_SERVER_H
#define SYNC_SERVER_H

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "observe_server.h"

namespace coap_rpc_test {

inline constexpr uint16_t kFormatCbor = 60, kFormatJson = 50;
inline constexpr uint64_t kReplid = 0x0102030405060708;
inline constexpr char kIdArg[] = "id=0102030405060708";

// ReplidHex is kReplid in a page, NumberHex another number.
inline constexpr char kReplidHex[] = "1b 01 02 03 04 05 06 07 08";
inline std::string NumberHex(uint64_t number) {
  Bytes bytes;
  const int len = number < 24 ? 0 : number < 256 ? 1 : number < 65536 ? 2 : number >> 32 ? 8 : 4;
  const uint8_t info[] = {0, 24, 25, 0, 26, 0, 0, 0, 27};
  bytes.push_back(len == 0 ? static_cast<uint8_t>(number) : info[len]);
  for (int i = len - 1; i >= 0; --i) bytes.push_back(static_cast<uint8_t>(number >> 8 * i));
  return HexText(bytes);
}

class SyncServer : public ObserveServer {
 protected:
  void ServeSynced(const CoapRpcSerSyncParam &param = {}, uint32_t msgType = COAP_RPC_CON) {
    ServeObs(msgType);
    SetSync(param);
    Set().replid = kReplid;
  }
  void SetSync(const CoapRpcSerSyncParam &param) {
    EXPECT_EQ(COAP_RpcSerSetUriSync(Ctx(), &key_, &param), 0u);
  }

  coap_rpc::SyncSet &Set() { return entry_->sync->set; }

  CoapMessage Reading(CoapType type, const std::vector<std::string> &args) {
    CoapMessage get = Request(type, kCodeGet, ++mid_, {0x5C}).AddPath("obs");
    for (const std::string &arg : args) get.AddText(kOptUriQuery, arg);
    return get;
  }
  CoapMessage Registering(const Bytes &token = {0x5D}) {
    CoapMessage get = Request(CoapType::kCon, kCodeGet, ++mid_, token).AddPath("obs");
    return get.AddUint(kOptObserve, 0).AddText(kOptUriQuery, "_sync=1");
  }

  // Pull asks for pages with the protocol's argument and these.
  CoapMessage Pull(RawPeer &peer, std::vector<std::string> args, CoapType type = CoapType::kCon) {
    args.insert(args.begin(), "_sync=1");
    return Ask(peer, Reading(type, args));
  }
  CoapMessage PullSince(RawPeer &peer, uint64_t since) {
    return Pull(peer, {kIdArg, "since=" + std::to_string(since)});
  }

  // Page is the expected payload: a head with the set's own digest, and changes as text.
  std::string Page(uint32_t flags, uint64_t from, uint64_t to, const std::string &changes = "",
                   size_t numChanges = 0) {
    Bytes start = {static_cast<uint8_t>(0x80 + 8 + 3 * numChanges)};
    if (8 + 3 * numChanges > 23) start = {0x98, static_cast<uint8_t>(8 + 3 * numChanges)};
    std::string page = HexText(start) + " 01 " + NumberHex(flags) + " " + kReplidHex;
    for (const uint64_t number : {from, to, Set().head, Set().floor, Set().digest}) {
      page += " " + NumberHex(number);
    }
    return changes.empty() ? page : page + " " + changes;
  }

  // UpdateHex and DeletionHex are changes of keys and values of four characters.
  static std::string UpdateHex(uint64_t delta, const std::string &key, const std::string &val) {
    return NumberHex(delta) + " 44 " + HexText(BytesOf(key)) + " 44 " + HexText(BytesOf(val));
  }
  static std::string DeletionHex(uint64_t delta, const std::string &key) {
    return NumberHex(delta) + " 44 " + HexText(BytesOf(key)) + " f6";
  }

  static std::string PayloadHex(const CoapMessage &message) { return HexText(message.payload); }
};

}  // namespace coap_rpc_test

#endif /* SYNC_SERVER_H */
