#pragma once

#include <boost/intrusive/slist.hpp>

class sl_list;

/// The base of the objects in an `sl_list`.
///
/// The link is not part of the value: a copy is in no list, and an assignment does not move an object.
class __slnode : public boost::intrusive::slist_base_hook<
                     boost::intrusive::link_mode<boost::intrusive::normal_link>> { // NOLINT: the platform's own name
  public:
    __slnode() = default;
    // NOLINTBEGIN(bugprone-copy-constructor-init,bugprone-unhandled-self-assignment): the link is not copied
    __slnode(const __slnode&) : slist_base_hook() {}
    __slnode& operator=(const __slnode&) { return *this; }
    // NOLINTEND(bugprone-copy-constructor-init,bugprone-unhandled-self-assignment)

    /// Whether the node is in a list.
    bool is_in_list() const { return list_ != nullptr; }

  protected:
    ~__slnode() = default;

  private:
    friend class sl_list;
    const sl_list* list_ = nullptr;
};

/// A singly linked list of objects that it does not own, in the order in which they were appended.
///
/// Destroying a node or a list does not notify the other: a list whose node was destroyed may only be destroyed, too; a
/// node whose list was destroyed cannot be added to another list. No locks, no allocation.
class sl_list {
  public:
    sl_list() = default;
    sl_list(const sl_list&) = delete;
    sl_list& operator=(const sl_list&) = delete;

    /// \return false, with nothing changed, when `node` is null or already in a list
    bool push_back(__slnode* node);
    /// \return whether the node was in this list
    bool remove(__slnode* node);

    bool empty() const { return nodes_.empty(); }
    /// The oldest node; null when there is none.
    __slnode* first() const;
    /// The node after one of this list; null at the end, and for a node that is not in it.
    __slnode* next(const __slnode* node) const;

  private:
    using Nodes = boost::intrusive::slist<__slnode, boost::intrusive::cache_last<true>,
                                          boost::intrusive::constant_time_size<false>>;

    mutable Nodes nodes_;
};
