/* osal_avl3.h: intrusive balanced trees (AVL) of records that carry their own node.
 *
 * The tree owns nothing and allocates nothing.  An all-zero root is an empty tree.  A fresh node
 * has zero links and both heights -1 (OSAL_AVL3_NODE_FRESH); deleting it from its tree restores
 * that state. */
#ifndef OSAL_AVL3_H
#define OSAL_AVL3_H

#include "kst_base.h"

KST_C_BEGIN

typedef struct OSAL_AVL3_NODE {
  struct OSAL_AVL3_NODE *parent;
  struct OSAL_AVL3_NODE *left;
  struct OSAL_AVL3_NODE *right;
  int16_t leftHeight;  /* -1 while not in a tree; the host's own balance data otherwise */
  int16_t rightHeight; /* as leftHeight */
} OSAL_AVL3_NODE;

#define OSAL_AVL3_NODE_FRESH \
  { NULL, NULL, NULL, -1, -1 }

/* OSAL_AVL3_TREE is a root: three words, all zero while the tree is empty. */
typedef struct OSAL_AVL3_TREE {
  OSAL_AVL3_NODE *root;
  OSAL_AVL3_NODE *first;
  OSAL_AVL3_NODE *last;
} OSAL_AVL3_TREE;

/* OSAL_AVL3_CMP orders two keys: negative, zero or positive for less, equal, greater. */
typedef int32_t (*OSAL_AVL3_CMP)(const void *a, const void *b);

/* OSAL_AVL3_DESC describes the layout of a tree's records. */
typedef struct OSAL_AVL3_DESC {
  OSAL_AVL3_CMP cmp;
  uint16_t keyOffset;  /* bytes from the start of the record to its key */
  uint16_t nodeOffset; /* bytes from the start of the record to its node */
} OSAL_AVL3_DESC;

/* OSAL_AVL3_Insert_Or_Find inserts `node`, which is in no tree.
 *
 * Returns null if it was inserted, else the existing node with an equal key (`node` is then
 * unchanged). */
KST_API OSAL_AVL3_NODE *OSAL_AVL3_Insert_Or_Find(OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc,
                                                 OSAL_AVL3_NODE *node);

/* OSAL_AVL3_Find returns the node whose key equals `key`, or null. */
KST_API OSAL_AVL3_NODE *OSAL_AVL3_Find(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc,
                                       const void *key);

/* OSAL_AVL3_First returns the node with the smallest key, or null. */
KST_API OSAL_AVL3_NODE *OSAL_AVL3_First(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc);

/* OSAL_AVL3_Next returns the node after `node` in key order, or null at the end. */
KST_API OSAL_AVL3_NODE *OSAL_AVL3_Next(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_NODE *node,
                                       const OSAL_AVL3_DESC *desc);

/* OSAL_AVL3_Delete removes `node` from `tree` and makes it fresh.  A fresh node is ignored.
 * REQUIRES: a node that is not fresh is in this tree. */
KST_API void OSAL_AVL3_Delete(OSAL_AVL3_TREE *tree, OSAL_AVL3_NODE *node,
                              const OSAL_AVL3_DESC *desc);

/* AVL3_Find_Or_Find_Next returns the node whose key equals `key`, else the one with the next
 * greater key, or null. */
KST_API OSAL_AVL3_NODE *AVL3_Find_Or_Find_Next(const OSAL_AVL3_TREE *tree,
                                               const OSAL_AVL3_DESC *desc, const void *key);

KST_C_END
#endif /* OSAL_AVL3_H */
