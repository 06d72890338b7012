#include <platform/Binary_message.h>

#include "little_endian.h"

#include <algorithm>
#include <cstring>

bool Binary_message_storage::set_size(unsigned size) {
    if (size > capacity_)
        return false;
    size_ = size;
    return true;
}

bool Binary_message_storage::skip_front(unsigned count) {
    if (count > size_)
        return false;
    data_ += count;
    size_ -= count;
    capacity_ -= count;
    return true;
}

namespace {

constexpr unsigned longest_copy = 4200;

bool holds(const Binary_message_storage& message, unsigned offset, unsigned width) {
    return offset <= message.get_size() && width <= message.get_size() - offset;
}

template <typename Number>
Number read_le(const Binary_message_storage& message, unsigned offset) {
    return holds(message, offset, sizeof(Number)) ? little_endian::get<Number>(message.get_ptr() + offset) : Number{};
}

template <typename Number>
bool write_le(const Binary_message_storage& message, unsigned offset, Number value) {
    if (!holds(message, offset, sizeof value))
        return false;
    little_endian::put(value, message.get_ptr() + offset);
    return true;
}

/// `count` bits from bit `first` upwards, as far as a byte has them.
constexpr unsigned bit_mask(unsigned first, unsigned count) {
    constexpr unsigned bits = 8;
    return first >= bits ? 0 : ((1U << std::min(count, bits - first)) - 1) << first;
}

} // namespace

template <typename Storage>
std::uint8_t Binary_wrapper<Storage>::get_uint8(unsigned offset) const {
    return read_le<std::uint8_t>(*this, offset);
}

template <typename Storage>
std::int8_t Binary_wrapper<Storage>::get_int8(unsigned offset) const {
    return read_le<std::int8_t>(*this, offset);
}

template <typename Storage>
std::uint16_t Binary_wrapper<Storage>::get_uint16_le(unsigned offset) const {
    return read_le<std::uint16_t>(*this, offset);
}

template <typename Storage>
std::int16_t Binary_wrapper<Storage>::get_int16_le(unsigned offset) const {
    return read_le<std::int16_t>(*this, offset);
}

template <typename Storage>
std::uint32_t Binary_wrapper<Storage>::get_uint32_le(unsigned offset) const {
    return read_le<std::uint32_t>(*this, offset);
}

template <typename Storage>
std::int32_t Binary_wrapper<Storage>::get_int32_le(unsigned offset) const {
    return read_le<std::int32_t>(*this, offset);
}

template <typename Storage>
float Binary_wrapper<Storage>::get_float(unsigned offset) const {
    return read_le<float>(*this, offset);
}

template <typename Storage>
double Binary_wrapper<Storage>::get_double(unsigned offset) const {
    return read_le<double>(*this, offset);
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_uint8(unsigned offset, std::uint8_t value) {
    return write_le(*this, offset, value);
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_int8(unsigned offset, std::int8_t value) {
    return write_le(*this, offset, value);
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_uint16_le(unsigned offset, std::uint16_t value) {
    return write_le(*this, offset, value);
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_int16_le(unsigned offset, std::int16_t value) {
    return write_le(*this, offset, value);
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_uint32_le(unsigned offset, std::uint32_t value) {
    return write_le(*this, offset, value);
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_int32_le(unsigned offset, std::int32_t value) {
    return write_le(*this, offset, value);
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_float(unsigned offset, float value) {
    return write_le(*this, offset, value);
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_double(unsigned offset, double value) {
    return write_le(*this, offset, value);
}

template <typename Storage>
const char* Binary_wrapper<Storage>::get_string(unsigned offset, unsigned length) const {
    const unsigned size = this->get_size();
    if (offset >= size)
        return "";
    const char* const text = reinterpret_cast<const char*>(this->get_ptr()) + offset;
    length = std::min(length, size - offset);
    if (std::memchr(text, '\0', length))
        return text;

    static thread_local char copy[longest_copy + 1];
    length = std::min(length, longest_copy);
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

template <typename Storage>
unsigned Binary_wrapper<Storage>::get_bits_lsb(unsigned offset, unsigned first, unsigned count) const {
    const unsigned mask = bit_mask(first, count);
    return mask == 0 ? 0 : (get_uint8(offset) & mask) >> first;
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_bits_lsb(unsigned offset, unsigned first, unsigned count, unsigned value) {
    const unsigned mask = bit_mask(first, count);
    const unsigned bits = mask == 0 ? 0 : value << first & mask;
    return set_uint8(offset, static_cast<std::uint8_t>((get_uint8(offset) & ~mask) | bits));
}

template <typename Storage>
bool Binary_wrapper<Storage>::get_bit_msb(unsigned offset, unsigned bit) const {
    return get_bits_lsb(offset, bit, 1) != 0;
}

template <typename Storage>
bool Binary_wrapper<Storage>::set_bit_msb(unsigned offset, unsigned bit, bool on) {
    return set_bits_lsb(offset, bit, 1, on ? 1 : 0);
}

template class Binary_wrapper<Binary_message_storage>;
