/* escape.cpp: makes text of the host harmless to a terminal. */
#include "escape.h"

#include <wchar.h>

#include <algorithm>
#include <cstdint>

namespace console {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

uint8_t ByteAt(std::string_view text, size_t i) { return static_cast<uint8_t>(text[i]); }

size_t LengthByFirstByte(uint8_t first) {
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first <= 0xdf) return 2;
  if (first >= 0xe0 && first <= 0xef) return 3;
  return first >= 0xf0 && first <= 0xf4 ? 4 : 0;
}

// CodePoint decodes a well-formed character.
uint32_t CodePoint(std::string_view character) {
  constexpr uint32_t kFirstBits[] = {0, 0x7f, 0x1f, 0x0f, 0x07};
  uint32_t code = ByteAt(character, 0) & kFirstBits[character.size()];
  for (size_t i = 1; i < character.size(); ++i) code = code << 6 | (ByteAt(character, i) & 0x3fu);
  return code;
}

// IsLowest: no shorter form of the character exists, and it is one.
bool IsLowest(uint32_t code, size_t length) {
  constexpr uint32_t kFirst[] = {0, 0, 0x80, 0x800, 0x10000};
  return code >= kFirst[length] && code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
}

bool IsHarmful(uint32_t code) {
  if (code < 0x20 || (code >= 0x7f && code < 0xa0)) return true;
  return (code >= 0x200b && code <= 0x200f) || (code >= 0x2028 && code <= 0x202e) ||
         (code >= 0x2060 && code <= 0x2069) || code == 0x61c || code == 0xfeff;
}

void AddEscaped(std::string &shown, std::string_view bytes) {
  for (size_t i = 0; i < bytes.size(); ++i) {
    const uint8_t byte = ByteAt(bytes, i);
    shown += "\\x";
    shown += kHexDigits[byte >> 4];
    shown += kHexDigits[byte & 0x0f];
  }
}

// Shown builds a text of what `add` makes of each character, or of a byte that is not UTF-8.
template <typename Add>
std::string Shown(std::string_view text, Add add) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const size_t length = Utf8Length(text);
    const std::string_view character = text.substr(0, length != 0 ? length : 1);
    add(shown, character, length != 0);
    text.remove_prefix(character.size());
  }
  return shown;
}

void AddPlain(std::string &shown, std::string_view character, bool isUtf8) {
  if (isUtf8 && !IsHarmful(CodePoint(character))) {
    shown += character;
  } else {
    AddEscaped(shown, character);
  }
}

void AddJsonEscaped(std::string &shown, uint32_t code) {
  shown += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) shown += kHexDigits[code >> shift & 0x0f];
}

void AddForJson(std::string &shown, std::string_view character, bool isUtf8) {
  if (!isUtf8) {
    shown += '\\';
    AddEscaped(shown, character);
  } else if (character == "\"" || character == "\\") {
    shown += '\\';
    shown += character;
  } else if (IsHarmful(CodePoint(character))) {
    AddJsonEscaped(shown, CodePoint(character));
  } else {
    shown += character;
  }
}

// Length is that of the character or change of style that text begins with.
size_t Length(std::string_view text) {
  if (text[0] == '\x1b') return std::min(text.find('m'), text.size() - 1) + 1;
  return std::max<size_t>(Utf8Length(text), 1);
}

size_t WidthOf(std::string_view character) {
  if (character[0] == '\x1b') return 0;
  const int width = wcwidth(static_cast<wchar_t>(CodePoint(character)));
  return width < 0 ? 1 : static_cast<size_t>(width);
}

bool IsContinuation(char c) { return (static_cast<uint8_t>(c) & 0xc0) == 0x80; }

}  // namespace

size_t Utf8Length(std::string_view text) {
  const size_t length = LengthByFirstByte(ByteAt(text, 0));
  if (length == 0 || length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    if (!IsContinuation(text[i])) return 0;
  }
  return IsLowest(CodePoint(text.substr(0, length)), length) ? length : 0;
}

std::string Escaped(std::string_view text) { return Shown(text, AddPlain); }

std::string EscapedForJson(std::string_view text) { return Shown(text, AddForJson); }

size_t NumColumns(std::string_view text) {
  size_t columns = 0;
  while (!text.empty()) {
    const size_t length = Length(text);
    columns += WidthOf(text.substr(0, length));
    text.remove_prefix(length);
  }
  return columns;
}

std::string Cut(std::string_view text, size_t columns) {
  if (columns == 0 || NumColumns(text) <= columns) return std::string(text);
  size_t end = 0;
  for (size_t kept = 0;;) {
    const size_t length = Length(text.substr(end));
    kept += WidthOf(text.substr(end, length));
    if (kept >= columns) break;
    end += length;
  }
  return std::string(text.substr(0, end)) + "~";
}

}  // namespace console
