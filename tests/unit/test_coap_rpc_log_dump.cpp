// The hexadecimal dump, line by line.
#include <algorithm>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

class LogMemDump : public testing::Test {
 protected:
  // The texts that the dump of `len` bytes 0, 1, 2 ... prints.
  std::vector<std::string> Dump(int32_t len, const char *title = nullptr) {
    std::vector<uint8_t> bytes(static_cast<size_t>(len > 0 ? len : 1));
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return DumpBytes(bytes.data(), len, title);
  }

  std::vector<std::string> DumpBytes(const void *data, int32_t len, const char *title = nullptr) {
    host_.ClearLogs();
    COAP_RpcLogMemDump(data, len, title, host_.Log());
    std::vector<std::string> texts;
    for (const LogRecord &record : host_.LogsOf("COAP_RpcLogMemDump")) texts.push_back(record.text);
    return texts;
  }

  TestHost host_;
};

using Texts = std::vector<std::string>;

TEST_F(LogMemDump, TwentyBytes_BothLinesCarryOffset0010) {
  EXPECT_EQ(Dump(20), Texts({"  0010  00010203 04050607 08090a0b 0c0d0e0f  ................\n",
                             "  0010  10111213                             ....\n"}));
}

TEST_F(LogMemDump, SixteenBytes_OneLineWithOffset0000) {
  EXPECT_EQ(Dump(16), Texts({"  0000  00010203 04050607 08090a0b 0c0d0e0f  ................\n"}));
}

TEST_F(LogMemDump, ThirtyTwoBytes_LastLineRepeatsTheOffset) {
  EXPECT_EQ(Dump(32), Texts({"  0010  00010203 04050607 08090a0b 0c0d0e0f  ................\n",
                             "  0010  10111213 14151617 18191a1b 1c1d1e1f  ................\n"}));
}

TEST_F(LogMemDump, OffsetIsJustPastTheLine) {
  const Texts texts = Dump(49);
  ASSERT_EQ(texts.size(), 4u);
  EXPECT_EQ(texts[0].substr(0, 8), "  0010  ");
  EXPECT_EQ(texts[1].substr(0, 8), "  0020  ");
  EXPECT_EQ(texts[2].substr(0, 8), "  0030  ");
  EXPECT_EQ(texts[3], "  0030  30                                   0\n");
}

TEST_F(LogMemDump, PartOfAGroup_IsPaddedToFullWidth) {
  EXPECT_EQ(Dump(1), Texts({"  0000  00                                   .\n"}));
  EXPECT_EQ(Dump(5), Texts({"  0000  00010203 04                          .....\n"}));
  EXPECT_EQ(Dump(15), Texts({"  0000  00010203 04050607 08090a0b 0c0d0e    ...............\n"}));
}

TEST_F(LogMemDump, TextColumn_ShowsBytes32To126) {
  const uint8_t bytes[] = {31, 32, 'A', 126, 127, 255};
  EXPECT_EQ(DumpBytes(bytes, sizeof(bytes)),
            Texts({"  0000  1f20417e 7fff                        . A~..\n"}));
}

TEST_F(LogMemDump, RecordsCarryTheirLinesAndLevel1_AndAreNotCounted) {
  Dump(20, "t");
  std::vector<std::pair<uint32_t, uint32_t>> sites;
  for (const LogRecord &record : host_.LogsOf("COAP_RpcLogMemDump")) {
    EXPECT_EQ(record.module, "logDefault");
    sites.emplace_back(record.line, record.level);
  }
  const std::vector<std::pair<uint32_t, uint32_t>> expected = {{107, 1}, {119, 1}, {131, 1}};
  EXPECT_EQ(sites, expected);
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kCount).empty());
}

TEST_F(LogMemDump, Formats_AreFixed) {
  Dump(17, "t");
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcLogMemDump");
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].format, "%s%s%s\n");
  EXPECT_EQ(records[1].format, "  %04x  %s  %s\n");
  EXPECT_EQ(records[2].format, "  %04x  %s  %s\n");
}

