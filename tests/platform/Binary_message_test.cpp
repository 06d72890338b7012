#include <platform/Binary_message.h>

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>

namespace {

constexpr unsigned size = 24;
constexpr unsigned huge_offsets[] = {size, size + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF8U, 0xFFFFFFFEU, 0xFFFFFFFFU};

struct Binary_message_test : testing::Test {
    // On the heap and of the exact size, so that a sanitizer reports every access past it.
    std::unique_ptr<unsigned char[]> bytes{new unsigned char[size]};
    Binary_message message{bytes.get(), size};

    Binary_message_test() {
        for (unsigned i = 0; i < size; ++i)
            bytes[i] = byte_at(i);
    }
    static unsigned char byte_at(unsigned i) { return static_cast<unsigned char>(0x91 + 37 * i); }

    /// The little-endian number of `width` bytes from `offset` on.
    static std::uint64_t number_at(unsigned offset, unsigned width) {
        std::uint64_t number = 0;
        for (unsigned i = 0; i < width; ++i)
            number += std::uint64_t{byte_at(offset + i)} << (8 * i);
        return number;
    }

    template <typename Number>
    static Number from_bits(std::uint64_t bits) {
        Number number;
        std::memcpy(&number, &bits, sizeof number); // the low bytes, on the little-endian CPUs that tests run on
        return number;
    }

    /// Every offset at which the number is within the message returns it; every other returns 0.
    template <typename Number>
    void expect_reads(Number (Binary_message::*get)(unsigned) const) {
        constexpr unsigned width = sizeof(Number);
        for (unsigned offset = 0; offset + width <= size; ++offset) {
            const Number found = (message.*get)(offset);
            const Number expected = from_bits<Number>(number_at(offset, width));
            EXPECT_EQ(std::memcmp(&found, &expected, width), 0) << "offset " << offset;
        }
        for (unsigned offset = size - width + 1; offset < size; ++offset)
            EXPECT_EQ((message.*get)(offset), Number{}) << "offset " << offset;
        for (const unsigned offset : huge_offsets)
            EXPECT_EQ((message.*get)(offset), Number{}) << "offset " << offset;
    }

