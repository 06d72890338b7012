#include <glue/NV_store/NV_buffer_iterator.h>

#include <cstring>

namespace NV_store {

NV_buffer_iterator::NV_buffer_iterator(unsigned char* buffer, int capacity, int length) {
    set_buffer(buffer, capacity, length);
}

void NV_buffer_iterator::set_buffer(unsigned char* buffer, int capacity, int length) {
    buffer_ = buffer;
    capacity_ = capacity;
    length_ = length;
    position_ = 0;
}

void NV_buffer_iterator::set_mode(modes_t mode) {
    mode_ = mode;
}

bool NV_buffer_iterator::is_readable() {
    return true;
}

bool NV_buffer_iterator::push_bytes(unsigned char* bytes, int count) {
    if (count < 0 || count > capacity_ - length_)
        return false;
    if (count > 0)
        std::memcpy(buffer_ + length_, bytes, static_cast<std::size_t>(count));
    length_ += count;
    return true;
}

bool NV_buffer_iterator::pop_bytes(unsigned char* bytes, int count) {
    if (!peek_bytes(bytes, count))
        return false;
    position_ += count;
    return true;
}

bool NV_buffer_iterator::peek_bytes(unsigned char* bytes, int count) {
    if (count < 0 || count > length_ - position_)
        return false;
    if (count > 0)
        std::memcpy(bytes, buffer_ + position_, static_cast<std::size_t>(count));
    return true;
}

void NV_buffer_iterator::get_free_space(unsigned int& used, unsigned int& total) const {
    used = static_cast<unsigned int>(length_);
    total = static_cast<unsigned int>(capacity_);
}

void NV_buffer_iterator::reset_reading() {
    position_ = 0;
}

void NV_buffer_iterator::reset_writing() {
    length_ = 0;
}

} // namespace NV_store
