/* test_coap_rpc_lib_lookup.cpp: which registered handler table a message belongs to. */
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "raw_peer.h"
#include "test_host.h"

using namespace coap_rpc_test;

namespace {

struct PduDeleter {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using Pdu = std::unique_ptr<coap_pdu_t, PduDeleter>;

constexpr char kDynamicMac[] = "terminals/dynamic-mac";

CoapRpcUriKey Key(const std::string &uri, uint32_t msgType, uint32_t observe, uint32_t pktType) {
  CoapRpcUriKey key = {};
  memcpy(key.uri, uri.data(), std::min<size_t>(uri.size(), sizeof(key.uri)));
  key.msgType = msgType;
  key.observe = observe;
  key.pktType = pktType;
  return key;
}

Pdu Message(const std::string &path, coap_pdu_type_t type, coap_pdu_code_t code) {
  Pdu pdu(coap_pdu_init(type, code, 1, 100000));
  std::string segment;
  for (size_t at = 0; at <= path.size();) {
    const size_t end = std::min(path.find('/', at), path.size());
    segment = path.substr(at, end - at);
    coap_add_option(pdu.get(), COAP_OPTION_URI_PATH, segment.size(),
                    reinterpret_cast<const uint8_t *>(segment.data()));
    at = end + 1;
  }
  return pdu;
}

Pdu Get(const std::string &path) { return Message(path, COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET); }
Pdu Post(const std::string &path) {
  return Message(path, COAP_MESSAGE_CON, COAP_REQUEST_CODE_POST);
}

// What the fake tables hold, and what they were asked.
std::vector<CoapRpcSerUriVtbl *> g_serEntries;
std::vector<CoapRpcCliUriVtbl *> g_cliEntries;
std::vector<std::string> g_asked;

std::string KeyText(const CoapRpcUriKey &key) {
  return std::string(key.uri, strnlen(key.uri, sizeof(key.uri))) + " " +
         std::to_string(key.msgType) + std::to_string(key.observe) + std::to_string(key.pktType);
}

template <typename Entry>
Entry *FindFake(const std::vector<Entry *> &entries, const CoapRpcUriKey *key) {
  g_asked.push_back(KeyText(*key));
  for (Entry *entry : entries) {
    if (COAP_RpcUriKeyCmp(&entry->key, key) == 0) return entry;
  }
  return nullptr;
}

CoapRpcSerUriVtbl *FindSer(CoapRpcSerData *, const CoapRpcUriKey *key) {
  return FindFake(g_serEntries, key);
}
CoapRpcCliUriVtbl *FindCli(CoapRpcCliData *, const CoapRpcUriKey *key) {
  return FindFake(g_cliEntries, key);
}

using Asked = std::vector<std::string>;

// LibLookup has both sides with fake tables, and one entry of each kind to put into them.
class LibLookup : public testing::Test {
 protected:
  LibLookup() {
    g_serEntries.clear();
    g_cliEntries.clear();
    g_asked.clear();
    ctx_.log = host_.Log();
    ctx_.param.dbgHandle = host_.Dbg();
    ser_.findUriVtbl = FindSer;
    cli_.findUriVtbl = FindCli;
    ctx_.ser = &ser_;
    ctx_.cli = &cli_;
    coap_startup();
    coap_set_log_level(COAP_LOG_EMERG);
    coapCtx_ = coap_new_context(nullptr);
  }
  ~LibLookup() override {
    coap_free_context(coapCtx_);
    coap_cleanup();
  }

  void Register(CoapRpcSerUriVtbl *entry, const CoapRpcUriKey &key,
                CoapRpcSerListen *listen = nullptr) {
    entry->key = key;
    entry->listen = listen;
    g_serEntries.push_back(entry);
  }

  void Register(CoapRpcCliUriVtbl *entry, const CoapRpcUriKey &key) {
    entry->key = key;
    g_cliEntries.push_back(entry);
  }

