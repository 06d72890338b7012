#include <glue/NV_store/NV_waiter.h>

#include <glue/NV_store/NV_item.h>
#include <glue/NV_store/NV_root.h>

#include <platform/waiter.h>

#include <iterator>

namespace NV_store {

namespace {

template <typename Target>
std::uintptr_t address(Target* target) {
    return reinterpret_cast<std::uintptr_t>(target);
}

bool is_valid(int kind, std::uintptr_t target) {
    return kind == reg_number || (kind >= reg_item && kind <= reg_virt_access && target != 0);
}

} // namespace

void Access_base::lock() const {
    if (item_)
        item_->lock();
}

void Access_base::unlock() const {
    if (item_)
        item_->unlock();
}

bool Virt_access::autoreg(waiter_descriptor* waiter, bool on_change_only) {
    return get_item() && get_item()->register_virt_access_waiter(waiter, this, on_change_only);
}

bool Virt_access::autounreg(waiter_descriptor* waiter) {
    return get_item() && get_item()->unregister_virt_access_waiter(waiter, this);
}

NV_waiter_reg::NV_waiter_reg(waiter_descriptor* descriptor, unsigned int number, bool on_change_only)
    : NV_waiter_reg(descriptor, reg_number, number, on_change_only) {}

NV_waiter_reg::NV_waiter_reg(waiter_descriptor* descriptor, NV_item* item, bool on_change_only)
    : NV_waiter_reg(descriptor, reg_item, address(item), on_change_only) {}

NV_waiter_reg::NV_waiter_reg(waiter_descriptor* descriptor, Access_base* access, bool on_change_only)
    : NV_waiter_reg(descriptor, reg_access, address(access), on_change_only) {}

NV_waiter_reg::NV_waiter_reg(waiter_descriptor* descriptor, Virt_access* access, bool on_change_only)
    : NV_waiter_reg(descriptor, reg_virt_access, address(access), on_change_only) {}

NV_waiter_reg::NV_waiter_reg(waiter_descriptor* descriptor, int kind, std::uintptr_t target, bool on_change_only)
    : descriptor_(descriptor),
      target_(target),
      kind_(static_cast<std::uint8_t>(kind)),
      on_change_only_(on_change_only) {
    if (!is_valid(kind, target)) {
        kind_ = 0;
        target_ = address(this);
    }
}

NV_waiter_reg::NV_waiter_reg(const NV_waiter_reg& other)
    : NV_waiter_reg(other.descriptor_, other.kind_, other.target_, other.on_change_only_) {}

bool NV_waiter_reg::send_event(const NV_root* root, bool force) const {
    if (!force && on_change_only_)
        return true;
    if (!root || !descriptor_)
        return false;
    const unsigned short module_id = root->get_module_id(static_cast<Reg_type>(kind_));
    if (module_id == 0)
        return false;
    waiter_event event;
    event.source = static_cast<std::int16_t>(module_id);
    event.target = target_;
    const bool sent = descriptor_->send_event(event, false, true);
    release_payload(event);
    return sent;
}

bool NV_waiter_reg::is_same(const NV_waiter_reg& other) const {
    if (descriptor_ != other.descriptor_ || kind_ != other.kind_)
        return false;
    return kind_ == 0 || kind_ > reg_virt_access || target_ == other.target_;
}

bool NV_waiter_list::add(const NV_waiter_reg& registration) {
    if (!registrations_)
        registrations_ = std::make_shared<Registrations>();
    auto last = registrations_->before_begin();
    for (auto next = registrations_->begin(); next != registrations_->end(); ++next)
        last = next;
    registrations_->insert_after(last, registration);
    return true;
}

bool NV_waiter_list::remove(const NV_waiter_reg& registration) {
    if (!exists(registration))
        return false;
    registrations_->erase_after(before(registration));
    return true;
}

bool NV_waiter_list::exists(const NV_waiter_reg& registration) const {
    return registrations_ && before(registration) != registrations_->cend();
}

bool NV_waiter_list::notify_updated(const NV_root* root, bool force) const {
    if (registrations_)
        for (const NV_waiter_reg& registration : *registrations_)
            registration.send_event(root, force);
    return true;
}

NV_waiter_list::Registrations::const_iterator NV_waiter_list::before(const NV_waiter_reg& registration) const {
    auto before = registrations_->cbefore_begin();
    for (auto at = registrations_->cbegin(); at != registrations_->cend(); before = at++)
        if (at->is_same(registration))
            return before;
    return registrations_->cend();
}

} // namespace NV_store
