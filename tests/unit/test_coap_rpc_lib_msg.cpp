/* test_coap_rpc_lib_msg.cpp: addresses, paths and fixed fields of CoAP messages. */
#include "lib_msg_fixture.h"

using namespace coap_rpc_test;

namespace {

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

using Texts = std::vector<std::string>;

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
