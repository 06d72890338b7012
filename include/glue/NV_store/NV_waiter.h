#pragma once

#include <glue/export.h>

#include <cstdint>
#include <forward_list>
#include <memory>

class waiter_descriptor;

namespace NV_store {

class NV_item;
class NV_root;

/// The target in the events of a registration.
enum Reg_type : int {
    reg_number = 1,     ///< a number that the application chose
    reg_item = 2,       ///< the item itself
    reg_access = 3,     ///< an `Access_base`
    reg_virt_access = 4 ///< a `Virt_access`
};

/// The receivers of a notification.
enum notify_t : int {
    notify_none = 0,
    notify_parents = 1, ///< the parent, its parent and so on
    notify_waiters = 2, ///< the item's own waiters
    notify_all = 3
};

/// An application's access to a setting. Neither owns the other.
class GLUE_EXPORT Access_base {
  public:
    Access_base() = default;
    explicit Access_base(NV_item* item) : item_(item) {}

    void init(NV_item* item) { item_ = item; }
    NV_item* get_item() const { return item_; }

    /// The lock of the item's tree; without an item these do nothing.
    void lock() const;
    void unlock() const;

  private:
    NV_item* item_ = nullptr;
};

/// An accessor that can be registered for notifications.
class GLUE_EXPORT Virt_access : public Access_base {
  public:
    using Access_base::Access_base;

    /// Registers with the item, see `NV_item::register_virt_access_waiter`. \return false without an item
    bool autoreg(waiter_descriptor* waiter, bool on_change_only);
    bool autounreg(waiter_descriptor* waiter);
};

/// One registration: the waiter that is notified of changes, and the target in its events.
class GLUE_EXPORT NV_waiter_reg {
  public:
    NV_waiter_reg(waiter_descriptor* descriptor, unsigned int number, bool on_change_only);
    NV_waiter_reg(waiter_descriptor* descriptor, NV_item* item, bool on_change_only);
    NV_waiter_reg(waiter_descriptor* descriptor, Access_base* access, bool on_change_only);
    NV_waiter_reg(waiter_descriptor* descriptor, Virt_access* access, bool on_change_only);
    /// Any kind by its number. For a number that is not in `Reg_type`, and for a target of 0 with kinds 2 to 4, the
    /// kind is 0 and the target the registration's own address.
    NV_waiter_reg(waiter_descriptor* descriptor, int kind, std::uintptr_t target, bool on_change_only);
    NV_waiter_reg(const NV_waiter_reg& other);
    NV_waiter_reg& operator=(const NV_waiter_reg&) = delete;

    /// Sends the event: the module id of `root` for the kind, and the target.
    /// \param force  also when the registration is for changes only
    /// \return true when the event was sent or not wanted; false without a waiter, a root or a module id
    bool send_event(const NV_root* root, bool force) const;

    /// Whether both have the same waiter, kind and target; targets are compared for kinds 1 to 4 only.
    bool is_same(const NV_waiter_reg& other) const;

    std::uintptr_t target() const { return target_; }
    int kind() const { return kind_; }

  private:
    waiter_descriptor* descriptor_;
    std::uintptr_t target_;
    std::uint8_t kind_;
    bool on_change_only_;
};

/// The registrations of one item. Copies of a list that is not empty share their registrations: adding to one copy adds
/// to all, and the last copy frees them. Guarded by the lock of the item's tree.
class GLUE_EXPORT NV_waiter_list {
  public:
    /// Appends a registration, also one that is there already. \return true
    bool add(const NV_waiter_reg& registration);
    /// Removes the first equal one. \return false when there is none
    bool remove(const NV_waiter_reg& registration);
    /// Whether there is an equal one.
    bool exists(const NV_waiter_reg& registration) const;
    /// Sends each registration's event, in the order of registration. \return true: when a waiter cannot be notified,
    ///         the others still are
    bool notify_updated(const NV_root* root, bool force) const;

  private:
    using Registrations = std::forward_list<NV_waiter_reg>;

    /// The registration before the first equal one; the list's end when there is none.
    Registrations::const_iterator before(const NV_waiter_reg& registration) const;

    std::shared_ptr<Registrations> registrations_; ///< null until the first one is added
};

} // namespace NV_store
