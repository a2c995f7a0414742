#include "coap3/coap_internal.h"

#include "libcoap/ext/coap_rpc_lib_source.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

static int OpenProbe(const coap_address_t *addr) {
  return socket(addr->addr.sa.sa_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

/* ChosenSource gives the address that a new socket to a peer gets.  Connecting sends nothing.
 * Returns 0 when there is no way to the peer. */
static int ChosenSource(const coap_address_t *peer, coap_address_t *source) {
  const int fd = OpenProbe(peer);
  coap_address_init(source);
  const int isKnown = fd >= 0 && connect(fd, &peer->addr.sa, peer->size) == 0 &&
                      getsockname(fd, &source->addr.sa, &source->size) == 0;
  if (fd >= 0) close(fd);
  return isKnown;
}

static int IsSameHost(const coap_address_t *a, const coap_address_t *b) {
  coap_address_t other = *b;
  coap_address_set_port(&other, coap_address_get_port(a));
  return coap_address_equals(a, &other);
}

static int IsStale(const coap_session_t *session) {
  coap_address_t source;
  return ChosenSource(&session->addr_info.remote, &source) &&
         !IsSameHost(&source, &session->addr_info.local);
}

int CoapRpcLibIsLost(const coap_address_t *addr) {
  coap_address_t any = *addr;
  coap_address_set_port(&any, 0);
  const int fd = OpenProbe(&any);
  const int isLost = fd >= 0 && bind(fd, &any.addr.sa, any.size) != 0 && errno == EADDRNOTAVAIL;
  if (fd >= 0) close(fd);
  return isLost;
}

/* KeepPort binds a disconnected socket to the port that it had, of any address.  One that it was
 * bound to in this way before is still its own. */
static void KeepPort(const coap_session_t *session) {
  coap_address_t any;
  coap_address_init(&any);
  any.addr.sa.sa_family = session->addr_info.local.addr.sa.sa_family;
  any.size = session->addr_info.local.size;
  coap_address_set_port(&any, coap_address_get_port(&session->addr_info.local));
  if (bind(session->sock.fd, &any.addr.sa, any.size) != 0) {
    coap_log_debug("session may send from another port: %s\n", coap_socket_strerror());
  }
}

/* A socket that cannot be connected again has no address, so the next look finds it stale. */
void CoapRpcLibRenewSource(coap_session_t *session) {
  const struct sockaddr none = {.sa_family = AF_UNSPEC};
  const coap_address_t *peer = &session->addr_info.remote;
  coap_address_t *local = &session->addr_info.local;
  const int fd = session->sock.fd;
  if (connect(fd, &none, sizeof(none)) == 0) KeepPort(session);
  if (connect(fd, &peer->addr.sa, peer->size) != 0) {
    coap_log_info("session cannot send for now: %s\n", coap_socket_strerror());
  }
  local->size = sizeof(local->addr);
  getsockname(fd, &local->addr.sa, &local->size);
}

/* CountAsUnanswered makes libcoap's next ping find the one before it without answer. */
static void CountAsUnanswered(coap_session_t *session) {
  if (session->last_ping == 0) coap_ticks(&session->last_ping);
  session->last_pong = session->last_ping - 1;
}

static int LeaveStale(coap_session_t *session) {
  if (!IsStale(session)) return 0;
  CoapRpcLibRenewSource(session);
  return 1;
}

/* What sends may not call back: the ping that is under way, or the next one, reports the move. */
static ssize_t SendFollowing(coap_session_t *session, const uint8_t *data, size_t len) {
  const ssize_t numSent = coap_netif_dgrm_write(session, data, len);
  if (numSent >= 0 || !LeaveStale(session)) return numSent;
  CountAsUnanswered(session);
  return coap_netif_dgrm_write(session, data, len);
}

static coap_layer_write_t *Sender(coap_session_t *session) {
  return &session->sock.lfunc[COAP_LAYER_SESSION].l_write;
}

static int FollowsSource(coap_session_t *session) { return *Sender(session) == SendFollowing; }

static int HasKeepAlive(const coap_session_t *session) {
  return session->context->ping_timeout != 0;
}

void CoapRpcLibFollowSource(coap_session_t *session) {
  if (*Sender(session) == coap_netif_dgrm_write) *Sender(session) = SendFollowing;
}

int CoapRpcLibLeaveLost(coap_session_t *session) {
  if (!FollowsSource(session) || !CoapRpcLibIsLost(&session->addr_info.local)) return 0;
  CoapRpcLibRenewSource(session);
  return HasKeepAlive(session);
}

int CoapRpcLibLeaveStale(coap_session_t *session) {
  return FollowsSource(session) && LeaveStale(session) && HasKeepAlive(session);
}

int CoapRpcLibIsCutOff(coap_session_t *session) {
  return !FollowsSource(session) && CoapRpcLibIsLost(&session->addr_info.local);
}