  // SessionFrom makes a session whose local address is `text`.
  coap_session_t *SessionFrom(const char *text) {
    coap_address_t address;
    coap_address_init(&address);
    if (strchr(text, ':')) {
      address.size = sizeof(address.addr.sin6);
      address.addr.sin6.sin6_family = AF_INET6;
      inet_pton(AF_INET6, text, &address.addr.sin6.sin6_addr);
    } else {
      address.size = sizeof(address.addr.sin);
      address.addr.sin.sin_family = AF_INET;
      inet_pton(AF_INET, text, &address.addr.sin.sin_addr);
    }
    coap_address_t remote = address;
    coap_address_set_port(&remote, 9);
    return coap_new_client_session(coapCtx_, &address, &remote, COAP_PROTO_UDP);
  }

  static CoapRpcSerListen Listen(uint32_t ipv4) {
    CoapRpcSerListen listen = {};
    listen.key.listenAddr.family = 1;
    listen.key.listenAddr.addr.ipv4 = ipv4;
    return listen;
  }

  CoapRpcSerUriVtbl *Ser(const Pdu &pdu, const char *local = "127.0.0.1") {
    return COAP_RpcSerGetVtbl(&ctx_, pdu.get(), SessionFrom(local));
  }

  TestHost host_;
  CoapRpcCtx ctx_ = {};
  CoapRpcSerData ser_ = {};
  CoapRpcCliData cli_ = {};
  CoapRpcSerUriVtbl serA_ = {};
  CoapRpcSerUriVtbl serB_ = {};
  CoapRpcCliUriVtbl cliA_ = {};
  CoapRpcSerListen listen1_ = Listen(0x7F000001);
  CoapRpcSerListen listen2_ = Listen(0x7F000002);
  coap_context_t *coapCtx_;
};

}  // namespace

TEST_F(LibLookup, Client_ExactKey_IsFound) {
  Register(&cliA_, Key("a/b", 0, 0, 0));
  EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, Get("a/b").get()), &cliA_);
  EXPECT_EQ(g_asked, Asked{"a/b 000"});
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]client get vtbl, uri:a/b, msgType:0, observe:0, pktType:0.\n"));
}

TEST_F(LibLookup, Client_NonNotificationForConRegistration_IsFound) {
  Register(&cliA_, Key("a", 0, 1, 0));
  Pdu pdu(coap_pdu_init(COAP_MESSAGE_NON, COAP_RESPONSE_CODE_CONTENT, 1, 1000));
  coap_add_option(pdu.get(), COAP_OPTION_OBSERVE, 0, nullptr);
  coap_add_option(pdu.get(), COAP_OPTION_URI_PATH, 1, reinterpret_cast<const uint8_t *>("a"));
  EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, pdu.get()), &cliA_);
  EXPECT_EQ(g_asked, (Asked{"a 110", "a 010"}));
}

TEST_F(LibLookup, Client_AckCountsAsConAndFallsBackToNon) {
  Register(&cliA_, Key("a", 1, 0, 0));
  EXPECT_EQ(
      COAP_RpcCliGetVtbl(&ctx_, Message("a", COAP_MESSAGE_ACK, COAP_RESPONSE_CODE_CONTENT).get()),
      &cliA_);
  EXPECT_EQ(g_asked, (Asked{"a 000", "a 100"}));
}

TEST_F(LibLookup, Client_Reset_HasNoFallback) {
  Register(&cliA_, Key("a", 0, 0, 0));
  EXPECT_EQ(
      COAP_RpcCliGetVtbl(&ctx_, Message("a", COAP_MESSAGE_RST, COAP_RESPONSE_CODE_CONTENT).get()),
      nullptr);
  EXPECT_EQ(g_asked, Asked{"a 300"});
}

TEST_F(LibLookup, Client_DynamicMac_IsLookedUpAsBroadcast) {
  Register(&cliA_, Key(kDynamicMac, 1, 0, 1));
  EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, Get(kDynamicMac).get()), &cliA_);
  EXPECT_EQ(g_asked, (Asked{"terminals/dynamic-mac 001", "terminals/dynamic-mac 101"}));
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]client get vtbl, uri:terminals/dynamic-mac, msgType:0, observe:0, "
                   "pktType:0.\n"));
}

