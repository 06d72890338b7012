#pragma once

#include <glue/export.h>

#include <platform/Remote_buffers.h>

namespace NV_store {

// The number of elements before the elements of an array that is sent to a peer: one byte. The library defines nothing
// of the kind for matrices.

/// \return false, with `size` unchanged, when no byte is left
GLUE_EXPORT bool get_array_size(CDS::Remote::Receive_buffer& buffer, unsigned char& size);
/// \return false when the buffer is full
GLUE_EXPORT bool set_array_size(CDS::Remote::Send_buffer& buffer, unsigned char size);

} // namespace NV_store