TEST_F(LogMemDump, Title_IsCentredInDashes) {
  EXPECT_EQ(Dump(1, "ab")[0], std::string(31, '-') + "ab" + std::string(31, '-') + "\n");
  EXPECT_EQ(Dump(1, "abc")[0], std::string(30, '-') + "abc" + std::string(30, '-') + "\n");
  EXPECT_EQ(Dump(1, "")[0], std::string(64, '-') + "\n");
}

TEST_F(LogMemDump, Title_Of63To65AndMore_HasNoDashes) {
  for (const size_t len : {63u, 64u, 65u, 10000u}) {
    const std::string title(len, 't');
    EXPECT_EQ(Dump(1, title.c_str())[0], title + "\n") << len;
  }
}

TEST_F(LogMemDump, NothingToDump_PrintsNothing) {
  EXPECT_EQ(DumpBytes(nullptr, 5, "t"), Texts());
  EXPECT_EQ(Dump(0, "t"), Texts());
  EXPECT_EQ(Dump(-1, "t"), Texts());
  EXPECT_EQ(Dump(INT32_MIN, "t"), Texts());
  COAP_RpcLogMemDump("x", 1, "t", 0);
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(LogMemDump, LineSuppressed_HexColumnStaysFull_OffsetIsThatOfTheLinePrintedBefore) {
  // The second inside line is refused: its bytes are in the text column only.
  int numLines = 0;
  host_.Logs().SuppressIf(
      [&](const std::string &, uint32_t line, uint32_t) { return line == 119 && ++numLines == 2; });
  const Texts texts = Dump(40);
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_EQ(texts[0], "  0010  00010203 04050607 08090a0b 0c0d0e0f  ................\n");
  EXPECT_EQ(texts[1], "  0010  10111213 14151617 18191a1b 1c1d1e1f   !\"#$%&'\n");
}

TEST_F(LogMemDump, AllInsideLinesSuppressed_NeverOverruns) {
  host_.Logs().SuppressSite("logDefault", 119);
  const Texts texts = Dump(10000);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].substr(0, 45), "  0000  00010203 04050607 08090a0b 0c0d0e0f  ");
}

// The dump byte by byte as it is described, with any lines refused.
TEST_F(LogMemDump, AnyLinesSuppressed_TheOthersAreAsDescribed) {
  for (int32_t len = 1; len <= 70; ++len) {
    for (uint32_t refused = 0; refused < 32; ++refused) {
      Texts expected;
      std::string hex, text;
      uint32_t numOffered = 0, offset = 0;
      const auto offer = [&](uint32_t printed) {
        if ((refused >> numOffered++ & 1) != 0) return false;
        char line[128];
        snprintf(line, sizeof(line), "  %04x  %s  %s\n", printed, hex.substr(0, 35).c_str(),
                 text.c_str());
        expected.push_back(line);
        return true;
      };
      for (int32_t i = 0; i < len; ++i) {
        if (i != 0 && i % 16 == 0) {
          if (offer(static_cast<uint32_t>(i))) {
            offset = static_cast<uint32_t>(i);
            hex.clear();
          }
          text.clear();
        }
        char digits[16];
        snprintf(digits, sizeof(digits), "%s%02x", i % 4 == 0 && i % 16 != 0 ? " " : "",
                 static_cast<unsigned>(i));
        hex += digits;
        text += i >= 32 && i <= 126 ? static_cast<char>(i) : '.';
      }
      hex.resize(std::max<size_t>(hex.size(), 35), ' ');
      offer(offset);

      uint32_t numAsked = 0;
      host_.Logs().SuppressIf([&](const std::string &, uint32_t, uint32_t) {
        return (refused >> numAsked++ & 1) != 0;
      });
      ASSERT_EQ(Dump(len), expected) << len << " " << refused;
      ASSERT_EQ(numAsked, numOffered) << len << " " << refused;
    }
  }
}

TEST_F(LogMemDump, LargeDump_OffsetsPassFourDigits) {
  const Texts texts = Dump(65536 + 17);
  EXPECT_EQ(texts[4095].substr(0, 9), "  10000  ");
}

}  // namespace
}  // namespace coap_rpc_test
