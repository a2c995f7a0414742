/* test_coap_rpc_lib_dump.cpp: libcoap's dumps of messages read as libcoap 4.3.5 writes them.
 *
 * The sums were taken with the release's own code before anything of it was changed: they hold all
 * lines of a group of messages byte for byte, wherever the room in a line ends. */
#include <coap3/coap.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_log.h"
#include "csvc_dbg.h"
#include "test_host.h"

using namespace coap_rpc_test;

namespace {

constexpr size_t kLargeSize = 65471;
constexpr size_t kRoom = 70000;
constexpr uint16_t kUnknownOption = 65001;

std::string Pattern(size_t len) {
  std::string bytes;
  for (size_t i = 0; i < len; ++i) bytes += static_cast<char>((i * 7 + 65) % 256);
  return bytes;
}

std::string Letters(size_t len) {
  std::string text;
  for (size_t i = 0; i < len; ++i) text += static_cast<char>('a' + i % 26);
  return text;
}

const uint8_t *Bytes(const std::string &text) {
  return reinterpret_cast<const uint8_t *>(text.data());
}

// Pdu is a message in the making; options are added in the order of their numbers.
class Pdu {
 public:
  Pdu(coap_pdu_type_t type, int code) {
    pdu_ = coap_pdu_init(type, static_cast<coap_pdu_code_t>(code), 0x1a2b, kRoom);
  }
  ~Pdu() { coap_delete_pdu(pdu_); }
  Pdu(const Pdu &) = delete;
  Pdu &operator=(const Pdu &) = delete;

  Pdu &Token(const std::string &token) {
    EXPECT_NE(coap_add_token(pdu_, token.size(), Bytes(token)), 0);
    return *this;
  }
  Pdu &Option(uint16_t number, const std::string &value) {
    EXPECT_NE(coap_add_option(pdu_, number, value.size(), Bytes(value)), 0u);
    return *this;
  }
  Pdu &Data(const std::string &data) {
    EXPECT_NE(coap_add_data(pdu_, data.size(), Bytes(data)), 0);
    return *this;
  }
  void Show() const { coap_show_pdu(COAP_LOG_DEBUG, pdu_); }

 private:
  coap_pdu_t *pdu_;
};

bool g_isTaking = true;

// Dump is an instance without libcoap context whose sinks take libcoap's dumps; libcoap asks it, or
// hands every line to its handler.
class Dump : public testing::TestWithParam<bool> {
 protected:
  Dump() {
    g_isTaking = true;
    ctx_.log = host_.Log();
    ctx_.param.dbgHandle = host_.Dbg();
    CoapRpcLibSetLogRoot(&ctx_);
    coap_startup();
    coap_set_log_level(COAP_LOG_OSCORE);
    coap_set_show_pdu_output(0);
    coap_set_log_handler(CORP_RpcLibCoapLog);
    if (GetParam()) CoapRpcLibAskLog();
  }
  ~Dump() override {
    coap_cleanup();
    CoapRpcLibSetLogRoot(nullptr);
  }

  // Logged gives what the log printed.
  std::vector<std::string> Logged() const {
    std::vector<std::string> lines;
    for (const LogRecord &record : host_.LogsOf("CORP_RpcLibCoapLog")) lines.push_back(record.text);
    return lines;
  }

  // Lines gives the same; the debug channel has it as well.
  std::vector<std::string> Lines() const {
    const std::vector<std::string> lines = Logged();
    std::vector<std::string> debug;
    for (const LogRecord &record : host_.Logs().OfKind(LogKind::kDebug)) {
      debug.push_back(record.text);
    }
    EXPECT_EQ(lines, debug);
    return lines;
  }

  // SumUp gives "lines/bytes/sum" (FNV-1a) of all lines so far.
  std::string SumUp() const {
    uint64_t sum = 0xCBF29CE484222325u;
    size_t numBytes = 0;
    for (const std::string &line : Lines()) {
      for (const char c : line) sum = (sum ^ static_cast<uint8_t>(c)) * 0x100000001B3u;
      numBytes += line.size();
    }
    char text[64];
    snprintf(text, sizeof(text), "%zu/%zu/%016llx", Lines().size(), numBytes,
             static_cast<unsigned long long>(sum));
    return text;
  }

  // ShowSizes dumps a message with a payload of each size.
  void ShowSizes(size_t from, size_t to, const std::string &format,
                 const std::function<std::string(size_t)> &payload) {
    for (size_t size = from; size <= to; ++size) {
      Pdu pdu(COAP_MESSAGE_ACK, COAP_RESPONSE_CODE_CONTENT);
      pdu.Token("\x01\xfe").Option(COAP_OPTION_CONTENT_FORMAT, format).Data(payload(size));
      pdu.Show();
    }
  }