TEST_F(LibLookup, Client_SimilarToDynamicMac_IsDefault) {
  EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, Get("terminals/dynamic-mac2").get()), nullptr);
  EXPECT_EQ(g_asked, (Asked{"terminals/dynamic-mac2 000", "terminals/dynamic-mac2 100"}));
}

TEST_F(LibLookup, Client_Path32_IsFound_Path33_IsNotLookedUp) {
  const std::string path32(32, 'p');
  Register(&cliA_, Key(path32, 0, 0, 0));
  EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, Get(path32).get()), &cliA_);
  g_asked.clear();
  host_.ClearLogs();
  for (const size_t len : {33u, 63u, 64u, 65u, 10000u}) {
    EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, Get(std::string(len, 'p')).get()), nullptr);
  }
  EXPECT_EQ(g_asked, Asked{});
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(LibLookup, Client_NoPath_LooksUpEmptyUri) {
  Pdu pdu(coap_pdu_init(COAP_MESSAGE_ACK, COAP_RESPONSE_CODE_CONTENT, 1, 100));
  EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, pdu.get()), nullptr);
  EXPECT_EQ(g_asked, (Asked{" 000", " 100"}));
}

TEST_F(LibLookup, SidesThatAreGone_FindNothing) {
  cli_.findUriVtbl = nullptr;
  ser_.findUriVtbl = nullptr;
  EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, Get("a").get()), nullptr);
  EXPECT_EQ(Ser(Get("a")), nullptr);
  ctx_.cli = nullptr;
  ctx_.ser = nullptr;
  const CoapRpcUriKey key = Key("a", 0, 0, 0);
  EXPECT_EQ(COAP_RpcCliGetVtbl(&ctx_, Get("a").get()), nullptr);
  EXPECT_EQ(Ser(Get("a")), nullptr);
  EXPECT_EQ(COAP_RpcSerGetVtblByFuzzyMsgType(&ctx_, &key), nullptr);
}

TEST_F(LibLookup, Server_Get_PrefersDefaultOfEitherType) {
  Register(&serA_, Key("a", 1, 0, 0));
  Register(&serB_, Key("a", 0, 0, 2), &listen1_);
  EXPECT_EQ(Ser(Get("a")), &serA_);
  EXPECT_EQ(g_asked, (Asked{"a 000", "a 100"}));
  EXPECT_TRUE(host_.HasLog("[CoapRpc]server get vtbl, uri:a, msgType:0, observe:0.\n"));
}

TEST_F(LibLookup, Server_Get_FallsBackToUnicastOnTheReceivingAddress) {
  Register(&serA_, Key("a", 0, 0, 2), &listen1_);
  EXPECT_EQ(Ser(Get("a"), "127.0.0.1"), &serA_);
  EXPECT_EQ(g_asked, (Asked{"a 000", "a 100", "a 002"}));
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]server getvtbl uni, uri:a, msgT:0, ob:0, pkt:2, ip:0x7f000001.\n"));
  EXPECT_EQ(Ser(Get("a"), "127.0.0.2"), nullptr);
}

TEST_F(LibLookup, Server_Get_UnicastElsewhere_FallsBackToBroadcast) {
  Register(&serA_, Key("a", 0, 0, 2), &listen1_);
  Register(&serB_, Key("a", 0, 0, 1), &listen2_);
  EXPECT_EQ(Ser(Get("a"), "127.0.0.2"), &serB_);
  EXPECT_EQ(g_asked, (Asked{"a 000", "a 100", "a 002", "a 001"}));
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]server getvtbl uni, uri:a, msgT:0, ob:0, pkt:1, ip:0x7f000002.\n"));
  EXPECT_EQ(Ser(Get("a"), "127.0.0.1"), &serA_);
  EXPECT_EQ(Ser(Get("a"), "127.0.0.3"), nullptr);
}

