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
/// A node has an id under which it is saved, a name for people and lookups, a parent, flags that record whether it
/// needs saving, and listeners: platform waiters, which receive events, and Qt slots, connected to `value_changed`.
///
///     struct Guidance : NV_store::NV_struct {
///         Guidance(NV_container* parent, unsigned short id) : NV_struct(parent, nullptr, id, "guidance") {}
///         NV_store::NV_number<float, 10> swath_width{this, 1, 12.0F, "swath_width"};
///         NV_store::NV_number<bool, 2> beeper{this, 2, true, "beeper"};
///     };
///
///     NV_store::NV_root settings(&modules, 0, "settings");
///     Guidance guidance(&settings, 1);
///     settings._set_root(&settings);       // once the tree is complete
///     QObject::connect(&guidance.beeper, qOverload<>(&NV_store::NV_item::value_changed), redraw);
///     guidance.swath_width.set(9.5F);      // notifies the listeners of guidance and settings, too
///
/// **Ownership.** The application owns every node; a tree only links them. A node that is destroyed while its tree is
/// still used has to be removed first (`remove_child`, `_set_parent(nullptr)`). Names are not copied.
///
/// **Threads.** One lock guards a tree; it is in the root and not recursive. `get`, `set` and the operators of numbers,
/// enumerations and pointers acquire it, and so do the registrations of waiters: calling one of those while holding the
/// lock aborts the process. All other operations (those that begin with an underscore, notifying, saving, loading,
/// looking up, adding and removing nodes) leave it to the caller.
///
/// **Within a notification** the thread that made the change holds the lock. A slot that is called there may use the
/// operations with an underscore on any node of the tree, set the same node again (`_set`; its notification runs
/// inside the first one), and save or load. It must not call an operation that acquires the lock (`get`, `set`, the
/// registrations), nor destroy nodes. Events to waiters are only queued there: their receiver may call anything.
class GLUE_EXPORT NV_item : public QObject, public Data_item {
    Q_OBJECT

  public:
    // ---- Flags ----

    static constexpr unsigned char dirty_write = 1;  ///< reported as written since it was saved
    static constexpr unsigned char dirty_change = 2; ///< reported as changed since it was saved
    static constexpr unsigned char pristine = 4;     ///< neither changed nor loaded since its construction

    /// Becomes a child of `parent`, unless that is null. If another child has the same id, the process ends; see
    /// `NV_container::add_child`.
    NV_item(NV_container* parent, unsigned short id, const char* name);
    /// A copy has the flags, the name, the parent and the id, but is not among the children of that parent. It shares
    /// the registrations of waiters, if there are any. Slots stay with the original.
    NV_item(const NV_item& other);
    NV_item& operator=(const NV_item& other);
    /// Assigns all properties of a node except those of `Data_item`; assigning a node to itself changes nothing.
    void copy(const NV_item& other);

    // ---- Virtual operations: their order is part of the binary interface ----

    /// The type code of the node, a `DTS::Defs::Type`.
    virtual int get_type() const = 0;
    /// The module id under which events of a kind are sent; 0 without a root.
    virtual unsigned short get_module_id(Reg_type kind) const;
    /// Writes the node, if the iterator's mode includes it, and clears both dirty flags.
    /// \return false when the iterator failed; nodes that were not written keep their flags
    [[nodiscard]] virtual bool serialise(NV_iterator* it) = 0;
    /// Reads the node's record and notifies nobody.
    /// \return false when the record is damaged, cut off or another node's
    virtual bool deserialise(NV_iterator* it) = 0;
    /// Pushes the ids from `target` up to this node. \return 0; -1 when the target is not below this node or the path
    ///         is full
    virtual int build_path(NV_path* path, const NV_item* target) const;
    /// The node to which the path leads from this node, whose id is the last one. The ids that led there are removed.
    /// \return null, with the path unchanged, when there is no such node
    virtual NV_item* __follow_path(NV_path* path);
    /// Sets the value at construction again. \return whether that is possible
    virtual bool set_default(bool all);
    /// The number of dimensions of the value; 0: a single value.
    virtual int get_dimension() const;
    /// Sets the root of a container and of the containers below; does nothing in a leaf.
    virtual void _set_root(NV_root* root);
    /// The name, "" when there is none.
    virtual const char* get_name() const;
    /// The node to which names separated by '.' lead; this one for "".
    Data_item* find_data_item(const char* path) override;
    /// The node with this data number: this one or one below.
    Data_item* find_data_item(unsigned short number) override;
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override = 0;
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override = 0;
    bool serialise_structure(CDS::Remote::Send_buffer& buffer, int depth) override;
    /// Widens a range of data numbers so that it includes those of this node and the nodes below.
    virtual void set_minmax(unsigned short& lo, unsigned short& hi);
    int _to_string(char* buf, int len) const override;
    /// Sets the value from text. \return the position after the value; null when there is no value
    virtual const char* _from_string(const char* text);
    /// The node that `spec` names: this one or one below. `separator` separates names. Null when there is none.
    virtual NV_item* _search(const char* spec, char separator);
    /// Notifies the listeners of this node and of all nodes below, for example after loading. Sets no flag.
    virtual void signal_all(NV_root* root);
    /// The next node in a walk through the tree below `stop`, parents first; null at the end.
    virtual NV_item* get_next_in_tree(NV_item* stop);
    /// Prints the value under a name, and under its own name.
    virtual void _print(Debug::Dumper& dumper, const char* name) const = 0;
    virtual void print(Debug::Dumper& dumper) const;