  mutable TestHost host_;
  CoapRpcCtx ctx_ = {};
};

const std::string kText;  // an option without value is the number 0, text/plain
const std::string kJson = "\x32";
const std::string kOctets = "\x2a";
const std::string kUnknownFormat = "\x7d";

}  // namespace

// The host's answer; the test host has none.
uint32_t CSVC_DBG_Takes(uint64_t, uint32_t) { return g_isTaking ? 1 : 0; }

INSTANTIATE_TEST_SUITE_P(Asked, Dump, testing::Bool());

TEST_P(Dump, Text_IsOneLine) {
  Pdu pdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_POST);
  pdu.Token("\x0a").Option(COAP_OPTION_URI_PATH, "post").Data("hello\n");
  pdu.Show();
  EXPECT_EQ(Lines(), std::vector<std::string>{
                         "[CoapRpc][coap_show_pdu], level = 7, msg = v:1 t:CON c:POST i:1a2b {0a} "
                         "[ Uri-Path:post ] :: 'hello\\x0A'\n"});
}

TEST_P(Dump, Octets_AreThreeLines) {
  Pdu pdu(COAP_MESSAGE_NON, COAP_RESPONSE_CODE_CHANGED);
  pdu.Option(COAP_OPTION_CONTENT_FORMAT, kOctets).Data(std::string("\x01z\0", 3));
  pdu.Show();
  EXPECT_EQ(Lines(), (std::vector<std::string>{
                         "[CoapRpc][coap_show_pdu], level = 7, msg = v:1 t:NON c:2.04 i:1a2b {} "
                         "[ Content-Format:application/octet-stream ] :: binary data length 3\n",
                         "[CoapRpc][coap_show_pdu], level = 7, msg = <<017a00>>\n",
                         "[CoapRpc][coap_show_pdu], level = 7, msg = <<. z . >>\n"}));
}

TEST_P(Dump, TextOfEverySize) {
  ShowSizes(1, 3, kText, Letters);
  ShowSizes(900, 1100, kJson, Letters);
  ShowSizes(1900, 2100, kText, Letters);
  EXPECT_EQ(SumUp(), "405/642431/c5238d8f6a9666a8");
}

TEST_P(Dump, TextWithEscapes_OfEverySize) {
  ShowSizes(1, 40, kText, Pattern);
  ShowSizes(500, 1100, kJson, Pattern);
  EXPECT_EQ(SumUp(), "641/1215711/511fac4645a4bbf1");
}

TEST_P(Dump, OctetsOfEverySize) {
  ShowSizes(1, 40, kOctets, Pattern);
  ShowSizes(1000, 1100, kUnknownFormat, Pattern);
  EXPECT_EQ(SumUp(), "423/447851/90e14b809c5c009d");
}

TEST_P(Dump, LargePayloads) {
  ShowSizes(kLargeSize, kLargeSize, kText, Letters);
  ShowSizes(kLargeSize, kLargeSize, kJson, Pattern);
  ShowSizes(kLargeSize, kLargeSize, kOctets, Pattern);
  EXPECT_EQ(SumUp(), "5/8537/ad0b4f436d2df8f1");
}

// Without a format the first byte decides.
TEST_P(Dump, NoFormat) {
  for (const char first : {'x', '\n', '\0', '\x7f'}) {
    Pdu pdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_FETCH);
    pdu.Data(std::string(1, first) + Pattern(100));
    pdu.Show();
  }
  EXPECT_EQ(SumUp(), "10/2177/232c68efee08f286");
}

TEST_P(Dump, EveryOption) {
  for (uint16_t number = 0; number < 300; ++number) {
    for (const char *value : {"", "a", "\x01\x02", "\x19\x03\x01\x02\x03\x04\x05\x06"}) {
      Pdu pdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET);
      pdu.Option(number, value).Option(kUnknownOption, value).Data(Letters(20));
      pdu.Show();
    }
  }
  EXPECT_EQ(SumUp(), "1224/163037/788c2e277ced299f");
}

