#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_link.h"

#include <cstring>
#include <string_view>

#include "coap_svc/rpc/common/coap_rpc_limits.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kFormats = 2, kTitle = 3;
constexpr char kDigits[] = "0123456789";

bool IsPlain(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= ' ' && byte != 0x7F && c != '"' && c != '\\';
}

// HasWords says whether single spaces separate words.
bool HasWords(const char *value, size_t len) {
  return value[0] != ' ' && value[len - 1] != ' ' && !strstr(value, "  ");
}

bool HasFormats(const char *value, size_t len) { return strspn(value, "0123456789 ") == len; }

// One format is a bare number, several are a quoted list (RFC 7252, section 7.2.1).
bool IsBare(uint32_t kind, const char *value) {
  return kind == kFormats && value[strspn(value, kDigits)] == '\0';
}

}  // namespace

uint32_t FindLink(const char *name) {
  uint32_t kind = 0;
  while (kind < kNumLinks && strcmp(name, kLinkNames[kind]) != 0) ++kind;
  return kind;
}

bool IsLinkValue(uint32_t kind, const char *value) {
  const size_t len = strnlen(value, kMaxLinkValue + 1);
  if (len == 0 || len > kMaxLinkValue) return false;
  for (size_t i = 0; i < len; ++i) {
    if (!IsPlain(value[i])) return false;
  }
  if (kind != kTitle && !HasWords(value, len)) return false;
  return kind != kFormats || HasFormats(value, len);
}

PoolPtr<char> NewLinkText(CoapRpcCtx *ctx, uint32_t kind, const char *value) {
  const uint64_t mem = ctx->param.memHandle;
  if (!value) return {nullptr, {mem}};
  const std::string_view quote = IsBare(kind, value) ? "" : "\"";
  const size_t len = strlen(value);
  PoolPtr<char> text(static_cast<char *>(PoolAlloc(mem, len + 2 * quote.size() + 1)), {mem});
  if (!text) return text;
  quote.copy(text.get(), quote.size());
  memcpy(text.get() + quote.size(), value, len);
  quote.copy(text.get() + quote.size() + len, quote.size());
  return text;
}

}  // namespace coap_rpc