    /// Every offset at which the number is within the message changes only its bytes; every other changes nothing.
    template <typename Number>
    void expect_writes(bool (Binary_message::*set)(unsigned, Number), Number value) {
        constexpr unsigned width = sizeof(Number);
        unsigned char little_endian[width];
        std::memcpy(little_endian, &value, width);
        for (unsigned offset = 0; offset < size; ++offset) {
            std::memset(bytes.get(), '#', size);
            const bool fits = offset + width <= size;
            EXPECT_EQ((message.*set)(offset, value), fits) << "offset " << offset;
            std::string expected(size, '#');
            if (fits)
                expected.replace(offset, width, reinterpret_cast<const char*>(little_endian), width);
            EXPECT_EQ(std::string(bytes.get(), bytes.get() + size), expected) << "offset " << offset;
        }
        for (const unsigned offset : huge_offsets)
            EXPECT_FALSE((message.*set)(offset, value)) << "offset " << offset;
    }
};

using Message = Binary_message;

// ---- Storage ----

TEST_F(Binary_message_test, uses_all_bytes_or_the_first_ones) {
    EXPECT_EQ(message.get_ptr(), bytes.get());
    EXPECT_EQ(message.get_size(), size);
    EXPECT_EQ(message.get_capacity(), size);
    const Message partly(bytes.get(), size, 5);
    EXPECT_EQ(partly.get_size(), 5U);
    EXPECT_EQ(partly.get_capacity(), size);
    const Message too_much(bytes.get(), size, size + 1);
    EXPECT_EQ(too_much.get_size(), size);
}

TEST_F(Binary_message_test, size_can_be_set_up_to_the_capacity) {
    EXPECT_TRUE(message.set_size(0));
    EXPECT_EQ(message.get_size(), 0U);
    EXPECT_TRUE(message.set_size(size));
    EXPECT_FALSE(message.set_size(size + 1));
    EXPECT_EQ(message.get_size(), size);
}

TEST_F(Binary_message_test, skipping_moves_the_start_and_shrinks_size_and_capacity) {
    Message partly(bytes.get(), size, 10);
    EXPECT_FALSE(partly.skip_front(11));
    EXPECT_EQ(partly.get_ptr(), bytes.get());
    EXPECT_TRUE(partly.skip_front(4));
    EXPECT_EQ(partly.get_ptr(), bytes.get() + 4);
    EXPECT_EQ(partly.get_size(), 6U);
    EXPECT_EQ(partly.get_capacity(), size - 4);
    EXPECT_EQ(partly.get_uint8(0), byte_at(4));
    EXPECT_TRUE(partly.skip_front(6));
    EXPECT_EQ(partly.get_size(), 0U);
    EXPECT_FALSE(partly.skip_front(1));
}

// ---- Numbers ----

TEST_F(Binary_message_test, reads_little_endian_numbers_at_any_offset_and_0_past_the_end) {
    expect_reads<std::uint8_t>(&Message::get_uint8);
    expect_reads<std::int8_t>(&Message::get_int8);
    expect_reads<std::uint16_t>(&Message::get_uint16_le);
    expect_reads<std::int16_t>(&Message::get_int16_le);
    expect_reads<std::uint32_t>(&Message::get_uint32_le);
    expect_reads<std::int32_t>(&Message::get_int32_le);
    expect_reads<float>(&Message::get_float);
    expect_reads<double>(&Message::get_double);
}

TEST_F(Binary_message_test, writes_little_endian_numbers_at_any_offset_and_nothing_past_the_end) {
    expect_writes<std::uint8_t>(&Message::set_uint8, 0xA7);
    expect_writes<std::int8_t>(&Message::set_int8, -2);
    expect_writes<std::uint16_t>(&Message::set_uint16_le, 0x8123);
    expect_writes<std::int16_t>(&Message::set_int16_le, -1234);
    expect_writes<std::uint32_t>(&Message::set_uint32_le, 0x89ABCDEF);
    expect_writes<std::int32_t>(&Message::set_int32_le, std::numeric_limits<std::int32_t>::min());
    expect_writes<float>(&Message::set_float, -1.5e-10F);
    expect_writes<double>(&Message::set_double, 6378137.0);
}

TEST(Binary_message, has_the_wire_form_of_each_number) {
    unsigned char wire[] = {0x01, 0x80, 0xFF, 0xFE, 0, 0, 0xC0, 0x3F, 0, 0, 0, 0, 0, 0, 0x04, 0xC0};
    const Binary_message message(wire, sizeof wire);
    EXPECT_EQ(message.get_uint8(1), 128);
    EXPECT_EQ(message.get_int8(1), -128);
    EXPECT_EQ(message.get_uint16_le(0), 0x8001);
    EXPECT_EQ(message.get_int16_le(0), -32767);
    EXPECT_EQ(message.get_uint32_le(0), 0xFEFF8001U);
    EXPECT_EQ(message.get_int32_le(0), -16809983);
    EXPECT_EQ(message.get_float(4), 1.5F);
    EXPECT_EQ(message.get_double(8), -2.5);
}

TEST_F(Binary_message_test, bytes_after_the_size_count_as_past_the_end_even_within_the_capacity) {
    Message partly(bytes.get(), size, 4);
    EXPECT_EQ(partly.get_uint32_le(0), number_at(0, 4));
    EXPECT_EQ(partly.get_uint32_le(1), 0U);
    EXPECT_FALSE(partly.set_uint16_le(3, 1));
    EXPECT_EQ(bytes[3], byte_at(3));
}

TEST_F(Binary_message_test, empty_message_has_no_numbers) {
    Message empty(nullptr, 0);
    EXPECT_EQ(empty.get_double(0), 0.0);
    EXPECT_FALSE(empty.set_uint8(0, 1));
    EXPECT_STREQ(empty.get_string(0, 10), "");
}

TEST_F(Binary_message_test, special_numbers_keep_their_bits) {
    EXPECT_TRUE(message.set_double(3, -0.0));
    EXPECT_TRUE(std::signbit(message.get_double(3)));
    EXPECT_TRUE(message.set_float(3, std::numeric_limits<float>::quiet_NaN()));
    EXPECT_TRUE(std::isnan(message.get_float(3)));
    EXPECT_TRUE(message.set_double(3, std::numeric_limits<double>::infinity()));
    EXPECT_EQ(message.get_double(3), std::numeric_limits<double>::infinity());
}

// ---- Bits ----

TEST_F(Binary_message_test, bits_are_numbered_by_their_weight) {
    bytes[3] = 0xB2; // 1011 0010
    const bool on[8] = {false, true, false, false, true, true, false, true};
    for (unsigned bit = 0; bit < 8; ++bit) {
        EXPECT_EQ(message.get_bit_msb(3, bit), on[bit]) << bit;
        EXPECT_EQ(message.get_bits_lsb(3, bit, 1), on[bit] ? 1U : 0U) << bit;
    }
    EXPECT_EQ(message.get_bits_lsb(3, 4, 4), 0xBU);
    EXPECT_EQ(message.get_bits_lsb(3, 0, 4), 0x2U);
    EXPECT_EQ(message.get_bits_lsb(3, 1, 3), 1U);
    EXPECT_EQ(message.get_bits_lsb(3, 0, 8), 0xB2U);
    EXPECT_EQ(message.get_bits_lsb(3, 5, 0), 0U);
}

TEST_F(Binary_message_test, bits_of_any_position_and_count_read_as_those_of_the_byte) {
    for (unsigned first = 0; first < 70; ++first)
        for (unsigned count = 0; count < 70; ++count) {
            unsigned expected = 0;
            for (unsigned bit = 0; bit < count && first + bit < 8; ++bit)
                expected += (byte_at(2) / (1U << (first + bit)) % 2) << bit;
            ASSERT_EQ(message.get_bits_lsb(2, first, count), expected) << first << " " << count;
        }
    for (const unsigned bit : {8U, 31U, 32U, 40U, 0xFFFFFFFFU})
        EXPECT_FALSE(message.get_bit_msb(2, bit)) << bit;
    EXPECT_EQ(message.get_bits_lsb(2, 0, 0xFFFFFFFFU), byte_at(2));
}

TEST_F(Binary_message_test, written_bits_leave_the_others_unchanged) {
    for (unsigned first = 0; first < 40; ++first)
        for (unsigned count = 0; count < 40; ++count)
            for (const unsigned value : {0U, 0x5AU, 0xFFFFFFFFU}) {
                bytes[5] = 0x6C;
                unsigned expected = 0x6C;
                for (unsigned bit = 0; bit < count && first + bit < 8; ++bit) {
                    const unsigned weight = 1U << (first + bit);
                    expected = value / (1U << bit) % 2 != 0 ? expected | weight : expected & ~weight;
                }
                ASSERT_TRUE(message.set_bits_lsb(5, first, count, value));
                ASSERT_EQ(bytes[5], expected) << first << " " << count << " " << value;
            }
    EXPECT_EQ(bytes[4], byte_at(4));
    EXPECT_EQ(bytes[6], byte_at(6));
}

TEST_F(Binary_message_test, single_bits_are_set_and_cleared) {
    bytes[0] = 0;
    EXPECT_TRUE(message.set_bit_msb(0, 6, true));
    EXPECT_EQ(bytes[0], 0x40);
    EXPECT_TRUE(message.set_bit_msb(0, 0, true));
    EXPECT_EQ(bytes[0], 0x41);
    EXPECT_TRUE(message.set_bit_msb(0, 6, false));
    EXPECT_EQ(bytes[0], 0x01);
}

TEST_F(Binary_message_test, bits_past_the_message_are_0_and_not_written) {
    for (const unsigned offset : huge_offsets) {
        EXPECT_EQ(message.get_bits_lsb(offset, 0, 8), 0U);
        EXPECT_FALSE(message.get_bit_msb(offset, 0));
        EXPECT_FALSE(message.set_bits_lsb(offset, 0, 8, 0xFF));
        EXPECT_FALSE(message.set_bit_msb(offset, 7, true));
    }
}

// ---- Texts ----

struct Binary_message_text : testing::Test {
    unsigned char text[12] = {'#', 'r', 'o', 'v', 'e', 'r', '\0', 'b', 'a', 's', 'e', '!'};
    Binary_message message{text, sizeof text};
    const char* in_place(unsigned offset) const { return reinterpret_cast<const char*>(text) + offset; }
};

TEST_F(Binary_message_text, that_a_nul_ends_is_returned_in_place) {
    EXPECT_EQ(message.get_string(1, 6), in_place(1));
    EXPECT_STREQ(message.get_string(1, 6), "rover");
    EXPECT_EQ(message.get_string(1, 1000), in_place(1));
    EXPECT_EQ(message.get_string(6, 1), in_place(6));
}

TEST_F(Binary_message_text, that_its_length_ends_is_a_terminated_copy) {
    EXPECT_STREQ(message.get_string(1, 3), "rov");
    EXPECT_NE(message.get_string(1, 3), in_place(1));
    EXPECT_STREQ(message.get_string(1, 5), "rover");
    EXPECT_STREQ(message.get_string(1, 0), "");
}

TEST_F(Binary_message_text, that_the_message_ends_is_a_terminated_copy) {
    EXPECT_STREQ(message.get_string(7, 5), "base!");
    EXPECT_STREQ(message.get_string(7, 0xFFFFFFFFU), "base!");
    EXPECT_STREQ(message.get_string(11, 100), "!");
}

TEST_F(Binary_message_text, past_the_message_is_empty) {
    for (const unsigned offset : {12U, 13U, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_STREQ(message.get_string(offset, 5), "");
}

TEST_F(Binary_message_text, copied_in_another_thread_leaves_the_copy_of_this_thread_unchanged) {
    const char* const copy = message.get_string(7, 4);
    std::thread([this] { EXPECT_STREQ(message.get_string(1, 3), "rov"); }).join();
    EXPECT_STREQ(copy, "base");
    EXPECT_STREQ(message.get_string(1, 2), "ro");
}

TEST(Binary_message, copies_at_most_4200_characters_of_a_text) {
    std::string text(5000, 'x');
    const Binary_message message(reinterpret_cast<unsigned char*>(text.data()), 5000);
    EXPECT_EQ(message.get_string(0, 4200), std::string(4200, 'x'));
    EXPECT_EQ(message.get_string(0, 5000), std::string(4200, 'x'));
}

} // namespace
