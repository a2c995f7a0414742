/* test_coap_rpc_lib_msg.cpp: reading and writing CoAP messages. */
#include "coap_svc/rpc/libadapter/coap_rpc_lib_msg.h"

#include <arpa/inet.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "coap_message.h"
#include "fd_capture.h"
#include "raw_peer.h"
#include "test_host.h"

using namespace coap_rpc_test;

namespace {

constexpr size_t kPduSize = 200000;

struct PduDeleter {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using Pdu = std::unique_ptr<coap_pdu_t, PduDeleter>;

Pdu NewPdu(coap_pdu_type_t type = COAP_MESSAGE_CON, coap_pdu_code_t code = COAP_REQUEST_CODE_GET) {
  return Pdu(coap_pdu_init(type, code, 1, kPduSize));
}

void Add(const Pdu &pdu, uint16_t number, const std::string &value) {
  ASSERT_NE(coap_add_option(pdu.get(), number, value.size(),
                            reinterpret_cast<const uint8_t *>(value.data())),
            0u);
}

// PduOf makes the PDU that libcoap makes of a received message.
Pdu PduOf(const CoapMessage &message) {
  Pdu pdu = NewPdu();
  const Bytes bytes = ToBytes(message);
  EXPECT_NE(coap_pdu_parse(COAP_PROTO_UDP, bytes.data(), bytes.size(), pdu.get()), 0);
  return pdu;
}

std::vector<std::string> PathOptions(const Pdu &pdu) {
  std::vector<std::string> values;
  coap_opt_iterator_t it;
  coap_option_iterator_init(pdu.get(), &it, COAP_OPT_ALL);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    if (it.number != COAP_OPTION_URI_PATH) continue;
    values.emplace_back(reinterpret_cast<const char *>(coap_opt_value(option)),
                        coap_opt_length(option));
  }
  return values;
}

std::vector<std::string> PathOptionsOf(const std::string &path) {
  Pdu pdu = NewPdu();
  COAP_RpcSetUriPath(nullptr, pdu.get(), path.c_str());
  return PathOptions(pdu);
}

CoapRpcMsgOptions OptionsOf(const Pdu &pdu) {
  CoapRpcMsgOptions opt = {};
  COAP_RpcParseOptions(pdu.get(), &opt);
  return opt;
}

using Texts = std::vector<std::string>;

CoapRpcIpAddr Ipv4(uint32_t ipv4) {
  CoapRpcIpAddr addr = {};
  addr.family = 1;
  addr.addr.ipv4 = ipv4;
  return addr;
}

CoapRpcIpAddr Ipv6(const char *text) {
  CoapRpcIpAddr addr = {};
  addr.family = 2;
  inet_pton(AF_INET6, text, addr.addr.ipv6);
  return addr;
}

// LibMsg has an instance without libcoap context, and libcoap sessions of its own.
class LibMsg : public testing::Test {
 protected:
  LibMsg() {
    ctx_.log = host_.Log();
    ctx_.param.memHandle = host_.Mem();
    ctx_.param.dbgHandle = host_.Dbg();
    coap_startup();
    coap_set_log_level(COAP_LOG_EMERG);
    coapCtx_ = coap_new_context(nullptr);
  }
  ~LibMsg() override {
    coap_free_context(coapCtx_);
    coap_cleanup();
  }

  coap_session_t *SessionTo(const char *text) {
    coap_address_t address;
    coap_address_init(&address);
    if (strchr(text, ':')) {
      address.addr.sin6.sin6_family = AF_INET6;
      address.addr.sin6.sin6_port = htons(9);
      inet_pton(AF_INET6, text, &address.addr.sin6.sin6_addr);
    } else {
      address.addr.sin.sin_family = AF_INET;
      address.addr.sin.sin_port = htons(9);
      inet_pton(AF_INET, text, &address.addr.sin.sin_addr);
    }
    return coap_new_client_session(coapCtx_, nullptr, &address, COAP_PROTO_UDP);
  }

  TestHost host_;
  CoapRpcCtx ctx_ = {};
  coap_context_t *coapCtx_;
};

}  // namespace

