#pragma once

#include <boost/intrusive/avl_set.hpp>

class avl_bstree;

/// What makes an object fit for an `avl_bstree`: derive from it. A copy is in no tree.
class __bsnode : public boost::intrusive::avl_set_base_hook<
                     boost::intrusive::link_mode<boost::intrusive::safe_link>> { // NOLINT: the platform's own name
  public:
    /// Whether the node sits in a tree.
    bool is_in_tree() const { return is_linked(); }

  protected:
    __bsnode() = default;
    // NOLINTNEXTLINE(bugprone-copy-constructor-init): the link is not copied
    __bsnode(const __bsnode&) : avl_set_base_hook() {}
    __bsnode& operator=(const __bsnode&) { return *this; }
    ~__bsnode() = default;
};

/// A balanced tree of objects that it does not own, ordered by a function of the owner's; equal ones may stand in it,
/// side by side, in the order in which they came.
///
/// A node leaves the tree before it dies. A tree that dies lets go of its nodes. No locks, no allocation.
class avl_bstree {
  public:
    /// Below, at or above 0 when the first goes before, is equal to, goes behind the second.
    using Compare = int (*)(const __bsnode*, const __bsnode*);

    explicit avl_bstree(Compare compare) : nodes_(Order{compare}) {}
    avl_bstree(const avl_bstree&) = delete;
    avl_bstree& operator=(const avl_bstree&) = delete;

    /// \return false, with nothing changed, when there is no node or it sits in a tree already
    bool insert(__bsnode* node);
    /// Takes the very node out, whatever its key has become. It has to sit in this tree or in none.
    /// \return whether it sat in it
    bool remove(__bsnode* node);

    bool empty() const { return nodes_.empty(); }
    /// The first in order; null when there is none.
    __bsnode* first() const;
    /// The first of those that compare equal to `key`, which need not sit in the tree; null when there is none.
    __bsnode* find(const __bsnode* key) const;
    /// The neighbours of a node of this tree; null at the end, and for a node that sits in none.
    __bsnode* next(const __bsnode* node) const;
    __bsnode* previous(const __bsnode* node) const;

  private:
    struct Order {
        Compare compare;
        bool operator()(const __bsnode& a, const __bsnode& b) const { return compare(&a, &b) < 0; }
    };
    using Nodes = boost::intrusive::avl_multiset<__bsnode, boost::intrusive::compare<Order>,
                                                 boost::intrusive::constant_time_size<false>>;

    mutable Nodes nodes_;
};

/// A tree of `Node`s, which derive from `__bsnode`.
template <typename Tree, typename Node>
class c_bstree : private Tree {
  public:
    using Tree::empty;
    using Tree::Tree;

    bool insert(Node* node) { return Tree::insert(node); }
    bool remove(Node* node) { return Tree::remove(node); }
    Node* first() const { return static_cast<Node*>(Tree::first()); }
    Node* find(const Node* key) const { return static_cast<Node*>(Tree::find(key)); }
    Node* next(const Node* node) const { return static_cast<Node*>(Tree::next(node)); }
    Node* previous(const Node* node) const { return static_cast<Node*>(Tree::previous(node)); }
};
