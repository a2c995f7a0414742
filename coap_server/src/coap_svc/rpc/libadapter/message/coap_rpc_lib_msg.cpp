#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <memory>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_own.h"

namespace {

using namespace coap_rpc;

constexpr size_t kHostTextSize = 256;   // Uri-Host has at most 255 characters
constexpr size_t kEncodedCharSize = 4;  // "%2F"

const coap_opt_t *FindOption(const coap_pdu_t *pdu, coap_option_num_t number) {
  coap_opt_iterator_t it;
  return coap_check_option(pdu, number, &it);
}

uint32_t UintOf(const coap_opt_t *option) {
  return coap_decode_var_bytes(coap_opt_value(option), coap_opt_length(option));
}

void FillIpv4(CoapRpcIpAddr *addr, in_addr_t networkOrder) {
  addr->family = COAP_RPC_IPV4;
  addr->addr.ipv4 = ntohl(networkOrder);
}

void FillIpv6(CoapRpcIpAddr *addr, const in6_addr &ipv6) {
  if (IN6_IS_ADDR_V4MAPPED(&ipv6)) {
    in_addr_t networkOrder;
    memcpy(&networkOrder, &ipv6.s6_addr[12], sizeof(networkOrder));
    FillIpv4(addr, networkOrder);
    return;
  }
  addr->family = COAP_RPC_IPV6;
  memcpy(addr->addr.ipv6, ipv6.s6_addr, sizeof(addr->addr.ipv6));
}

const coap_address_t *FillAddr(const coap_address_t *from, CoapRpcIpAddr *addr) {
  if (!from) return nullptr;
  if (from->addr.sa.sa_family == AF_INET) FillIpv4(addr, from->addr.sin.sin_addr.s_addr);
  if (from->addr.sa.sa_family == AF_INET6) FillIpv6(addr, from->addr.sin6.sin6_addr);
  return from;
}

// OptionRow is one option that a message description knows; its index is its bit in optMask.
struct COAP_RPC_PACKED OptionRow {
  uint32_t number;
  void (*parse)(uint32_t index, const coap_opt_t *option, CoapRpcMsgOptions *opt);
};

constexpr OptionRow kOptionRows[] = {
    {COAP_OPTION_ETAG, COAP_RpcParseETag},
    {COAP_OPTION_OBSERVE, nullptr},
    {COAP_OPTION_URI_PATH, nullptr},  // never mapped to: bit 2 belongs to Uri-Query, deliberately
    {COAP_OPTION_CONTENT_FORMAT, COAP_RpcParseFormat},
};
constexpr uint32_t kNumOptionRows = std::size(kOptionRows);

void ParseOption(uint32_t number, const coap_opt_t *option, uint32_t (&counts)[kNumOptionRows],
                 CoapRpcMsgOptions *opt) {
  const uint32_t row = CoapRpcOptionNum2Type(number);
  if (row >= kNumOptionRows || kOptionRows[row].number != number) return;
  if (kOptionRows[row].parse) kOptionRows[row].parse(counts[row], option, opt);
  ++counts[row];
  opt->optMask |= 1U << row;
}

void ParseQuery(const coap_pdu_t *pdu, CoapRpcMsgOptions *opt) {
  const CoapString query(coap_get_query(pdu));
  if (!query) return;
  opt->optMask |= COAP_RPC_OPT_QUERY;
  strcpy_s(opt->query, sizeof(opt->query), reinterpret_cast<const char *>(query->s));
}

bool IsUnreserved(char c) {
  return isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.' ||
         c == '~';
}

// EncodeChar writes one character.  Returns the bytes written, or -1 when they do not fit.
int32_t EncodeChar(char *out, uint32_t room, char c) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  if (IsUnreserved(c)) {
    *out = c;
    return 1;
  }
  const auto byte = static_cast<unsigned char>(c);
  // The formatter takes buffers of limited size only; a triple needs no more than this.
  const size_t size = std::min<size_t>(room, kEncodedCharSize);
  const int len = sprintf_s(out, size, "%%%c%c", kHex[byte >> 4], kHex[byte & 0x0F]);
  return len < 0 || static_cast<size_t>(len) >= size ? -1 : len;
}

}  // namespace

