/* fuzz_support.h: what all fuzz targets share: reading an input, and stopping at a finding. */
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace fuzz {

// Check stops the program unless `isGood`, which the fuzzer takes as a finding.
inline void Check(bool isGood, const char *otherwise) {
  if (isGood) return;
  std::fprintf(stderr, "fuzz target: %s\n", otherwise);
  abort();
}

// Input is read from its beginning; at its end all numbers are 0 and all texts empty.
class Input {
 public:
  Input(const uint8_t *data, size_t size) : at_(data), left_(size) {}

  bool IsEmpty() const { return left_ == 0; }

  uint8_t Byte() {
    if (left_ == 0) return 0;
    --left_;
    return *at_++;
  }
  uint16_t Word() {
    const uint8_t high = Byte();
    return static_cast<uint16_t>(high << 8 | Byte());
  }
  uint32_t Long() {
    const uint32_t high = Word();
    return high << 16 | Word();
  }

  // Bytes are the next `size` ones, or what is left.
  std::vector<uint8_t> Bytes(size_t size) {
    const size_t len = std::min(size, left_);
    std::vector<uint8_t> bytes(at_, at_ + len);
    at_ += len;
    left_ -= len;
    return bytes;
  }

  // Framed are the bytes after a length of two bytes.
  std::vector<uint8_t> Framed() { return Bytes(Word()); }

  // Line is a text, up to a line feed, which is taken as well.
  std::string Line() {
    const uint8_t *end = std::find(at_, at_ + left_, '\n');
    const std::vector<uint8_t> bytes = Bytes(static_cast<size_t>(end - at_));
    Byte();
    return {bytes.begin(), bytes.end()};
  }

 private:
  const uint8_t *at_;
  size_t left_;
};

}  // namespace fuzz

#endif /* FUZZ_SUPPORT_H */
