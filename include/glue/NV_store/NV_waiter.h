#pragma once

#include <glue/export.h>

#include <cstdint>
#include <forward_list>
#include <memory>

class waiter_descriptor;

namespace NV_store {

class NV_item;
class NV_root;

/// What a registration puts into the events that it asks for.
enum Reg_type : int {
    reg_number = 1,     ///< a plain number that the registrant chose
    reg_item = 2,       ///< the item itself
    reg_access = 3,     ///< an `Access_base`
    reg_virt_access = 4 ///< a `Virt_access`
};

/// Whom a change is told to.
enum notify_t : int {
    notify_none = 0,
    notify_parents = 1, ///< the parent, which passes it on upwards
    notify_waiters = 2, ///< the item's own waiters
    notify_all = 3
};

/// Something through which an application reaches a setting. Neither owns the other.
class GLUE_EXPORT Access_base {
  public:
    Access_base() = default;
    explicit Access_base(NV_item* item) : item_(item) {}

    void init(NV_item* item) { item_ = item; }
    NV_item* get_item() const { return item_; }

    /// Lock the tree of the item; nothing without one.
    void lock() const;
    void unlock() const;

  private:
    NV_item* item_ = nullptr;
};

/// An accessor that can be told of changes.
class GLUE_EXPORT Virt_access : public Access_base {
  public:
    using Access_base::Access_base;

    /// Registers with the item, see `NV_item::register_virt_access_waiter`. \return false without an item
    bool autoreg(waiter_descriptor* waiter, bool on_change_only);
    bool autounreg(waiter_descriptor* waiter);
};

/// One registration: who is told of changes, and what the event is to carry.
class GLUE_EXPORT NV_waiter_reg {
  public:
    NV_waiter_reg(waiter_descriptor* descriptor, unsigned int number, bool on_change_only);
    NV_waiter_reg(waiter_descriptor* descriptor, NV_item* item, bool on_change_only);
    NV_waiter_reg(waiter_descriptor* descriptor, Access_base* access, bool on_change_only);
    NV_waiter_reg(waiter_descriptor* descriptor, Virt_access* access, bool on_change_only);
    /// Any kind by its number. One that is none of `Reg_type`, and a target of 0 for kinds 2 to 4, make a registration
    /// of kind 0 whose target is its own address.
    NV_waiter_reg(waiter_descriptor* descriptor, int kind, std::uintptr_t target, bool on_change_only);
    NV_waiter_reg(const NV_waiter_reg& other);
    NV_waiter_reg& operator=(const NV_waiter_reg&) = delete;

    /// Sends the event: the module id of `root` for the kind, and the target.
    /// \param force  also when the registration wants changes only
    /// \return true when the event was sent or not wanted; false without a waiter, a root or a module id
    bool send_event(const NV_root* root, bool force) const;

    /// Whether both are for the same waiter and carry the same; targets are looked at for kinds 1 to 4 only.
    bool is_same(const NV_waiter_reg& other) const;

    std::uintptr_t target() const { return target_; }
    int kind() const { return kind_; }

  private:
    waiter_descriptor* descriptor_;
    std::uintptr_t target_;
    std::uint8_t kind_;
    bool on_change_only_;
};

/// The registrations of one item. Copies of a list that is not empty share their registrations: what is added to or
/// removed from one is so for all, and the last one that dies frees them. Guarded by the lock of the item's tree.
class GLUE_EXPORT NV_waiter_list {
  public:
    /// Puts a registration behind the others; the same one may stand there twice. \return true
    bool add(const NV_waiter_reg& registration);
    /// Takes the first one out that is the same. \return false when none is
    bool remove(const NV_waiter_reg& registration);
    /// Whether there is one that is the same.
    bool exists(const NV_waiter_reg& registration) const;
    /// Sends each registration's event, in the order of registration. \return true: a waiter that cannot be told keeps
    ///         nobody else from being told
    bool notify_updated(const NV_root* root, bool force) const;

  private:
    using Registrations = std::forward_list<NV_waiter_reg>;

    /// The registration in front of the first that is the same; the list's end when none is.
    Registrations::const_iterator before(const NV_waiter_reg& registration) const;

    std::shared_ptr<Registrations> registrations_; ///< null until the first one comes
};

} // namespace NV_store
