/* coap_rpc_log_dump.cpp: bytes in hexadecimal, sixteen a line. */
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_log_site.h"

namespace coap_rpc {
namespace {

constexpr int32_t kBytesPerLine = 16;
constexpr int32_t kBytesPerGroup = 4;
constexpr size_t kTitleWidth = 64;
constexpr size_t kHexWidth = 35;  // four groups of eight digits and the blanks between them

// DumpLine is one line in the making.
class DumpLine {
 public:
  void Add(int32_t index, uint8_t byte) {
    static constexpr char kDigits[] = "0123456789abcdef";
    const int32_t column = index % kBytesPerLine;
    AddHex(column, kDigits[byte >> 4], kDigits[byte & 15]);
    text_[column] = byte >= 32 && byte <= 126 ? static_cast<char>(byte) : '.';
    text_[column + 1] = '\0';
  }

  void Pad(int32_t numBytes) {
    for (int32_t column = numBytes % kBytesPerLine; column % kBytesPerLine != 0; ++column) {
      AddHex(column, ' ', ' ');
    }
  }

  // Print returns whether the log took the line.
  bool Print(uint64_t log, const LogSite &site, uint32_t offset) const {
    if (!LogWanted(log, kLogModule, site)) return false;
    KST_LogSecondHalf_(log, kLogModule, site.line, site.level, site.func, "  %04x  %s  %s\n",
                       offset, hex_, text_);
    return true;
  }

  void RestartHex() { hexLen_ = 0; }

 private:
  // After a line that the log did not take, the column is full: what comes then is dropped.
  void AddHex(int32_t column, char first, char second) {
    if (column % kBytesPerGroup == 0 && column != 0) Append(' ');
    Append(first);
    Append(second);
  }

  void Append(char c) {
    if (hexLen_ == kHexWidth) return;
    hex_[hexLen_++] = c;
    hex_[hexLen_] = '\0';
  }

  char hex_[kHexWidth + 1] = {};
  char text_[kBytesPerLine + 1] = {};
  size_t hexLen_ = 0;
};

void DumpTitle(const char *title, uint64_t log) {
  char dashes[kTitleWidth / 2 + 1] = {};
  const size_t titleLen = strlen(title);
  if (titleLen <= kTitleWidth) memset(dashes, '-', (kTitleWidth - titleLen) / 2);
  COAP_RPC_LOG(log, kLogMemDumpTitle, "%s%s%s\n", dashes, title, dashes);
}

}  // namespace
}  // namespace coap_rpc

using namespace coap_rpc;

// A line inside carries the offset just past its last byte, and the last line that of the line
// before: deliberately (LogMemDump_* in test_coap_rpc_log).
void COAP_RpcLogMemDump(const void *data, int32_t len, const char *title, uint64_t log) {
  if (!data || len < 1 || log == 0) return;
  if (title) DumpTitle(title, log);

  const auto *bytes = static_cast<const uint8_t *>(data);
  DumpLine line;
  uint32_t offset = 0;
  for (int32_t i = 0; i < len; ++i) {
    const auto index = static_cast<uint32_t>(i);
    if (i != 0 && i % kBytesPerLine == 0 && line.Print(log, kLogMemDumpLine, index)) {
      offset = index;
      line.RestartHex();
    }
    line.Add(i, bytes[i]);
  }
  line.Pad(len);
  line.Print(log, kLogMemDumpLastLine, offset);
}