TEST_F(LibMsg, SetAddress_Ipv4_IsInNetworkOrder) {
  const CoapRpcIpAddr addr = Ipv4(0x0A010203);
  coap_address_t out;
  EXPECT_EQ(COAP_RpcSetAddress(&out, &addr, 5683), 0u);
  EXPECT_EQ(out.addr.sa.sa_family, AF_INET);
  EXPECT_EQ(out.size, sizeof(sockaddr_in));
  EXPECT_EQ(ntohs(out.addr.sin.sin_port), 5683);
  EXPECT_EQ(ntohl(out.addr.sin.sin_addr.s_addr), 0x0A010203u);
}

TEST_F(LibMsg, SetAddress_Ipv6_CopiesBytes) {
  const CoapRpcIpAddr addr = Ipv6("2001:db8::1:2");
  coap_address_t out;
  EXPECT_EQ(COAP_RpcSetAddress(&out, &addr, 65535), 0u);
  EXPECT_EQ(out.addr.sa.sa_family, AF_INET6);
  EXPECT_EQ(out.size, sizeof(sockaddr_in6));
  EXPECT_EQ(ntohs(out.addr.sin6.sin6_port), 65535);
  EXPECT_EQ(memcmp(out.addr.sin6.sin6_addr.s6_addr, addr.addr.ipv6, 16), 0);
}

TEST_F(LibMsg, SetAddress_OtherFamilies_StayAsInitialised) {
  for (const uint8_t family : std::vector<uint8_t>{0, 3, 255}) {
    CoapRpcIpAddr addr = Ipv4(0x0A010203);
    addr.family = family;
    coap_address_t fresh;
    coap_address_init(&fresh);
    coap_address_t out;
    EXPECT_EQ(COAP_RpcSetAddress(&out, &addr, 5683), 0u);
    EXPECT_EQ(memcmp(&out, &fresh, sizeof(out)), 0) << "family " << int{family};
  }
}

TEST_F(LibMsg, SetPort_SetsProtocolWhateverThePort) {
  for (const uint16_t port : std::vector<uint16_t>{0, 5683, 65535}) {
    uint32_t protocol = 99;
    COAP_RpcSetPort(&protocol, port);
    EXPECT_EQ(protocol, 1u);
  }
}

TEST_F(LibMsg, SetMediaType_IsJsonWhateverTheArgument) {
  uint32_t mediaType = 0;
  COAP_RpcSetMediaType(&mediaType, 42);
  EXPECT_EQ(mediaType, 50u);
}

TEST_F(LibMsg, SetUriPath_CutsAtSlashes) {
  EXPECT_EQ(PathOptionsOf(""), Texts{});
  EXPECT_EQ(PathOptionsOf("x"), Texts{"x"});
  EXPECT_EQ(PathOptionsOf("a/b"), (Texts{"a", "b"}));
  EXPECT_EQ(PathOptionsOf("/x"), (Texts{"", "x"}));
  EXPECT_EQ(PathOptionsOf("x/"), (Texts{"x", ""}));
  EXPECT_EQ(PathOptionsOf("/"), (Texts{"", ""}));
  EXPECT_EQ(PathOptionsOf("a//b"), (Texts{"a", "", "b"}));
}

TEST_F(LibMsg, SetUriPath_LongPaths_AreWhole) {
  for (const size_t len : {63u, 64u, 65u, 10000u}) {
    EXPECT_EQ(PathOptionsOf(std::string(len, 'x')), Texts{std::string(len, 'x')});
  }
}

TEST_F(LibMsg, SetUriPath_FullMessage_AddsNothing) {
  Pdu small(coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 16));
  COAP_RpcSetUriPath(nullptr, small.get(), std::string(100000, 'x').c_str());
  EXPECT_EQ(PathOptions(small), Texts{});
}

