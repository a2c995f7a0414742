#include "coap3/coap_internal.h"

#include "libcoap/ext/coap_rpc_lib_quoted.h"

#include <errno.h>
#include <linux/errqueue.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include "libcoap/ext/coap_rpc_lib_end_request.h"

enum {
  kHeaderLen = 4,
  kMaxTokenLen = 8,
  kUnknownHost = 7, /* ICMP codes from here on are final, but those of a kind of service */
  kNetworkForKind = 11,
  kHostForKind = 12
};

void CoapRpcLibQuoteErrors(coap_session_t *session) {
  const int on = 1;
  const int isIpv4 = session->addr_info.remote.addr.sa.sa_family == AF_INET;
  const int level = isIpv4 ? IPPROTO_IP : IPPROTO_IPV6;
  if (session->quotes_errors || !session->context->error_handler) return;
  session->quotes_errors =
      setsockopt(session->sock.fd, level, isIpv4 ? IP_RECVERR : IPV6_RECVERR, &on, sizeof(on)) == 0;
}

int CoapRpcLibQuotesErrors(const coap_session_t *session) { return session->quotes_errors; }

void CoapRpcLibSetErrors(coap_context_t *coapCtx, CoapRpcLibErrors errors) {
  coapCtx->error_handler = errors;
}

static int IsFinalCode(const struct sock_extended_err *error) {
  if (error->ee_origin != SO_EE_ORIGIN_ICMP || error->ee_code < kUnknownHost) return 0;
  return error->ee_code != kNetworkForKind && error->ee_code != kHostForKind;
}

/* A socket without a queue of errors is told of the same ones. */
static int IsFinal(const struct sock_extended_err *error) {
  const int isRefused = error->ee_errno == ECONNREFUSED || error->ee_errno == EACCES;
  const int isOfNetwork =
      error->ee_origin == SO_EE_ORIGIN_ICMP || error->ee_origin == SO_EE_ORIGIN_ICMP6;
  return isOfNetwork && (isRefused || IsFinalCode(error));
}

static const struct sock_extended_err *ErrorOf(struct msghdr *message) {
  struct cmsghdr *each = CMSG_FIRSTHDR(message);
  for (; each; each = CMSG_NXTHDR(message, each)) {
    const int isIpv4 = each->cmsg_level == IPPROTO_IP && each->cmsg_type == IP_RECVERR;
    const int isIpv6 = each->cmsg_level == IPPROTO_IPV6 && each->cmsg_type == IPV6_RECVERR;
    if (isIpv4 || isIpv6) return (const struct sock_extended_err *)(const void *)CMSG_DATA(each);
  }
  return NULL;
}

/* HasRequest says whether these are a method and the token after it, both whole. */
static int HasRequest(const uint8_t *bytes, size_t len) {
  if (len < kHeaderLen) return 0;
  const size_t tokenLen = bytes[0] & 0xf;
  const int isMethod = bytes[1] != 0 && bytes[1] >> 5 == 0;
  return isMethod && tokenLen <= kMaxTokenLen && len >= kHeaderLen + tokenLen;
}

static void ReadRequest(const coap_session_t *session, const uint8_t *bytes,
                        CoapRpcLibQuoted *out) {
  const coap_bin_const_t own = {bytes[0] & 0xf, bytes + kHeaderLen};
  const coap_bin_const_t owner = CoapRpcLibTokenOwner(session, &own);
  if (owner.length > sizeof(out->token)) return;
  out->isRequest = 1;
  out->tokenLen = owner.length;
  memcpy(out->token, owner.s, owner.length);
}

int CoapRpcLibNextQuoted(const coap_session_t *session, CoapRpcLibQuoted *out) {
  uint8_t bytes[kHeaderLen + kMaxTokenLen];
  _Alignas(struct cmsghdr) uint8_t control[256];
  struct iovec part = {bytes, sizeof(bytes)};
  struct msghdr message = {
      .msg_iov = &part, .msg_iovlen = 1, .msg_control = control, .msg_controllen = sizeof(control)};
  const ssize_t len = recvmsg(session->sock.fd, &message, MSG_ERRQUEUE | MSG_DONTWAIT);
  memset(out, 0, sizeof(*out));
  if (len < 0) return 0;
  const struct sock_extended_err *error = ErrorOf(&message);
  out->isFinal = error && IsFinal(error) ? 1 : 0;
  if (HasRequest(bytes, (size_t)len)) ReadRequest(session, bytes, out);
  return 1;
}
