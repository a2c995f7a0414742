/* coap_rpc_cli_mirror_table.h: the tuples of a mirror.
 *
 * A full sync is an epoch: it meets the tuples that the server has, and those that it has not met
 * in the end are removed.  The digest is kept with each change.
 *
 * Bounds: maxBytes; a tuple that does not fit, or finds no memory, is not stored. */
#ifndef COAP_RPC_CLI_MIRROR_TABLE_H
#define COAP_RPC_CLI_MIRROR_TABLE_H

#include <cstddef>

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "osal_avl3.h"

namespace coap_rpc {

// MirrorKey is a key that says how long it is, for those without an order of their own; the bytes
// follow it.
struct MirrorKey {
  uint32_t len;
};

// MirrorTuple is followed by the bytes of its key and its value.
struct MirrorTuple {
  OSAL_AVL3_NODE node;
  uint32_t epoch;  // that met it last
  MirrorKey key;
};
static_assert(sizeof(MirrorTuple) <= sizeof(OSAL_AVL3_NODE) + 24, "what a tuple costs");

inline uint8_t *BytesOf(MirrorKey *key) { return reinterpret_cast<uint8_t *>(key + 1); }
inline const uint8_t *BytesOf(const MirrorKey *key) {
  return reinterpret_cast<const uint8_t *>(key + 1);
}

struct MirrorTable {
  uint64_t mem;
  OSAL_AVL3_DESC desc;
  OSAL_AVL3_TREE tree;  // MirrorTuple by key, owned
  uint32_t keyLen;
  uint32_t valLen;
  uint64_t maxBytes;  // 0: no limit
  uint64_t num;
  uint64_t digest;      // sum of XXH64 over the bytes of each tuple, mod 2^64
  uint32_t epoch;       // the present one
  MirrorTuple *wanted;  // owned; in no tree: room for a key that is looked for
  uint8_t *formerVal;   // owned; what MirrorTablePut has replaced
};

// What became of a tuple.
enum class MirrorPut { kMet, kAdded, kChanged, kFull, kNoMemory };

// MirrorTableInit makes a zeroed table ready; false without memory.  MirrorTableFree frees its
// tuples and all else.
[[nodiscard]] bool MirrorTableInit(MirrorTable &table, uint64_t mem,
                                   const CoapRpcMirrorParam &param);
void MirrorTableFree(MirrorTable &table);

// MirrorTableFind returns the tuple of a key, or null; MirrorTableAfter the first one after a key,
// the first of all for null.
MirrorTuple *MirrorTableFind(const MirrorTable &table, const void *key);
MirrorTuple *MirrorTableAfter(const MirrorTable &table, const void *key);

// MirrorTablePut stores a tuple, which the present epoch has met then, and says where.
MirrorPut MirrorTablePut(MirrorTable &table, const uint8_t *key, const uint8_t *val,
                         MirrorTuple **out);

// MirrorTableTake takes a tuple out, for its taker to free with MirrorTableDrop.
void MirrorTableTake(MirrorTable &table, MirrorTuple *tuple);
void MirrorTableDrop(const MirrorTable &table, MirrorTuple *tuple);

// MirrorTableBegin begins an epoch.  MirrorTableUnmet returns the first tuple that it has not met,
// from `tuple` on, which is in the table; null for null.
void MirrorTableBegin(MirrorTable &table);
MirrorTuple *MirrorTableFirst(const MirrorTable &table);
MirrorTuple *MirrorTableNext(const MirrorTable &table, const MirrorTuple *tuple);
MirrorTuple *MirrorTableUnmet(const MirrorTable &table, MirrorTuple *tuple);

uint64_t MirrorTableBytes(const MirrorTable &table);

inline const uint8_t *ValOf(const MirrorTable &table, const MirrorTuple *tuple) {
  return BytesOf(&tuple->key) + table.keyLen;
}

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_MIRROR_TABLE_H */
