#include "coap3/coap_internal.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "libcoap/ext/coap_rpc_lib_internals.h"

/* WantPacketInfo asks for the local address of each datagram, which a session is known by. */
static int WantPacketInfo(int fd, int family) {
  const int on = 1;
  if (family == AF_INET) return setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof(on));
  if (setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on)) != 0) return -1;
  return setsockopt(fd, IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof(on));
}

/* AddressText is an address and port as text. */
typedef struct AddressText {
  unsigned char text[INET6_ADDRSTRLEN + 8];
} AddressText;

static const char *TextOf(const coap_address_t *addr, AddressText *text) {
  return coap_print_addr(addr, text->text, sizeof(text->text)) ? (const char *)text->text : "?";
}

/* AskForRoom lets a burst of datagrams wait; the kernel gives as much as the machine allows. */
static void AskForRoom(int fd) {
  const int numBytes = 1 << 20;
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &numBytes, sizeof(numBytes)) != 0) {
    coap_log_info("socket keeps its receive buffer: %s\n", coap_socket_strerror());
  }
}

void CoapRpcLibAskForRoom(coap_session_t *session) { AskForRoom(session->sock.fd); }

/* OpenSocket returns a socket of its own at an address, or -1. */
static int OpenSocket(const coap_address_t *addr) {
  const int family = addr->addr.sa.sa_family;
  const int fd = socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd >= 0 && WantPacketInfo(fd, family) == 0 && bind(fd, &addr->addr.sa, addr->size) == 0) {
    AskForRoom(fd);
    return fd;
  }
  const int error = errno;
  const char *reason = coap_socket_strerror();
  AddressText text;
  coap_log_warn("cannot open endpoint %s: %s (errno %d)\n", TextOf(addr, &text), reason, error);
  if (fd >= 0) close(fd);
  return -1;
}

/* Adopt puts a bound socket into an endpoint, in place of the one that is there. */
static void Adopt(coap_endpoint_t *endPoint, int fd) {
  const coap_socket_flags_t flags = endPoint->sock.flags;
  coap_socket_close(&endPoint->sock);
  endPoint->sock.fd = fd;
  endPoint->sock.flags = flags;
  endPoint->sock.endpoint = endPoint;
  endPoint->bind_addr.size = sizeof(endPoint->bind_addr.addr);
  getsockname(fd, &endPoint->bind_addr.addr.sa, &endPoint->bind_addr.size);
  coap_epoll_ctl_add(&endPoint->sock, EPOLLIN, __func__);
  /* libcoap's own line about the endpoint names the port of its own socket. */
  AddressText text;
  coap_log_debug("moved endpoint to %s\n", TextOf(&endPoint->bind_addr, &text));
}

coap_endpoint_t *CoapRpcLibNewEndPoint(coap_context_t *coapCtx, const coap_address_t *addr,
                                       coap_proto_t protocol) {
  const int fd = OpenSocket(addr);
  if (fd < 0) return NULL;
  /* libcoap opens its own socket, at any port, which lives for a moment only. */
  coap_address_t anyPort = *addr;
  coap_address_set_port(&anyPort, 0);
  coap_endpoint_t *endPoint = coap_new_endpoint(coapCtx, &anyPort, protocol);
  if (endPoint) {
    Adopt(endPoint, fd);
  } else {
    close(fd);
  }
  return endPoint;
}

const coap_pdu_t *CoapRpcLibSubscriptionPdu(const coap_subscription_t *subscription) {
  return subscription ? subscription->pdu : NULL;
}

void CoapRpcLibStripQuery(coap_subscription_t *subscription) {
  while (coap_remove_option(subscription->pdu, COAP_OPTION_URI_QUERY)) {
  }
}

void CoapRpcLibDisconnectAll(coap_endpoint_t *endPoint) {
  coap_session_t *session;
  coap_session_t *next;
  SESSIONS_ITER_SAFE(endPoint->sessions, session, next) {
    coap_session_reference(session);
    coap_session_disconnected(session, COAP_NACK_NOT_DELIVERABLE);
    coap_session_release(session);
  }
}

