#pragma once

#include <glue/NV_store/NV_path.h>
#include <glue/NV_store/NV_waiter.h>
#include <glue/export.h>

#include <platform/Data_item.h>
#include <platform/Dumper.h>
#include <platform/NV_iterator.h>

#include <QObject>

struct waiter_event;

namespace NV_store {

class NV_container;
class NV_root;

/// A node of a tree of persistent settings: what all nodes have in common.
///
/// A node has an id that it is saved under, a name that people and lookups use, a parent, flags that say whether it
/// needs saving, and listeners: platform waiters, told by events, and Qt slots, told by `value_changed`.
///
///     struct Guidance : NV_store::NV_struct {
///         Guidance(NV_container* parent, unsigned short id) : NV_struct(parent, nullptr, id, "guidance") {}
///         NV_store::NV_number<float, 10> swath_width{this, 1, 12.0F, "swath_width"};
///         NV_store::NV_number<bool, 2> beeper{this, 2, true, "beeper"};
///     };
///
///     NV_store::NV_root settings(&modules, 0, "settings");
///     Guidance guidance(&settings, 1);
///     settings._set_root(&settings);       // once the tree stands
///     QObject::connect(&guidance.beeper, qOverload<>(&NV_store::NV_item::value_changed), redraw);
///     guidance.swath_width.set(9.5F);      // tells guidance's and settings' listeners, too
///
/// **Ownership.** The application owns every node; a tree only links them. A node that goes while its tree is still
/// used has to be taken out first (`remove_child`, `_set_parent(nullptr)`). Names are not copied.
///
/// **Threads.** One lock guards a tree; it is in the root and not recursive. `get`, `set` and the operators of numbers,
/// enumerations and pointers take it, and so do the registrations of waiters: calling one of those while holding the
/// lock aborts the process. Everything else (operations that begin with an underscore, telling, saving, loading,
/// looking up, adding and removing nodes) leaves it to the caller.
///
/// **Within a notification** the lock is held by the thread that made the change. A slot that is called from there may
/// use the operations with an underscore on any node of the tree, set this very node again (`_set`; its notification
/// runs inside the first one), and save or load. It must not call what takes the lock (`get`, `set`, the
/// registrations), and not destroy nodes. Events to waiters are only queued there: whoever receives one may call
/// anything.
class GLUE_EXPORT NV_item : public QObject, public Data_item {
    Q_OBJECT

  public:
    // Flags

    static constexpr unsigned char dirty_write = 1;  ///< reported as written since it was saved
    static constexpr unsigned char dirty_change = 2; ///< reported as changed since it was saved
    static constexpr unsigned char pristine = 4;     ///< neither changed nor loaded since it was made

    /// Joins the children of `parent`, unless that is null. An id that one of them has already ends the process; see
    /// `NV_container::add_child`.
    NV_item(NV_container* parent, unsigned short id, const char* name);
    /// A copy has the flags, the name, the parent and the id, but is no child of that parent's. It shares the
    /// registrations of waiters, if there are any. Slots stay with the original.
    NV_item(const NV_item& other);
    NV_item& operator=(const NV_item& other);
    void copy(const NV_item& other);

    // Virtual operations: their order is part of the binary interface.

    /// What the node is, a `DTS::Defs::Type`.
    virtual int get_type() const = 0;
    /// The module id under which events of a kind are sent; 0 without a root.
    virtual unsigned short get_module_id(Reg_type kind) const;
    /// Writes the node, as far as the iterator's mode includes it, and clears both dirty flags.
    /// \return false, with the flags of whatever was not written still set, when the iterator failed
    virtual bool serialise(NV_iterator* it) = 0;
    /// Reads the node's record, which tells nobody.
    /// \return false when it is damaged, cut off or another node's
    virtual bool deserialise(NV_iterator* it) = 0;
    /// Pushes the ids from `target` up to this node. \return 0, or -1 when it is not below here or the path is full
    virtual int build_path(NV_path* path, const NV_item* target) const;
    /// The node that the path leads to from here, its last id being this node's; null, with the path as it was, when
    /// there is none. The ids on the way are taken from the path.
    virtual NV_item* __follow_path(NV_path* path);
    /// Back to the value at construction. \return whether that is possible
    virtual bool set_default(bool all);
    /// How many dimensions the value has; 0: it is a single one.
    virtual int get_dimension() const;
    virtual void _set_root(NV_root* root);
    virtual const char* get_name() const;
    /// The node that names separated by '.' lead to; this one for "".
    Data_item* find_data_item(const char* path) override;
    /// The node of this data number, here or below.
    Data_item* find_data_item(unsigned short number) override;
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override = 0;
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override = 0;
    bool serialise_structure(CDS::Remote::Send_buffer& buffer, int depth) override;
    /// Widens a range of data numbers so that it holds those from here down.
    virtual void set_minmax(unsigned short& lo, unsigned short& hi);
    int _to_string(char* buf, int len) const override;
    /// Sets the value from text. \return the position behind what was read; null, when that was nothing
    virtual const char* _from_string(const char* text);
    /// The node that `spec` names, this one or below; `separator` stands between names. Null when there is none.
    virtual NV_item* _search(const char* spec, char separator);
    /// Tells everybody from here down, as after loading. Sets no flag.
    virtual void signal_all(NV_root* root);
    /// The next node in the order of a walk through the tree below `stop`, parents first; null at its end.
    virtual NV_item* get_next_in_tree(NV_item* stop);
    virtual void _print(Debug::Dumper& dumper, const char* name) const = 0;
    virtual void print(Debug::Dumper& dumper) const;

