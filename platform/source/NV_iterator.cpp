#include <platform/NV_iterator.h>

#include "little_endian.h"

#include <platform/Util.h>

#include <algorithm>

namespace NV_store {

namespace {

constexpr bool processor_is_big_endian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

/// Converts little-endian bytes to the order of the options, and back.
void reorder(unsigned char* bytes, int count, NV_iterator::Options options) {
    if (options == NV_iterator::big_endian || (options == NV_iterator::native && processor_is_big_endian))
        std::reverse(bytes, bytes + count);
}

} // namespace

void NV_iterator::NV_checksum::add(const unsigned char* bytes, int count) {
    crc_ = Util::crc32(crc_, bytes, count);
}

void NV_iterator::add_checksum_getter(NV_checksum* checksum) {
    remove_checksum_getter(checksum); // twice in the list, it would close a cycle
    checksum->next_ = checksums_;
    checksums_ = checksum;
}

void NV_iterator::remove_checksum_getter(NV_checksum* checksum) {
    for (NV_checksum** link = &checksums_; *link; link = &(*link)->next_) {
        if (*link == checksum) {
            *link = checksum->next_;
            return;
        }
    }
}

void NV_iterator::add_to_checksums(const unsigned char* bytes, int count) {
    for (NV_checksum* checksum = checksums_; checksum; checksum = checksum->next_)
        checksum->add(bytes, count);
}

bool NV_iterator::push(unsigned char* bytes, int count) {
    if (!push_bytes(bytes, count))
        return false;
    add_to_checksums(bytes, count);
    return true;
}

bool NV_iterator::pop(unsigned char* bytes, int count) {
    if (!pop_bytes(bytes, count))
        return false;
    add_to_checksums(bytes, count);
    return true;
}

template <typename Number>
bool NV_iterator::push_number(Number value, Options options) {
    unsigned char bytes[sizeof(Number)];
    ::little_endian::put(value, bytes);
    reorder(bytes, sizeof bytes, options);
    return push(bytes, sizeof bytes);
}

template <typename Number>
bool NV_iterator::pop_number(Number& value, Options options) {
    unsigned char bytes[sizeof(Number)];
    if (!pop(bytes, sizeof bytes))
        return false;
    reorder(bytes, sizeof bytes, options);
    value = ::little_endian::get<Number>(bytes);
    return true;
}

bool NV_iterator::push_header(std::uint32_t header) {
    return push_number(header, little_endian);
}

bool NV_iterator::pop_header(std::uint32_t& header) {
    return pop_number(header, little_endian);
}

bool NV_iterator::peek_header(std::uint32_t& header) {
    unsigned char bytes[sizeof header];
    if (!peek_bytes(bytes, sizeof bytes))
        return false;
    header = ::little_endian::get<std::uint32_t>(bytes);
    return true;
}

bool NV_iterator::push_bool(bool value, Options options) {
    return push_uint8(value ? 1 : 0, options);
}
bool NV_iterator::push_char(char value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_uint8(std::uint8_t value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_uint16(std::uint16_t value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_uint32(std::uint32_t value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_uint64(std::uint64_t value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_int8(std::int8_t value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_int16(std::int16_t value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_int32(std::int32_t value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_int64(std::int64_t value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_float(float value, Options options) {
    return push_number(value, options);
}
bool NV_iterator::push_double(double value, Options options) {
    return push_number(value, options);
}

bool NV_iterator::pop_bool(bool& value, Options options) {
    std::uint8_t byte = 0;
    if (!pop_uint8(byte, options))
        return false;
    value = byte != 0;
    return true;
}
bool NV_iterator::pop_char(char& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_uint8(std::uint8_t& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_uint16(std::uint16_t& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_uint32(std::uint32_t& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_uint64(std::uint64_t& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_int8(std::int8_t& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_int16(std::int16_t& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_int32(std::int32_t& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_int64(std::int64_t& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_float(float& value, Options options) {
    return pop_number(value, options);
}
bool NV_iterator::pop_double(double& value, Options options) {
    return pop_number(value, options);
}

bool NV_iterator::pop_array_size(int storage_class, unsigned& count) {
    std::uint8_t rows = 0;
    std::uint8_t columns = 1;
    if (storage_class != 1 && storage_class != 2)
        return false;
    if (!pop_uint8(rows, little_endian) || (storage_class == 2 && !pop_uint8(columns, little_endian)))
        return false;
    count = unsigned{rows} * columns;
    return true;
}

} // namespace NV_store
