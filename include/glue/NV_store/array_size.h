#pragma once

#include <glue/export.h>

#include <platform/Remote_buffers.h>

namespace NV_store {

// The number of elements that stands in front of an array on its way to a peer: one byte

/// \return false, with `size` untouched, when nothing is left
GLUE_EXPORT bool get_array_size(CDS::Remote::Receive_buffer& buffer, unsigned char& size);
/// \return false when there is no room
GLUE_EXPORT bool set_array_size(CDS::Remote::Send_buffer& buffer, unsigned char size);

} // namespace NV_store