uint32_t COAP_RpcSetAddress(coap_address_t *out, const CoapRpcIpAddr *addr, uint16_t port) {
  coap_address_init(out);
  if (addr->family == COAP_RPC_IPV4) {
    out->size = sizeof(out->addr.sin);
    out->addr.sin.sin_family = AF_INET;
    out->addr.sin.sin_port = htons(port);
    out->addr.sin.sin_addr.s_addr = htonl(addr->addr.ipv4);
  } else if (addr->family == COAP_RPC_IPV6) {
    out->size = sizeof(out->addr.sin6);
    out->addr.sin6.sin6_family = AF_INET6;
    out->addr.sin6.sin6_port = htons(port);
    memcpy(out->addr.sin6.sin6_addr.s6_addr, addr->addr.ipv6, sizeof(addr->addr.ipv6));
  }
  return 0;
}

void COAP_RpcSetPort(uint32_t *protocol, uint16_t) { *protocol = COAP_PROTO_UDP; }

void COAP_RpcSetMediaType(uint32_t *mediaType, uint32_t) {
  *mediaType = COAP_MEDIATYPE_APPLICATION_JSON;
}

void COAP_RpcSetUriPath(CoapRpcCtx *, coap_pdu_t *pdu, const char *path) {
  if (*path == '\0') return;
  for (const char *start = path;; ++start) {
    const size_t len = strcspn(start, "/");
    coap_add_option(pdu, COAP_OPTION_URI_PATH, len, reinterpret_cast<const uint8_t *>(start));
    start += len;
    if (*start == '\0') return;
  }
}

uint32_t COAP_RpcGetUriStr(const coap_pdu_t *pdu, char *buf, uint32_t len) {
  const CoapString path(coap_get_uri_path(pdu));
  if (!path) return Code(kSiteGetUriStrNoPath);
  if (len < 2 * path->length) return Code(kSiteGetUriStrTooLong);
  // A text as long as the string functions take is refused, whatever the buffer's size.
  if (path->length >= std::min<size_t>(len, RSIZE_MAX_STR)) return Code(kSiteGetUriStrFormat);
  memcpy(buf, path->s, path->length);
  buf[path->length] = '\0';
  return 0;
}

uint32_t COAP_RpcGetMsgType(const coap_pdu_t *pdu, uint32_t *msgType) {
  const coap_pdu_type_t type = coap_pdu_get_type(pdu);
  *msgType = type == COAP_MESSAGE_ACK ? COAP_MESSAGE_CON : type;
  return 0;
}

uint32_t COAP_RpcGetCodeType(const coap_pdu_t *pdu, uint32_t *codeType) {
  *codeType = coap_pdu_get_code(pdu);
  return 0;
}

uint32_t COAP_RpcGetObserveOption(const coap_pdu_t *pdu, uint32_t *isRegister) {
  *isRegister = 0;
  const coap_opt_t *option = FindOption(pdu, COAP_OPTION_OBSERVE);
  if (!option) return 0;
  *isRegister = UintOf(option) == COAP_OBSERVE_ESTABLISH;
  return 1;
}

uint32_t COAP_RpcCheckObserveOption(const coap_pdu_t *pdu) {
  return FindOption(pdu, COAP_OPTION_OBSERVE) ? 1 : 0;
}

const coap_address_t *COAP_RpcGetRemoteAddr(const coap_session_t *session, CoapRpcIpAddr *addr) {
  return FillAddr(coap_session_get_addr_remote(session), addr);
}

const coap_address_t *COAP_RpcGetLocalAddr(const coap_session_t *session, CoapRpcIpAddr *addr) {
  return FillAddr(coap_session_get_addr_local(session), addr);
}

