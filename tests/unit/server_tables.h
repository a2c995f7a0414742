/* server_tables.h: a server side on a host under test control, with an adapter that only records.
 *
 * FakeAdapter stands in for the CoAP library's side: endpoints and resources are entries of maps,
 * every call is an event. */
#ifndef SERVER_TABLES_H
#define SERVER_TABLES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "coap_svc/rpc/server/coap_rpc_ser_attach.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "test_host.h"

namespace coap_rpc_test {

// KeyOf makes a key; more than 64 characters are cut, 64 leave no terminator.
CoapRpcUriKey KeyOf(std::string_view uri, uint32_t msgType = 0, uint32_t observe = 0,
                    uint32_t pktType = 0);

CoapRpcSerListenAddr Ipv4Addr(uint32_t ipv4, uint16_t port);
CoapRpcSerListenAddr Ipv6Addr(uint8_t lastByte, uint16_t port);  // ::lastByte

// UriOf reads a uri field that may lack a terminator.
std::string UriOf(const char *uri);

// ObserveRecord describes tuples of a four-byte key and a four-byte value.
CoapRpcSerObVtblReg ObserveRecord();

class FakeAdapter {
 public:
  // What fails.
  bool failsEndPoints = false;
  uint32_t resourceResult = 0;
  uint32_t chgResult = 0;  // of procTupleChg, when FakeChanges is on

  // What is there.
  std::map<const void *, std::string> endPoints;  // open ones, with their address text
  std::set<std::string> resources;

  // What was called, in order: "open <address>", "close <address>" ("close nothing" without an
  // endpoint), "resource <uri>", "drop <uri>", "refresh", "forget <uri>", "release", "chg <type>".
  std::vector<std::string> events;
  std::vector<CoapRpcUriKey> resourceKeys;  // arguments of createOrUpdateResource
  const void *lastChgVal = nullptr;         // argument of procTupleChg

  // Install puts the operations into a context's slots, from where they reach this adapter.
  void Install(CoapRpcCtx *ctx);
  void InstallExt(CoapRpcCtx *ctx);
  void InstallChanges(CoapRpcCtx *ctx);

  uint64_t NumOf(const std::string &event) const;
};

// ServerTables is a started server side.  Its end takes the side down and checks for leaks.
class ServerTables : public testing::Test {
 protected:
  ServerTables();
  ~ServerTables() override;

  CoapRpcSerData *Ser() const { return ctx_->ser; }
  TestHost &Host() { return host_; }

  // Register registers a key with an empty handler table; Find looks it up.
  uint32_t Register(const CoapRpcUriKey &key);
  uint32_t RegisterObservable(const CoapRpcUriKey &key);
  CoapRpcSerUriVtbl *Find(const CoapRpcUriKey &key) { return COAP_RpcSerFindUriVtbl(Ser(), &key); }
  CoapRpcSerListen *FindListen(const CoapRpcSerListenAddr &addr) {
    return COAP_RpcSerConnFindListen(Ser(), &addr);
  }
  uint32_t Set(const CoapRpcUriKey &key, const CoapRpcSerListenAddr &addr) {
    return COAP_RpcSerSetUri(ctx_, &key, &addr);
  }
  uint32_t Unset(const CoapRpcUriKey &key) { return COAP_RpcSerUnsetUri(ctx_, &key); }

  // ExpectError expects exactly one record of a function, counted and printed at level 3.
  void ExpectError(const std::string &func, uint32_t line, const std::string &text);

  // What the tables hold, in order.
  std::vector<std::string> UriTexts() const;     // "uri/msgType/observe/pktType"
  std::vector<std::string> ListenTexts() const;  // as COAP_RpcSerGetListenStr_
  std::vector<std::string> ResTexts() const;
  static std::vector<std::string> EntriesOf(CoapRpcSerListen *listen);
  static std::vector<std::string> EntriesOf(CoapRpcSerUriRes *res);

  TestHost host_;
  FakeAdapter adapter_;
  CoapRpcCtx *ctx_ = nullptr;
};

std::string KeyText(const CoapRpcUriKey &key);
std::string AddrText(const CoapRpcSerListenAddr &addr);

}  // namespace coap_rpc_test

#endif /* SERVER_TABLES_H */
