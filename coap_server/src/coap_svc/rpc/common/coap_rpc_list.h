/* coap_rpc_list.h: typed face of an intrusive list.
 *
 * A record may be on several lists, one for each of its links. */
#ifndef COAP_RPC_LIST_H
#define COAP_RPC_LIST_H

#include "coap_svc/rpc/common/coap_rpc_link.h"

namespace coap_rpc {

inline void LinkInit(CoapRpcLink &link) { link.next = link.prev = &link; }

// A zeroed link is on no list either: its record's module has not started.
inline bool LinkIsAlone(const CoapRpcLink &link) { return !link.next || link.next == &link; }

// LinkRemove takes a link off whatever list it is on; it is alone afterwards.
inline void LinkRemove(CoapRpcLink &link) {
  if (!LinkIsAlone(link)) {
    link.prev->next = link.next;
    link.next->prev = link.prev;
  }
  LinkInit(link);
}

// LinkInsertBefore moves a link, off whatever list it is on, to the place before another one.
inline void LinkInsertBefore(CoapRpcLink &place, CoapRpcLink &link) {
  LinkRemove(link);
  link.prev = place.prev;
  link.next = &place;
  place.prev->next = &link;
  place.prev = &link;
}

// List sees a list head as a list of `Rec`, linked through the link at byte `LinkAt`.  It owns
// nothing and adds no state.
template <typename Rec, size_t LinkAt>
class List {
 public:
  explicit List(CoapRpcLink &head) : head_(head) {}

  bool IsEmpty() const { return LinkIsAlone(head_); }

  Rec *First() const { return IsEmpty() ? nullptr : RecordOf(head_.next); }

  Rec *Last() const { return IsEmpty() ? nullptr : RecordOf(head_.prev); }

  // After returns the record after `rec`, or null at the end.
  Rec *After(const Rec *rec) const {
    CoapRpcLink *next = LinkOf(rec)->next;
    return next == &head_ ? nullptr : RecordOf(next);
  }

  // Before returns the record before `rec`, or null at the beginning.
  Rec *Before(const Rec *rec) const {
    CoapRpcLink *prev = LinkOf(rec)->prev;
    return prev == &head_ ? nullptr : RecordOf(prev);
  }

  // Append moves `rec` to the tail, off the list that its link is on; Prepend to the head.
  void Append(Rec *rec) {
    if (!head_.next) LinkInit(head_);
    LinkInsertBefore(head_, *LinkOf(rec));
  }
  void Prepend(Rec *rec) {
    if (!head_.next) LinkInit(head_);
    LinkRemove(*LinkOf(rec));
    LinkInsertBefore(*head_.next, *LinkOf(rec));
  }

  // FindIf returns the first record that `match` says yes to, or null.
  template <typename Match>
  Rec *FindIf(Match match) const {
    for (Rec *rec = First(); rec; rec = After(rec)) {
      if (match(*rec)) return rec;
    }
    return nullptr;
  }

  // ForEach calls `visit` for each record; `visit` may take the one that it is given off the list.
  template <typename Visit>
  void ForEach(Visit visit) const {
    Rec *next = nullptr;
    for (Rec *rec = First(); rec; rec = next) {
      next = After(rec);
      visit(rec);
    }
  }

  // Drain hands out the first record until none is left; `drop` must take it off the list.
  template <typename Drop>
  void Drain(Drop drop) {
    while (Rec *rec = First()) drop(rec);
  }

 private:
  static Rec *RecordOf(CoapRpcLink *link) {
    return reinterpret_cast<Rec *>(reinterpret_cast<char *>(link) - LinkAt);
  }
  static CoapRpcLink *LinkOf(const Rec *rec) {
    return reinterpret_cast<CoapRpcLink *>(reinterpret_cast<char *>(const_cast<Rec *>(rec)) +
                                           LinkAt);
  }

  CoapRpcLink &head_;
};

}  // namespace coap_rpc

// COAP_RPC_LIST(Rec, link) is the list type of records `Rec` linked through their member `link`.
#define COAP_RPC_LIST(Rec, link) coap_rpc::List<Rec, offsetof(Rec, link)>

#endif /* COAP_RPC_LIST_H */