/* Nor is it watched any more: libcoap looks again while many sockets are ready. */
void CoapRpcLibRetire(coap_endpoint_t *endPoint) {
  endPoint->sock.flags &= (coap_socket_flags_t)~COAP_SOCKET_WANT_READ;
  epoll_ctl(endPoint->context->epfd, EPOLL_CTL_DEL, endPoint->sock.fd, NULL);
}

static int IsRetired(const coap_endpoint_t *endPoint) {
  return (endPoint->sock.flags & COAP_SOCKET_WANT_READ) == 0;
}

coap_endpoint_t *CoapRpcLibReclaim(coap_context_t *coapCtx, const coap_address_t *addr) {
  coap_endpoint_t *endPoint;
  LL_FOREACH(coapCtx->endpoint, endPoint) {
    if (!IsRetired(endPoint) || !coap_address_equals(&endPoint->bind_addr, addr)) continue;
    endPoint->sock.flags |= COAP_SOCKET_WANT_READ;
    coap_epoll_ctl_add(&endPoint->sock, EPOLLIN, __func__);
    return endPoint;
  }
  return NULL;
}

static coap_endpoint_t *FirstRetired(coap_context_t *coapCtx) {
  coap_endpoint_t *endPoint;
  LL_FOREACH(coapCtx->endpoint, endPoint) {
    if (IsRetired(endPoint)) return endPoint;
  }
  return NULL;
}

static coap_resource_t *FirstWithoutUserData(coap_context_t *coapCtx) {
  RESOURCES_ITER(coapCtx->resources, resource) {
    if (!resource->user_data) return resource;
  }
  return NULL;
}

static void FreeEndPoint(coap_endpoint_t *endPoint) {
  CoapRpcLibDisconnectAll(endPoint);
  if (IsRetired(endPoint)) coap_free_endpoint(endPoint);
}

/* Callbacks run meanwhile, so each search starts from the beginning.  Sessions go before the
 * resources that they observe.  To the callbacks this is a turn of the I/O, at whose end the
 * answers that they give would leave, but it is not one. */
void CoapRpcLibFreeRetired(coap_context_t *coapCtx) {
  for (;;) {
    coap_endpoint_t *endPoint = FirstRetired(coapCtx);
    coap_resource_t *resource = endPoint ? NULL : FirstWithoutUserData(coapCtx);
    if (endPoint) FreeEndPoint(endPoint);
    if (resource) coap_delete_resource(coapCtx, resource);
    if (!endPoint && !resource) break;
  }
}

int CoapRpcLibFits(const coap_pdu_t *pdu, size_t len) {
  return pdu->max_size == 0 || pdu->used_size + 1 + len <= pdu->max_size;
}

int CoapRpcLibAddToken(coap_pdu_t *pdu, const uint8_t *token, size_t len) {
  return coap_update_token(pdu, len, token);
}

const coap_pdu_t *CoapRpcLibStoredRequest(coap_resource_t *resource, coap_session_t *session,
                                          const coap_pdu_t *request) {
  const coap_subscription_t *observer =
      coap_find_observer(resource, session, &request->actual_token);
  return observer ? observer->pdu : NULL;
}

coap_lg_xmit_t *CoapRpcLibFindBlocks(coap_session_t *session, const void *appPtr) {
  coap_lg_xmit_t *blocks;
  LL_FOREACH(session->lg_xmit, blocks) {
    if (blocks->app_ptr == appPtr) return blocks;
  }
  return NULL;
}

coap_tick_t CoapRpcLibBlocksSentAt(coap_session_t *session, const void *appPtr) {
  const coap_lg_xmit_t *blocks = CoapRpcLibFindBlocks(session, appPtr);
  return blocks ? blocks->last_all_sent : 0;
}

static int HasPassed(coap_tick_t since, uint32_t ms) {
  coap_tick_t now;
  coap_ticks(&now);
  return since + (coap_tick_t)ms * COAP_TICKS_PER_SECOND / 1000 <= now;
}

