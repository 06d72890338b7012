#include <glue/NV_store/NV_stream_iterator.h>

#include "NV_store/modes.h"

#include <glue/data_stream/Data_stream.h>

namespace NV_store {

NV_stream_iterator::NV_stream_iterator(Data_stream& stream) : stream_(&stream) {}

void NV_stream_iterator::set_mode(modes_t mode) {
    mode_ = mode;
}

bool NV_stream_iterator::is_readable() {
    return mode_ == reading && stream_->bytes_avail(1U) != 0;
}

bool NV_stream_iterator::push_bytes(unsigned char* bytes, int count) {
    if (!is_for_writing(mode_) || count < 0)
        return false;
    byte_count_ += static_cast<unsigned int>(count);
    stream_->__write(bytes, static_cast<unsigned int>(count));
    return true;
}

bool NV_stream_iterator::pop_bytes(unsigned char* bytes, int count) {
    if (!peek_bytes(bytes, count))
        return false;
    stream_->drop(static_cast<unsigned int>(count));
    byte_count_ += static_cast<unsigned int>(count);
    return true;
}

bool NV_stream_iterator::peek_bytes(unsigned char* bytes, int count) {
    if (mode_ != reading || count < 0)
        return false;
    const auto size = static_cast<unsigned int>(count);
    return stream_->bytes_avail(size) != 0 && stream_->get_data(bytes, size, 0);
}

void NV_stream_iterator::get_free_space(unsigned int& used, unsigned int& total) const {
    used = 0;
    total = 0;
}

} // namespace NV_store
