#include <platform/NV_iterator.h>
#include <platform/Util.h>

#include <support/checks/Vtable_slot.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using NV_store::NV_iterator;

/// An iterator over a string: pushing appends to it, popping consumes from its front.
struct Text_iterator : NV_iterator {
    Text_iterator() = default;
    explicit Text_iterator(std::string content) : bytes(std::move(content)) {}

    void set_mode(modes_t mode) override { mode_ = mode; }
    bool is_readable() override { return !bytes.empty(); }
    bool push_bytes(unsigned char* added, int count) override {
        if (bytes.size() + static_cast<std::size_t>(count) > capacity)
            return false;
        bytes.append(reinterpret_cast<const char*>(added), static_cast<std::size_t>(count));
        return true;
    }
    bool pop_bytes(unsigned char* destination, int count) override {
        if (!peek_bytes(destination, count))
            return false;
        bytes.erase(0, static_cast<std::size_t>(count));
        return true;
    }
    bool peek_bytes(unsigned char* destination, int count) override {
        if (bytes.size() < static_cast<std::size_t>(count))
            return false;
        std::memcpy(destination, bytes.data(), static_cast<std::size_t>(count));
        return true;
    }
    void get_free_space(unsigned int& used, unsigned int& total) const override {
        used = 0;
        total = 0;
    }

    std::string bytes;
    std::size_t capacity = 1000;
};

/// One type of value: how it is written, its bytes, and how it is read.
struct Value_case {
    const char* name;
    std::string bytes; ///< little-endian
    std::function<bool(NV_iterator&, NV_iterator::Options)> push;
    /// \param same  whether the value that was read is the one that was written
    std::function<bool(NV_iterator&, NV_iterator::Options, bool& same)> pop;
};

template <typename T>
Value_case value_case(const char* name, bool (NV_iterator::*push)(T, NV_iterator::Options),
                      bool (NV_iterator::*pop)(T&, NV_iterator::Options), T value, T before, const std::string& bytes) {
    return {name, bytes,
            [push, value](NV_iterator& it, NV_iterator::Options options) { return (it.*push)(value, options); },
            [pop, value, before](NV_iterator& it, NV_iterator::Options options, bool& same) {
                T read = before;
                const bool result = (it.*pop)(read, options);
                same = std::memcmp(&read, &value, sizeof value) == 0;
                EXPECT_TRUE(same || std::memcmp(&read, &before, sizeof value) == 0);
                return result;
            }};
}

