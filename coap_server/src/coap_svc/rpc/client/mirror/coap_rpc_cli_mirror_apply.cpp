#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_apply.h"

#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace coap_rpc {
namespace {

void TellAdded(const Mirror &mirror, const MirrorTuple *tuple) {
  const CoapRpcMirrorParam &param = mirror.param;
  if (param.onAdded && !mirror.isClosed) {
    param.onAdded(param.userData, BytesOf(&tuple->key), ValOf(mirror.table, tuple));
  }
}

void TellChanged(const Mirror &mirror, const MirrorTuple *tuple) {
  const CoapRpcMirrorParam &param = mirror.param;
  if (param.onChanged && !mirror.isClosed) {
    param.onChanged(param.userData, BytesOf(&tuple->key), mirror.table.formerVal,
                    ValOf(mirror.table, tuple));
  }
}

void TellRemoved(const Mirror &mirror, const MirrorTuple *tuple) {
  const CoapRpcMirrorParam &param = mirror.param;
  if (param.onRemoved && !mirror.isClosed) {
    param.onRemoved(param.userData, BytesOf(&tuple->key), ValOf(mirror.table, tuple));
  }
}

void Remove(Mirror &mirror, MirrorTuple *tuple) {
  MirrorTableTake(mirror.table, tuple);
  TellRemoved(mirror, tuple);
  MirrorTableDrop(mirror.table, tuple);
}

uint32_t Put(Mirror &mirror, const MirrorChange &change) {
  MirrorTuple *tuple = nullptr;
  switch (MirrorTablePut(mirror.table, change.key, change.val, &tuple)) {
    case MirrorPut::kMet:
      return 0;
    case MirrorPut::kAdded:
      TellAdded(mirror, tuple);
      return 0;
    case MirrorPut::kChanged:
      TellChanged(mirror, tuple);
      return 0;
    case MirrorPut::kFull:
      return Code(kSiteMirrorMaxBytes);
    case MirrorPut::kNoMemory:
      break;
  }
  return Code(kSiteMirrorNoTupleMemory);
}

void Delete(Mirror &mirror, const MirrorChange &change) {
  MirrorTuple *tuple = MirrorTableFind(mirror.table, change.key);
  if (tuple) Remove(mirror, tuple);
}

void ApplyDeletions(Mirror &mirror, const MirrorPage &page, uint64_t known) {
  for (size_t i = 0; i < page.num && !mirror.isClosed; ++i) {
    const MirrorChange &change = page.changes[i];
    if (!change.val && change.version > known) Delete(mirror, change);
  }
}

}  // namespace

// A deletion that is ahead of what could not be stored does no harm: it comes again.
uint32_t ApplyPage(Mirror &mirror, const MirrorPage &page, uint64_t known, uint64_t *reached) {
  ApplyDeletions(mirror, page, known);
  *reached = page.from;
  for (size_t i = 0; i < page.num && !mirror.isClosed; ++i) {
    const MirrorChange &change = page.changes[i];
    const bool isPut = change.val && change.version > known;
    const uint32_t ret = isPut ? Put(mirror, change) : 0;
    if (ret != 0) return ret;
    *reached = change.version;
  }
  *reached = page.to;
  return 0;
}

void RemoveUnmet(Mirror &mirror) {
  MirrorTuple *tuple = MirrorTableUnmet(mirror.table, MirrorTableFirst(mirror.table));
  while (tuple && !mirror.isClosed) {
    MirrorTuple *next = MirrorTableNext(mirror.table, tuple);
    Remove(mirror, tuple);
    tuple = MirrorTableUnmet(mirror.table, next);
  }
}

void TellState(Mirror &mirror, uint32_t state, uint32_t code) {
  if (mirror.isClosed || (mirror.state == state && mirror.code == code)) return;
  mirror.state = state;
  mirror.code = code;
  if (mirror.param.onState) mirror.param.onState(mirror.param.userData, state, code);
}

void TellSynced(Mirror &mirror, uint64_t version) {
  if (mirror.isClosed) return;
  if (mirror.toldReplid == mirror.replid && mirror.toldVersion == version) return;
  mirror.toldReplid = mirror.replid;
  mirror.toldVersion = version;
  if (mirror.param.onSynced) mirror.param.onSynced(mirror.param.userData, version);
}

}  // namespace coap_rpc
