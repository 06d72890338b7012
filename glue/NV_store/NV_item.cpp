#include <glue/NV_store/NV_item.h>

#include "NV_store/skip_unknown_number.h"
#include "NV_store/tree_mutex.h"

#include <glue/NV_store/NV_container.h>
#include <glue/NV_store/NV_record.h>

#include <platform/Debug.h>
#include <platform/waiter.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace NV_store {

NV_item::NV_item(NV_container* parent, unsigned short id, const char* name)
    : NV_item(parent, id, name, Node_kind::leaf) {}

NV_item::NV_item(NV_container* parent, unsigned short id, const char* name, Node_kind kind)
    : name_(name ? name : ""), parent_(parent), id_(id), kind_(kind) {
    if (parent_)
        parent_->add_child(this);
}

// NOLINTNEXTLINE(readability-redundant-member-init): shows that the Qt object is not copied
NV_item::NV_item(const NV_item& other) : QObject(), Data_item(other) {
    copy(other);
}

NV_item& NV_item::operator=(const NV_item& other) {
    if (this == &other)
        return *this;
    copy(other);
    Data_item::operator=(other);
    return *this;
}

void NV_item::copy(const NV_item& other) {
    if (this == &other)
        return;
    flags_ = other.flags_;
    name_ = other.name_;
    waiters_ = other.waiters_;
    parent_ = other.parent_;
    id_ = other.id_;
}

unsigned short NV_item::get_module_id(Reg_type kind) const {
    return parent_ ? parent_->get_module_id(kind) : static_cast<unsigned short>(0);
}

int NV_item::build_path(NV_path* path, const NV_item* target) const {
    return target == this && path->push(this) ? 0 : -1;
}

NV_item* NV_item::__follow_path(NV_path* path) {
    unsigned short id = 0;
    if (!path->last(id) || id != id_)
        return nullptr;
    path->pop(id);
    return this;
}

NV_item* NV_item::follow_path(NV_path path) {
    return __follow_path(&path);
}

bool NV_item::set_default(bool) {
    Debug::Print::dprint("Default not implemented\n");
    return false;
}

int NV_item::get_dimension() const {
    return DTS::Defs::single;
}

void NV_item::_set_root(NV_root*) {}

const char* NV_item::get_name() const {
    return name_;
}

Data_item* NV_item::find_data_item(const char* path) {
    if (*path == '\0')
        return this;
    Debug::Print::dprint("Base find item, why? %s,%d,%s\n", get_name(), data_number(), path);
    return nullptr;
}

Data_item* NV_item::find_data_item(unsigned short number) {
    return number == data_number() ? this : nullptr;
}

bool NV_item::serialise_structure(CDS::Remote::Send_buffer& buffer, int) {
    return append_description(buffer, get_name(), own_type_byte());
}

void NV_item::set_minmax(unsigned short& lo, unsigned short& hi) {
    lo = std::min(lo, data_number());
    hi = std::max(hi, data_number());
}

int NV_item::_to_string(char*, int) const {
    return 0;
}

const char* NV_item::_from_string(const char* text) {
    return text;
}

NV_item* NV_item::_search(const char* spec, char) {
    return std::strcmp(spec, get_name()) == 0 ? this : nullptr;
}

void NV_item::signal_all(NV_root* root) {
    notify_updated(false, false, true, notify_waiters, root);
}

NV_item* NV_item::get_next_in_tree(NV_item* stop) {
    const NV_item* child = this;
    for (NV_container* parent = parent_; parent && child != stop; parent = parent->get_parent()) {
        if (NV_item* const next = parent->get_next_child(child))
            return next;
        child = parent;
    }
    return nullptr;
}

void NV_item::print(Debug::Dumper& dumper) const {
    _print(dumper, get_name());
}

NV_root* NV_item::_get_root() const {
    if (kind_ == Node_kind::container)
        return static_cast<const NV_container*>(this)->get_root();
    if (parent_)
        return parent_->get_root();
    return nullptr; // a leaf is never a root
}

bool NV_item::get_path_name(char* buf, int len) const {
    if (!parent_ || parent_->children_named()) {
        std::strncpy(buf, name_, static_cast<std::size_t>(std::max(len, 0)));
        return true;
    }
    const int position = parent_->get_my_index(this);
    if (position >= 0 && len > 0)
        std::snprintf(buf, static_cast<std::size_t>(len), "%d", position);
    return true;
}

void NV_item::_set_parent(NV_container* parent) {
    if (parent_)
        parent_->remove_child(this);
    parent_ = parent;
    if (parent_)
        parent_->add_child(this);
}

