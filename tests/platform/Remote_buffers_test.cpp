#include <platform/Remote_buffers.h>

#include <support/builders/Random.h>

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using CDS::Remote::Receive_buffer;
using CDS::Remote::Send_buffer;

std::string content(const Send_buffer& buffer) {
    return {reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(buffer.size())};
}

/// One type of value: how it is sent, its bytes, and how it is received.
struct Value_case {
    const char* name;
    std::string bytes;
    std::function<int(Send_buffer&)> append;
    /// \param same  whether the received value is the one that was sent
    std::function<int(Receive_buffer&, bool& same)> pop;
};

template <typename T>
Value_case value_case(const char* name, int (Send_buffer::*append)(T), int (Receive_buffer::*pop)(T&), T value,
                      T before, const std::string& bytes) {
    return {name, bytes, [append, value](Send_buffer& buffer) { return (buffer.*append)(value); },
            [pop, value, before](Receive_buffer& buffer, bool& same) {
                T received = before;
                const int count = (buffer.*pop)(received);
                same = std::memcmp(&received, &value, sizeof value) == 0;
                EXPECT_TRUE(same || std::memcmp(&received, &before, sizeof value) == 0);
                return count;
            }};
}

#define VALUE_CASE(NAME, value, before, bytes)                                                                         \
    value_case(#NAME, &Send_buffer::append_##NAME, &Receive_buffer::pop_##NAME, value, before, bytes)

std::vector<Value_case> value_cases() {
    return {
        VALUE_CASE(BOOL, true, false, "\x01"),
        VALUE_CASE(BOOL, false, true, std::string(1, '\0')),
        VALUE_CASE(CHAR, 'G', 'x', "G"),
        VALUE_CASE(CHAR, static_cast<char>(0xFE), 'x', "\xFE"),
        VALUE_CASE(UINT8, std::uint8_t{0xFE}, std::uint8_t{0}, "\xFE"),
        VALUE_CASE(UINT16, std::uint16_t{0xFEDC}, std::uint16_t{0}, "\xDC\xFE"),
        VALUE_CASE(UINT32, std::uint32_t{0xFEDCBA98}, std::uint32_t{0}, "\x98\xBA\xDC\xFE"),
        VALUE_CASE(UINT64, std::uint64_t{0xFEDCBA9876543210}, std::uint64_t{0}, "\x10\x32\x54\x76\x98\xBA\xDC\xFE"),
        VALUE_CASE(INT8, std::int8_t{-2}, std::int8_t{0}, "\xFE"),
        VALUE_CASE(INT16, std::int16_t{-2}, std::int16_t{0}, "\xFE\xFF"),
        VALUE_CASE(INT32, std::int32_t{-2}, std::int32_t{0}, "\xFE\xFF\xFF\xFF"),
        VALUE_CASE(INT64, std::int64_t{-2}, std::int64_t{0}, "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF"),
        VALUE_CASE(FLOAT, -1.5F, 0.0F, std::string("\x00\x00\xC0\xBF", 4)),
        VALUE_CASE(DOUBLE, -1.5, 0.0, std::string("\x00\x00\x00\x00\x00\x00\xF8\xBF", 8)),
    };
}

TEST(Remote_buffers, values_are_little_endian) {
    for (const Value_case& one : value_cases()) {
        const int size = static_cast<int>(one.bytes.size());
        unsigned char storage[8];
        Send_buffer sent(storage, size);
        EXPECT_EQ(one.append(sent), size) << one.name;
        EXPECT_EQ(content(sent), one.bytes) << one.name;

        bool same = false;
        Receive_buffer received(storage, size);
        EXPECT_EQ(received.left(), size);
        EXPECT_EQ(one.pop(received, same), size) << one.name;
        EXPECT_TRUE(same) << one.name;
        EXPECT_EQ(received.left(), 0);
    }
}

TEST(Remote_buffers, transfer_a_whole_value_or_nothing) {
    for (const Value_case& one : value_cases())
        for (int space = 0; space < static_cast<int>(one.bytes.size()); ++space) {
            unsigned char storage[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
            Send_buffer sent(storage, space);
            EXPECT_EQ(one.append(sent), 0) << one.name << ", " << space;
            EXPECT_EQ(sent.size(), 0);
            for (const unsigned char byte : storage)
                EXPECT_EQ(byte, 0xEE);

            bool same = true;
            Receive_buffer received(storage, space);
            EXPECT_EQ(one.pop(received, same), 0) << one.name << ", " << space;
            EXPECT_FALSE(same) << one.name;
            EXPECT_EQ(received.left(), space);
        }
}

TEST(Remote_buffers, accept_a_short_value_after_one_that_did_not_fit) {
    unsigned char storage[5];
    Send_buffer sent(storage, sizeof storage);
    EXPECT_EQ(sent.append_UINT32(1), 4);
    EXPECT_EQ(sent.append_UINT16(2), 0);
    EXPECT_EQ(sent.append_UINT8(3), 1);
    EXPECT_EQ(content(sent), std::string("\1\0\0\0\3", 5));
    sent.clear();
    EXPECT_EQ(sent.size(), 0);
    EXPECT_EQ(sent.append_UINT8(4), 1);
    EXPECT_EQ(content(sent), "\4");
}

TEST(Remote_buffers, texts_are_sent_without_their_nul) {
    unsigned char storage[4];
    Send_buffer sent(storage, sizeof storage);
    EXPECT_EQ(sent.append_TEXT("a"), 1);
    EXPECT_EQ(sent.append_TEXT(""), 0);
    EXPECT_EQ(sent.append_TEXT("bcde"), 0);
    EXPECT_EQ(sent.append_TEXT("bcd"), 3);
    EXPECT_EQ(content(sent), "abcd");
}

TEST(Remote_buffers, receive_a_bool_as_true_or_false) {
    for (int byte = 0; byte < 256; ++byte) {
        const auto stored = static_cast<unsigned char>(byte);
        Receive_buffer received(&stored, 1);
        bool value = byte == 0;
        EXPECT_EQ(received.pop_BOOL(value), 1);
        const bool expected = byte != 0;
        EXPECT_EQ(std::memcmp(&value, &expected, sizeof value), 0) << byte;
    }
}

TEST(Remote_buffers, without_storage_or_with_a_negative_size_accept_nothing) {
    unsigned char storage[1];
    Send_buffer none(nullptr, 0);
    Send_buffer negative(storage, -1);
    EXPECT_EQ(none.append_UINT8(1), 0);
    EXPECT_EQ(none.append_TEXT(""), 0);
    EXPECT_EQ(negative.append_UINT8(1), 0);
    Receive_buffer nothing(nullptr, 0);
    Receive_buffer less(storage, -1);
    std::uint8_t value = 5;
    EXPECT_EQ(nothing.pop_UINT8(value), 0);
    EXPECT_EQ(less.pop_UINT8(value), 0);
    EXPECT_EQ(less.left(), 0);
    EXPECT_EQ(value, 5);
}

TEST(Remote_buffers, random_values_are_received_as_they_were_sent) {
    const std::vector<Value_case> cases = value_cases();
    Random random;
    for (int round = 0; round < 500; ++round) {
        unsigned char storage[64];
        const int capacity = static_cast<int>(random.between(0, sizeof storage));
        Send_buffer sent(storage, capacity);
        std::vector<const Value_case*> fitted;
        std::string expected;
        for (int i = 0; i < 20; ++i) {
            const Value_case& one = cases[random.between(0, static_cast<unsigned>(cases.size()) - 1)];
            const bool fits = expected.size() + one.bytes.size() <= static_cast<std::size_t>(capacity);
            ASSERT_EQ(one.append(sent), fits ? static_cast<int>(one.bytes.size()) : 0);
            if (!fits)
                continue;
            fitted.push_back(&one);
            expected += one.bytes;
        }
        ASSERT_EQ(content(sent), expected);
        Receive_buffer received(storage, sent.size());
        for (const Value_case* const one : fitted) {
            bool same = false;
            ASSERT_EQ(one->pop(received, same), static_cast<int>(one->bytes.size()));
            ASSERT_TRUE(same) << one->name;
        }
        ASSERT_EQ(received.left(), 0);
    }
}

} // namespace