int CoapRpcLibIsIdleFor(coap_session_t *session, const void *appPtr, coap_tick_t notBefore,
                        uint32_t idleMs) {
  coap_lg_xmit_t *blocks = CoapRpcLibFindBlocks(session, appPtr);
  if (!blocks || blocks->last_all_sent) return 0;
  const coap_tick_t since = blocks->last_obs > notBefore ? blocks->last_obs : notBefore;
  blocks->last_sent = since; /* libcoap counts 93 s from the beginning, fetched or not */
  return HasPassed(since, idleMs);
}

int CoapRpcLibIsAllSent(const coap_lg_xmit_t *blocks) {
  return blocks && blocks->last_all_sent != 0;
}

int CoapRpcLibIsBegun(const coap_lg_xmit_t *blocks) {
  return blocks && (blocks->offset != 0 || blocks->last_all_sent != 0);
}

/* HasMid and HasToken say whether a queue has such a message of the session; a message that is kept
 * back may name no session. */
static int HasMid(const coap_queue_t *queue, const coap_session_t *session, coap_mid_t mid) {
  const coap_queue_t *message;
  LL_FOREACH(queue, message) {
    if (message->session && message->session != session) continue;
    if (message->id == mid) return 1;
  }
  return 0;
}

static int HasToken(const coap_queue_t *queue, const coap_session_t *session,
                    const coap_bin_const_t *token) {
  const coap_queue_t *message;
  LL_FOREACH(queue, message) {
    if (message->session && message->session != session) continue;
    if (coap_binary_equal(&message->pdu->actual_token, token)) return 1;
  }
  return 0;
}

/* IsAmong says whether a session that may be gone is one of these. */
static int IsAmong(coap_session_t *sessions, const coap_session_t *session) {
  coap_session_t *each;
  coap_session_t *next;
  SESSIONS_ITER(sessions, each, next) {
    if (each == session) return 1;
  }
  return 0;
}

static int IsKnown(const coap_context_t *coapCtx, const coap_session_t *session) {
  const coap_endpoint_t *endPoint;
  LL_FOREACH(coapCtx->endpoint, endPoint) {
    if (IsAmong(endPoint->sessions, session)) return 1;
  }
  return IsAmong(coapCtx->sessions, session);
}

int CoapRpcLibIsQueued(const coap_session_t *session, coap_mid_t mid) {
  return HasMid(session->context->sendqueue, session, mid) ||
         HasMid(session->delayqueue, session, mid);
}

int CoapRpcLibIsStillQueued(const coap_context_t *coapCtx, const coap_session_t *session,
                            coap_mid_t mid) {
  if (HasMid(coapCtx->sendqueue, session, mid)) return 1;
  return IsKnown(coapCtx, session) && HasMid(session->delayqueue, session, mid);
}

void CoapRpcLibSetRepeat(coap_context_t *coapCtx, CoapRpcLibRepeat repeat) {
  coapCtx->repeat_handler = repeat;
}

void CoapRpcLibSetBlock(coap_context_t *coapCtx, CoapRpcLibBlock block) {
  coapCtx->block_handler = block;
}

void CoapRpcLibEndBlocks(coap_session_t *session, const void *appPtr) {
  coap_lg_xmit_t *blocks = CoapRpcLibFindBlocks(session, appPtr);
  if (!blocks) return;
  LL_DELETE(session->lg_xmit, blocks);
  coap_block_delete_lg_xmit(session, blocks);
}

/* IsTokenInUse does not count relations, whose tokens are their records'. */
static int IsTokenInUse(const coap_session_t *session, const coap_bin_const_t *token) {
  const coap_lg_crcv_t *answer;
  LL_FOREACH(session->lg_crcv, answer) {
    coap_opt_iterator_t it;
    if (!coap_binary_equal(answer->app_token, token)) continue;
    if (!coap_check_option(&answer->pdu, COAP_OPTION_OBSERVE, &it)) return 1;
  }
  const coap_lg_xmit_t *body;
  LL_FOREACH(session->lg_xmit, body) {
    if (!COAP_PDU_IS_REQUEST(&body->pdu) || !body->b.b1.app_token) continue;
    if (coap_binary_equal(body->b.b1.app_token, token)) return 1;
  }
  return 0;
}

