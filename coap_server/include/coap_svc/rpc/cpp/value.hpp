/* value.hpp: what keys and values of tables are on the wire: a fixed number of bytes each, the same
 * for hosts of all kinds.
 *
 * Two ways lead there:
 *
 *   a record of members of one byte, arrays of them, and Big<> numbers:
 *     struct Port { Big<uint16_t> slot, index; };      // flags are Big<bool>: peers send any byte
 *   or a type that says itself how its bytes are:
 *     static constexpr size_t size;
 *     void encode(std::span<uint8_t, size> out) const;       // all 0 before
 *     static T decode(std::span<const uint8_t, size> bytes);   // or std::optional<T>
 *
 * `std::string text() const`, if a type has it, is what displays and JSON show. */
#ifndef COAP_RPC_CPP_VALUE_HPP
#define COAP_RPC_CPP_VALUE_HPP

#include <algorithm>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/cpp/result.hpp"

COAPRPC_BEGIN

/* Big is a number in network byte order. */
template <typename T>
requires std::is_arithmetic_v<T> || std::is_enum_v<T>
class Big {
 public:
  constexpr Big() = default;
  constexpr Big(T value) : bytes_(std::bit_cast<Bytes>(value)) { bytes_.toNetwork(); }
  constexpr operator T() const {
    if constexpr (std::is_same_v<T, bool>) return bytes_.at[0] != 0;
    Bytes bytes = bytes_;
    bytes.toNetwork();
    return std::bit_cast<T>(bytes);
  }

 private:
  struct Bytes {
    uint8_t at[sizeof(T)] = {};
    constexpr void toNetwork() {
      if constexpr (std::endian::native == std::endian::little) std::reverse(at, at + sizeof(T));
    }
  };
  Bytes bytes_;
};

namespace detail {

// A member of this name that is not static has nothing to do with it.
template <typename T>
concept HasSizeMember = std::is_member_pointer_v<decltype(&T::size)>;

template <typename T>
concept HasSize = !HasSizeMember<T> && requires {
  typename std::integral_constant<size_t, T::size>;
};

template <typename T>
concept HasEncode = HasSize<T> && requires(const T &value, std::span<uint8_t, T::size> out) {
  value.encode(out);
};

template <typename T>
concept HasDecode = HasSize<T> && requires(std::span<const uint8_t, T::size> bytes) {
  { T::decode(bytes) } -> std::convertible_to<std::optional<T>>;
};

template <typename T>
concept HasText = requires(const T &value) {
  { value.text() } -> std::convertible_to<std::string>;
};

template <typename T>
concept NamesEncode = std::is_member_function_pointer_v<decltype(&T::encode)>;
template <typename T>
concept NamesDecode = std::is_function_v<std::remove_pointer_t<decltype(&T::decode)>>;

template <typename T>
concept IsOwnCodec = HasEncode<T> || HasDecode<T> || NamesEncode<T> || NamesDecode<T>;

// A bool that a peer has sent need not be 0 or 1.
template <typename T>
T ofBytes(const uint8_t *bytes) {
  union Holder {
    Holder() {}
    T value;  // which need not have a constructor without arguments
  } holder;
  if constexpr (std::is_same_v<T, bool>) return *bytes != 0;
  std::memcpy(static_cast<void *>(&holder.value), bytes, sizeof(T));
  return holder.value;
}

// Codec is how values of a type become bytes and come back.
template <typename T>
struct Codec {
  static constexpr bool isOwn = IsOwnCodec<T>;

  static_assert(!isOwn || HasSize<T>,
                "coaprpc: a type with encode or decode also needs 'static constexpr size_t size'");
  static_assert(!isOwn || !HasSize<T> || HasEncode<T>,
                "coaprpc: the type needs 'void encode(std::span<uint8_t, size> out) const'");
  static_assert(!isOwn || !HasSize<T> || HasDecode<T>,
                "coaprpc: the type needs 'static T decode(std::span<const uint8_t, size> bytes)', "
                "which may also return std::optional<T>");
  static_assert(isOwn || std::is_trivially_copyable_v<T>,
                "coaprpc: a key or value is a trivially copyable record, or has size, encode and "
                "decode");
  static_assert(isOwn || !std::is_trivially_copyable_v<T> || !std::is_empty_v<T>,
                "coaprpc: a key or value has at least one member");
  static_assert(isOwn || !std::is_trivially_copyable_v<T> || alignof(T) == 1,
                "coaprpc: the record has a member in the byte order of this host, or a pointer: "
                "use Big<> for numbers of more than one byte, or give it size, encode and decode");

