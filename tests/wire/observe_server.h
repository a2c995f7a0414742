/* observe_server.h: a server with one observable URI "obs" and peers that observe it.
 *
 * Tuples have keys and values of four characters.  An element is {"op":"u","key":..,"val":..} or
 * {"op":"d","key":..} in JSON and the text "u:<key>=<val>" or "d:<key>" in IDL. */
#ifndef OBSERVE_SERVER_H
#define OBSERVE_SERVER_H

#include <jansson.h>

#include <map>
#include <set>

#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "wire_server.h"

namespace coap_rpc_test {

inline constexpr char kCheckCode[] = "_ual-checkcode=";

struct ObserveApp : App {
  std::vector<uint32_t> observerNums;
  std::set<std::string> failing;  // keys whose builder fails
  size_t padding = 0;             // bytes added to each element
  uint32_t idlLen = 0;            // length that IDL builders claim; 0: the true one
  uint32_t numBuilt = 0;
  std::function<void(const std::string &key)> whileBuilding;
  std::function<void(uint32_t num)> onNum;
  std::map<std::string, std::string> data;  // the application's own tuples
  uint32_t numWalks = 0;

  static ObserveApp &Of(uint64_t userData) { return static_cast<ObserveApp &>(App::Of(userData)); }
  static std::string Text(const void *bytes) {
    return std::string(static_cast<const char *>(bytes), 4);
  }

  static int32_t KeyCmp(const void *a, const void *b) { return memcmp(a, b, 4); }
  static void OnObserverNum(uint64_t userData, uint32_t num) {
    Of(userData).observerNums.push_back(num);
    if (Of(userData).onNum) Of(userData).onNum(num);
  }

  uint32_t Build(bool isJson, const std::string &key, const std::string *val, void *element) {
    ++numBuilt;
    if (whileBuilding) whileBuilding(key);
    if (failing.count(key) != 0) return 5;
    if (isJson) {
      auto *object = static_cast<json_t *>(element);
      json_object_set_new(object, "op", json_string(val ? "u" : "d"));
      json_object_set_new(object, "key", json_string(key.c_str()));
      const std::string text = val ? *val + std::string(padding, 'p') : "";
      if (val) json_object_set_new(object, "val", json_string(text.c_str()));
    } else {
      auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(element);
      const std::string text =
          val ? "u:" + key + "=" + *val + std::string(padding, 'p') : "d:" + key;
      EXPECT_EQ(msg->size, 65471u);
      std::copy(text.begin(), text.end(), msg->buf);
      msg->len = idlLen != 0 ? idlLen : static_cast<uint32_t>(text.size());
    }
    return 0;
  }

  template <bool kIsJson>
  static uint32_t BuildUpdate(uint64_t userData, uint8_t *tuple, uint8_t *val, void *element) {
    EXPECT_EQ(val, tuple + 4);
    const std::string text = Text(val);
    return Of(userData).Build(kIsJson, Text(tuple), &text, element);
  }
  template <bool kIsJson>
  static uint32_t BuildDelete(uint64_t userData, uint8_t *tuple, void *element) {
    return Of(userData).Build(kIsJson, Text(tuple), nullptr, element);
  }

  uint32_t Give(std::map<std::string, std::string>::iterator it, void *key, void *val) {
    if (it == data.end()) return 9;
    memcpy(key, it->first.data(), 4);
    memcpy(val, it->second.data(), 4);
    return 0;
  }
  static uint32_t First(uint64_t userData, void *, void *key, void *val) {
    ++Of(userData).numWalks;
    return Of(userData).Give(Of(userData).data.begin(), key, val);
  }
  static uint32_t Next(uint64_t userData, void *, const void *last, void *key, void *val) {
    return Of(userData).Give(Of(userData).data.upper_bound(Text(last)), key, val);
  }
};

class ObserveServer : public WireServer {
 protected:
  static constexpr uint32_t kUpdateMs = 1000;

  CoapRpcSerObVtblReg ObRegOf(bool isJson) const {
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = 4;
    ob.valLen = 4;
    ob.tupleKeyCmp = ObserveApp::KeyCmp;
    ob.onObserverNum = ObserveApp::OnObserverNum;
    ob.buildUpdate = isJson ? ObserveApp::BuildUpdate<true> : ObserveApp::BuildUpdate<false>;
    ob.buildDelete = isJson ? ObserveApp::BuildDelete<true> : ObserveApp::BuildDelete<false>;
    ob.getFirstTuple = ObserveApp::First;
    ob.getNextTuple = ObserveApp::Next;
    return ob;
  }

  // ServeObs makes the URI "obs".  Notifications have the message type of its key.
  void ServeObs(uint32_t msgType, uint8_t payloadFormat = COAP_RPC_JSON) {
    key_ = KeyOf("obs", msgType, 1);
    const CoapRpcSerObVtblReg ob = ObRegOf(payloadFormat != COAP_RPC_BYTE);
    entry_ = Serve(key_, RegOf(&app_, 0, payloadFormat), &ob);
  }

  void Update(const std::string &key, const std::string &val) {
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(Ctx(), &key_, key.data(), val.data()), 0u);
  }
  void Delete(const std::string &key) { COAP_RpcSerObserveDataDel(Ctx(), &key_, key.data()); }

  CoapMessage Observe(CoapType type, const Bytes &token, const std::string &query = "",
                      uint32_t value = 0) {
    CoapMessage get = Request(type, kCodeGet, ++mid_, token).AddPath("obs");
    get.AddUint(kOptObserve, value);
    if (!query.empty()) get.AddText(kOptUriQuery, query);
    return get;
  }

  // Register makes `peer` an observer.  Returns the answer.
  CoapMessage Register(RawPeer &peer, CoapType type, const Bytes &token,
                       const std::string &query = "") {
    return Ask(peer, Observe(type, token, query));
  }

  // NextNotification waits for a notification and acknowledges it.
  CoapMessage NextNotification(RawPeer &peer) {
    const std::optional<CoapMessage> message = Next(peer);
    EXPECT_TRUE(message) << peer.LogText();
    if (!message) return CoapMessage();
    if (message->type == CoapType::kCon) peer.Send(AckOf(*message));
    return *message;
  }

  // Pending shows the changes on the list as "<type><key>".
  std::vector<std::string> Pending() {
    std::vector<std::string> texts;
    CoapRpcLink &head = entry_->tupleChgList;
    for (CoapRpcLink *link = head.next; link && link != &head; link = link->next) {
      const auto *chg = reinterpret_cast<CoapRpcTupleChg *>(link);  // chgLink comes first
      texts.push_back(std::to_string(chg->chgType) + ObserveApp::Text(chg->key));
    }
    return texts;
  }

  // EtagBytes is a check code as an option value.
  static Bytes EtagBytes(uint64_t value) {
    Bytes bytes;
    for (; value != 0; value >>= 8) bytes.insert(bytes.begin(), static_cast<uint8_t>(value));
    return bytes;
  }

  void TearDown() override { EXPECT_TRUE(host_.Pool().Violations().empty()); }

  ObserveApp app_;
  CoapRpcUriKey key_ = {};
  CoapRpcSerUriVtbl *entry_ = nullptr;
};

}  // namespace coap_rpc_test

#endif /* OBSERVE_SERVER_H */
