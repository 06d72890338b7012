#pragma once

#include <glue/NV_store/NV_container.h>
#include <glue/NV_store/NV_pointer.h>

#include <platform/Mutex.h>
#include <platform/avl_bstree.h>

class module_man;

namespace NV_store {

/// The top of a settings tree: its lock, the identities under which its events are sent, and the registry of its
/// pointers. See `NV_item` for a sample, and for what the lock is held for.
class GLUE_EXPORT NV_root : public NV_struct {
  public:
    /// Without a module manager the tree sends no events to waiters.
    NV_root(module_man* modules, unsigned short id, const char* name);

    using NV_struct::signal_all;

    int get_type() const override;
    /// \return 0 for a kind below 0 or above 4
    unsigned short get_module_id(Reg_type kind) const override;

    /// Takes five module ids, one a kind of registration; without a module manager all are 0.
    void init(module_man* modules);

    /// Tells everybody in the tree, as after loading.
    void signal_all();

    // ---- Pointers ----

    /// \return false when the pointer is in a registry already
    bool add_pointer(NV_pointer* pointer);
    /// \return whether it was in the registry
    bool remove_pointer(NV_pointer* pointer);
    /// Orders pointers by the ids of their targets, those without one first.
    static int pointer_compare(const __bsnode* a, const __bsnode* b);
    /// Tells every pointer whose target bears the id of `item`. Listeners may point pointers at something else,
    /// but not destroy any.
    /// \return what the last of them returned; true when there is none
    bool notify_pointers(NV_item* item, bool changed, bool written, bool force, notify_t how, NV_root* root);

    /// The lock of the tree, see `NV_item::lock`.
    Mutex& mutex() const { return mutex_; }

  private:
    mutable Mutex mutex_;
    c_bstree<avl_bstree, NV_pointer> pointers_{pointer_compare};
    unsigned short module_ids_[5] = {};
};

/// What became of loading a whole file.
struct NV_load_result {
    unsigned loaded = 0; ///< records of the tree that were read: a full save, and the incremental ones behind it
    bool intact = false; ///< whether there was at least one, and nothing damaged behind it
};

/// Loads everything that an iterator, open for reading, has for a tree: a full save and what was appended to it, the
/// last value of a setting being the one that stays. Stops at the first record that is damaged or cut off: save the
/// whole tree then, for what is appended behind it would not be reached. Such a record may have put settings back to
/// their defaults; to have what stood in front of it, read from the beginning once more, with its result's `loaded` as
/// the limit. The caller holds the lock, if there are other threads, and calls `signal_all` afterwards.
/// \param limit  how many records to load at most; 0 counts as 1
GLUE_EXPORT NV_load_result load_all(NV_item& tree, NV_iterator& it, unsigned limit = 0xFFFFFFFF);

} // namespace NV_store