  static_assert(isOwn || !std::is_trivially_copyable_v<T> || std::is_empty_v<T> || alignof(T) > 1 ||
                    std::has_unique_object_representations_v<T>,
                "coaprpc: the record has bits that belong to no member, which differ from row to "
                "row: it has bit-fields or members without members");

  static constexpr size_t size = [] {
    if constexpr (isOwn && HasSize<T>) return size_t{T::size};
    return sizeof(T);
  }();
  using Bytes = uint8_t[size];
  static_assert(size >= 1 && size <= COAP_RPC_SYNC_MAX_TUPLE,
                "coaprpc: a key or value has 1 to 65,000 bytes");

  static void encode(const T &value, uint8_t *out) {
    if constexpr (isOwn) {
      std::fill_n(out, size, uint8_t{0});  // it may leave bytes out
      value.encode(std::span<uint8_t, size>(out, size));
    } else {
      std::memcpy(out, &value, size);
    }
  }

  // decode returns nothing for bytes that the type itself refuses.
  static std::optional<T> decode(const uint8_t *bytes) {
    if constexpr (isOwn) {
      return T::decode(std::span<const uint8_t, size>(bytes, size));
    } else {
      return ofBytes<T>(bytes);
    }
  }
};

// skipUtf8 returns how many bytes the first character of a text has; 0 for what is no UTF-8.
inline size_t skipUtf8(std::string_view text) {
  const auto at = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : 0u; };
  const uint32_t first = at(0), second = at(1);
  const size_t len = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  uint32_t code = len == 1 ? first : first & (0xFFu >> (len + 1));
  for (size_t i = 1; i < len; ++i) {
    if ((at(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (at(i) & 0x3F);
  }
  const bool isLead = first < 0x80 || (first >= 0xC2 && first <= 0xF4);
  const bool isShortest = !(first == 0xE0 && second < 0xA0) && !(first == 0xF0 && second < 0x90);
  return isLead && isShortest && code <= 0x10FFFF && code >> 11 != 0xD800 >> 11 ? len : 0;
}

// quotedJson returns a text as a JSON string; nothing for what is no UTF-8.
inline std::optional<std::string> quotedJson(std::string_view text) {
  std::string json = "\"";
  while (!text.empty()) {
    const size_t len = skipUtf8(text);
    if (len == 0) return {};
    const auto first = static_cast<uint8_t>(text.front());
    char escaped[8];
    std::snprintf(escaped, sizeof(escaped), "\\u%04x", unsigned{first});
    const bool isSpecial = first < 0x20 || first == '"' || first == '\\';
    json += isSpecial ? std::string_view(escaped) : text.substr(0, len);
    text.remove_prefix(len);
  }
  return json + '"';
}

inline std::string hexJson(const uint8_t *bytes, size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string json = "\"";
  for (size_t i = 0; i < size; ++i) {
    json += kDigits[bytes[i] >> 4];
    json += kDigits[bytes[i] & 0x0F];
  }
  return json + '"';
}

// toJson is a key or a value as people read it: its text(), else its bytes in hexadecimal.
template <typename T>
std::string toJson(const void *bytes) {
  const auto *from = static_cast<const uint8_t *>(bytes);
  std::optional<std::string> json;
  if constexpr (HasText<T>) {
    if (const std::optional<T> value = Codec<T>::decode(from)) json = quotedJson(value->text());
  }
  return json ? *json : hexJson(from, Codec<T>::size);
}

// toText is a display's text function of a type.  It answers with an empty text where it cannot.
template <typename T>
const char *toText(const void *bytes, char *buf, uint32_t size) noexcept {
  COAPRPC_TRY {
    const std::optional<T> value = Codec<T>::decode(static_cast<const uint8_t *>(bytes));
    const std::string text = value ? std::string(value->text()) : std::string();
    std::snprintf(buf, size, "%s", text.c_str());
  }
  COAPRPC_CATCH(...) { std::snprintf(buf, size, "%s", ""); }
  return buf;
}

template <typename T>
constexpr CoapRpcTupleToStr textFunctionOf() {
  if constexpr (HasText<T>) return toText<T>;
  return nullptr;
}

template <typename Key>
int32_t compareKeys(const void *a, const void *b) {
  return std::memcmp(a, b, Codec<Key>::size);
}

}  // namespace detail
COAPRPC_END
#endif /* COAP_RPC_CPP_VALUE_HPP */
