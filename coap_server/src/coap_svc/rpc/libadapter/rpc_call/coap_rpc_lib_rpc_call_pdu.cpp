#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_pdu.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "libcoap/ext/coap_rpc_lib_end_request.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

using Text = std::string_view;

constexpr size_t kMaxPart = 255;  // of a path segment or a query argument, RFC 7252 section 5.10
constexpr uint32_t kMaxFormat = 65535;
constexpr uint32_t kMaxTags = 128;  // as many as fit a message
constexpr size_t kMaxOptionHead = 5;
constexpr uint32_t kPerClass = 100;

// What libcoap adds to a message later: block options of the answer, and with a payload in blocks
// those of the request and a nonce that the server may ask for.
constexpr size_t kAnswerRoom = 16;
constexpr size_t kBlocksRoom = 128;

Text TextOf(const char *text) { return text ? Text(text) : Text(); }

// PathOf returns the segments of a path, joined by slashes.
Text PathOf(const CoapRpcCall &call) {
  const Text path = TextOf(call.path);
  return path.empty() || path[0] != '/' ? path : path.substr(1);
}

// EachPart calls `visit` with the parts between separators until it returns false.  An empty text
// has none.
template <typename Visit>
bool EachPart(Text text, char separator, Visit visit) {
  if (text.empty()) return true;
  for (;;) {
    const size_t end = text.find(separator);
    if (!visit(text.substr(0, end))) return false;
    if (end == Text::npos) return true;
    text.remove_prefix(end + 1);
  }
}

bool HasShortParts(Text text, char separator) {
  return EachPart(text, separator, [](Text part) { return part.size() <= kMaxPart; });
}

bool AreTags(const CoapRpcCallEtag *tags, uint32_t num, uint32_t minLen) {
  if (num > kMaxTags || (num != 0 && !tags)) return false;
  return std::all_of(tags, tags + num, [minLen](const CoapRpcCallEtag &tag) {
    return tag.len >= minLen && tag.len <= sizeof(tag.bytes);
  });
}

bool IsFormat(const CoapRpcCall &call, uint32_t bit, uint32_t format) {
  return (call.has & bit) == 0 || format <= kMaxFormat;
}

bool HasGoodOptions(const CoapRpcCall &call) {
  return AreTags(call.etags, call.numEtags, 1) && AreTags(call.ifMatch, call.numIfMatch, 0) &&
         IsFormat(call, COAP_RPC_CALL_HAS_FORMAT, call.contentFormat) &&
         IsFormat(call, COAP_RPC_CALL_HAS_ACCEPT, call.accept);
}

bool HasGoodPayload(const CoapRpcCall &call) {
  return call.payloadLen <= COAP_RPC_MAX_CALL_PAYLOAD && (call.payload || call.payloadLen == 0);
}

// Builder adds options in the order of their numbers, until one does not fit or there is no memory.
class Builder {
 public:
  explicit Builder(coap_pdu_t *pdu) : pdu_(pdu) {}

  uint32_t Result() const { return result_; }

  bool Add(coap_option_num_t number, size_t len, const void *value) {
    if (result_ != 0) return false;
    if (coap_add_option(pdu_, number, len, static_cast<const uint8_t *>(value)) != 0) return true;
    const bool isMemory = CoapRpcLibFits(pdu_, len + kMaxOptionHead) != 0;
    result_ = Code(isMemory ? kSiteCallNoMemory : kSiteCallTooLong);
    return false;
  }

  void AddUint(coap_option_num_t number, uint32_t value) {
    uint8_t bytes[sizeof(value)];
    Add(number, coap_encode_var_safe(bytes, sizeof(bytes), value), bytes);
  }

  void AddTags(coap_option_num_t number, const CoapRpcCallEtag *tags, uint32_t num) {
    for (uint32_t i = 0; i < num; ++i) Add(number, tags[i].len, tags[i].bytes);
  }

  void AddParts(coap_option_num_t number, Text text, char separator) {
    EachPart(text, separator, [&](Text part) { return Add(number, part.size(), part.data()); });
  }

 private:
  coap_pdu_t *pdu_;
  uint32_t result_ = 0;
};

void AddOptions(Builder *builder, const CoapRpcCall &call, bool isObserve) {
  builder->AddTags(COAP_OPTION_IF_MATCH, call.ifMatch, call.numIfMatch);
  builder->AddTags(COAP_OPTION_ETAG, call.etags, call.numEtags);
  if ((call.has & COAP_RPC_CALL_HAS_IF_NONE_MATCH) != 0) {
    builder->Add(COAP_OPTION_IF_NONE_MATCH, 0, nullptr);
  }
  if (isObserve) builder->AddUint(COAP_OPTION_OBSERVE, COAP_OBSERVE_ESTABLISH);
  builder->AddParts(COAP_OPTION_URI_PATH, PathOf(call), '/');
  if ((call.has & COAP_RPC_CALL_HAS_FORMAT) != 0 && call.payloadLen != 0) {
    builder->AddUint(COAP_OPTION_CONTENT_FORMAT, call.contentFormat);
  }
  builder->AddParts(COAP_OPTION_URI_QUERY, TextOf(call.query), '&');
  if ((call.has & COAP_RPC_CALL_HAS_ACCEPT) != 0) {
    builder->AddUint(COAP_OPTION_ACCEPT, call.accept);
  }
}

bool HasRoom(const coap_pdu_t *pdu, uint32_t payloadLen) {
  const bool isInBlocks = CoapRpcLibFits(pdu, payloadLen) == 0;
  return CoapRpcLibFits(pdu, isInBlocks ? kBlocksRoom : kAnswerRoom) != 0;
}