TEST_F(LibMsg, GetUriStr_JoinsSegments) {
  char buf[64] = "";
  EXPECT_EQ(COAP_RpcGetUriStr(PduOf(Request(CoapType::kCon, kCodeGet, 1).AddPath("a/b/c")).get(),
                              buf, sizeof(buf)),
            0u);
  EXPECT_STREQ(buf, "a/b/c");
}

TEST_F(LibMsg, GetUriStr_NoPath_IsEmpty) {
  char buf[64] = "old";
  EXPECT_EQ(COAP_RpcGetUriStr(NewPdu().get(), buf, sizeof(buf)), 0u);
  EXPECT_STREQ(buf, "");
}

TEST_F(LibMsg, GetUriStr_UnusualCharacters_ArePercentEncoded) {
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_URI_PATH, std::string("a b\0c", 5));
  char buf[64] = "";
  EXPECT_EQ(COAP_RpcGetUriStr(pdu.get(), buf, sizeof(buf)), 0u);
  EXPECT_STREQ(buf, "a%20b%00c");
}

TEST_F(LibMsg, GetUriStr_BadProxyUri_Gives1900000093) {
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_PROXY_URI, "no uri");
  char buf[64] = "";
  EXPECT_EQ(COAP_RpcGetUriStr(pdu.get(), buf, sizeof(buf)), 1900000093u);
}

TEST_F(LibMsg, GetUriStr_BufferBelowTwicePath_Gives1900000097) {
  char buf[64] = "";
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_URI_PATH, std::string(32, 'x'));
  EXPECT_EQ(COAP_RpcGetUriStr(pdu.get(), buf, 63), 1900000097u);
  EXPECT_EQ(COAP_RpcGetUriStr(pdu.get(), buf, 64), 0u);
  EXPECT_EQ(buf, std::string(32, 'x'));

  for (const size_t len : {33u, 63u, 64u, 65u, 10000u, 65535u}) {
    Pdu longer = NewPdu();
    Add(longer, COAP_OPTION_URI_PATH, std::string(len, 'x'));
    EXPECT_EQ(COAP_RpcGetUriStr(longer.get(), buf, sizeof(buf)), 1900000097u) << len;
  }
}

TEST_F(LibMsg, GetUriStr_ManyEmptySegments_AreCountedAsSlashes) {
  Pdu pdu = NewPdu();
  for (int i = 0; i < 1000; ++i) Add(pdu, COAP_OPTION_URI_PATH, "");
  char buf[64] = "";
  EXPECT_EQ(COAP_RpcGetUriStr(pdu.get(), buf, sizeof(buf)), 1900000097u);
}

TEST_F(LibMsg, GetUriStr_NoRoomAtAll_Gives1900000103) {
  char buf[1] = {'x'};
  EXPECT_EQ(COAP_RpcGetUriStr(NewPdu().get(), buf, 0), 1900000103u);
  EXPECT_EQ(buf[0], 'x');
}

TEST_F(LibMsg, GetUriStr_HugeBuffer_IsAccepted) {
  std::vector<char> buf(100000);
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_URI_PATH, std::string(10000, 'x'));
  EXPECT_EQ(COAP_RpcGetUriStr(pdu.get(), buf.data(), 100000), 0u);
  EXPECT_EQ(buf.data(), std::string(10000, 'x'));
}

TEST_F(LibMsg, GetUriStr_PathBeyondFormatter_Gives1900000103) {
  std::vector<char> buf(100000);
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_URI_PATH, std::string(40000, 'x'));
  EXPECT_EQ(COAP_RpcGetUriStr(pdu.get(), buf.data(), 100000), 1900000103u);
}

TEST_F(LibMsg, GetMsgType_AckCountsAsCon) {
  const struct {
    coap_pdu_type_t type;
    uint32_t expected;
  } cases[] = {
      {COAP_MESSAGE_CON, 0}, {COAP_MESSAGE_NON, 1}, {COAP_MESSAGE_ACK, 0}, {COAP_MESSAGE_RST, 3}};
  for (const auto &c : cases) {
    uint32_t msgType = 99;
    EXPECT_EQ(COAP_RpcGetMsgType(NewPdu(c.type).get(), &msgType), 0u);
    EXPECT_EQ(msgType, c.expected);
  }
}

