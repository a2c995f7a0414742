/* kst_mem_str.cpp: renders bytes as hexadecimal text. */
#include "kst_disp.h"

namespace {

// TextEnd writes into a caller's buffer and always leaves room for the terminator.
class TextEnd {
 public:
  TextEnd(char *buf, uint32_t size) : at_(buf), room_(size - 1) {}

  bool Fits(uint32_t len) const { return len <= room_; }
  void Put(char c) {
    *at_++ = c;
    --room_;
  }
  void Terminate() { *at_ = '\0'; }

 private:
  char *at_;
  uint32_t room_;
};

void PutByte(TextEnd &text, uint8_t byte) {
  static constexpr char kDigits[] = "0123456789abcdef";
  text.Put(kDigits[byte >> 4]);
  text.Put(kDigits[byte & 15]);
}

}  // namespace

char *KST_GetMemStr(const void *bytes, uint32_t len, uint32_t perGroup, char *buf, uint32_t size) {
  if (size == 0) return buf;
  const auto *from = static_cast<const uint8_t *>(bytes);
  TextEnd text(buf, size);
  for (uint32_t i = 0; i < len; ++i) {
    const bool newGroup = i != 0 && perGroup != 0 && i % perGroup == 0;
    if (!text.Fits(newGroup ? 3 : 2)) break;
    if (newGroup) text.Put(' ');
    PutByte(text, from[i]);
  }
  text.Terminate();
  return buf;
}
