/* interop_pattern.h: the payload that every program here knows: a letter for each 50 bytes. */
#ifndef INTEROP_PATTERN_H
#define INTEROP_PATTERN_H

#include <string>

inline std::string InteropPattern(size_t len) {
  std::string text(len, '.');
  for (size_t i = 0; i < len; i += 50) text[i] = static_cast<char>('a' + i / 50 % 26);
  return text;
}

#endif /* INTEROP_PATTERN_H */
