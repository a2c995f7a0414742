/* test_coap_rpc_lib_msg_options.cpp: options and payloads of CoAP messages. */
#include "fd_capture.h"
#include "lib_msg_fixture.h"

using namespace coap_rpc_test;

namespace {

CoapRpcMsgOptions OptionsOf(const Pdu &pdu) {
  CoapRpcMsgOptions opt = {};
  COAP_RpcParseOptions(pdu.get(), &opt);
  return opt;
}

// Packed records: a reference to the number itself may be a misaligned one.
uint64_t ETagOf(const CoapRpcMsgOptions &opt) { return opt.etag; }

}  // namespace

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
  EXPECT_EQ(ETagOf(opt), 0x010203u);
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
  EXPECT_EQ(ETagOf(opt), 7u);
}

TEST_F(LibMsg, ParseOptions_ManyETags_FirstCounts) {
  Pdu pdu = NewPdu();
  Add(pdu, COAP_OPTION_ETAG, "\x05");
  for (int i = 0; i < 5000; ++i) Add(pdu, COAP_OPTION_ETAG, "\x06");
  EXPECT_EQ(ETagOf(OptionsOf(pdu)), 5u);
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
    EXPECT_EQ(ETagOf(OptionsOf(pdu)), c.etag);
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
  EXPECT_EQ(ETagOf(opt), 0u);
  COAP_RpcParseETag(0, option, &opt);
  EXPECT_EQ(ETagOf(opt), 42u);
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
  EXPECT_EQ(ETagOf(info.opt), 9u);
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
