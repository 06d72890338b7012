#pragma once

#include <glue/NV_store/NV_container.h>
#include <glue/NV_store/NV_pointer.h>

#include <platform/Mutex.h>
#include <platform/avl_bstree.h>

class module_man;

namespace NV_store {

/// The top of a settings tree: its lock, the module ids under which its events are sent, and the registry of its
/// pointers. See `NV_item` for a sample and for the operations that acquire the lock.
class GLUE_EXPORT NV_root : public NV_struct {
  public:
    /// Without a module manager the tree sends no events to waiters.
    NV_root(module_man* modules, unsigned short id, const char* name);

    using NV_struct::signal_all;

    int get_type() const override;
    /// \return 0 for a kind below 0 or above 4
    unsigned short get_module_id(Reg_type kind) const override;

    /// Requests five module ids, one for each kind of registration; without a module manager all are 0.
    void init(module_man* modules);

    /// Notifies all listeners in the tree, for example after loading.
    void signal_all();

    // ---- Pointers ----

    /// \return false when the pointer is in a registry already
    bool add_pointer(NV_pointer* pointer);
    /// \return whether it was in the registry
    bool remove_pointer(NV_pointer* pointer);
    /// Orders pointers by the ids of their targets, those without a target first.
    static int pointer_compare(const __bsnode* a, const __bsnode* b);
    /// Notifies the listeners of every pointer whose target has the id of `item`. Listeners may change the targets of
    /// pointers but not destroy pointers.
    /// \return the result of the last notification; true when there is none
    bool notify_pointers(NV_item* item, bool changed, bool written, bool force, notify_t how, NV_root* root);

    /// The lock of the tree, see `NV_item::lock`.
    Mutex& mutex() const { return mutex_; }

  private:
    mutable Mutex mutex_;
    c_bstree<avl_bstree, NV_pointer> pointers_{pointer_compare};
    unsigned short module_ids_[5] = {};
};

/// The result of loading a whole file.
struct NV_load_result {
    unsigned loaded = 0; ///< saves that were loaded: a full one, and the incremental ones after it
    bool intact = false; ///< whether there was at least one save, and no damage after it
};

/// Loads all saves that an iterator, open for reading, has of a tree: a full one and those that were appended. The last
/// value of a setting stays. Stops at the first record that is damaged or cut off: save the whole tree then, because a
/// later load would not reach saves that are appended after it. Such a record may have set settings to their defaults;
/// to get the values before it, read from the beginning again, with the `loaded` of the first result as the limit. The
/// caller holds the lock, if there are other threads, and calls `signal_all` afterwards.
/// \param limit  the number of saves to load at most; 0 counts as 1
GLUE_EXPORT NV_load_result load_all(NV_item& tree, NV_iterator& it, unsigned limit = 0xFFFFFFFF);

} // namespace NV_store
