#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"

#include <cctype>
#include <cstring>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

namespace {

using namespace coap_rpc;

// Path is a message's path as libcoap writes it.  It takes no memory: an observer that comes or
// goes is counted whether or not there is any.
class Path {
 public:
  explicit Path(const coap_pdu_t *pdu) {
    coap_opt_iterator_t it;
    coap_option_iterator_init(pdu, &it, COAP_OPT_ALL);
    const char *separator = "";
    while (const coap_opt_t *option = coap_option_next(&it)) {
      if (it.number != COAP_OPTION_URI_PATH) continue;
      Put(separator);
      separator = "/";
      const uint8_t *segment = coap_opt_value(option);
      for (uint32_t i = 0; i < coap_opt_length(option); ++i) PutEncoded(segment[i]);
    }
  }

  bool Fits() const { return fits_; }
  const char *c_str() const { return text_; }

 private:
  static constexpr size_t kMaxLen = kPathTextSize / 2;  // the margin of COAP_RpcGetUriStr

  static bool IsPlain(uint8_t byte) {
    return byte != 0 && byte < 0x80 &&
           (std::isalnum(byte) != 0 || strchr("-._~!$'()*+,;=:@&", byte));
  }

  void PutEncoded(uint8_t byte) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    const char encoded[] = {'%', kHex[byte >> 4], kHex[byte & 0x0F], '\0'};
    const char plain[] = {static_cast<char>(byte), '\0'};
    Put(IsPlain(byte) ? plain : encoded);
  }

  void Put(const char *text) {
    const size_t len = strlen(text);
    fits_ = fits_ && len_ + len <= kMaxLen;
    if (!fits_) return;
    memcpy(text_ + len_, text, len);
    len_ += len;
  }

  char text_[kMaxLen + 1] = {};
  size_t len_ = 0;
  bool fits_ = true;
};

// BuildKey makes the DEFAULT key of a message; false when its path does not fit.
bool BuildKey(const coap_pdu_t *pdu, CoapRpcUriKey *key) {
  const Path path(pdu);
  if (!path.Fits() || strcpy_s(key->uri, sizeof(key->uri), path.c_str()) != 0) return false;
  uint32_t msgType = 0;
  COAP_RpcGetMsgType(pdu, &msgType);
  key->msgType = msgType;
  key->observe = COAP_RpcCheckObserveOption(pdu);
  key->pktType = COAP_RPC_DEFAULT;
  return true;
}

// OfOtherType returns a key for messages of the other type.
CoapRpcUriKey OfOtherType(CoapRpcUriKey key) {
  key.msgType = key.msgType == COAP_RPC_CON ? COAP_RPC_NON : COAP_RPC_CON;
  return key;
}

// FindEither finds a key in a side's table, then with the other message type.
template <typename Side>
auto FindEither(Side *side, const CoapRpcUriKey &key) {
  auto *found = side->findUriVtbl(side, &key);
  if (found || key.msgType > COAP_RPC_NON) return found;
  const CoapRpcUriKey other = OfOtherType(key);
  return side->findUriVtbl(side, &other);
}

template <typename Side>
bool IsReady(const Side *side) {
  return side && side->findUriVtbl;
}

// LocalAddrOf gives the address that a message came in on; `ip` is what Coap_RpcGetListenIp says.
CoapRpcIpAddr LocalAddrOf(const coap_session_t *session, uint32_t ip) {
  CoapRpcIpAddr local = {};
  if (session) {
    COAP_RpcGetLocalAddr(session, &local);
  } else {
    local.family = COAP_RPC_IPV4;
    local.addr.ipv4 = ip;
  }
  return local;
}

// FindBound finds an entry of one packet type that is attached to the local address.
CoapRpcSerUriVtbl *FindBound(CoapRpcSerData *ser, CoapRpcUriKey *key, uint32_t pktType,
                             const CoapRpcIpAddr &local) {
  key->pktType = pktType;
  CoapRpcSerUriVtbl *entry = ser->findUriVtbl(ser, key);
  if (!entry || !entry->listen) return nullptr;
  return COAP_RpcAddrCmp(&entry->listen->key.listenAddr, &local) == 0 ? entry : nullptr;
}

CoapRpcSerUriVtbl *FindOnListen(CoapRpcCtx *ctx, CoapRpcUriKey *key, const coap_pdu_t *pdu,
                                const coap_session_t *session) {
  const uint32_t ip = Coap_RpcGetListenIp(ctx, pdu, session);
  const CoapRpcIpAddr local = LocalAddrOf(session, ip);
  CoapRpcSerUriVtbl *entry = FindBound(ctx->ser, key, COAP_RPC_UNICAST, local);
  if (!entry) entry = FindBound(ctx->ser, key, COAP_RPC_BROADCAST, local);
  if (entry) COAP_RpcLogVTbl(ctx, key, ip);
  return entry;
}