void NV_item::lock() const {
    if (Mutex* const mutex = tree_mutex(*this))
        mutex->lock();
}

void NV_item::unlock() const {
    if (Mutex* const mutex = tree_mutex(*this))
        mutex->unlock();
}

bool NV_item::notify_updated(bool changed, bool written, bool force, notify_t how, const NV_root* root) {
    if (!changed && !force)
        return true;
    if (changed)
        flags_ |= dirty_change;
    if (written)
        flags_ |= dirty_write;
    if (changed)
        clear_pristine();
    bool result = true;
    if (how & notify_waiters)
        result = waiters_.notify_updated(root, true); // forced: notifies every waiter
    if (changed && change_hook())
        change_hook()->changed(true);
    if ((how & notify_parents) && get_type() != DTS::Defs::type_root && parent_ && result)
        result = parent_->notify_updated(changed, written, force, how, root);
    Q_EMIT value_changed();
    Q_EMIT value_changed(this);
    return result;
}

bool NV_item::notify_updated(bool changed, notify_t how) {
    return notify_updated(changed, true, false, how, _get_root());
}

bool NV_item::is_event(const waiter_event& event) const {
    const NV_root* const root = _get_root();
    if (!root) {
        Debug::Print::dprint("NULL ROOT\r\n");
        return false;
    }
    return static_cast<std::int16_t>(root->get_module_id(reg_item)) == event.source &&
           event.target == reinterpret_cast<std::uintptr_t>(this);
}

bool NV_item::add_waiter(const NV_waiter_reg& registration) {
    const NV_lock guard(*this);
    return waiters_.add(registration);
}

bool NV_item::remove_waiter(const NV_waiter_reg& registration) {
    const NV_lock guard(*this);
    return waiters_.remove(registration);
}

bool NV_item::register_waiter(waiter_descriptor* waiter, unsigned int number, bool on_change_only) {
    return add_waiter(NV_waiter_reg(waiter, number, on_change_only));
}

bool NV_item::autoreg_waiter(waiter_descriptor* waiter, bool on_change_only) {
    return add_waiter(NV_waiter_reg(waiter, this, on_change_only));
}

bool NV_item::register_access_waiter(waiter_descriptor* waiter, Access_base* access, bool on_change_only) {
    return add_waiter(NV_waiter_reg(waiter, access, on_change_only));
}

bool NV_item::register_virt_access_waiter(waiter_descriptor* waiter, Virt_access* access, bool on_change_only) {
    return add_waiter(NV_waiter_reg(waiter, access, on_change_only));
}

bool NV_item::unregister_waiter(waiter_descriptor* waiter, unsigned int number) {
    return remove_waiter(NV_waiter_reg(waiter, number, false));
}

bool NV_item::autounreg_waiter(waiter_descriptor* waiter) {
    return remove_waiter(NV_waiter_reg(waiter, this, false));
}

bool NV_item::unregister_access_waiter(waiter_descriptor* waiter, Access_base* access) {
    return remove_waiter(NV_waiter_reg(waiter, access, false));
}

bool NV_item::unregister_virt_access_waiter(waiter_descriptor* waiter, Virt_access* access) {
    return remove_waiter(NV_waiter_reg(waiter, access, false));
}

bool NV_item::include_in_serialise(const NV_iterator* it, bool& ok, bool ignore_selector) const {
    if (!it)
        return false;
    if (const NV_iterator::NV_selector* const selector = it->get_selector(); selector && !ignore_selector)
        return selector->include_in_serialise(*this, it, ok, ignore_selector);
    ok = true;
    switch (it->get_mode()) {
    case NV_iterator::writing_all:
        return true;
    case NV_iterator::writing_set:
        return !(flags_ & pristine);
    case NV_iterator::appending_written:
        return flags_ & dirty_write;
    case NV_iterator::appending_changed:
        return flags_ & dirty_change;
    default:
        ok = false;
        return false;
    }
}

bool NV_item::deserialise_unknown_handoff(NV_iterator* it) {
    Record_header header;
    int dimension = 0;
    int type = 0;
    if (!header.peek(it, dimension, type))
        return false;
    if (dimension == DTS::Defs::single && is_container_type(type))
        return NV_container::deserialise_unknown(it);
    return skip_unknown_number(it, static_cast<DTS::Defs::Storage_class>(dimension), type);
}

bool NV_default_selector::include_in_serialise(const NV_item& item, const NV_iterator* it, bool& ok, bool) const {
    return item.include_in_serialise(it, ok, true);
}

} // namespace NV_store
