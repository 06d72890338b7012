#pragma once

#include <glue/NV_store/NV_item.h>

#include <platform/avl_bstree.h>

namespace NV_store {

/// A setting whose value is another node of the tree.
///
/// It is saved as the path to that node, an `NV_path`. A pointer with a root is in the root's registry, ordered by the
/// id of its target, so that a change of a node can be passed on to the pointers to it (`NV_root::notify_pointers`). A
/// target outlives the pointer's use of it and keeps its id.
class GLUE_EXPORT NV_pointer : public NV_item, public __bsnode {
  public:
    /// A free-standing pointer, in no registry.
    NV_pointer();
    NV_pointer(NV_container* parent, NV_root* root, unsigned short id, const char* name);
    /// Removes itself from the registry.
    ~NV_pointer() override;
    /// A copy has the same target and adds itself to the registry.
    NV_pointer(const NV_pointer& other);
    NV_pointer& operator=(const NV_pointer&) = delete;

    using NV_item::deserialise;
    using NV_item::serialise;

    int get_type() const override;
    [[nodiscard]] bool serialise(NV_iterator* it) override;
    /// Sets the target to the node to which the stored path leads from the root, and notifies nobody. For a path that
    /// no longer leads to a node the target is null, the debug printer reports it, and loading goes on. A record that
    /// is cut off changes nothing.
    bool deserialise(NV_iterator* it) override;
    /// Pointers are valid in their own process only: nothing is sent to a peer or read from it.
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override;
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override;
    /// Sets no target, and notifies when that is a change.
    bool set_default(bool all) override;
    void _print(Debug::Dumper& dumper, const char* name) const override;

    /// The target; null when there is none.
    NV_item* get() const;
    NV_item* __get() const { return target_; }

    /// Points at a node, or at none, and notifies when that is a change.
    void set(NV_item* target, notify_t how);
    void _set(NV_item* target, notify_t how);
    void _set(NV_item& target, notify_t how) { _set(&target, how); }

    /// Reads one stored pointer and drops it. \return false when there is none or it is cut off
    static bool deserialise_unknown(NV_iterator* it);

  private:
    void point_at(NV_item* target);

    NV_item* target_ = nullptr;
    NV_path path_; ///< to the target, as it was last read
    NV_root* root_;
};

} // namespace NV_store