TEST_F(LibMsg, GetCodeType_IsTheWireValue) {
  uint32_t code = 0;
  EXPECT_EQ(COAP_RpcGetCodeType(NewPdu(COAP_MESSAGE_CON, COAP_RESPONSE_CODE_CONTENT).get(), &code),
            0u);
  EXPECT_EQ(code, 69u);
  COAP_RpcGetCodeType(NewPdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_POST).get(), &code);
  EXPECT_EQ(code, 2u);
}

TEST_F(LibMsg, GetObserveOption_IsOneForRegisterOnly) {
  const struct {
    std::string value;
    uint32_t expected;
  } cases[] = {{"", 1},
               {std::string(1, '\0'), 1},
               {"\x01", 0},
               {"\x02", 0},
               {"\x01\x02\x03", 0},
               {std::string(300, '\0'), 1},
               {std::string(300, '\xff'), 0}};
  for (const auto &c : cases) {
    Pdu pdu = NewPdu();
    Add(pdu, COAP_OPTION_OBSERVE, c.value);
    uint32_t isRegister = 99;
    EXPECT_EQ(COAP_RpcGetObserveOption(pdu.get(), &isRegister), 1u);
    EXPECT_EQ(isRegister, c.expected);
    EXPECT_EQ(COAP_RpcCheckObserveOption(pdu.get()), 1u);
  }
}

TEST_F(LibMsg, GetObserveOption_Absent_Gives0) {
  uint32_t isRegister = 99;
  EXPECT_EQ(COAP_RpcGetObserveOption(NewPdu().get(), &isRegister), 0u);
  EXPECT_EQ(isRegister, 0u);
  EXPECT_EQ(COAP_RpcCheckObserveOption(NewPdu().get()), 0u);
}

TEST_F(LibMsg, Addresses_Ipv4Session_AreInHostOrder) {
  const coap_session_t *session = SessionTo("127.0.0.1");
  CoapRpcIpAddr remote = {};
  CoapRpcIpAddr local = {};
  EXPECT_EQ(COAP_RpcGetRemoteAddr(session, &remote), coap_session_get_addr_remote(session));
  EXPECT_EQ(COAP_RpcGetLocalAddr(session, &local), coap_session_get_addr_local(session));
  const CoapRpcIpAddr expected = Ipv4(0x7F000001);
  EXPECT_EQ(memcmp(&remote, &expected, sizeof(expected)), 0);
  EXPECT_EQ(memcmp(&local, &expected, sizeof(expected)), 0);
}

TEST_F(LibMsg, Addresses_Ipv6Session_AreFamily2) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1";
  const coap_session_t *session = SessionTo("::1");
  CoapRpcIpAddr remote = {};
  CoapRpcIpAddr local = {};
  COAP_RpcGetRemoteAddr(session, &remote);
  COAP_RpcGetLocalAddr(session, &local);
  const CoapRpcIpAddr expected = Ipv6("::1");
  EXPECT_EQ(memcmp(&remote, &expected, sizeof(expected)), 0);
  EXPECT_EQ(memcmp(&local, &expected, sizeof(expected)), 0);
  EXPECT_EQ(Coap_RpcGetListenIp(&ctx_, NewPdu().get(), session), 0u);
}

TEST_F(LibMsg, Addresses_MappedIpv4_CountsAsIpv4) {
  const coap_session_t *session = SessionTo("::ffff:127.0.0.1");
  if (!session) GTEST_SKIP() << "no IPv6";
  CoapRpcIpAddr remote = {};
  COAP_RpcGetRemoteAddr(session, &remote);
  const CoapRpcIpAddr expected = Ipv4(0x7F000001);
  EXPECT_EQ(memcmp(&remote, &expected, sizeof(expected)), 0);
  EXPECT_EQ(Coap_RpcGetListenIp(&ctx_, NewPdu().get(), session), 0x7F000001u);
}

