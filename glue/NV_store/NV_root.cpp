#include <glue/NV_store/NV_root.h>

#include <glue/NV_store/NV_record.h>

#include <platform/module_man.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace NV_store {

NV_root::NV_root(module_man* modules, unsigned short id, const char* name) : NV_struct(nullptr, this, id, name) {
    init(modules);
}

int NV_root::get_type() const {
    return DTS::Defs::type_root;
}

unsigned short NV_root::get_module_id(Reg_type kind) const {
    const int index = kind;
    return index >= 0 && index < static_cast<int>(std::size(module_ids_)) ? module_ids_[index]
                                                                          : static_cast<unsigned short>(0);
}

void NV_root::init(module_man* modules) {
    std::fill(std::begin(module_ids_), std::end(module_ids_), static_cast<unsigned short>(0));
    if (modules)
        modules->init_module_array(module_ids_, static_cast<int>(std::size(module_ids_)), true);
}

void NV_root::signal_all() {
    signal_all(this);
}

bool NV_root::add_pointer(NV_pointer* pointer) {
    return pointers_.insert(pointer);
}

bool NV_root::remove_pointer(NV_pointer* pointer) {
    return pointers_.remove(pointer);
}

int NV_root::pointer_compare(const __bsnode* a, const __bsnode* b) {
    const NV_item* const first = static_cast<const NV_pointer*>(a)->__get();
    const NV_item* const second = static_cast<const NV_pointer*>(b)->__get();
    if (!first || !second)
        return (first ? 1 : 0) - (second ? 1 : 0);
    return first->get_id() - second->get_id();
}

bool NV_root::notify_pointers(NV_item* item, bool changed, bool written, bool force, notify_t how, NV_root* root) {
    NV_pointer key;
    key._set(item, notify_all);
    const auto matches = [&](const NV_pointer* pointer) { return pointer && pointer_compare(pointer, &key) == 0; };
    std::vector<NV_pointer*> pointers; // collected first: a listener that changes a target moves the pointer
    NV_pointer* const found = pointers_.find(&key);
    for (NV_pointer* at = found; matches(at); at = pointers_.next(at))
        pointers.push_back(at);
    for (NV_pointer* at = found ? pointers_.previous(found) : nullptr; matches(at); at = pointers_.previous(at))
        pointers.push_back(at);
    bool result = true;
    for (NV_pointer* pointer : pointers)
        result = pointer->notify_updated(changed, written, force, how, root);
    return result;
}

NV_load_result load_all(NV_item& tree, NV_iterator& it, unsigned limit) {
    NV_load_result result;
    unsigned char next = 0;
    do { // the first attempt also reports an empty file
        result.intact = tree.deserialise(&it);
        if (!result.intact)
            break;
        ++result.loaded;
    } while (result.loaded < limit && it.peek_bytes(&next, 1)); // a single byte is a record that is cut off
    return result;
}

} // namespace NV_store
