/* coap_rpc_log_dump.cpp: bytes in hexadecimal, sixteen a line.  A line that the log does not take
 * is not formatted. */
#include <algorithm>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_log_site.h"

namespace coap_rpc {
namespace {

constexpr int32_t kBytesPerLine = 16;
constexpr int32_t kBytesPerGroup = 4;
constexpr size_t kTitleWidth = 64;
constexpr size_t kHexWidth = 35;  // four groups of eight digits and the blanks between them

// HexText is the hexadecimal column, padded to its width.
class HexText {
 public:
  HexText(const uint8_t *bytes, int32_t len) {
    memset(text_, ' ', kHexWidth);
    for (int32_t i = 0; i < len; ++i)
      Put(static_cast<size_t>(2 * i + i / kBytesPerGroup), bytes[i]);
  }
  const char *c_str() const { return text_; }

 private:
  void Put(size_t at, uint8_t byte) {
    static constexpr char kDigits[] = "0123456789abcdef";
    text_[at] = kDigits[byte >> 4];
    text_[at + 1] = kDigits[byte & 15];
  }

  char text_[kHexWidth + 1] = {};
};

// PlainText is the text column.
class PlainText {
 public:
  PlainText(const uint8_t *bytes, int32_t len) {
    for (int32_t i = 0; i < len; ++i) {
      text_[i] = bytes[i] >= 32 && bytes[i] <= 126 ? static_cast<char>(bytes[i]) : '.';
    }
  }
  const char *c_str() const { return text_; }

 private:
  char text_[kBytesPerLine + 1] = {};
};

// Dashes is what stands on each side of a title.
class Dashes {
 public:
  explicit Dashes(const char *title) {
    const size_t len = strlen(title);
    if (len <= kTitleWidth) memset(text_, '-', (kTitleWidth - len) / 2);
  }
  const char *c_str() const { return text_; }

 private:
  char text_[kTitleWidth / 2 + 1] = {};
};

// Dump prints lines.  After a line that the log did not take, the hexadecimal column still begins
// where that line began, and what does not fit is dropped.
class Dump {
 public:
  Dump(uint64_t log, const uint8_t *bytes) : log_(log), bytes_(bytes) {}

  // Line ends a line inside at `end`.
  void Line(int32_t end) {
    if (!Print(kLogMemDumpLine, end - kBytesPerLine, end, end)) return;
    offset_ = hexFrom_ = end;
  }

  void LastLine(int32_t begin, int32_t end) { Print(kLogMemDumpLastLine, begin, end, offset_); }

 private:
  // Print returns whether the log took the line.
  bool Print(const LogSite &site, int32_t begin, int32_t end, int32_t offset) const {
    if (!LogWanted(log_, kLogModule, site)) return false;
    const HexText hex(bytes_ + hexFrom_, std::min(end - hexFrom_, kBytesPerLine));
    const PlainText text(bytes_ + begin, end - begin);
    KST_LogSecondHalf_(log_, kLogModule, site.line, site.level, site.func, "  %04x  %s  %s\n",
                       static_cast<uint32_t>(offset), hex.c_str(), text.c_str());
    return true;
  }

  uint64_t log_;
  const uint8_t *bytes_;
  int32_t hexFrom_ = 0;
  int32_t offset_ = 0;  // of the last line that was taken
};

}  // namespace
}  // namespace coap_rpc

using namespace coap_rpc;

// A line inside carries the offset just past its last byte, and the last line that of the line
// before: deliberately (LogMemDump_* in test_coap_rpc_log).
void COAP_RpcLogMemDump(const void *data, int32_t len, const char *title, uint64_t log) {
  if (!data || len < 1 || log == 0) return;
  if (title) {
    COAP_RPC_LOG(log, kLogMemDumpTitle, "%s%s%s\n", Dashes(title).c_str(), title,
                 Dashes(title).c_str());
  }
  Dump dump(log, static_cast<const uint8_t *>(data));
  int32_t begin = 0;
  for (; len - begin > kBytesPerLine; begin += kBytesPerLine) dump.Line(begin + kBytesPerLine);
  dump.LastLine(begin, len);
}
