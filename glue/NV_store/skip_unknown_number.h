#pragma once

#include <platform/Data_item.h>

namespace NV_store {

class NV_iterator;

/// Skips a stored number, or array of numbers, that has no node in the tree.
/// \return false when it is damaged or `type` is not a number's
bool skip_unknown_number(NV_iterator* it, DTS::Defs::Storage_class storage_class, int type);

} // namespace NV_store