uint32_t Fill(coap_pdu_t *pdu, const CoapRpcCall &call, const coap_bin_const_t &token,
              bool isObserve) {
  if (coap_add_token(pdu, token.length, token.s) == 0) return Code(kSiteCallNoMemory);
  Builder builder(pdu);
  AddOptions(&builder, call, isObserve);
  if (builder.Result() != 0) return builder.Result();
  return HasRoom(pdu, call.payloadLen) ? 0 : Code(kSiteCallTooLong);
}

// ReleasePayload is libcoap's call when a payload in blocks is done with.
void ReleasePayload(coap_session_t *, void *payload) {
  COAP_RpcFreePayload(static_cast<CoapRpcPayload *>(payload));
}

bool ReadUint(const coap_pdu_t *pdu, coap_option_num_t number, uint32_t *out) {
  coap_opt_iterator_t it;
  const coap_opt_t *opt = coap_check_option(pdu, number, &it);
  if (!opt) return false;
  *out = coap_decode_var_bytes(coap_opt_value(opt), coap_opt_length(opt));
  return true;
}

void ReadEtag(const coap_pdu_t *pdu, CoapRpcCallEtag *out) {
  coap_opt_iterator_t it;
  const coap_opt_t *opt = coap_check_option(pdu, COAP_OPTION_ETAG, &it);
  const size_t len = opt ? coap_opt_length(opt) : 0;
  if (len == 0 || len > sizeof(out->bytes)) return;
  out->len = static_cast<uint32_t>(len);
  memcpy(out->bytes, coap_opt_value(opt), len);
}

void ReadPayload(const coap_pdu_t *pdu, CoapRpcCallRsp *rsp) {
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(pdu, &len, &data) == 0 || len == 0) return;
  rsp->payload = data;
  rsp->payloadLen = static_cast<uint32_t>(len);
}

template <typename Visit>
void EachLocation(const coap_pdu_t *pdu, Visit visit) {
  coap_opt_filter_t filter;
  coap_opt_iterator_t it;
  coap_option_filter_clear(&filter);
  coap_option_filter_set(&filter, COAP_OPTION_LOCATION_PATH);
  coap_option_iterator_init(pdu, &it, &filter);
  while (const coap_opt_t *opt = coap_option_next(&it)) {
    visit(Text(reinterpret_cast<const char *>(coap_opt_value(opt)), coap_opt_length(opt)));
  }
}

size_t LengthOfLocation(const coap_pdu_t *pdu) {
  size_t len = 0;
  EachLocation(pdu, [&len](Text segment) { len += segment.size() + 1; });
  return len;
}

}  // namespace

uint32_t CheckCall(const CoapRpcCall &call) {
  if (call.method < COAP_RPC_GET || call.method > COAP_RPC_IPATCH) return Code(kSiteCallBadMethod);
  if (!HasShortParts(PathOf(call), '/')) return Code(kSiteCallBadPath);
  if (!HasShortParts(TextOf(call.query), '&')) return Code(kSiteCallBadQuery);
  if (!HasGoodOptions(call)) return Code(kSiteCallBadOption);
  return HasGoodPayload(call) ? 0 : Code(kSiteCallBadPayload);
}

uint32_t BuildCall(coap_session_t *session, const CoapRpcCall &call, const coap_bin_const_t &token,
                   bool isObserve, coap_pdu_t **out) {
  const auto type = call.isNon != 0 ? COAP_MESSAGE_NON : COAP_MESSAGE_CON;
  coap_pdu_t *pdu = coap_pdu_init(type, static_cast<coap_pdu_code_t>(call.method), 0,
                                  coap_session_max_pdu_size(session));
  if (!pdu) return Code(kSiteCallNoMemory);
  CoapRpcLibMakeCall(pdu, kCallMaxRetransmit);
  const uint32_t ret = Fill(pdu, call, token, isObserve);
  if (ret != 0) {
    coap_delete_pdu(pdu);
  } else {
    *out = pdu;
  }
  return ret;
}

bool AddCallBlocks(coap_session_t *session, coap_pdu_t *pdu, CoapRpcPayload *payload) {
  return !payload || coap_add_data_large_request(session, pdu, payload->len, payload->data,
                                                 ReleasePayload, payload) != 0;
}

void ReadAnswer(const coap_pdu_t *pdu, CoapRpcCallRsp *rsp) {
  const coap_pdu_code_t code = coap_pdu_get_code(pdu);
  rsp->code = (code >> 5) * kPerClass + (code & 0x1f);
  if (ReadUint(pdu, COAP_OPTION_CONTENT_FORMAT, &rsp->contentFormat)) {
    rsp->has = COAP_RPC_CALL_HAS_FORMAT;
  }
  rsp->maxAge = COAP_DEFAULT_MAX_AGE;
  ReadUint(pdu, COAP_OPTION_MAXAGE, &rsp->maxAge);
  ReadEtag(pdu, &rsp->etag);
  ReadPayload(pdu, rsp);
}

char *LocationOf(CoapRpcCtx *ctx, const coap_pdu_t *pdu) {
  const size_t len = LengthOfLocation(pdu);
  if (len == 0) return nullptr;
  auto *out = static_cast<char *>(PoolAlloc(ctx->param.memHandle, len));
  if (!out) return nullptr;
  char *end = out;
  EachLocation(pdu, [&end](Text segment) {
    end = std::copy(segment.begin(), segment.end(), end);
    *end++ = '/';
  });
  end[-1] = '\0';
  return out;
}

}  // namespace coap_rpc
