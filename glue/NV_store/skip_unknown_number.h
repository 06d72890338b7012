#pragma once

#include <platform/Data_item.h>

namespace NV_store {

class NV_iterator;

/// Passes over the stored number, or array of numbers, of a type code that no node is there for.
/// \return false when it is damaged or the code is no number's
bool skip_unknown_number(NV_iterator* it, DTS::Defs::Storage_class storage_class, int type);

} // namespace NV_store
