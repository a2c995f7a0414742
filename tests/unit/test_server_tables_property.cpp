/* test_server_tables_property.cpp: random attaching and detaching against a simple model.
 *
 * After every step the tables must hold exactly what the model holds, in its order. */
#include <algorithm>
#include <map>
#include <random>
#include <sstream>

#include "server_tables.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kNumSteps = 10000;

// In the order of the listen table.
const std::vector<CoapRpcSerListenAddr> kAddrs = {
    Ipv4Addr(1, 5683),           Ipv4Addr(1, 5684), Ipv4Addr(0x7f000001, 0),
    Ipv4Addr(0xffffffff, 65535), Ipv6Addr(0, 5683), Ipv6Addr(1, 5683)};

// In the order of the URI table.  The last ones are never registered.
const std::vector<CoapRpcUriKey> kKeys = {KeyOf("a", 0, 0, 0),
                                          KeyOf("a", 0, 0, 1),
                                          KeyOf("a", 0, 1, 0),
                                          KeyOf("a", 1, 0, 2),
                                          KeyOf("a/b"),
                                          KeyOf("b", 0, 5, 0),
                                          KeyOf("b", 1, 0, 0),
                                          KeyOf(std::string(63, 'c')),
                                          KeyOf(std::string(64, 'c')),
                                          KeyOf(std::string(64, 'c'), 1),
                                          KeyOf("x"),
                                          KeyOf("x", 1)};
constexpr size_t kNumRegistered = 10;

bool HasResource(size_t key) { return UriOf(kKeys[key].uri).size() < 64; }

void Take(std::vector<size_t> &keys, size_t key) { std::erase(keys, key); }

// Model is what the tables are to hold.
struct Model {
  struct Listen {
    bool isOpen = false;
    std::vector<size_t> keys;
  };

  std::map<size_t, Listen> listens;                    // by index of the address
  std::map<std::string, std::vector<size_t>> records;  // by uri
  std::set<std::string> resources;                     // those that could be made
  std::map<size_t, size_t> attached;                   // key to address

  // Attach gives the code that the library is to return.
  uint32_t Attach(size_t key, size_t addr, bool opens, bool makesResource) {
    const bool isNew = listens.count(addr) == 0;
    if (isNew) listens[addr].isOpen = opens;
    if (isNew && !opens) return 1900000157;
    if (key >= kNumRegistered) {
      if (listens[addr].keys.empty()) listens.erase(addr);
      return isNew ? 1900000163 : 1900000177;
    }
    Move(key, addr);
    Bind(key, makesResource);
    return 0;
  }

  // Detach says whether the library is to return 0.
  bool Detach(size_t key) {
    if (key >= kNumRegistered) return true;
    if (attached.count(key) == 0) return false;
    const size_t addr = attached[key];
    Take(listens[addr].keys, key);
    if (listens[addr].keys.empty()) listens.erase(addr);
    attached.erase(key);
    return HasResource(key) && Unbind(key);
  }

 private:
  void Move(size_t key, size_t addr) {
    if (attached.count(key) != 0 && attached[key] == addr) return;
    if (attached.count(key) != 0) Take(listens[attached[key]].keys, key);
    listens[addr].keys.push_back(key);
    attached[key] = addr;
  }

  void Bind(size_t key, bool makesResource) {
    if (!HasResource(key)) return;
    const std::string uri = UriOf(kKeys[key].uri);
    std::vector<size_t> &keys = records[uri];
    if (std::count(keys.begin(), keys.end(), key) == 0) keys.push_back(key);
    if (makesResource) resources.insert(uri);
  }

  bool Unbind(size_t key) {
    const std::string uri = UriOf(kKeys[key].uri);
    Take(records[uri], key);
    if (!records[uri].empty()) return true;
    records.erase(uri);
    resources.erase(uri);
    return true;
  }
};

std::string KeyTexts(const std::vector<size_t> &keys) {
  std::string text;
  for (const size_t key : keys) text += " " + KeyText(kKeys[key]);
  return text + "\n";
}

std::string Joined(const std::vector<std::string> &keys) {
  std::string text;
  for (const std::string &key : keys) text += " " + key;
  return text + "\n";
}