    // ---- Identity ----

    unsigned short get_id() const { return id_; }
    unsigned char get_flags() const { return flags_; }
    NV_container* get_parent() const { return parent_; }
    NV_root* _get_root() const;
    /// The name, or, in a container that addresses its children by position, the position in decimal. Cut to `len`
    /// characters; a name that fills them is not terminated. \return true
    bool get_path_name(char* buf, int len) const;
    NV_item* follow_path(NV_path path);

    /// Leaves the old parent and joins the children of the new one; null: none.
    void _set_parent(NV_container* parent);

    // ---- The lock of the tree; nothing without a root ----

    void lock() const;
    void unlock() const;

    // ---- Telling of changes ----

    /// Marks and tells that the value was changed or written. Without `changed` or `force` nothing at all happens.
    /// \return true: a waiter that cannot be told stops nothing
    bool notify_updated(bool changed, bool written, bool force, notify_t how, const NV_root* root);
    /// The same for a value that was written just now.
    bool notify_updated(bool changed, notify_t how);

    /// Whether the event was sent for this item by an `autoreg_waiter` registration.
    bool is_event(const waiter_event& event) const;

    // Registering waiters, each under the lock; the event's target is what the second column says
    //
    // A waiter must not be destroyed before it is unregistered. `on_change_only` holds nothing back as long as changes
    // are what is told of: it is kept for makers who send unforced events.

    bool register_waiter(waiter_descriptor* waiter, unsigned int number, bool on_change_only); // the number
    bool autoreg_waiter(waiter_descriptor* waiter, bool on_change_only);                       // this item
    bool register_access_waiter(waiter_descriptor* waiter, Access_base* access, bool on_change_only);
    bool register_virt_access_waiter(waiter_descriptor* waiter, Virt_access* access, bool on_change_only);
    bool unregister_waiter(waiter_descriptor* waiter, unsigned int number);
    bool autounreg_waiter(waiter_descriptor* waiter);
    bool unregister_access_waiter(waiter_descriptor* waiter, Access_base* access);
    bool unregister_virt_access_waiter(waiter_descriptor* waiter, Virt_access* access);

    // ---- Saving ----

    /// Whether the item takes part in what the iterator is doing.
    /// \param ok               set to whether the iterator is open for writing, unless its selector decides
    /// \param ignore_selector  do not ask the iterator's selector
    bool include_in_serialise(const NV_iterator* it, bool& ok, bool ignore_selector) const;

    /// Passes over a stored record that no node is there for.
    /// \return false when the record is damaged or of a type that cannot be passed over
    static bool deserialise_unknown_handoff(NV_iterator* it);

    /// Sets dirty flags again that a save has cleared, for whoever finds out later that its bytes were lost. Tells
    /// nobody. An addition of ours.
    /// \param flags  of these `dirty_write` and `dirty_change`; others are left as they are
    void give_back_dirty(unsigned char flags) {
        flags_ = static_cast<unsigned char>(flags_ | (flags & (dirty_write | dirty_change)));
    }

  Q_SIGNALS:
    void value_changed();
    void value_changed(NV_store::NV_item* item);

  protected:
    /// For containers, which the operations above have to know from others.
    NV_item(NV_container* parent, unsigned short id, const char* name, NV_container* self);

    void clear_dirty() { flags_ &= static_cast<unsigned char>(~(dirty_write | dirty_change)); }
    void clear_pristine() { flags_ &= static_cast<unsigned char>(~pristine); }
    /// The type byte of the node's headers.
    unsigned char own_type_byte() const { return get_type_byte(get_dimension(), get_type()); }

  private:
    bool add_waiter(const NV_waiter_reg& registration);
    bool remove_waiter(const NV_waiter_reg& registration);

    unsigned char flags_ = pristine;
    const char* name_;
    NV_waiter_list waiters_;
    NV_container* parent_;
    unsigned short id_;
    NV_container* self_ = nullptr; ///< this node as a container, when it is one
};

/// A selector that leaves the decision to the items; the one to derive from.
class GLUE_EXPORT NV_default_selector : public NV_iterator::NV_selector {
  public:
    bool include_in_serialise(const NV_item& item, const NV_iterator* it, bool& ok,
                              bool ignore_selector) const override;
};

/// Holds the lock of an item's tree for a scope.
class NV_lock {
  public:
    explicit NV_lock(const NV_item& item) : item_(item) { item_.lock(); }
    ~NV_lock() { item_.unlock(); }
    NV_lock(const NV_lock&) = delete;
    NV_lock& operator=(const NV_lock&) = delete;

  private:
    const NV_item& item_;
};

} // namespace NV_store
