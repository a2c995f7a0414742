#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_page.h"

#include <cbor/encoding.h>

#include <algorithm>

namespace coap_rpc {
namespace {

constexpr size_t kHeadItems = 8;
constexpr size_t kItemsPerChange = 3;
constexpr uint64_t kFirstStep = 16;

// NumberBytes is the length of a number, or of what says how long a byte string is, as CBOR.
size_t NumberBytes(uint64_t number) {
  if (number < 24) return 1;
  if (number <= UINT8_MAX) return 2;
  if (number <= UINT16_MAX) return 3;
  return number <= UINT32_MAX ? 5 : 9;
}

size_t StringBytes(size_t len) { return NumberBytes(len) + len; }

size_t ChangeBytes(const CoapRpcSerObVtblReg &ob, const SyncChange &change, uint64_t before) {
  const size_t val = change.val ? StringBytes(ob.valLen) : 1;
  return NumberBytes(change.version - before) + StringBytes(ob.keyLen) + val;
}

// Add takes a change into a page if it fits, as the first one always does.
bool Add(SyncPage &page, const SyncChange &change, size_t pageBytes) {
  const size_t bytes = ChangeBytes(*page.set->entry->obVtbl, change, page.to);
  const bool fits = SyncPageBound(page) + bytes <= pageBytes;
  if (page.num != 0 && !fits) return false;
  page.changes[page.num++] = change;
  page.bodyBytes += bytes;
  page.to = change.version;
  return true;
}

void EndAt(SyncPage &page, uint64_t to) {
  page.to = to;
  const bool isRestart = (page.flags & kSyncRestart) != 0;
  if (to == page.set->head && !isRestart) page.flags |= kSyncAtHead;
}

// Fits says whether all changes after a version fit into one page.
bool Fits(SyncSet &set, uint64_t since, size_t pageBytes, SyncPage &page) {
  CollectSyncPage(set, {since, set.head, 0}, pageBytes, page);
  return page.to == set.head && SyncPageBound(page) <= pageBytes;
}

// StartOfRound returns the least version, from which on everything fits.  What is after `known`
// does; ever longer steps back find something that does not, halves of the last one the border.
uint64_t StartOfRound(SyncSet &set, uint64_t known, size_t pageBytes, SyncPage &page) {
  uint64_t fits = known;
  uint64_t tooFar = set.floor;
  uint64_t step = kFirstStep;
  while (fits - set.floor > step && Fits(set, fits - step, pageBytes, page)) {
    fits -= step;
    step *= 2;
  }
  if (fits - set.floor > step) {
    tooFar = fits - step;
  } else if (Fits(set, set.floor, pageBytes, page)) {
    return set.floor;
  }
  while (fits - tooFar > 1) {
    const uint64_t middle = tooFar + (fits - tooFar) / 2;
    (Fits(set, middle, pageBytes, page) ? fits : tooFar) = middle;
  }
  return fits;
}

// CborOut writes into a buffer that is known to have room.
class CborOut {
 public:
  explicit CborOut(uint8_t *buf) : begin_(buf), at_(buf) {}

  void Array(size_t num) { at_ += cbor_encode_array_start(num, at_, kMaxStart); }
  void Number(uint64_t number) { at_ += cbor_encode_uint(number, at_, kMaxStart); }
  void Null() { at_ += cbor_encode_null(at_, kMaxStart); }
  void String(const uint8_t *bytes, size_t len) {
    at_ += cbor_encode_bytestring_start(len, at_, kMaxStart);
    at_ = std::copy_n(bytes, len, at_);
  }
  size_t Length() const { return static_cast<size_t>(at_ - begin_); }

 private:
  static constexpr size_t kMaxStart = 9;

  uint8_t *begin_;
  uint8_t *at_;
};

void WriteHead(const SyncPage &page, CborOut &out) {
  out.Array(kHeadItems + kItemsPerChange * page.num);
  out.Number(kSyncPageFormat);
  out.Number(page.flags);
  out.Number(page.set->replid);
  out.Number(page.from);
  out.Number(page.to);
  out.Number(page.set->head);
  out.Number(page.set->floor);
  out.Number(page.set->digest);
}

void WriteChange(const CoapRpcSerObVtblReg &ob, const SyncChange &change, uint64_t before,
                 CborOut &out) {
  out.Number(change.version - before);
  out.String(change.key, ob.keyLen);
  if (change.val) {
    out.String(change.val, ob.valLen);
  } else {
    out.Null();
  }
}

}  // namespace

void EmptySyncPage(SyncSet &set, uint64_t at, uint32_t flags, SyncPage &page) {
  page.set = &set;
  page.flags = flags;
  page.from = at;
  page.num = 0;
  page.bodyBytes = 0;
  EndAt(page, at);
}

void CollectSyncPage(SyncSet &set, const SyncAsk &ask, size_t pageBytes, SyncPage &page) {
  EmptySyncPage(set, ask.since, ask.flags, page);
  SyncWalk walk(set, ask.since);
  SyncChange change;
  while (walk.Next(change) && change.version <= ask.until) {
    if (Add(page, change, pageBytes)) continue;
    EndAt(page, page.to);
    return;
  }
  EndAt(page, std::min(ask.until, set.head));
}

void CollectSyncRound(SyncSet &set, uint64_t notified, uint32_t flags, size_t pageBytes,
                      SyncPage &page) {
  if (notified < set.floor || !Fits(set, notified, pageBytes, page)) {
    EmptySyncPage(set, set.head, flags, page);
    return;
  }
  const uint64_t from = StartOfRound(set, notified, pageBytes, page);
  CollectSyncPage(set, {from, set.head, flags}, pageBytes, page);
}

size_t WriteSyncPage(const SyncPage &page, uint8_t *buf) {
  CborOut out(buf);
  WriteHead(page, out);
  uint64_t before = page.from;
  for (size_t i = 0; i < page.num; ++i) {
    WriteChange(*page.set->entry->obVtbl, page.changes[i], before, out);
    before = page.changes[i].version;
  }
  return out.Length();
}

}  // namespace coap_rpc