TEST_F(LibMsg, Addresses_NoSession_LeaveTheRecord) {
  CoapRpcIpAddr addr = {};
  EXPECT_EQ(COAP_RpcGetRemoteAddr(nullptr, &addr), nullptr);
  EXPECT_EQ(COAP_RpcGetLocalAddr(nullptr, &addr), nullptr);
  EXPECT_EQ(addr.family, 0);
}

TEST_F(LibMsg, GetUriHostIp_DottedText_GivesHostOrder) {
  EXPECT_EQ(Coap_RpcGetUriHostIp(&ctx_, "10.1.2.3"), 167838211u);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]ser get request URI_HOST success. ip:10.1.2.3.\n"));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]ser get request URI_HOST success. ip:10.1.2.3.\n"));
}

TEST_F(LibMsg, GetUriHostIp_PartsAreNotRangeChecked) {
  EXPECT_EQ(Coap_RpcGetUriHostIp(&ctx_, "1.0.0.256"), 0x01000100u);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]ser get request URI_HOST success. ip:1.0.0.256.\n"));
}

TEST_F(LibMsg, GetUriHostIp_NotFourNumbers_Gives0AndErrorLog) {
  const std::string longText(10000, '1');
  for (const std::string &text : {std::string("10.1.2"), std::string(), std::string("host"),
                                  std::string("10.1.2.x"), longText}) {
    host_.ClearLogs();
    EXPECT_EQ(Coap_RpcGetUriHostIp(&ctx_, text.c_str()), 0u) << text;
    const std::vector<LogRecord> &records = host_.Logs().Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].kind, LogKind::kCount);
    EXPECT_EQ(records[0].module, "logDefault");
    EXPECT_EQ(records[2].kind, LogKind::kSecond);
    EXPECT_EQ(records[2].level, 3u);
    EXPECT_EQ(records[2].line, 1011u);
    EXPECT_EQ(records[2].func, "Coap_RpcGetUriHostIp");
    EXPECT_EQ(records[2].text, "[CoapRpc]app parse uri host failed.\n");
  }
}

TEST_F(LibMsg, GetListenIp_Session_GivesLocalAddress) {
  EXPECT_EQ(Coap_RpcGetListenIp(&ctx_, NewPdu().get(), SessionTo("127.0.0.1")), 0x7F000001u);
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(LibMsg, GetListenIp_NoSession_ReadsUriHost) {
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_URI_HOST, "10.1.2.3");
  EXPECT_EQ(Coap_RpcGetListenIp(&ctx_, pdu.get(), nullptr), 167838211u);
}

TEST_F(LibMsg, GetListenIp_NoSessionAndNoUriHost_Gives0) {
  EXPECT_EQ(Coap_RpcGetListenIp(&ctx_, NewPdu().get(), nullptr), 0u);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]app parse uri host failed.\n"));
}

TEST_F(LibMsg, GetListenIp_HugeUriHost_IsCut) {
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_URI_HOST, "10.1.2.3" + std::string(60000, ' '));
  EXPECT_EQ(Coap_RpcGetListenIp(&ctx_, pdu.get(), nullptr), 167838211u);
}

TEST_F(LibMsg, OptionNum2Type_MapsThreeNumbers) {
  EXPECT_EQ(CoapRpcOptionNum2Type(4), 0u);
  EXPECT_EQ(CoapRpcOptionNum2Type(6), 1u);
  EXPECT_EQ(CoapRpcOptionNum2Type(12), 3u);
  for (const uint32_t number : {0u, 3u, 11u, 15u, 65535u, 4294967295u}) {
    EXPECT_EQ(CoapRpcOptionNum2Type(number), 4u) << number;
  }
}

TEST_F(LibMsg, ParseOptions_Null_IsIgnored) {
  CoapRpcMsgOptions opt = {};
  COAP_RpcParseOptions(nullptr, &opt);
  EXPECT_EQ(opt.optMask, 0u);
  COAP_RpcParseOptions(NewPdu().get(), nullptr);
}