TEST_F(LibLookup, Server_BoundEntriesHaveNoTypeFallback) {
  Register(&serA_, Key("a", 1, 0, 2), &listen1_);
  Register(&serB_, Key("a", 1, 0, 1), &listen1_);
  EXPECT_EQ(Ser(Get("a")), nullptr);
  EXPECT_EQ(Ser(Message("a", COAP_MESSAGE_NON, COAP_REQUEST_CODE_GET)), &serA_);
}

TEST_F(LibLookup, Server_UnattachedEntry_IsNotFound) {
  Register(&serA_, Key("a", 0, 0, 2));
  Register(&serB_, Key("a", 0, 0, 1));
  EXPECT_EQ(Ser(Get("a")), nullptr);
}

TEST_F(LibLookup, Server_Post_IgnoresDefault) {
  Register(&serA_, Key("a", 0, 0, 0));
  EXPECT_EQ(Ser(Post("a")), nullptr);
  EXPECT_EQ(g_asked, (Asked{"a 002", "a 001"}));
}

TEST_F(LibLookup, Server_PostDynamicMac_FindsDefault) {
  Register(&serA_, Key(kDynamicMac, 1, 0, 0));
  EXPECT_EQ(Ser(Post(kDynamicMac)), &serA_);
  EXPECT_EQ(g_asked, (Asked{"terminals/dynamic-mac 000", "terminals/dynamic-mac 100"}));
}

TEST_F(LibLookup, Server_OtherMethods_FindDefault) {
  Register(&serA_, Key("a", 0, 0, 0));
  EXPECT_EQ(Ser(Message("a", COAP_MESSAGE_CON, COAP_REQUEST_CODE_PUT)), &serA_);
  EXPECT_EQ(Ser(Message("a", COAP_MESSAGE_CON, COAP_REQUEST_CODE_DELETE)), &serA_);
}

TEST_F(LibLookup, Server_ObserveOption_IsPartOfTheKey) {
  Register(&serA_, Key("a", 0, 1, 0));
  EXPECT_EQ(Ser(Get("a")), nullptr);
  Pdu pdu(coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 1000));
  coap_add_option(pdu.get(), COAP_OPTION_OBSERVE, 0, nullptr);
  coap_add_option(pdu.get(), COAP_OPTION_URI_PATH, 1, reinterpret_cast<const uint8_t *>("a"));
  EXPECT_EQ(Ser(pdu), &serA_);
}

TEST_F(LibLookup, Server_PathTooLong_IsNotLookedUp) {
  EXPECT_EQ(Ser(Get(std::string(33, 'p'))), nullptr);
  EXPECT_EQ(g_asked, Asked{});
}

TEST_F(LibLookup, Server_NoSession_GoesByUriHost) {
  Register(&serA_, Key("a", 0, 0, 2), &listen1_);
  Pdu pdu(coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 1000));
  coap_add_option(pdu.get(), COAP_OPTION_URI_HOST, 9,
                  reinterpret_cast<const uint8_t *>("127.0.0.1"));
  coap_add_option(pdu.get(), COAP_OPTION_URI_PATH, 1, reinterpret_cast<const uint8_t *>("a"));
  EXPECT_EQ(COAP_RpcSerGetVtbl(&ctx_, pdu.get(), nullptr), &serA_);
  EXPECT_EQ(COAP_RpcSerGetVtbl(&ctx_, Get("a").get(), nullptr), nullptr);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]app parse uri host failed.\n"));
}