// FindServed finds the entry of a request by its key.
CoapRpcSerUriVtbl *FindServed(CoapRpcCtx *ctx, CoapRpcUriKey *key, const coap_pdu_t *pdu,
                              const coap_session_t *session) {
  uint32_t code = 0;
  COAP_RpcGetCodeType(pdu, &code);
  COAP_RPC_DEBUG(ctx, "[CoapRpc]server get vtbl, uri:%s, msgType:%u, observe:%u.\n",
                 UriText(key->uri).c_str(), key->msgType, key->observe);
  if (code != COAP_RPC_POST || CoapRpcLibIsDynamicMac(key) != 0) {
    CoapRpcSerUriVtbl *entry = FindEither(ctx->ser, *key);
    if (entry) return entry;
  }
  return FindOnListen(ctx, key, pdu, session);
}

}  // namespace

const char *CoapRpcLibPathOf(const coap_pdu_t *pdu, char *path) {
  const Path found(pdu);
  const bool isCopied = found.Fits() && strcpy_s(path, COAP_RPC_URI_SIZE, found.c_str()) == 0;
  if (!isCopied) *path = '\0';
  return path;
}

uint32_t CoapRpcLibIsDynamicMac(const CoapRpcUriKey *key) {
  return strncmp(key->uri, "terminals/dynamic-mac", sizeof(key->uri)) == 0;
}

CoapRpcCliUriVtbl *COAP_RpcCliGetVtbl(CoapRpcCtx *ctx, const coap_pdu_t *pdu) {
  CoapRpcUriKey key = {};
  if (!IsReady(ctx->cli) || !BuildKey(pdu, &key)) return nullptr;
  COAP_RPC_DEBUG(ctx, "[CoapRpc]client get vtbl, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(key));
  if (CoapRpcLibIsDynamicMac(&key) != 0) key.pktType = COAP_RPC_BROADCAST;
  return FindEither(ctx->cli, key);
}

CoapRpcSerUriVtbl *COAP_RpcSerGetVtbl(CoapRpcCtx *ctx, const coap_pdu_t *pdu,
                                      const coap_session_t *session) {
  CoapRpcUriKey key = {};
  return IsReady(ctx->ser) && BuildKey(pdu, &key) ? FindServed(ctx, &key, pdu, session) : nullptr;
}

coap_resource_t *CoapRpcLibResourceOf(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry) {
  if (!ctx->lib || !ctx->lib->coapCtx) return nullptr;
  const UriText uri(entry->key.uri);
  coap_str_const_t path{strlen(uri.c_str()), reinterpret_cast<const uint8_t *>(uri.c_str())};
  return coap_get_resource_from_uri_path(ctx->lib->coapCtx, &path);
}

CoapRpcSerUriVtbl *CoapRpcLibObservableVtbl(CoapRpcCtx *ctx, const coap_pdu_t *pdu,
                                            const coap_session_t *session, uint32_t isOfOtherType) {
  CoapRpcUriKey key = {};
  if (!IsReady(ctx->ser) || !BuildKey(pdu, &key)) return nullptr;
  if (isOfOtherType != 0) key = OfOtherType(key);
  key.observe = 1;
  return FindServed(ctx, &key, pdu, session);
}

CoapRpcSerUriVtbl *CoapRpcLibFindObservable(CoapRpcCtx *ctx, const coap_pdu_t *pdu,
                                            int (*is)(CoapRpcSerUriVtbl *entry, const void *arg),
                                            const void *arg) {
  CoapRpcUriKey key = {};
  if (!IsReady(ctx->ser) || !BuildKey(pdu, &key)) return nullptr;
  key.observe = 1;
  constexpr uint32_t kMsgTypes = 2, kPktTypes = 3;
  for (uint32_t i = 0; i < kMsgTypes * kPktTypes; ++i) {
    key.msgType = i % kMsgTypes;
    key.pktType = i / kMsgTypes;
    CoapRpcSerUriVtbl *entry = ctx->ser->findUriVtbl(ctx->ser, &key);
    if (entry && is(entry, arg) != 0) return entry;
  }
  return nullptr;
}

CoapRpcSerUriVtbl *COAP_RpcSerGetVtblByFuzzyMsgType(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  return IsReady(ctx->ser) ? FindEither(ctx->ser, *key) : nullptr;
}

uint32_t COAP_GetRpcAndSerUriVtbl(coap_resource_t *resource, const coap_session_t *session,
                                  const coap_pdu_t *pdu, CoapRpcCtx **ctx,
                                  CoapRpcSerUriVtbl **entry) {
  *ctx = static_cast<CoapRpcCtx *>(coap_resource_get_userdata(resource));
  if (!*ctx) return Code(kSiteLookupNoRoot);
  *entry = COAP_RpcSerGetVtbl(*ctx, pdu, session);
  return *entry ? 0 : Code(kSiteLookupNoEntry);
}

void COAP_RpcLogVTbl(CoapRpcCtx *ctx, const CoapRpcUriKey *key, uint32_t ipv4) {
  COAP_RPC_DEBUG(ctx, "[CoapRpc]server getvtbl uni, uri:%s, msgT:%u, ob:%u, pkt:%u, ip:0x%x.\n",
                 COAP_RPC_KEY_ARGS(*key), ipv4);
}