    // ---- Identity ----

    unsigned short get_id() const { return id_; }
    unsigned char get_flags() const { return flags_; }
    NV_container* get_parent() const { return parent_; }
    NV_root* _get_root() const;
    /// The name; in a container that addresses its children by position, the position in decimal. Cut to `len`
    /// characters; a name that fills them is not terminated. \return true
    bool get_path_name(char* buf, int len) const;
    /// As `__follow_path`, with a copy of the path.
    NV_item* follow_path(NV_path path);

    /// Leaves the children of the old parent and joins those of the new one; null: no parent.
    void _set_parent(NV_container* parent);

    // ---- The lock of the tree; without a root these do nothing ----

    void lock() const;
    void unlock() const;

    // ---- Notifying of changes ----

    /// Sets the flags and notifies the listeners that the value was changed or written. Without `changed` or `force` it
    /// does nothing.
    /// \return true: a waiter that cannot be notified stops nothing
    bool notify_updated(bool changed, bool written, bool force, notify_t how, const NV_root* root);
    /// The same for a value that was just written.
    bool notify_updated(bool changed, notify_t how);

    /// Whether the event was sent for this item by an `autoreg_waiter` registration.
    bool is_event(const waiter_event& event) const;

    // ---- Registering waiters, each under the lock ----
    //
    // The event's target is the number, this item or the accessor. A waiter must be unregistered before it is
    // destroyed. `on_change_only` suppresses no event that this class sends: all of them are forced. It is for events
    // that a derived class sends itself.

    bool register_waiter(waiter_descriptor* waiter, unsigned int number, bool on_change_only);
    bool autoreg_waiter(waiter_descriptor* waiter, bool on_change_only);
    bool register_access_waiter(waiter_descriptor* waiter, Access_base* access, bool on_change_only);
    bool register_virt_access_waiter(waiter_descriptor* waiter, Virt_access* access, bool on_change_only);
    bool unregister_waiter(waiter_descriptor* waiter, unsigned int number);
    bool autounreg_waiter(waiter_descriptor* waiter);
    bool unregister_access_waiter(waiter_descriptor* waiter, Access_base* access);
    bool unregister_virt_access_waiter(waiter_descriptor* waiter, Virt_access* access);

    // ---- Saving ----

    /// Whether the iterator's save includes the item.
    /// \param ok               set to whether the iterator is open for writing, unless its selector decides
    /// \param ignore_selector  do not use the iterator's selector
    bool include_in_serialise(const NV_iterator* it, bool& ok, bool ignore_selector) const;

    /// Skips a stored record that has no node in the tree.
    /// \return false when the record is damaged or of a type that cannot be skipped
    static bool deserialise_unknown_handoff(NV_iterator* it);

    /// Sets again the dirty flags that a save has cleared, when the save turns out to have failed. Notifies nobody. An
    /// addition of ours.
    /// \param flags  of these only `dirty_write` and `dirty_change` are set
    void give_back_dirty(unsigned char flags) {
        flags_ = static_cast<unsigned char>(flags_ | (flags & (dirty_write | dirty_change)));
    }

  Q_SIGNALS:
    void value_changed();
    void value_changed(NV_store::NV_item* item);

  protected:
    enum class Node_kind : bool { leaf, container };
    /// `Node_kind::container` is for `NV_container` alone.
    NV_item(NV_container* parent, unsigned short id, const char* name, Node_kind kind);

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
    /// For `_get_root`. It cannot be virtual: the virtual operations that derived classes add come right after `print`,
    /// and one more of this class would move them.
    const Node_kind kind_ = Node_kind::leaf;
};

/// A selector that leaves the decision to the items; the base of others.
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