TEST_F(LibLookup, Server_Ipv6Listen_MatchesTheLocalIpv6Address) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1";
  CoapRpcSerListen listen = {};
  listen.key.listenAddr.family = 2;
  inet_pton(AF_INET6, "::1", listen.key.listenAddr.addr.ipv6);
  Register(&serA_, Key("a", 0, 0, 2), &listen);
  EXPECT_EQ(Ser(Get("a"), "::1"), &serA_);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]server getvtbl uni, uri:a, msgT:0, ob:0, pkt:2, ip:0x0.\n"));
  EXPECT_EQ(Ser(Get("a"), "127.0.0.1"), nullptr);

  listen.key.listenAddr.addr.ipv6[15] = 2;
  EXPECT_EQ(Ser(Get("a"), "::1"), nullptr);
  serA_.key.pktType = 1;
  listen.key.listenAddr.addr.ipv6[15] = 1;
  EXPECT_EQ(Ser(Get("a"), "::1"), &serA_);
}

TEST_F(LibLookup, Fuzzy_FindsEitherTypeOfCon0AndNon1Only) {
  Register(&serA_, Key("a", 0, 0, 2), &listen1_);
  CoapRpcUriKey key = Key("a", 1, 0, 2);
  EXPECT_EQ(COAP_RpcSerGetVtblByFuzzyMsgType(&ctx_, &key), &serA_);
  EXPECT_EQ(key.msgType, 1u);
  key.msgType = 0;
  EXPECT_EQ(COAP_RpcSerGetVtblByFuzzyMsgType(&ctx_, &key), &serA_);
  key.msgType = 2;
  EXPECT_EQ(COAP_RpcSerGetVtblByFuzzyMsgType(&ctx_, &key), nullptr);
  EXPECT_EQ(g_asked, (Asked{"a 102", "a 002", "a 002", "a 202"}));
}

TEST_F(LibLookup, RpcAndEntry_ComeFromTheResource) {
  Register(&serA_, Key("a", 0, 0, 0));
  coap_resource_t *resource = coap_resource_init(coap_make_str_const("a"), 0);
  coap_add_resource(coapCtx_, resource);
  coap_resource_set_userdata(resource, &ctx_);
  CoapRpcCtx *ctx = nullptr;
  CoapRpcSerUriVtbl *entry = nullptr;
  EXPECT_EQ(
      COAP_GetRpcAndSerUriVtbl(resource, SessionFrom("127.0.0.1"), Get("a").get(), &ctx, &entry),
      0u);
  EXPECT_EQ(ctx, &ctx_);
  EXPECT_EQ(entry, &serA_);
}

TEST_F(LibLookup, RpcAndEntry_NoEntry_Gives1900000203) {
  coap_resource_t *resource = coap_resource_init(coap_make_str_const("a"), 0);
  coap_add_resource(coapCtx_, resource);
  coap_resource_set_userdata(resource, &ctx_);
  CoapRpcCtx *ctx = nullptr;
  CoapRpcSerUriVtbl *entry = &serA_;
  EXPECT_EQ(
      COAP_GetRpcAndSerUriVtbl(resource, SessionFrom("127.0.0.1"), Get("a").get(), &ctx, &entry),
      1900000203u);
  EXPECT_EQ(ctx, &ctx_);
  EXPECT_EQ(entry, nullptr);
}

TEST_F(LibLookup, RpcAndEntry_ClearedUserData_Gives1900000198) {
  coap_resource_t *resource = coap_resource_init(coap_make_str_const("a"), 0);
  coap_add_resource(coapCtx_, resource);
  CoapRpcCtx *ctx = &ctx_;
  CoapRpcSerUriVtbl *entry = nullptr;
  EXPECT_EQ(
      COAP_GetRpcAndSerUriVtbl(resource, SessionFrom("127.0.0.1"), Get("a").get(), &ctx, &entry),
      1900000198u);
  EXPECT_EQ(ctx, nullptr);
  EXPECT_EQ(g_asked, Asked{});
}

TEST_F(LibLookup, LogVTbl_WritesKeyAndAddress) {
  const CoapRpcUriKey key = Key(std::string(64, 'u'), 1, 1, 2);
  COAP_RpcLogVTbl(&ctx_, &key, 0x0A000001);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]server getvtbl uni, uri:" + std::string(64, 'u') +
                           ", msgT:1, ob:1, pkt:2, ip:0xa000001.\n"));
}
