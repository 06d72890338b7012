#include <glue/NV_store/array_size.h>

namespace NV_store {

bool get_array_size(CDS::Remote::Receive_buffer& buffer, unsigned char& size) {
    return buffer.pop_UINT8(size) > 0;
}

bool set_array_size(CDS::Remote::Send_buffer& buffer, unsigned char size) {
    return buffer.append_UINT8(size) > 0;
}

} // namespace NV_store