TEST_F(LibMsg, ParseOptions_All) {
  const CoapRpcMsgOptions opt = OptionsOf(PduOf(Request(CoapType::kCon, kCodeGet, 1)
                                                    .Add(kOptEtag, {1, 2, 3})
                                                    .AddUint(kOptObserve, 0)
                                                    .AddPath("a/b")
                                                    .AddUint(kOptContentFormat, 50)
                                                    .AddText(kOptUriQuery, "k=v")));
  EXPECT_EQ(opt.optMask, 15u);
  EXPECT_EQ(opt.etag, 0x010203u);
  EXPECT_STREQ(opt.query, "k=v");
  EXPECT_EQ(opt.format, 50);
}

TEST_F(LibMsg, ParseOptions_PathOnly_SetsNothing) {
  EXPECT_EQ(OptionsOf(PduOf(Request(CoapType::kCon, kCodeGet, 1).AddPath("a/b"))).optMask, 0u);
}

TEST_F(LibMsg, ParseOptions_QueryOnly_GivesMask4) {
  const CoapRpcMsgOptions opt =
      OptionsOf(PduOf(Request(CoapType::kCon, kCodeGet, 1).AddText(kOptUriQuery, "a")));
  EXPECT_EQ(opt.optMask, 4u);
  EXPECT_STREQ(opt.query, "a");
}

TEST_F(LibMsg, ParseOptions_EmptyQuery_SetsNothing) {
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_URI_QUERY, "");
  EXPECT_EQ(OptionsOf(pdu).optMask, 0u);
}

TEST_F(LibMsg, ParseOptions_SeveralQueries_AreJoined) {
  EXPECT_STREQ(OptionsOf(PduOf(Request(CoapType::kCon, kCodeGet, 1)
                                   .AddText(kOptUriQuery, "a=1")
                                   .AddText(kOptUriQuery, "b=2")))
                   .query,
               "a=1&b=2");
}

TEST_F(LibMsg, ParseOptions_LongQuery_IsEmptyButPresent) {
  const struct {
    size_t len;
    size_t kept;
  } cases[] = {{254, 254}, {255, 0}, {1000, 0}, {65535, 0}};
  for (const auto &c : cases) {
    Pdu pdu = NewPdu();
    Add(pdu, COAP_OPTION_URI_QUERY, std::string(c.len, 'q'));
    const CoapRpcMsgOptions opt = OptionsOf(pdu);
    EXPECT_EQ(opt.optMask, 4u) << c.len;
    EXPECT_EQ(std::string(opt.query), std::string(c.kept, 'q')) << c.len;
    EXPECT_EQ(opt.format, 0) << c.len;
  }
}

TEST_F(LibMsg, ParseOptions_TwoETags_FirstCounts) {
  const CoapRpcMsgOptions opt =
      OptionsOf(PduOf(Request(CoapType::kCon, kCodeGet, 1).Add(kOptEtag, {7}).Add(kOptEtag, {8})));
  EXPECT_EQ(opt.optMask, 1u);
  EXPECT_EQ(opt.etag, 7u);
}

TEST_F(LibMsg, ParseOptions_ManyETags_FirstCounts) {
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_ETAG, "\x05");
  for (int i = 0; i < 5000; ++i) Add(pdu, COAP_OPTION_ETAG, "\x06");
  EXPECT_EQ(OptionsOf(pdu).etag, 5u);
}

TEST_F(LibMsg, ParseOptions_ETagLengths) {
  const struct {
    std::string value;
    uint64_t etag;
  } cases[] = {{"", 0},
               {"\x01\x02\x03\x04\x05\x06\x07\x08", 0x0102030405060708u},
               {"\x01\x02\x03\x04\x05\x06\x07\x08\x09", 0x0102030405060708u},
               {std::string(10000, '\xff'), 0xFFFFFFFFFFFFFFFFu}};
  for (const auto &c : cases) {
    Pdu pdu = NewPdu();
    Add(pdu, COAP_OPTION_ETAG, c.value);
    EXPECT_EQ(OptionsOf(pdu).etag, c.etag);
    EXPECT_EQ(OptionsOf(pdu).optMask, 1u);
  }
}

