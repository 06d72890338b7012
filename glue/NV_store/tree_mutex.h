#pragma once

#include <glue/NV_store/NV_root.h>

namespace NV_store {

/// The mutex that guards the item's tree; null when the item belongs to no tree with a root.
inline Mutex* tree_mutex(const NV_item& item) {
    NV_root* const root = item._get_root();
    return root ? &root->mutex() : nullptr;
}

} // namespace NV_store