int CoapRpcLibClaimToken(coap_session_t *session, const coap_bin_const_t *token) {
  if (IsTokenInUse(session, token)) return 0;
  const uint64_t number = coap_decode_var_bytes8(token->s, token->length);
  if (session->tx_token < number) session->tx_token = number;
  return 1;
}

void CoapRpcLibAllowCancel(const coap_session_t *session, const coap_binary_t *token) {
  coap_lg_crcv_t *relation;
  LL_FOREACH(session->lg_crcv, relation) {
    coap_opt_iterator_t it;
    if (!coap_binary_equal(relation->app_token, token)) continue;
    if (coap_check_option(&relation->pdu, COAP_OPTION_OBSERVE, &it)) relation->observe_set = 1;
  }
}

static coap_string_t *CopyOf(const coap_string_t *text) {
  coap_string_t *copy = text && text->length != 0 ? coap_new_string(text->length) : NULL;
  if (copy) memcpy(copy->s, text->s, text->length);
  return copy;
}

static int IsResponseTo(const coap_lg_xmit_t *blocks, const coap_resource_t *resource,
                        const coap_pdu_t *request) {
  if (COAP_PDU_IS_REQUEST(&blocks->pdu) || blocks->b.b2.resource != resource) return 0;
  return coap_binary_equal(&blocks->pdu.actual_token, &request->actual_token);
}

void CoapRpcLibEndPartlyFetched(coap_session_t *session, const coap_resource_t *resource,
                                const coap_pdu_t *request) {
  coap_lg_xmit_t *blocks;
  coap_lg_xmit_t *next;
  LL_FOREACH_SAFE(session->lg_xmit, blocks, next) {
    if (!IsResponseTo(blocks, resource, request)) continue;
    if (!CoapRpcLibIsBegun(blocks) || CoapRpcLibIsAllSent(blocks)) continue;
    LL_DELETE(session->lg_xmit, blocks);
    coap_block_delete_lg_xmit(session, blocks);
  }
}

void CoapRpcLibRenameBlocks(coap_session_t *session, const coap_resource_t *resource,
                            const coap_pdu_t *request, const coap_string_t *query) {
  coap_lg_xmit_t *blocks;
  LL_FOREACH(session->lg_xmit, blocks) {
    if (!IsResponseTo(blocks, resource, request)) continue;
    coap_delete_string(blocks->b.b2.query);
    blocks->b.b2.query = CopyOf(query);
  }
}

/* Upload is one request body in the making. */
typedef struct Upload {
  coap_session_t *session;
  coap_lg_srcv_t *body;
} Upload;

static void DropUpload(const Upload *upload) {
  ++upload->session->context->num_upload_limit;
  LL_DELETE(upload->session->lg_srcv, upload->body);
  coap_block_delete_lg_srcv(upload->session, upload->body);
}

static void DropLongUploads(coap_session_t *session, size_t maxLen) {
  coap_lg_srcv_t *body;
  coap_lg_srcv_t *next;
  LL_FOREACH_SAFE(session->lg_srcv, body, next) {
    const Upload upload = {session, body};
    if (body->body_data && body->body_data->length > maxLen) DropUpload(&upload);
  }
}

/* Uploads is how many there are, and the one that has been silent longest. */
typedef struct Uploads {
  unsigned num;
  Upload oldest;
} Uploads;

/* CountUploads relies on last_used being the time of the latest new block. */
static void CountUploads(coap_session_t *session, Uploads *uploads) {
  coap_lg_srcv_t *body;
  LL_FOREACH(session->lg_srcv, body) {
    const coap_lg_srcv_t *oldest = uploads->oldest.body;
    ++uploads->num;
    if (!oldest || body->last_used < oldest->last_used) uploads->oldest = (Upload){session, body};
  }
}

