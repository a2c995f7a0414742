/* coap_rpc_table.h: typed face of an intrusive tree.
 *
 * All tables of the library are kept in key order, which is the order that displays show. */
#ifndef COAP_RPC_TABLE_H
#define COAP_RPC_TABLE_H

#include "coap_svc/rpc/coap_rpc_types.h"
#include "osal_avl3.h"

namespace coap_rpc {

inline void NodeInit(OSAL_AVL3_NODE &node) { node = OSAL_AVL3_NODE OSAL_AVL3_NODE_FRESH; }

// Table sees a tree root and its description as a table of `Rec`, linked through the node at byte
// `NodeAt`.  It owns nothing and adds no state.
template <typename Rec, typename Key, size_t NodeAt>
class Table {
 public:
  Table(OSAL_AVL3_TREE &tree, const OSAL_AVL3_DESC &desc) : tree_(tree), desc_(desc) {}

  void Init() { tree_ = {}; }
  bool IsEmpty() const { return tree_.root == nullptr; }
  Rec *Find(const Key *key) const { return RecordOf(OSAL_AVL3_Find(&tree_, &desc_, key)); }
  Rec *First() const { return RecordOf(OSAL_AVL3_First(&tree_, &desc_)); }

  // After returns the first record with a key greater than `key`, which need not be present.
  Rec *After(const Key *key) const {
    OSAL_AVL3_NODE *node = AVL3_Find_Or_Find_Next(&tree_, &desc_, key);
    if (node && desc_.cmp(KeyOf(node), key) == 0) node = OSAL_AVL3_Next(&tree_, node, &desc_);
    return RecordOf(node);
  }

  // Next returns the record after `rec`, which is in the table; null for null.
  Rec *Next(const Rec *rec) const {
    return rec ? RecordOf(OSAL_AVL3_Next(&tree_, NodeOf(rec), &desc_)) : nullptr;
  }

  // Insert makes the record's node fresh and inserts it.  False: an equal key is present and `rec`
  // is still the caller's.
  [[nodiscard]] bool Insert(Rec *rec) {
    NodeInit(*NodeOf(rec));
    return OSAL_AVL3_Insert_Or_Find(&tree_, &desc_, NodeOf(rec)) == nullptr;
  }

  void Remove(Rec *rec) { OSAL_AVL3_Delete(&tree_, NodeOf(rec), &desc_); }

  // Drain hands out the first record until none is left; `drop` must remove it.
  template <typename Drop>
  void Drain(Drop drop) {
    while (Rec *rec = First()) drop(rec);
  }

 private:
  static Rec *RecordOf(OSAL_AVL3_NODE *node) {
    return node ? reinterpret_cast<Rec *>(reinterpret_cast<char *>(node) - NodeAt) : nullptr;
  }
  static OSAL_AVL3_NODE *NodeOf(const Rec *rec) {
    return reinterpret_cast<OSAL_AVL3_NODE *>(reinterpret_cast<char *>(const_cast<Rec *>(rec)) +
                                              NodeAt);
  }
  const void *KeyOf(const OSAL_AVL3_NODE *node) const {
    return reinterpret_cast<const char *>(node) - NodeAt + desc_.keyOffset;
  }

  OSAL_AVL3_TREE &tree_;
  const OSAL_AVL3_DESC &desc_;
};

// FixedTable is a table whose layout and order are known when it is compiled.
template <typename Rec, typename Key, size_t NodeAt, size_t KeyAt, OSAL_AVL3_CMP Cmp>
class FixedTable : public Table<Rec, Key, NodeAt> {
 public:
  static constexpr OSAL_AVL3_DESC kDesc{Cmp, KeyAt, NodeAt};
  explicit FixedTable(OSAL_AVL3_TREE &tree) : Table<Rec, Key, NodeAt>(tree, kDesc) {}
};

}  // namespace coap_rpc

// COAP_RPC_TABLE(Rec, key, Key, Cmp) is the table type of records `Rec` with the members `node` and
// `key`, the key being read as `Key` and ordered by `Cmp`.
#define COAP_RPC_TABLE(Rec, key, Key, Cmp) \
  coap_rpc::FixedTable<Rec, Key, offsetof(Rec, node), offsetof(Rec, key), Cmp>

#endif /* COAP_RPC_TABLE_H */
