#include <glue/NV_store/NV_pointer.h>

#include <glue/NV_store/NV_record.h>
#include <glue/NV_store/NV_root.h>

#include <platform/Debug.h>

namespace NV_store {

NV_pointer::NV_pointer() : NV_pointer(nullptr, nullptr, 0, "") {}

NV_pointer::NV_pointer(NV_container* parent, NV_root* root, unsigned short id, const char* name)
    : NV_item(parent, id, name), root_(root) {
    if (root_)
        root_->add_pointer(this);
}

NV_pointer::NV_pointer(const NV_pointer& other)
    : NV_item(other), __bsnode(other), target_(other.target_), path_(other.path_), root_(other.root_) {
    if (root_)
        root_->add_pointer(this);
}

/// A registry that was destroyed first has already removed its pointers.
NV_pointer::~NV_pointer() {
    if (is_in_tree())
        root_->remove_pointer(this);
}

int NV_pointer::get_type() const {
    return DTS::Defs::type_pointer;
}

/// Changes the target and moves the pointer to its new position in the registry.
void NV_pointer::point_at(NV_item* target) {
    if (root_)
        root_->remove_pointer(this);
    target_ = target;
    if (root_)
        root_->add_pointer(this);
}

NV_item* NV_pointer::get() const {
    const NV_lock guard(*this);
    return target_;
}

void NV_pointer::_set(NV_item* target, notify_t how) {
    const bool changed = target != target_;
    point_at(target);
    notify_updated(changed, how);
}

void NV_pointer::set(NV_item* target, notify_t how) {
    const NV_lock guard(*this);
    _set(target, how);
}

bool NV_pointer::set_default(bool) {
    _set(nullptr, notify_all);
    return true;
}

void NV_pointer::_print(Debug::Dumper& dumper, const char* name) const {
    dumper.print_field(name, target_ ? target_->get_name() : "none");
}

bool NV_pointer::serialise(NV_iterator* it) {
    bool ok = false;
    if (!include_in_serialise(it, ok, false))
        return ok;
    NV_path path;
    if (root_ && target_ && root_->build_path(&path, target_) != 0) {
        Debug::Print::dprint("No path to %s for %s\n", target_->get_name(), get_name());
        path.clear();
    }
    if (!Record_header{own_type_byte(), Record_header::path, get_id()}.push(it) || !path.write(it))
        return false;
    clear_dirty();
    return true;
}

bool NV_pointer::deserialise(NV_iterator* it) {
    Record_header header;
    if (!header.pop(it) || !(header == Record_header{own_type_byte(), Record_header::path, get_id()}))
        return false;
    NV_path path;
    if (!path.read(it))
        return false;
    path_ = path;
    clear_pristine();
    NV_item* const target = root_ ? root_->follow_path(path_) : nullptr;
    if (!target && path_.fill() > 0)
        Debug::Print::dprint("Path of %s leads nowhere\n", get_name());
    point_at(target);
    return true;
}

bool NV_pointer::deserialise_unknown(NV_iterator* it) {
    Record_header header;
    if (!header.pop(it) || header.kind != Record_header::path)
        return false;
    return NV_path().read(it);
}

Data_item::Serial_ret NV_pointer::serialise(CDS::Remote::Send_buffer&, unsigned short& counter) {
    serial_action_started(counter);
    return serial_ok();
}

Data_item::Serial_ret NV_pointer::deserialise(CDS::Remote::Receive_buffer&, unsigned short& counter) {
    serial_action_started(counter);
    return serial_ok();
}

} // namespace NV_store
