// Which base request reaches which base entry, by trial: each kind of request is sent to each kind
// of entry, and the tables of docs/interface.md are what came of it.
#include <fstream>
#include <map>
#include <sstream>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kSync = 0, kAsync = 1;
constexpr uint32_t kPacketTypes[] = {COAP_RPC_DEFAULT, COAP_RPC_UNICAST, COAP_RPC_BROADCAST};
constexpr uint32_t kMessageTypes[] = {COAP_RPC_CON, COAP_RPC_NON};

// Cells is one row of a table: what each entry made of one kind of request.
using Cells = std::vector<std::string>;
using Rows = std::map<std::string, Cells>;

class PacketTypes : public WireServer {
 protected:
  // Trial sends one request to the one entry of a new URI.
  std::string Trial(uint8_t mode, uint32_t pktType, uint32_t entryType, CoapType type,
                    uint8_t method) {
    const std::string uri = "t" + std::to_string(++numUris_);
    App app;
    app.onAsync = [this](void *async) { COAP_RpcSerAbortAsyncResponse(Ctx(), async); };
    Serve(KeyOf(uri.c_str(), entryType, 0, pktType), RegOf(&app, mode));
    host_.ClearLogs();
    RawPeer peer;
    peer.SetRemote(Address());
    peer.Send(Request(type, method, ++mid_, {7}).AddPath(uri).PayloadText("q"));
    const bool isAnswered = peer.ReceiveMessage(Pump(), kNothingComes).has_value();
    EXPECT_TRUE(isAnswered || type == CoapType::kNon);
    if (!app.requests.empty()) return "yes";
    return host_.LogsOf("COAP_RpcCliResponseHandler").empty() ? "no" : "taken for an answer";
  }

  Cells Row(uint8_t mode, CoapType type, uint8_t method) {
    Cells cells;
    for (const uint32_t pktType : kPacketTypes) {
      for (const uint32_t entryType : kMessageTypes) {
        cells.push_back(Trial(mode, pktType, entryType, type, method));
      }
    }
    return cells;
  }

  Rows Table(uint8_t mode) {
    return {{"CON GET", Row(mode, CoapType::kCon, kCodeGet)},
            {"NON GET", Row(mode, CoapType::kNon, kCodeGet)},
            {"CON POST", Row(mode, CoapType::kCon, kCodePost)},
            {"NON POST", Row(mode, CoapType::kNon, kCodePost)},
            {"CON PUT", Row(mode, CoapType::kCon, kCodePut)},
            {"CON DELETE", Row(mode, CoapType::kCon, kCodeDelete)}};
  }

  uint32_t numUris_ = 0;
};

// CellsOf splits "| a | b | c |".
Cells CellsOf(const std::string &line) {
  Cells cells;
  std::istringstream rest(line.substr(2));
  for (std::string cell; std::getline(rest, cell, '|');) {
    cells.push_back(cell.substr(cell.find_first_not_of(' ')));
    cells.back().erase(cells.back().find_last_not_of(' ') + 1);
  }
  return cells;
}

// Documented reads the table that follows a mark in docs/interface.md.
Rows Documented(const std::string &mark) {
  std::ifstream file(COAP_RPC_INTERFACE_DOCUMENT);
  EXPECT_TRUE(file) << COAP_RPC_INTERFACE_DOCUMENT;
  Rows rows;
  std::string line;
  while (std::getline(file, line) && line != "<!-- " + mark + " -->") continue;
  while (std::getline(file, line) && line.rfind("|", 0) == 0) {
    const Cells cells = CellsOf(line);
    if (cells[0].rfind("CON ", 0) == 0 || cells[0].rfind("NON ", 0) == 0) {
      rows[cells[0]] = Cells(cells.begin() + 1, cells.end());
    }
  }
  return rows;
}

TEST_F(PacketTypes, SynchronousEntries_AreReachedAsDocumented) {
  EXPECT_EQ(Table(kSync), Documented("synchronous"));
}

TEST_F(PacketTypes, AsynchronousEntries_AreReachedAsDocumented) {
  EXPECT_EQ(Table(kAsync), Documented("asynchronous"));
}

// AdvisedKey is a key that COAP_RpcSetAdvice warns of, and the path that a message would have.
struct AdvisedKey {
  CoapRpcUriKey key;
  std::string path;
};

std::vector<AdvisedKey> AdvisedKeys() {
  CoapRpcUriKey dirty = KeyOf("dirty");
  dirty.uri[63] = 'x';
  const std::string longest(63, 'l'), longer(33, 'l'), endless(64, 'l');
  return {{KeyOf(longer.c_str()), longer},
          {KeyOf(longest.c_str()), longest},
          {KeyOf(endless.c_str()), endless},
          {KeyOf("a b"), "a b"},
          {dirty, "dirty"},
          {KeyOf("type", 2), "type"},
          {KeyOf("packet", 0, 0, 3), "packet"}};
}

TEST_F(PacketTypes, KeysThatAreAdvisedAgainst_AreReachedByNothing) {
  App app;
  for (const AdvisedKey &advised : AdvisedKeys()) {
    COAP_RpcSetAdvice(Ctx(), 1);
    Serve(advised.key, RegOf(&app, kSync));
    EXPECT_FALSE(host_.LogsOf("COAP_RpcSetAdvice").empty()) << advised.path;
    host_.ClearLogs();
    for (const CoapType type : {CoapType::kCon, CoapType::kNon}) {
      for (const uint8_t method : {kCodeGet, kCodePost}) {
        RawPeer peer;
        peer.SetRemote(Address());
        peer.Send(Request(type, method, ++mid_, {7}).AddPath(advised.path).PayloadText("q"));
        peer.ReceiveMessage(Pump(), kNothingComes);
      }
    }
    EXPECT_TRUE(app.requests.empty()) << advised.path;
    app.requests.clear();
  }
}

}  // namespace
}  // namespace coap_rpc_test