TEST_F(LibMsg, ParseOptions_FormatIsTruncatedTo8Bits) {
  const struct {
    std::string value;
    uint8_t format;
  } cases[] = {
      {"", 0}, {"\x32", 50}, {"\x01\x32", 50}, {"\xff\xff", 255}, {std::string(10000, '\x07'), 7}};
  for (const auto &c : cases) {
    Pdu pdu = NewPdu();
    Add(pdu, COAP_OPTION_CONTENT_FORMAT, c.value);
    EXPECT_EQ(OptionsOf(pdu).format, c.format);
    EXPECT_EQ(OptionsOf(pdu).optMask, 8u);
  }
}

TEST_F(LibMsg, ParseETag_SecondOccurrence_IsIgnored) {
  const uint8_t option[] = {0x01, 0x2A};  // length 1
  CoapRpcMsgOptions opt = {};
  COAP_RpcParseETag(1, option, &opt);
  EXPECT_EQ(opt.etag, 0u);
  COAP_RpcParseETag(0, option, &opt);
  EXPECT_EQ(opt.etag, 42u);
}

TEST_F(LibMsg, ParseFormat_EveryOccurrence_Counts) {
  const uint8_t option[] = {0x01, 0x2A};
  CoapRpcMsgOptions opt = {};
  COAP_RpcParseFormat(7, option, &opt);
  EXPECT_EQ(opt.format, 42);
}

TEST_F(LibMsg, GetMsgInfo_DescribesMessage) {
  const Pdu pdu =
      PduOf(Request(CoapType::kNon, kCodePost, 1).Add(kOptEtag, {9}).AddText(kOptUriQuery, "q"));
  const CoapRpcMsgInfo info = COAP_RpcGetMsgInfo(pdu.get(), SessionTo("127.0.0.1"));
  const CoapRpcIpAddr peer = Ipv4(0x7F000001);
  EXPECT_EQ(memcmp(&info.peer, &peer, sizeof(peer)), 0);
  EXPECT_EQ(info.msgType, 1u);
  EXPECT_EQ(info.code, 2u);
  EXPECT_EQ(info.opt.optMask, 5u);
  EXPECT_EQ(info.opt.etag, 9u);
  EXPECT_STREQ(info.opt.query, "q");
  const uint8_t zero[16] = {};
  EXPECT_EQ(memcmp(info.rsv, zero, sizeof(zero)), 0);
}

TEST_F(LibMsg, GetMsgInfo_AckStaysAck) {
  const CoapRpcMsgInfo info =
      COAP_RpcGetMsgInfo(NewPdu(COAP_MESSAGE_ACK).get(), SessionTo("127.0.0.1"));
  EXPECT_EQ(info.msgType, 2u);
}

TEST_F(LibMsg, GetMsgInfo_Ipv6Peer_IsFamily2) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1";
  const CoapRpcMsgInfo info = COAP_RpcGetMsgInfo(NewPdu().get(), SessionTo("::1"));
  const CoapRpcIpAddr peer = Ipv6("::1");
  EXPECT_EQ(memcmp(&info.peer, &peer, sizeof(peer)), 0);
}

TEST_F(LibMsg, PrecentEncode_FirstCharacterFillsTheBuffer) {
  char out[10] = "---------";
  EXPECT_EQ(Coap_RpcPrecentEncode(out, 4, "ab"), 4);
  EXPECT_EQ(std::string(out, 5), "aaaa-");
  for (const char c : std::string("zZ09-_.~")) {
    EXPECT_EQ(Coap_RpcPrecentEncode(out, 3, std::string(1, c).c_str()), 3);
    EXPECT_EQ(std::string(out, 3), std::string(3, c));
  }
}

TEST_F(LibMsg, PrecentEncode_TripleThatNoLongerFits_GivesMinus1) {
  char out[11] = "----------";
  EXPECT_EQ(Coap_RpcPrecentEncode(out, 10, " "), -1);
  EXPECT_EQ(std::string(out, 9), "%20%20%20");
  EXPECT_EQ(out[10], '\0');
  EXPECT_EQ(Coap_RpcPrecentEncode(out, 3, "/"), -1);
  char bytes[4] = "---";
  EXPECT_EQ(Coap_RpcPrecentEncode(bytes, 4, "\xff"), -1);
  EXPECT_EQ(std::string(bytes, 3), "%FF");
}