uint32_t Coap_RpcGetUriHostIp(CoapRpcCtx *ctx, const char *text) {
  uint32_t a = 0;
  uint32_t b = 0;
  uint32_t c = 0;
  uint32_t d = 0;
  if (sscanf_s(text, "%u.%u.%u.%u", &a, &b, &c, &d) != 4) {
    COAP_RPC_LOG(ctx->log, kLogGetUriHostIpFailed, "[CoapRpc]app parse uri host failed.\n");
    return 0;
  }
  COAP_RPC_DEBUG(ctx, "[CoapRpc]ser get request URI_HOST success. ip:%u.%u.%u.%u.\n", a, b, c, d);
  return (a << 24) + (b << 16) + (c << 8) + d;
}

uint32_t Coap_RpcGetListenIp(CoapRpcCtx *ctx, const coap_pdu_t *pdu,
                             const coap_session_t *session) {
  if (session) {
    CoapRpcIpAddr local = {};
    COAP_RpcGetLocalAddr(session, &local);
    return local.family == COAP_RPC_IPV4 ? local.addr.ipv4 : 0;
  }
  char text[kHostTextSize] = {};
  if (const coap_opt_t *host = FindOption(pdu, COAP_OPTION_URI_HOST)) {
    memcpy(text, coap_opt_value(host), std::min<size_t>(coap_opt_length(host), sizeof(text) - 1));
  }
  return Coap_RpcGetUriHostIp(ctx, text);
}

uint32_t CoapRpcOptionNum2Type(uint32_t number) {
  switch (number) {
    case COAP_OPTION_ETAG:
      return 0;
    case COAP_OPTION_OBSERVE:
      return 1;
    case COAP_OPTION_CONTENT_FORMAT:
      return 3;
    default:
      return kNumOptionRows;
  }
}

void COAP_RpcParseOptions(const coap_pdu_t *pdu, CoapRpcMsgOptions *opt) {
  if (!pdu || !opt) return;
  uint32_t counts[kNumOptionRows] = {};
  coap_opt_iterator_t it;
  bool hasQuery = false;
  coap_option_iterator_init(pdu, &it, COAP_OPT_ALL);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    ParseOption(it.number, option, counts, opt);
    hasQuery |= it.number == COAP_OPTION_URI_QUERY;
  }
  if (hasQuery) ParseQuery(pdu, opt);
}

void COAP_RpcParseETag(uint32_t index, const coap_opt_t *option, CoapRpcMsgOptions *opt) {
  if (index >= 1) return;
  opt->etag = coap_decode_var_bytes8(coap_opt_value(option), coap_opt_length(option));
}

void COAP_RpcParseFormat(uint32_t, const coap_opt_t *option, CoapRpcMsgOptions *opt) {
  opt->format = static_cast<uint8_t>(UintOf(option));
}

CoapRpcMsgInfo COAP_RpcGetMsgInfo(const coap_pdu_t *pdu, const coap_session_t *session) {
  CoapRpcMsgInfo info = {};
  COAP_RpcGetRemoteAddr(session, &info.peer);
  info.msgType = coap_pdu_get_type(pdu);
  info.code = coap_pdu_get_code(pdu);
  COAP_RpcParseOptions(pdu, &info.opt);
  return info;
}

int32_t Coap_RpcPrecentEncode(char *out, uint32_t outLen, const char *in) {
  if (*in == '\0') return 0;
  uint32_t written = 0;
  while (written < outLen) {
    const int32_t len = EncodeChar(out + written, outLen - written, *in);
    if (len < 0) return -1;
    written += static_cast<uint32_t>(len);
  }
  return static_cast<int32_t>(written);
}

CoapRpcPayload *COAP_RpcNewPayload(CoapRpcCtx *ctx, const void *data, uint32_t len) {
  const size_t size = size_t{len} + kPayloadSpareBytes;
  auto payload = NewZeroed<CoapRpcPayload>(ctx->param.memHandle, size);
  if (!payload) return nullptr;
  payload->memHandle = ctx->param.memHandle;
  payload->len = len;
  if (len != 0 && memcpy_s(payload->data, size, data, len) != 0) return nullptr;
  return payload.release();
}

void COAP_RpcFreePayload(CoapRpcPayload *payload) {
  if (payload && payload->memHandle != 0) PoolFree(payload->memHandle, payload);
}
