#include "coap_svc/rpc/client/mirror/coap_rpc_cli_mirror_table.h"

#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

namespace coap_rpc {
namespace {

using Keys = Table<MirrorTuple, void, offsetof(MirrorTuple, node)>;

// An order has no argument but the keys, so those in the order of bytes carry their length.
int32_t CompareBytes(const void *a, const void *b) {
  const auto *keyA = static_cast<const MirrorKey *>(a);
  const auto *keyB = static_cast<const MirrorKey *>(b);
  return memcmp(BytesOf(keyA), BytesOf(keyB), keyA->len);
}

OSAL_AVL3_DESC DescOf(const CoapRpcMirrorParam &param) {
  OSAL_AVL3_DESC desc = {};
  const size_t keyAt = param.keyCmp ? sizeof(MirrorTuple) : offsetof(MirrorTuple, key);
  desc.cmp = param.keyCmp ? param.keyCmp : CompareBytes;
  desc.keyOffset = static_cast<uint16_t>(keyAt);
  desc.nodeOffset = offsetof(MirrorTuple, node);
  return desc;
}

Keys KeysOf(const MirrorTable &table) {
  return Keys(const_cast<OSAL_AVL3_TREE &>(table.tree), table.desc);
}

// Wanted returns a key as the table's order reads it: in the place that it has in tuples.  One of a
// message has any address, and an application's order may read keys as numbers.
const void *Wanted(const MirrorTable &table, const void *key) {
  memcpy(BytesOf(&table.wanted->key), key, table.keyLen);
  return reinterpret_cast<const uint8_t *>(table.wanted) + table.desc.keyOffset;
}

uint64_t HashOf(const MirrorTable &table, const MirrorTuple *tuple) {
  return XXH64(BytesOf(&tuple->key), size_t{table.keyLen} + table.valLen, 0);
}

size_t TupleBytes(const MirrorTable &table) {
  return sizeof(MirrorTuple) + table.keyLen + table.valLen;
}

bool HasRoom(const MirrorTable &table) {
  return table.maxBytes == 0 || (table.num + 1) * TupleBytes(table) <= table.maxBytes;
}

MirrorTuple *NewTuple(const MirrorTable &table, const uint8_t *key, const uint8_t *val) {
  auto *tuple = static_cast<MirrorTuple *>(PoolAlloc(table.mem, TupleBytes(table)));
  if (!tuple) return nullptr;
  tuple->key.len = table.keyLen;
  std::copy_n(val, table.valLen, std::copy_n(key, table.keyLen, BytesOf(&tuple->key)));
  return tuple;
}

// DropContradiction is for an order that finds a key which it has just not found.  The digest will
// say that the table is not the server's.
MirrorPut DropContradiction(const MirrorTable &table, MirrorTuple *tuple) {
  MirrorTableDrop(table, tuple);
  return MirrorPut::kMet;
}

MirrorPut Add(MirrorTable &table, const uint8_t *key, const uint8_t *val, MirrorTuple **out) {
  if (!HasRoom(table)) return MirrorPut::kFull;
  *out = NewTuple(table, key, val);
  if (!*out) return MirrorPut::kNoMemory;
  (*out)->epoch = table.epoch;
  if (!KeysOf(table).Insert(*out)) return DropContradiction(table, *out);
  ++table.num;
  table.digest += HashOf(table, *out);
  return MirrorPut::kAdded;
}

MirrorPut Change(MirrorTable &table, MirrorTuple *tuple, const uint8_t *val) {
  uint8_t *present = BytesOf(&tuple->key) + table.keyLen;
  tuple->epoch = table.epoch;
  if (std::equal(present, present + table.valLen, val)) return MirrorPut::kMet;
  table.digest -= HashOf(table, tuple);
  std::copy_n(present, table.valLen, table.formerVal);
  std::copy_n(val, table.valLen, present);
  table.digest += HashOf(table, tuple);
  return MirrorPut::kChanged;
}

}  // namespace

bool MirrorTableInit(MirrorTable &table, uint64_t mem, const CoapRpcMirrorParam &param) {
  table.mem = mem;
  table.desc = DescOf(param);
  table.keyLen = param.keyLen;
  table.valLen = param.valLen;
  table.maxBytes = param.maxBytes;
  table.wanted = static_cast<MirrorTuple *>(PoolAlloc(mem, sizeof(MirrorTuple) + param.keyLen));
  table.formerVal = static_cast<uint8_t *>(PoolAlloc(mem, param.valLen));
  if (table.wanted) table.wanted->key.len = param.keyLen;
  return table.wanted && table.formerVal;
}

void MirrorTableFree(MirrorTable &table) {
  KeysOf(table).Drain([&](MirrorTuple *tuple) {
    KeysOf(table).Remove(tuple);
    MirrorTableDrop(table, tuple);
  });
  PoolFree(table.mem, std::exchange(table.wanted, nullptr));
  PoolFree(table.mem, std::exchange(table.formerVal, nullptr));
  table.num = 0;
}

MirrorTuple *MirrorTableFind(const MirrorTable &table, const void *key) {
  return KeysOf(table).Find(Wanted(table, key));
}

MirrorTuple *MirrorTableAfter(const MirrorTable &table, const void *key) {
  return key ? KeysOf(table).After(Wanted(table, key)) : KeysOf(table).First();
}

MirrorPut MirrorTablePut(MirrorTable &table, const uint8_t *key, const uint8_t *val,
                         MirrorTuple **out) {
  *out = MirrorTableFind(table, key);
  return *out ? Change(table, *out, val) : Add(table, key, val, out);
}

void MirrorTableTake(MirrorTable &table, MirrorTuple *tuple) {
  table.digest -= HashOf(table, tuple);
  KeysOf(table).Remove(tuple);
  --table.num;
}

void MirrorTableDrop(const MirrorTable &table, MirrorTuple *tuple) { PoolFree(table.mem, tuple); }

void MirrorTableBegin(MirrorTable &table) { ++table.epoch; }

MirrorTuple *MirrorTableFirst(const MirrorTable &table) { return KeysOf(table).First(); }

MirrorTuple *MirrorTableNext(const MirrorTable &table, const MirrorTuple *tuple) {
  return KeysOf(table).Next(tuple);
}

MirrorTuple *MirrorTableUnmet(const MirrorTable &table, MirrorTuple *tuple) {
  while (tuple && tuple->epoch == table.epoch) tuple = KeysOf(table).Next(tuple);
  return tuple;
}

uint64_t MirrorTableBytes(const MirrorTable &table) { return table.num * TupleBytes(table); }

}  // namespace coap_rpc
