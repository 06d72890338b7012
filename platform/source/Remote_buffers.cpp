#include <platform/Remote_buffers.h>

#include "little_endian.h"

#include <cstring>

namespace CDS {
namespace Remote {

namespace {

template <typename Number>
struct Encoded {
    explicit Encoded(Number number) { little_endian::put(number, bytes); }
    unsigned char bytes[sizeof(Number)];
};

} // namespace

int Send_buffer::append(const void* bytes, int count) {
    if (count == 0 || count > capacity_ - size_)
        return 0;
    std::memcpy(storage_ + size_, bytes, static_cast<std::size_t>(count));
    size_ += count;
    return count;
}

int Send_buffer::append_BOOL(bool value) {
    return append_UINT8(value ? 1 : 0);
}
int Send_buffer::append_CHAR(char value) {
    return append(&value, 1);
}
int Send_buffer::append_UINT8(std::uint8_t value) {
    return append(&value, 1);
}
int Send_buffer::append_UINT16(std::uint16_t value) {
    return append(Encoded(value).bytes, sizeof value);
}
int Send_buffer::append_UINT32(std::uint32_t value) {
    return append(Encoded(value).bytes, sizeof value);
}
int Send_buffer::append_UINT64(std::uint64_t value) {
    return append(Encoded(value).bytes, sizeof value);
}
int Send_buffer::append_INT8(std::int8_t value) {
    return append(&value, 1);
}
int Send_buffer::append_INT16(std::int16_t value) {
    return append(Encoded(value).bytes, sizeof value);
}
int Send_buffer::append_INT32(std::int32_t value) {
    return append(Encoded(value).bytes, sizeof value);
}
int Send_buffer::append_INT64(std::int64_t value) {
    return append(Encoded(value).bytes, sizeof value);
}
int Send_buffer::append_FLOAT(float value) {
    return append(Encoded(value).bytes, sizeof value);
}
int Send_buffer::append_DOUBLE(double value) {
    return append(Encoded(value).bytes, sizeof value);
}
int Send_buffer::append_TEXT(const char* text) {
    return append(text, static_cast<int>(std::strlen(text)));
}

template <typename Number>
int Receive_buffer::pop(Number& value) {
    constexpr int count = sizeof(Number);
    if (left() < count)
        return 0;
    value = little_endian::get<Number>(data_ + position_);
    position_ += count;
    return count;
}

int Receive_buffer::pop_BOOL(bool& value) {
    std::uint8_t byte = 0;
    const int count = pop(byte);
    if (count > 0)
        value = byte != 0;
    return count;
}
int Receive_buffer::pop_CHAR(char& value) {
    return pop(value);
}
int Receive_buffer::pop_UINT8(std::uint8_t& value) {
    return pop(value);
}
int Receive_buffer::pop_UINT16(std::uint16_t& value) {
    return pop(value);
}
int Receive_buffer::pop_UINT32(std::uint32_t& value) {
    return pop(value);
}
int Receive_buffer::pop_UINT64(std::uint64_t& value) {
    return pop(value);
}
int Receive_buffer::pop_INT8(std::int8_t& value) {
    return pop(value);
}
int Receive_buffer::pop_INT16(std::int16_t& value) {
    return pop(value);
}
int Receive_buffer::pop_INT32(std::int32_t& value) {
    return pop(value);
}
int Receive_buffer::pop_INT64(std::int64_t& value) {
    return pop(value);
}
int Receive_buffer::pop_FLOAT(float& value) {
    return pop(value);
}
int Receive_buffer::pop_DOUBLE(double& value) {
    return pop(value);
}

} // namespace Remote
} // namespace CDS
