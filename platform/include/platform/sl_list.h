#pragma once

#include <boost/intrusive/slist.hpp>

class sl_list;

/// What makes an object fit for an `sl_list`: derive from it.
///
/// The link belongs to the place in the list, not to the value: a copy is in no list, and an object that is assigned to
/// stays where it is.
class __slnode : public boost::intrusive::slist_base_hook<
                     boost::intrusive::link_mode<boost::intrusive::normal_link>> { // NOLINT: the platform's own name
  public:
    __slnode() = default;
    // NOLINTBEGIN(bugprone-copy-constructor-init,bugprone-unhandled-self-assignment): the link is not copied
    __slnode(const __slnode&) : slist_base_hook() {}
    __slnode& operator=(const __slnode&) { return *this; }
    // NOLINTEND(bugprone-copy-constructor-init,bugprone-unhandled-self-assignment)

    /// Whether the node sits in a list.
    bool is_in_list() const { return list_ != nullptr; }

  protected:
    ~__slnode() = default;

  private:
    friend class sl_list;
    const sl_list* list_ = nullptr;
};

/// A singly linked list of objects that it does not own, in the order in which they were put in.
///
/// The end of neither tells the other: a node that is destroyed while it sits in a list leaves a list that must not be
/// used any more, and may only be destroyed; a node that outlives the list it sits in is fit for no other. No locks,
/// no allocation.
class sl_list {
  public:
    sl_list() = default;
    sl_list(const sl_list&) = delete;
    sl_list& operator=(const sl_list&) = delete;

    /// \return false, with nothing changed, when there is no node or it sits in a list already
    bool push_back(__slnode* node);
    /// \return whether the node sat in this list
    bool remove(__slnode* node);

    bool empty() const { return nodes_.empty(); }
    /// The oldest node; null when there is none.
    __slnode* first() const;
    /// The node behind one of this list; null at the end, and for a node that does not sit in it.
    __slnode* next(const __slnode* node) const;

  private:
    using Nodes = boost::intrusive::slist<__slnode, boost::intrusive::cache_last<true>,
                                          boost::intrusive::constant_time_size<false>>;

    mutable Nodes nodes_;
};
