#pragma once

#include <platform/NV_iterator.h>

namespace NV_store {

constexpr bool is_for_writing(NV_iterator::modes_t mode) {
    return mode >= NV_iterator::writing_all && mode <= NV_iterator::appending_changed;
}

/// One of the modes for writing that append.
constexpr bool is_for_appending(NV_iterator::modes_t mode) {
    return mode == NV_iterator::appending_written || mode == NV_iterator::appending_changed;
}

} // namespace NV_store