TEST_F(LibMsg, PrecentEncode_EmptyInputOrOutput_Gives0) {
  char out[4] = "---";
  EXPECT_EQ(Coap_RpcPrecentEncode(out, 4, ""), 0);
  EXPECT_EQ(Coap_RpcPrecentEncode(out, 0, "ab"), 0);
  EXPECT_STREQ(out, "---");
}

TEST_F(LibMsg, PrecentEncode_HugeBuffer_IsFilled) {
  std::vector<char> out(100000);
  EXPECT_EQ(Coap_RpcPrecentEncode(out.data(), 100000, "x"), 100000);
  EXPECT_EQ(std::string(out.data(), 100000), std::string(100000, 'x'));
  EXPECT_EQ(Coap_RpcPrecentEncode(out.data(), 100000, " "), -1);
  EXPECT_EQ(std::string(out.data(), 6), "%20%20");
}

TEST_F(LibMsg, NewPayload_CopiesAndAddsSixteenZeroBytes) {
  CoapRpcPayload *payload = COAP_RpcNewPayload(&ctx_, "abc", 3);
  ASSERT_NE(payload, nullptr);
  EXPECT_EQ(payload->memHandle, host_.Mem());
  EXPECT_EQ(payload->len, 3u);
  const char expected[3 + 16] = "abc";
  EXPECT_EQ(memcmp(payload->data, expected, sizeof(expected)), 0);
  COAP_RpcFreePayload(payload);
}

TEST_F(LibMsg, NewPayload_Empty_HasSpareBytes) {
  CoapRpcPayload *payload = COAP_RpcNewPayload(&ctx_, nullptr, 0);
  ASSERT_NE(payload, nullptr);
  EXPECT_EQ(payload->len, 0u);
  const char expected[16] = {};
  EXPECT_EQ(memcmp(payload->data, expected, sizeof(expected)), 0);
  COAP_RpcFreePayload(payload);
}

TEST_F(LibMsg, NewPayload_NoData_GivesNullAndFrees) {
  EXPECT_EQ(COAP_RpcNewPayload(&ctx_, nullptr, 5), nullptr);
  EXPECT_EQ(host_.Pool().LiveCount(), 0u);
}

TEST_F(LibMsg, NewPayload_NoMemory_GivesNull) {
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcNewPayload(&ctx_, "abc", 3), nullptr);
  EXPECT_EQ(COAP_RpcNewPayload(&ctx_, "abc", 0xFFFFFFFFu), nullptr);
}

TEST_F(LibMsg, FreePayload_NullOrWithoutPool_IsIgnored) {
  COAP_RpcFreePayload(nullptr);
  CoapRpcPayload *payload = COAP_RpcNewPayload(&ctx_, "abc", 3);
  payload->memHandle = 0;
  COAP_RpcFreePayload(payload);
  EXPECT_EQ(host_.Pool().LiveCount(), 1u);
  payload->memHandle = host_.Mem();
  COAP_RpcFreePayload(payload);
  EXPECT_EQ(host_.Pool().LiveCount(), 0u);
}

TEST_F(LibMsg, RefusedTexts_WriteNothingToTheHostsOutput) {
  const CapturedText captured = CaptureFds([&] {
    char buf[64];
    Pdu pdu = NewPdu();
    Add(pdu, COAP_OPTION_URI_QUERY, std::string(1000, 'q'));
    OptionsOf(pdu);
    COAP_RpcGetUriStr(pdu.get(), buf, 0);
    Coap_RpcPrecentEncode(buf, 10, " ");
    Coap_RpcGetUriHostIp(&ctx_, "");
    COAP_RpcNewPayload(&ctx_, nullptr, 5);
  });
  EXPECT_EQ(captured.out, "");
  EXPECT_EQ(captured.err, "");
}