std::string TextOf(const Model &model) {
  std::ostringstream text;
  for (const auto &[addr, listen] : model.listens) {
    text << AddrText(kAddrs[addr]) << (listen.isOpen ? " open:" : " shut:")
         << KeyTexts(listen.keys);
    if (listen.isOpen) text << "  one endpoint\n";
  }
  for (const auto &[uri, keys] : model.records) text << uri << ":" << KeyTexts(keys);
  for (const std::string &uri : model.resources) text << "resource " << uri << "\n";
  for (const auto &[key, addr] : model.attached) {
    text << KeyText(kKeys[key]) << " at " << AddrText(kAddrs[addr]) << "\n";
  }
  return text.str();
}

class ServerTablesProperty : public ServerTables {
 protected:
  ServerTablesProperty() {
    for (size_t key = 0; key < kNumRegistered; ++key) EXPECT_EQ(Register(kKeys[key]), 0u);
  }

  void Step() {
    const size_t key = Below(kKeys.size());
    if (Below(3) == 0) {
      EXPECT_EQ(Unset(kKeys[key]) == 0, model_.Detach(key));
    } else {
      const size_t addr = Below(kAddrs.size());
      adapter_.failsEndPoints = Below(8) == 0;
      adapter_.resourceResult = Below(8) == 0 ? 1900000071 : 0;
      EXPECT_EQ(Set(kKeys[key], kAddrs[addr]),
                model_.Attach(key, addr, !adapter_.failsEndPoints, adapter_.resourceResult == 0));
    }
    host_.ClearLogs();
    adapter_.events.clear();
    adapter_.resourceKeys.clear();
  }

  std::string TextOfTables() {
    std::ostringstream text;
    CoapRpcSerListen *listen = COAP_RpcSerFindFirstListen(Ser());
    for (; listen; listen = COAP_RpcSerFindNextListen(Ser(), &listen->key)) PutListen(text, listen);
    CoapRpcSerUriRes *res = COAP_RpcSerFindFirstUriRes(Ser());
    for (; res; res = COAP_RpcSerFindNextUriRes(Ser(), res->uri)) {
      text << res->uri << ":" << Joined(EntriesOf(res));
    }
    for (const std::string &uri : adapter_.resources) text << "resource " << uri << "\n";
    for (const CoapRpcUriKey &key : kKeys) PutEntry(text, Find(key));
    return text.str();
  }

  // OpenAddrs lists the address of every open endpoint, sorted.
  std::vector<std::string> OpenAddrs() const {
    std::vector<std::string> addrs;
    for (const auto &[endPoint, addr] : adapter_.endPoints) addrs.push_back(addr);
    std::sort(addrs.begin(), addrs.end());
    return addrs;
  }

  std::vector<std::string> ExpectedOpenAddrs() const {
    std::vector<std::string> addrs;
    for (const auto &[addr, listen] : model_.listens) {
      if (listen.isOpen) addrs.push_back(AddrText(kAddrs[addr]));
    }
    std::sort(addrs.begin(), addrs.end());
    return addrs;
  }

  size_t Below(size_t end) { return random_() % end; }

  std::mt19937 random_;
  Model model_;

 private:
  void PutListen(std::ostream &text, CoapRpcSerListen *listen) {
    text << AddrText(listen->key) << (listen->endPoint ? " open:" : " shut:")
         << Joined(EntriesOf(listen));
    const auto found = adapter_.endPoints.find(listen->endPoint);
    if (found != adapter_.endPoints.end() && found->second == AddrText(listen->key)) {
      text << "  one endpoint\n";
    }
  }

  static void PutEntry(std::ostream &text, const CoapRpcSerUriVtbl *entry) {
    if (!entry || !entry->listen) return;
    text << KeyText(entry->key) << " at " << AddrText(entry->listen->key) << "\n";
  }
};

TEST_F(ServerTablesProperty, RandomSteps_TablesFollowTheModel) {
  random_.seed(20240102);
  const std::vector<std::string> uris = UriTexts();
  for (uint32_t step = 0; step < kNumSteps; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    Step();
    ASSERT_EQ(TextOfTables(), TextOf(model_));
    ASSERT_EQ(OpenAddrs(), ExpectedOpenAddrs());
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_EQ(UriTexts(), uris);
}

}  // namespace
}  // namespace coap_rpc_test
