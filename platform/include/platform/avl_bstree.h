#pragma once

#include <boost/intrusive/avl_set.hpp>

class avl_bstree;

/// The base of the objects in an `avl_bstree`. A copy is in no tree.
class __bsnode : public boost::intrusive::avl_set_base_hook<
                     boost::intrusive::link_mode<boost::intrusive::safe_link>> { // NOLINT: the platform's own name
  public:
    /// Whether the node is in a tree.
    bool is_in_tree() const { return is_linked(); }

  protected:
    __bsnode() = default;
    // NOLINTNEXTLINE(bugprone-copy-constructor-init): the link is not copied
    __bsnode(const __bsnode&) : avl_set_base_hook() {}
    __bsnode& operator=(const __bsnode&) { return *this; }
    ~__bsnode() = default;
};

/// A balanced tree of objects that it does not own, ordered by a comparison function. Equal objects are allowed; they
/// are neighbours, in the order of insertion.
///
/// Remove a node before it is destroyed. A tree that is destroyed releases its nodes. No locks, no allocation.
class avl_bstree {
  public:
    /// Negative, 0 or positive when the first is before, equal to or after the second.
    using Compare = int (*)(const __bsnode*, const __bsnode*);

    explicit avl_bstree(Compare compare) : nodes_(Order{compare}) {}
    avl_bstree(const avl_bstree&) = delete;
    avl_bstree& operator=(const avl_bstree&) = delete;

    /// \return false, with nothing changed, when `node` is null or already in a tree
    bool insert(__bsnode* node);
    /// Removes exactly this node, even if its key has changed. It must be in this tree or in none.
    /// \return whether it was in the tree
    bool remove(__bsnode* node);

    bool empty() const { return nodes_.empty(); }
    /// The first in order; null when there is none.
    __bsnode* first() const;
    /// The first of those that compare equal to `key`, which need not be in the tree; null when there is none.
    __bsnode* find(const __bsnode* key) const;
    /// The neighbours of a node of this tree; null at the end, and for a node that is in no tree.
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
