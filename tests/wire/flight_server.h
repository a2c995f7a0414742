/* flight_server.h: a server whose notifications may fail, in JSON or IDL, CON or NON. */
#ifndef FLIGHT_SERVER_H
#define FLIGHT_SERVER_H

#include <tuple>

#include "observe_server.h"

namespace coap_rpc_test {

// Relation is the payload format and the message type of notifications.
using Relation = std::tuple<uint8_t, uint32_t>;
using Texts = std::vector<std::string>;

class FlightServer : public ObserveServer, public testing::WithParamInterface<Relation> {
 protected:
  bool IsJson() const { return std::get<0>(GetParam()) == COAP_RPC_JSON; }
  bool IsCon() const { return std::get<1>(GetParam()) == COAP_RPC_CON; }

  void ServeRelation() { ServeObs(std::get<1>(GetParam()), std::get<0>(GetParam())); }

  // StartRelation serves the URI to peer_, who has got what there was.
  void StartRelation() {
    ServeRelation();
    Register(peer_, CoapType::kCon, {1});
  }

  // JoinNewer lets another peer observe the URI.
  void JoinNewer(RawPeer &newer) {
    newer.SetRemote(Address());
    Register(newer, CoapType::kCon, {2});
  }

  // ElementsOf shows what a payload says as "u:<key>=<val>" and "d:<key>".
  Texts ElementsOf(const Bytes &payload) const {
    return IsJson() ? JsonElements(payload) : IdlElements(payload);
  }

  // NextChanges is what the next notification with a payload says.
  Texts NextChanges(RawPeer &peer) {
    CoapMessage message = NextNotification(peer);
    while (message.code == Code(2, 1)) message = NextNotification(peer);
    return ElementsOf(message.payload);
  }

  // PassTime lets retransmissions come and go; DropWhatCame reads and forgets them.
  void PassTime(uint64_t ms) {
    for (uint64_t at = 0; at < ms; at += 1000) host_.AdvanceMs(1000);
  }
  void DropWhatCame() {
    while (peer_.ReceiveNow()) {
    }
  }

  // Unanswered waits for a notification and leaves it at that.
  CoapMessage Unanswered(RawPeer &peer) {
    const std::optional<CoapMessage> message = Next(peer);
    EXPECT_TRUE(message) << peer.LogText();
    return message ? *message : CoapMessage();
  }

  // NumFlights counts the payloads in flight of the URI, NumInFlight their changes.
  uint32_t NumFlights() const {
    uint32_t num = 0;
    ForEachLink(entry_->flights.list, [&](CoapRpcLink *) { ++num; });
    return num;
  }
  uint32_t NumInFlight() const {
    uint32_t num = 0;
    ForEachLink(entry_->flights.list, [&](CoapRpcLink *flight) {
      ForEachLink(flight[1], [&](CoapRpcLink *) { ++num; });  // the links of ChgFlight come first
    });
    return num;
  }

 private:
  template <typename Visit>
  static void ForEachLink(CoapRpcLink &head, Visit visit) {
    for (CoapRpcLink *link = head.next; link && link != &head; link = link->next) visit(link);
  }

  static std::string Member(const json_t *object, const char *name) {
    const char *text = json_string_value(json_object_get(object, name));
    return text ? text : "";
  }

  static Texts JsonElements(const Bytes &payload) {
    json_t *root =
        json_loadb(reinterpret_cast<const char *>(payload.data()), payload.size(), 0, nullptr);
    Texts texts;
    size_t i = 0;
    const json_t *element = nullptr;
    json_array_foreach(json_object_get(root, "data"), i, element) {
      const bool isUpdate = Member(element, "op") == "u";
      texts.push_back(Member(element, "op") + ":" + Member(element, "key") +
                      (isUpdate ? "=" + Member(element, "val") : ""));
    }
    json_decref(root);
    return texts;
  }

  static Texts IdlElements(const Bytes &payload) {
    Texts texts;
    for (size_t at = 4; at + 2 <= payload.size();) {
      const size_t len = payload[at] | static_cast<size_t>(payload[at + 1]) << 8;
      texts.emplace_back(payload.begin() + static_cast<ptrdiff_t>(at + 2),
                         payload.begin() + static_cast<ptrdiff_t>(at + 2 + len));
      at += 2 + len;
    }
    return texts;
  }
};

inline auto AllRelations() {
  return testing::Combine(testing::Values(COAP_RPC_JSON, COAP_RPC_BYTE),
                          testing::Values(COAP_RPC_CON, COAP_RPC_NON));
}

inline auto Relations(uint32_t msgType) {
  return testing::Combine(testing::Values(COAP_RPC_JSON, COAP_RPC_BYTE), testing::Values(msgType));
}

inline std::string RelationName(const testing::TestParamInfo<Relation> &relation) {
  const std::string format = std::get<0>(relation.param) == COAP_RPC_JSON ? "Json" : "Idl";
  return format + (std::get<1>(relation.param) == COAP_RPC_CON ? "Con" : "Non");
}

}  // namespace coap_rpc_test

#endif /* FLIGHT_SERVER_H */
