#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_record.h"

#include <functional>
#include <utility>

#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"

namespace coap_rpc {
namespace {

int32_t CompareDue(const void *a, const void *b) {
  const auto *dueA = static_cast<const MirrorDue *>(a);
  const auto *dueB = static_cast<const MirrorDue *>(b);
  if (dueA->ms != dueB->ms) return dueA->ms < dueB->ms ? -1 : 1;
  return (dueA->id > dueB->id) - (dueA->id < dueB->id);
}

int32_t CompareSessions(const void *a, const void *b) {
  const auto *sessionA = *static_cast<coap_session_t *const *>(a);
  const auto *sessionB = *static_cast<coap_session_t *const *>(b);
  const std::less<> isLess;
  return isLess(sessionB, sessionA) - isLess(sessionA, sessionB);
}

using DueTable = COAP_RPC_TABLE(CoapRpcMirror, due, MirrorDue, CompareDue);
using SessionTable =
    FixedTable<CoapRpcMirror, coap_session_t *, offsetof(CoapRpcMirror, sessionNode),
               offsetof(CoapRpcMirror, session), CompareSessions>;

}  // namespace

void AddMirror(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror, uint64_t nowMs) {
  LinkInit(mirror->link);
  LinkInit(mirror->dirtyLink);
  AllMirrors(mirrors->list).Append(mirror);
  ++mirrors->num;
  mirror->due = {nowMs, ++mirrors->lastId};
  (void)DueTable(mirrors->dueTree).Insert(mirror);  // the id makes it unique
}

void TakeOffMirror(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror) {
  --mirrors->num;
  DueTable(mirrors->dueTree).Remove(mirror);
  if (mirror->session) SessionTable(mirrors->sessionTree).Remove(mirror);
  LinkRemove(mirror->dirtyLink);
}

void SetMirrorDue(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror, uint64_t ms) {
  if (mirror->due.ms == ms) return;
  DueTable table(mirrors->dueTree);
  table.Remove(mirror);
  mirror->due.ms = ms;
  (void)table.Insert(mirror);
}

CoapRpcMirror *FirstDueMirror(CoapRpcMirrors *mirrors) {
  return DueTable(mirrors->dueTree).First();
}

coap_session_t *SetMirrorSession(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror,
                                 coap_session_t *session) {
  SessionTable table(mirrors->sessionTree);
  if (mirror->session) table.Remove(mirror);
  coap_session_t *former = std::exchange(mirror->session, session);
  if (session) (void)table.Insert(mirror);
  return former;
}

CoapRpcMirror *FindMirror(CoapRpcMirrors *mirrors, coap_session_t *session) {
  return SessionTable(mirrors->sessionTree).Find(&session);
}

uint64_t MirrorNowMs() { return NowTicks() * 1000 / COAP_TICKS_PER_SECOND; }

}  // namespace coap_rpc