static void LookAtUploads(coap_session_t *sessions, size_t maxLen, Uploads *uploads) {
  coap_session_t *session;
  coap_session_t *next;
  SESSIONS_ITER(sessions, session, next) {
    DropLongUploads(session, maxLen);
    CountUploads(session, uploads);
  }
}

unsigned CoapRpcLibLimitUploads(coap_context_t *coapCtx, unsigned maxNum, size_t maxLen) {
  for (;;) {
    Uploads uploads = {0, {NULL, NULL}};
    coap_endpoint_t *endPoint;
    LL_FOREACH(coapCtx->endpoint, endPoint) { LookAtUploads(endPoint->sessions, maxLen, &uploads); }
    LookAtUploads(coapCtx->sessions, maxLen, &uploads);
    if (uploads.num <= maxNum) return uploads.num;
    DropUpload(&uploads.oldest);
  }
}

unsigned CoapRpcLibNumDelayed(const coap_session_t *session) {
  unsigned num = 0;
  const coap_queue_t *message;
  LL_COUNT(session->delayqueue, message, num);
  return num;
}

coap_mid_t CoapRpcLibFirstDelayed(const coap_session_t *session) {
  return session->delayqueue ? session->delayqueue->id : COAP_INVALID_MID;
}

void CoapRpcLibDropDelayed(coap_session_t *session) {
  coap_queue_t *message;
  coap_queue_t *next;
  LL_FOREACH_SAFE(session->delayqueue, message, next) {
    if (message->pdu->lg_xmit) continue;
    LL_DELETE(session->delayqueue, message);
    message->next = NULL;
    coap_delete_node(message);
  }
}

unsigned CoapRpcLibNumBlocks(const coap_session_t *session) {
  unsigned num = 0;
  const coap_lg_xmit_t *blocks;
  LL_COUNT(session->lg_xmit, blocks, num);
  return num;
}

int CoapRpcLibHasBody(const coap_session_t *session) {
  const coap_lg_crcv_t *answer;
  LL_FOREACH(session->lg_crcv, answer) {
    if (answer->body_data) return 1;
  }
  const coap_lg_xmit_t *body;
  LL_FOREACH(session->lg_xmit, body) {
    if (COAP_PDU_IS_REQUEST(&body->pdu)) return 1;
  }
  return 0;
}

int CoapRpcLibIsBody(const coap_pdu_t *pdu) { return pdu->body_data != NULL; }

int CoapRpcLibIsIdle(const coap_session_t *session) {
  const int isSending = session->con_active || session->delayqueue || session->lg_xmit;
  return session->ref == 1 && !isSending && !session->lg_crcv;
}

_Static_assert((int)kCoapRpcLibOld == COAP_ORDER_OLD && (int)kCoapRpcLibFresh == COAP_ORDER_FRESH &&
                   (int)kCoapRpcLibBeside == COAP_ORDER_BESIDE &&
                   (int)kCoapRpcLibEarly == COAP_ORDER_EARLY,
               "the same in libcoap");

void CoapRpcLibSetOrder(coap_context_t *coapCtx, CoapRpcLibOrder order) {
  coapCtx->order_handler = order;
}

int CoapRpcLibIsUnacknowledged(const coap_session_t *session, const coap_pdu_t *pdu) {
  return HasToken(session->context->sendqueue, session, &pdu->actual_token) ||
         HasToken(session->delayqueue, session, &pdu->actual_token);
}

int CoapRpcLibIsReceiving(const coap_session_t *session, const coap_bin_const_t *token,
                          uint32_t idleMs) {
  const coap_lg_crcv_t *body = session ? session->lg_crcv : NULL;
  while (body && !coap_binary_equal(body->app_token, token)) body = body->next;
  return body && !body->initial && !HasPassed(body->last_used, idleMs);
}

void CoapRpcLibSetOneWay(coap_session_t *session) { session->is_one_way = 1; }