#define VALUE_CASE(name, value, before, bytes)                                                                         \
    value_case(#name, &NV_iterator::push_##name, &NV_iterator::pop_##name, value, before, bytes)

std::vector<Value_case> value_cases() {
    return {
        VALUE_CASE(bool, true, false, "\x01"),
        VALUE_CASE(bool, false, true, std::string(1, '\0')),
        VALUE_CASE(char, static_cast<char>(0xFE), 'x', "\xFE"),
        VALUE_CASE(uint8, std::uint8_t{0xFE}, std::uint8_t{0}, "\xFE"),
        VALUE_CASE(uint16, std::uint16_t{0xFEDC}, std::uint16_t{0}, "\xDC\xFE"),
        VALUE_CASE(uint32, std::uint32_t{0xFEDCBA98}, std::uint32_t{0}, "\x98\xBA\xDC\xFE"),
        VALUE_CASE(uint64, std::uint64_t{0xFEDCBA9876543210}, std::uint64_t{0}, "\x10\x32\x54\x76\x98\xBA\xDC\xFE"),
        VALUE_CASE(int8, std::int8_t{-2}, std::int8_t{0}, "\xFE"),
        VALUE_CASE(int16, std::int16_t{-2}, std::int16_t{0}, "\xFE\xFF"),
        VALUE_CASE(int32, std::int32_t{-2}, std::int32_t{0}, "\xFE\xFF\xFF\xFF"),
        VALUE_CASE(int64, std::int64_t{-2}, std::int64_t{0}, "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF"),
        VALUE_CASE(float, -1.5F, 0.0F, std::string("\x00\x00\xC0\xBF", 4)),
        VALUE_CASE(double, -1.5, 0.0, std::string("\x00\x00\x00\x00\x00\x00\xF8\xBF", 8)),
    };
}

/// The bytes of a number as the options order them.
std::string ordered(std::string bytes, NV_iterator::Options options) {
    const bool is_big = options == NV_iterator::big_endian ||
                        (options == NV_iterator::native && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__);
    if (is_big)
        std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

constexpr NV_iterator::Options all_options[] = {NV_iterator::native, NV_iterator::big_endian,
                                                NV_iterator::little_endian};

TEST(NV_iterator, modes_and_options_have_their_fixed_numbers) {
    EXPECT_EQ(NV_iterator::closed, 0);
    EXPECT_EQ(NV_iterator::reading, 1);
    EXPECT_EQ(NV_iterator::writing_all, 2);
    EXPECT_EQ(NV_iterator::writing_set, 3);
    EXPECT_EQ(NV_iterator::appending_written, 4);
    EXPECT_EQ(NV_iterator::appending_changed, 5);
    EXPECT_EQ(NV_iterator::little_endian, 2);
    EXPECT_EQ(Text_iterator().get_mode(), NV_iterator::closed);
    EXPECT_EQ(Text_iterator().get_selector(), nullptr);
}

TEST(NV_iterator, operations_have_their_slots) {
    EXPECT_EQ(vtable_slot(&NV_iterator::set_mode), 0U);
    EXPECT_EQ(vtable_slot(&NV_iterator::is_readable), 3U); // after the two destructors
    EXPECT_EQ(vtable_slot(&NV_iterator::push_bytes), 4U);
    EXPECT_EQ(vtable_slot(&NV_iterator::pop_bytes), 5U);
    EXPECT_EQ(vtable_slot(&NV_iterator::peek_bytes), 6U);
    EXPECT_EQ(vtable_slot(&NV_iterator::get_free_space), 7U);
}

TEST(NV_iterator, values_are_bytes_in_the_order_of_the_options) {
    for (const Value_case& one : value_cases())
        for (const NV_iterator::Options options : all_options) {
            Text_iterator it;
            EXPECT_TRUE(one.push(it, options)) << one.name;
            EXPECT_EQ(it.bytes, ordered(one.bytes, options)) << one.name << ", " << options;
            bool same = false;
            EXPECT_TRUE(one.pop(it, options, same)) << one.name;
            EXPECT_TRUE(same) << one.name << ", " << options;
            EXPECT_EQ(it.bytes, "");
        }
}

TEST(NV_iterator, values_are_whole_or_none) {
    for (const Value_case& one : value_cases())
        for (std::size_t size = 0; size < one.bytes.size(); ++size) {
            Text_iterator it(std::string(size, '\x55'));
            bool same = true;
            EXPECT_FALSE(one.pop(it, NV_iterator::little_endian, same)) << one.name;
            EXPECT_FALSE(same) << one.name;
            EXPECT_EQ(it.bytes.size(), size);
            it.capacity = 2 * size;
            it.bytes = std::string(size, '\x55');
            EXPECT_FALSE(one.push(it, NV_iterator::little_endian)) << one.name;
            EXPECT_EQ(it.bytes.size(), size);
        }
}

TEST(NV_iterator, bool_is_true_for_every_byte_except_0) {
    for (int byte = 0; byte < 256; ++byte) {
        Text_iterator it(std::string(1, static_cast<char>(byte)));
        bool value = byte == 0;
        const bool expected = byte != 0;
        EXPECT_TRUE(it.pop_bool(value, NV_iterator::little_endian));
        EXPECT_EQ(std::memcmp(&value, &expected, sizeof value), 0) << byte;
    }
}

TEST(NV_iterator, header_is_one_little_endian_word) {
    Text_iterator it;
    EXPECT_TRUE(it.push_header(0x09ABCDEF));
    EXPECT_EQ(it.bytes, "\xEF\xCD\xAB\x09");
    std::uint32_t header = 0;
    EXPECT_TRUE(it.peek_header(header));
    EXPECT_EQ(header, 0x09ABCDEFU);
    EXPECT_EQ(it.bytes.size(), 4U);
    header = 0;
    EXPECT_TRUE(it.pop_header(header));
    EXPECT_EQ(header, 0x09ABCDEFU);
    EXPECT_EQ(it.bytes, "");

    it.bytes = "\1\2\3";
    EXPECT_FALSE(it.peek_header(header));
    EXPECT_FALSE(it.pop_header(header));
    EXPECT_EQ(header, 0x09ABCDEFU);
    it.capacity = 6;
    EXPECT_FALSE(it.push_header(1));
}

TEST(NV_iterator, array_size_is_one_byte_and_matrix_size_two) {
    unsigned count = 7;
    Text_iterator it("\xFE\x03\x05");
    EXPECT_TRUE(it.pop_array_size(1, count));
    EXPECT_EQ(count, 254U);
    EXPECT_TRUE(it.pop_array_size(2, count));
    EXPECT_EQ(count, 15U);
    EXPECT_FALSE(it.pop_array_size(1, count));
    it.bytes = "\xFF\xFF";
    EXPECT_TRUE(it.pop_array_size(2, count));
    EXPECT_EQ(count, 65025U);
    it.bytes = "\x01";
    EXPECT_FALSE(it.pop_array_size(2, count));
    EXPECT_EQ(count, 65025U);
    for (const int storage_class : {-1, 0, 3}) {
        it.bytes = "\1\1\1";
        EXPECT_FALSE(it.pop_array_size(storage_class, count)) << storage_class;
        EXPECT_EQ(it.bytes.size(), 3U);
    }
}

// ---- Checksums ----

std::uint32_t crc_of(const std::string& bytes) {
    return Util::crc32(0, bytes.data(), static_cast<int>(bytes.size()));
}

TEST(NV_iterator, checksum_covers_the_bytes_that_pass_while_it_is_registered) {
    Text_iterator it;
    NV_iterator::NV_checksum outer;
    NV_iterator::NV_checksum inner;
    EXPECT_EQ(outer.value(), 0U);
    it.push_uint8('x', NV_iterator::little_endian);
    it.add_checksum_getter(&outer);
    it.push_header(0x34333231);
    it.add_checksum_getter(&inner);
    it.push_uint8('5', NV_iterator::little_endian);
    it.push_uint16(0x3637, NV_iterator::big_endian);
    it.remove_checksum_getter(&inner);
    it.push_uint16(0x3938, NV_iterator::little_endian);
    it.remove_checksum_getter(&outer);
    it.push_uint8('x', NV_iterator::little_endian);
    EXPECT_EQ(it.bytes, "x123456789x");
    EXPECT_EQ(outer.value(), 0xCBF43926U); // the well-known value for "123456789"
    EXPECT_EQ(inner.value(), crc_of("567"));
}

TEST(NV_iterator, checksum_is_the_same_when_reading_and_peeking_does_not_count) {
    Text_iterator it("123456789x");
    NV_iterator::NV_checksum checksum;
    it.add_checksum_getter(&checksum);
    std::uint32_t header = 0;
    std::uint8_t byte = 0;
    std::uint32_t word = 0;
    it.peek_header(header);
    it.pop_header(header);
    it.pop_uint8(byte, NV_iterator::little_endian);
    it.pop_uint32(word, NV_iterator::big_endian);
    EXPECT_EQ(checksum.value(), 0xCBF43926U);
    EXPECT_FALSE(it.pop_uint32(word, NV_iterator::little_endian));
    it.capacity = 0;
    EXPECT_FALSE(it.push_uint8(1, NV_iterator::little_endian));
    EXPECT_EQ(checksum.value(), 0xCBF43926U); // no byte has passed
}

TEST(NV_iterator, checksums_may_be_removed_in_any_order) {
    Text_iterator it;
    NV_iterator::NV_checksum checksums[3];
    NV_iterator::NV_checksum stranger;
    for (NV_iterator::NV_checksum& checksum : checksums)
        it.add_checksum_getter(&checksum);
    it.remove_checksum_getter(&checksums[1]);
    it.remove_checksum_getter(&checksums[1]);
    it.remove_checksum_getter(&stranger);
    it.push_uint8('a', NV_iterator::little_endian);
    it.remove_checksum_getter(&checksums[2]);
    it.push_uint8('b', NV_iterator::little_endian);
    it.remove_checksum_getter(&checksums[0]);
    it.push_uint8('c', NV_iterator::little_endian);
    EXPECT_EQ(checksums[0].value(), crc_of("ab"));
    EXPECT_EQ(checksums[1].value(), 0U);
    EXPECT_EQ(checksums[2].value(), crc_of("a"));
}

TEST(NV_iterator, checksum_that_is_added_twice_counts_every_byte_once) {
    Text_iterator it;
    NV_iterator::NV_checksum first;
    NV_iterator::NV_checksum second;
    it.add_checksum_getter(&first);
    it.add_checksum_getter(&second);
    it.add_checksum_getter(&first);
    it.push_uint8('a', NV_iterator::little_endian);
    EXPECT_EQ(first.value(), crc_of("a"));
    EXPECT_EQ(second.value(), crc_of("a"));
    it.remove_checksum_getter(&first);
    it.push_uint8('b', NV_iterator::little_endian);
    EXPECT_EQ(first.value(), crc_of("a"));
    EXPECT_EQ(second.value(), crc_of("ab"));
}

TEST(NV_iterator, keeps_its_selector) {
    struct : NV_iterator::NV_selector {
        bool include_in_serialise(const NV_store::NV_item&, const NV_iterator*, bool&, bool) const override {
            return true;
        }
    } selector;
    Text_iterator it;
    it.set_selector(&selector);
    EXPECT_EQ(it.get_selector(), &selector);
    it.set_selector(nullptr);
    EXPECT_EQ(it.get_selector(), nullptr);
}

} // namespace
