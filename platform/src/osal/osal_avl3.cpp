/* osal_avl3.cpp: the intrusive AVL tree on Boost.Intrusive's algorithms.
 *
 * Those algorithms want a header node whose links are root, first and last.  A tree keeps only
 * these three words, so a header lives on the stack while a tree is changed; looking things up
 * needs none.  A node's balance is kept in its two heights: the higher side has 1, the other 0. */
#include "osal_avl3.h"

#include <boost/intrusive/avltree_algorithms.hpp>

namespace {

using Node = OSAL_AVL3_NODE;
using Tree = OSAL_AVL3_TREE;
using Desc = OSAL_AVL3_DESC;

constexpr size_t kCacheLine = 64;

enum class Lean { kLeft, kEven, kRight };

// NOLINTBEGIN(readability-identifier-naming): the names that the algorithms ask for
struct NodeTraits {
  using node = Node;
  using node_ptr = Node *;
  using const_node_ptr = const Node *;
  using balance = Lean;

  static node_ptr get_parent(const_node_ptr n) { return n->parent; }
  static void set_parent(node_ptr n, node_ptr parent) { n->parent = parent; }
  static node_ptr get_left(const_node_ptr n) { return n->left; }
  static void set_left(node_ptr n, node_ptr left) { n->left = left; }
  static node_ptr get_right(const_node_ptr n) { return n->right; }
  static void set_right(node_ptr n, node_ptr right) { n->right = right; }

  static balance get_balance(const_node_ptr n) {
    if (n->leftHeight == n->rightHeight) return Lean::kEven;
    return n->leftHeight > n->rightHeight ? Lean::kLeft : Lean::kRight;
  }
  static void set_balance(node_ptr n, balance lean) {
    n->leftHeight = lean == Lean::kLeft ? 1 : 0;
    n->rightHeight = lean == Lean::kRight ? 1 : 0;
  }
  static balance negative() { return Lean::kLeft; }
  static balance zero() { return Lean::kEven; }
  static balance positive() { return Lean::kRight; }
};
// NOLINTEND(readability-identifier-naming)

using Algorithms = boost::intrusive::avltree_algorithms<NodeTraits>;

// Header lends a tree its header node while the tree is changed.
class Header {
 public:
  explicit Header(Tree &tree) : tree_(tree) {
    if (!tree.root) {
      node_ = {nullptr, &node_, &node_, 0, 0};
      return;
    }
    node_ = {tree.root, tree.first, tree.last, 0, 0};
    tree.root->parent = &node_;
  }
  ~Header() {
    if (!node_.parent) {
      tree_ = {};
      return;
    }
    tree_ = {node_.parent, node_.left, node_.right};
    tree_.root->parent = nullptr;
  }
  Header(const Header &) = delete;
  Header &operator=(const Header &) = delete;

  Node *Get() { return &node_; }

 private:
  Tree &tree_;
  Node node_;
};

const void *KeyOf(const Node *node, const Desc &desc) {
  return reinterpret_cast<const char *>(node) - desc.nodeOffset + desc.keyOffset;
}

bool IsLinked(const Tree &tree, const Node *node) { return node->parent || tree.root == node; }

Node *Leftmost(Node *node) {
  while (node->left) node = node->left;
  return node;
}

// Prefetch lets the processor fetch what the next step of a search may look at: a large tree lies
// in memory, and a step would wait there twice, for the node and for the end of its key.
void Prefetch(const Node *node, const Desc &desc) {
  if (!node) return;
  __builtin_prefetch(node);
  __builtin_prefetch(static_cast<const char *>(KeyOf(node, desc)) + kCacheLine);
}

// SearchResult is where a search for a key ended: at an equal node, or below `parent` on one side.
struct SearchResult {
  Node *equal = nullptr;
  Node *parent = nullptr;
  bool onLeft = true;
  Node *lastGreater = nullptr;
};

SearchResult Search(const Tree &tree, const Desc &desc, const void *key) {
  SearchResult result;
  for (Node *node = tree.root; node; node = result.onLeft ? node->left : node->right) {
    Prefetch(node->left, desc);
    Prefetch(node->right, desc);
    const int32_t order = desc.cmp(key, KeyOf(node, desc));
    if (order == 0) {
      result.equal = node;
      return result;
    }
    result.parent = node;
    result.onLeft = order < 0;
    if (result.onLeft) result.lastGreater = node;
  }
  return result;
}

}  // namespace

OSAL_AVL3_NODE *OSAL_AVL3_Insert_Or_Find(OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc,
                                         OSAL_AVL3_NODE *node) {
  const SearchResult result = Search(*tree, *desc, KeyOf(node, *desc));
  if (result.equal) return result.equal;

  Header header(*tree);
  Algorithms::insert_commit_data commit;
  commit.node = result.parent ? result.parent : header.Get();
  commit.link_left = result.onLeft;
  Algorithms::insert_unique_commit(header.Get(), node, commit);
  return nullptr;
}

OSAL_AVL3_NODE *OSAL_AVL3_Find(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc,
                               const void *key) {
  return Search(*tree, *desc, key).equal;
}

OSAL_AVL3_NODE *OSAL_AVL3_First(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *) {
  return tree->first;
}

OSAL_AVL3_NODE *OSAL_AVL3_Next(const OSAL_AVL3_TREE *, const OSAL_AVL3_NODE *node,
                               const OSAL_AVL3_DESC *) {
  if (node->right) return Leftmost(node->right);
  const Node *child = node;
  Node *parent = node->parent;
  while (parent && parent->right == child) {
    child = parent;
    parent = parent->parent;
  }
  return parent;
}

void OSAL_AVL3_Delete(OSAL_AVL3_TREE *tree, OSAL_AVL3_NODE *node, const OSAL_AVL3_DESC *) {
  if (!IsLinked(*tree, node)) return;
  {
    Header header(*tree);
    Algorithms::erase(header.Get(), node);
  }
  *node = OSAL_AVL3_NODE_FRESH;
}

OSAL_AVL3_NODE *AVL3_Find_Or_Find_Next(const OSAL_AVL3_TREE *tree, const OSAL_AVL3_DESC *desc,
                                       const void *key) {
  const SearchResult result = Search(*tree, *desc, key);
  return result.equal ? result.equal : result.lastGreater;
}
