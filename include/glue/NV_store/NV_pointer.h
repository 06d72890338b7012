#pragma once

#include <glue/NV_store/NV_item.h>

#include <platform/avl_bstree.h>

namespace NV_store {

/// A setting whose value is another node of the tree.
///
/// It is saved as the way to that node, an `NV_path`. A pointer with a root sits in the root's registry, ordered by
/// the id of its target, so that a change of a node can be passed on to those that point at it
/// (`NV_root::notify_pointers`). A target outlives the pointer's use of it, and keeps its id.
class GLUE_EXPORT NV_pointer : public NV_item, public __bsnode {
  public:
    /// A free-standing pointer, in no registry.
    NV_pointer();
    NV_pointer(NV_container* parent, NV_root* root, unsigned short id, const char* name);
    /// Leaves the registry.
    ~NV_pointer() override;
    /// A copy has the target and joins the registry itself.
    NV_pointer(const NV_pointer& other);
    NV_pointer& operator=(const NV_pointer&) = delete;

    using NV_item::deserialise;
    using NV_item::serialise;

    int get_type() const override;
    bool serialise(NV_iterator* it) override;
    /// Sets the target to the node that the stored path leads to from the root, without telling anybody. A path that
    /// leads nowhere any more leaves it null; a line through the debug printer says so, and loading goes on.
    /// What is cut off changes nothing.
    bool deserialise(NV_iterator* it) override;
    /// Pointers stay within their own process: nothing is sent to a peer, nor taken from it.
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override;
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override;
    /// No target. Tells of the change.
    bool set_default(bool all) override;
    void _print(Debug::Dumper& dumper, const char* name) const override;

    /// The target; null when there is none.
    NV_item* get() const;
    NV_item* __get() const { return target_; }

    /// Points at another node, or at none, and tells of it when that is a change.
    void set(NV_item* target, notify_t how);
    void _set(NV_item* target, notify_t how);
    void _set(NV_item& target, notify_t how) { _set(&target, how); }

    /// Reads one stored pointer and drops it. \return false when there is none, or less than one
    static bool deserialise_unknown(NV_iterator* it);

  private:
    void point_at(NV_item* target);

    NV_item* target_ = nullptr;
    NV_path path_; ///< the way to the target, as it was last read
    NV_root* root_;
};

} // namespace NV_store