void CoapRpcLibSetToken(coap_pdu_t *pdu, const coap_bin_const_t *token) {
  if (!pdu->lg_xmit) coap_update_token(pdu, token->length, token->s);
}

/* Triggering sets libcoap's timer to expire at once, unless libcoap believes that it is due. */
int CoapRpcLibRunAsync(coap_session_t *session, const coap_pdu_t *standIn) {
  coap_context_t *coapCtx = session->context;
  coap_async_t *async = coap_register_async(session, standIn, 0);
  if (!async) return 0;
  const coap_tick_t nextTimeout = coapCtx->next_timeout;
  coap_ticks(&coapCtx->next_timeout);
  coap_async_trigger(async);
  coapCtx->next_timeout = nextTimeout;
  coap_check_async(coapCtx, async->delay);
  return 1;
}

void CoapRpcLibWakeIn(coap_context_t *coapCtx, coap_tick_t ticks) {
  if (coapCtx) coap_update_io_timer(coapCtx, ticks);
}

void CoapRpcLibClearBody(coap_pdu_t *pdu) {
  static const coap_option_num_t kBodyOptions[] = {COAP_OPTION_ETAG, COAP_OPTION_CONTENT_FORMAT,
                                                   COAP_OPTION_BLOCK2, COAP_OPTION_SIZE2};
  if (pdu->data) {
    pdu->used_size = (size_t)(pdu->data - pdu->token) - 1; /* the payload marker as well */
    pdu->data = NULL;
  }
  for (size_t i = 0; i < sizeof(kBodyOptions) / sizeof(kBodyOptions[0]); ++i) {
    coap_remove_option(pdu, kBodyOptions[i]);
  }
}

enum { kMaxReady = 16, kMaxPerEndPoint = 32 };

static int IsEndPoint(const struct epoll_event *event) {
  const coap_socket_t *sock = event->data.ptr;
  return sock && sock->endpoint;
}

static int IsOfSession(const struct epoll_event *event) {
  const coap_socket_t *sock = event->data.ptr;
  return sock && sock->session;
}

/* HasDatagram says whether there is something to read, rather than an error or a hang-up, which may
 * come back after each read. */
static int HasDatagram(const struct epoll_event *event) {
  const int isRead = (event->events & EPOLLIN) && !(event->events & (EPOLLHUP | EPOLLRDHUP));
  return isRead && (IsEndPoint(event) || IsOfSession(event));
}

/* An endpoint's event is repeated, because libcoap reads one datagram for each; a read too many
 * finds nothing.  A client session's event is not: a callback may free the session.  Endpoints come
 * last: errno then tells whether the last one has run dry.  Should something else have set it, a
 * round more or less is read. */
int CoapRpcLibServeReady(coap_context_t *coapCtx, unsigned perEndPoint, int isAgain) {
  struct epoll_event ready[kMaxReady];
  struct epoll_event events[kMaxReady * kMaxPerEndPoint];
  const unsigned repeats = perEndPoint < kMaxPerEndPoint ? perEndPoint : kMaxPerEndPoint;
  const int numReady = epoll_wait(coapCtx->epfd, ready, kMaxReady, 0);
  size_t numEvents = 0;
  int isDatagramReady = 0;
  if (isAgain && numReady <= 0) return kCoapRpcLibIdle;
  for (int i = 0; i < numReady; ++i) {
    if (HasDatagram(&ready[i])) isDatagramReady = 1;
    if (!IsEndPoint(&ready[i])) events[numEvents++] = ready[i];
  }
  for (int i = 0; i < numReady; ++i) {
    for (unsigned k = 0; k < repeats && IsEndPoint(&ready[i]); ++k) events[numEvents++] = ready[i];
  }
  errno = 0;
  coap_io_do_epoll(coapCtx, events, numEvents);
  if (!isDatagramReady) return kCoapRpcLibIdle;
  return errno == EAGAIN ? kCoapRpcLibDry : kCoapRpcLibMore;
}