TEST_P(Dump, EveryCodeAndType) {
  for (int code = 0; code < 256; ++code) {
    Pdu pdu(static_cast<coap_pdu_type_t>(code % 4), code);
    pdu.Token(Pattern(static_cast<size_t>(code % 9)));
    pdu.Option(2, "\x05").Option(4, "\x06").Option(COAP_OPTION_CONTENT_FORMAT, kOctets);
    if (code != 0) pdu.Data(Letters(8));
    pdu.Show();
  }
  EXPECT_EQ(SumUp(), "756/74008/2613b491d6f5a239");
}

// Options alone fill the line, to the byte.
TEST_P(Dump, LongOptions) {
  for (size_t len = 0; len < 255; ++len) {
    for (const std::string &format : {kText, kOctets}) {
      Pdu pdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_POST);
      for (int i = 0; i < 7; ++i) pdu.Option(COAP_OPTION_URI_PATH, Letters(255));
      pdu.Option(COAP_OPTION_CONTENT_FORMAT, format);
      pdu.Option(COAP_OPTION_URI_QUERY, Letters(len)).Data(Letters(30));
      pdu.Show();
    }
  }
  Pdu proxy(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET);
  proxy.Option(COAP_OPTION_PROXY_URI, Letters(1034)).Option(kUnknownOption, Pattern(1000));
  proxy.Show();
  EXPECT_EQ(SumUp(), "1021/1119584/3361903791ddd194");
}

// An encrypted payload is binary whatever the format says; the last format is the one that counts.
TEST_P(Dump, FormatsAndEncryption) {
  for (const std::string &accept : {kText, kOctets, kUnknownFormat}) {
    Pdu pdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_FETCH);
    pdu.Option(COAP_OPTION_CONTENT_FORMAT, kJson).Option(COAP_OPTION_ACCEPT, accept);
    pdu.Data(Letters(20)).Show();
    Pdu encrypted(COAP_MESSAGE_CON, COAP_REQUEST_CODE_FETCH);
    encrypted.Option(COAP_OPTION_OSCORE, "\x09\x05id").Option(COAP_OPTION_ACCEPT, kText);
    encrypted.Data(Letters(20)).Show();
  }
  EXPECT_EQ(SumUp(), "16/1779/a5029541634d2ce2");
}

// Each line is offered by itself: whatever is refused, the others stay as they are.
TEST_P(Dump, AnyLinesRefused_TheOthersAreTheSame) {
  g_isTaking = false;
  Pdu pdu(COAP_MESSAGE_NON, COAP_RESPONSE_CODE_CHANGED);
  pdu.Option(COAP_OPTION_CONTENT_FORMAT, kOctets).Data(Pattern(5));
  pdu.Show();
  const std::vector<std::string> all = Logged();
  ASSERT_EQ(all.size(), 3u);
  for (size_t taken = 0; taken < 8; ++taken) {
    host_.ClearLogs();
    size_t numOffered = 0;
    host_.Logs().SuppressIf(
        [&](const std::string &, uint32_t, uint32_t) { return (taken >> numOffered++ & 1) == 0; });
    pdu.Show();
    std::vector<std::string> expected;
    for (size_t i = 0; i < 3; ++i) {
      if ((taken >> i & 1) != 0) expected.push_back(all[i]);
    }
    EXPECT_EQ(Logged(), expected) << taken;
    EXPECT_EQ(numOffered, 3u) << taken;
  }
}

// What decides on the number of lines is found without writing the first one.
TEST_P(Dump, Refused_AsManyLinesAreOffered) {
  g_isTaking = false;
  for (int code = 0; code < 256; ++code) {
    for (const int number : {COAP_OPTION_OSCORE, COAP_OPTION_URI_PATH,
                                  COAP_OPTION_CONTENT_FORMAT, COAP_OPTION_ACCEPT}) {
      for (const char *value : {"", "\x2a", "\x01\x02"}) {
        for (const char *data : {"", "text", "\x01"}) {
          Pdu pdu(COAP_MESSAGE_CON, code);
          pdu.Option(static_cast<uint16_t>(number), value).Option(kUnknownOption, "y");
          if (*data != '\0') pdu.Data(data);
          host_.Logs().ShowAll();
          host_.ClearLogs();
          pdu.Show();
          const size_t numTaken = host_.Logs().OfKind(LogKind::kFirst).size();
          host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
          host_.ClearLogs();
          pdu.Show();
          ASSERT_EQ(host_.Logs().Records().size(), numTaken) << code << " " << number;
        }
      }
    }
  }
}

TEST_P(Dump, BelowTheLevel_IsNothing) {
  coap_set_log_level(COAP_LOG_INFO);
  ShowSizes(10, 10, kOctets, Letters);
  EXPECT_TRUE(host_.Logs().Records().empty());
}
