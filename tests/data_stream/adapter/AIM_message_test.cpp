#include <glue/data_stream/AIM_message.h>

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>
#include <support/fakes/Scripted_stream.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

/// The frame, built without the library.
std::string expected_frame(char channel, const std::string& payload) {
    return build_frame(">>", channel + payload, Checksum::text, "");
}

std::string in_use(const AIM_message& message) {
    return std::string(reinterpret_cast<const char*>(message.get_ptr()), message.get_size());
}

/// A buffer filled with "#" and a frame to be built in it.
struct Buffer {
    explicit Buffer(unsigned capacity) : bytes(capacity, '#'), message(bytes.data(), capacity) {}

    void set(char channel, const std::string& payload) {
        message.set(static_cast<unsigned char>(channel), bytes_of(payload), static_cast<unsigned>(payload.size()));
    }

    std::vector<unsigned char> bytes;
    AIM_message message;
};

TEST(AIM_message_test, buffer_size_is_payload_plus_eight) {
    EXPECT_EQ(AIM_message::calc_buffer_size(0), 8U);
    EXPECT_EQ(AIM_message::calc_buffer_size(4089), 4097U);
}

TEST(AIM_message_test, frame_of_three_bytes_takes_eleven) {
    Buffer buffer(64);
    buffer.set('1', "abc");
    const std::string frame = in_use(buffer.message);
    EXPECT_EQ(frame.size(), 11U);
    EXPECT_EQ(frame.substr(0, 9), ">>0061abc");
    EXPECT_EQ(frame, expected_frame('1', "abc"));
    EXPECT_EQ(buffer.bytes[11], '#');
}

TEST(AIM_message_test, empty_payload_makes_a_frame_of_eight) {
    Buffer buffer(8);
    buffer.message.set('1', nullptr, 0);
    EXPECT_EQ(in_use(buffer.message), expected_frame('1', ""));
    EXPECT_EQ(buffer.message.get_len(), 0U);
}

TEST(AIM_message_test, digits_are_upper_case) {
    Random random;
    bool letters_in_checksum = false;
    for (int i = 0; i < 100; ++i) {
        Buffer buffer(4096);
        buffer.set('1', random.bytes(0xABC - 3));
        const std::string frame = in_use(buffer.message);
        EXPECT_EQ(frame.substr(2, 3), "ABC");
        const std::string checksum = frame.substr(frame.size() - 2);
        EXPECT_EQ(checksum.find_first_not_of("0123456789ABCDEF"), std::string::npos);
        letters_in_checksum |= checksum.find_first_of("ABCDEF") != std::string::npos;
    }
    EXPECT_TRUE(letters_in_checksum);
}

TEST(AIM_message_test, frame_of_every_size_can_be_read_back) {
    Random random;
    for (unsigned size = 0; size <= 4089; size += random.between(1, 20)) {
        const std::string payload = random.bytes(size);
        const char channel = static_cast<char>(random.byte());
        Buffer buffer(AIM_message::calc_buffer_size(size));
        buffer.set(channel, payload);
        ASSERT_EQ(in_use(buffer.message), expected_frame(channel, payload));
        ASSERT_EQ(buffer.message.get_chan(), static_cast<unsigned char>(channel));
        ASSERT_EQ(buffer.message.get_len(), size);
        ASSERT_TRUE(std::equal(payload.begin(), payload.end(), reinterpret_cast<char*>(buffer.message.get_data())));
    }
}

TEST(AIM_message_test, payload_may_be_in_the_buffer_of_the_frame) {
    Random random;
    const std::string payload = random.bytes(1000);
    Buffer buffer(1100);
    std::copy(payload.begin(), payload.end(), buffer.bytes.begin() + 50);
    buffer.message.set('1', buffer.bytes.data() + 50, 1000);
    EXPECT_EQ(in_use(buffer.message), expected_frame('1', payload));
}

TEST(AIM_message_test, length_digits_are_written_for_payloads_up_to_4089_bytes) {
    for (const unsigned size : {4088U, 4089U, 4090U, 5000U}) {
        const std::string payload(size, 'x');
        Buffer buffer(6000);
        buffer.set('1', payload);
        std::string frame = in_use(buffer.message);
        ASSERT_EQ(frame.size(), size + 8);
        EXPECT_EQ(frame.substr(2, 3), size == 4088 ? "FFB" : size == 4089 ? "FFC" : "###");
        EXPECT_EQ(frame.substr(5, size + 1), '1' + payload);
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", frame_checksum(frame.substr(0, size + 6)));
        EXPECT_EQ(frame.substr(size + 6), digits);
    }
}

TEST(AIM_message_test, buffer_that_is_too_small_is_left_unchanged) {
    for (const unsigned size : {4U, 100U, 0xFFFFFFF8U, 0xFFFFFFFFU}) {
        Buffer buffer(11);
        buffer.message.set('1', bytes_of("abcd"), size);
        EXPECT_EQ(in_use(buffer.message), "###########");
    }
}

TEST(AIM_message_test, buffer_can_hold_a_longer_frame_after_a_shorter_one) {
    Buffer buffer(16);
    buffer.set('1', "a");
    buffer.set('2', "abcdefgh");
    EXPECT_EQ(in_use(buffer.message), expected_frame('2', "abcdefgh"));
}

TEST(AIM_message_test, payload_may_be_at_the_start_of_the_buffer) {
    Buffer buffer(64);
    const std::string payload = "0123456789";
    std::copy(payload.begin(), payload.end(), buffer.bytes.begin());
    buffer.message._set_data(buffer.bytes.data(), 10);
    EXPECT_EQ(std::string(buffer.message.get_data(), buffer.message.get_data() + 10), payload);
}

TEST(AIM_message_test, each_step_writes_only_its_bytes) {
    Buffer buffer(13);
    const auto content = [&buffer] { return in_use(buffer.message); };
    buffer.message._set_header();
    EXPECT_EQ(content(), ">>###########");
    buffer.message._set_len(4093);
    EXPECT_EQ(content(), ">>###########");
    buffer.message._set_len(4092);
    EXPECT_EQ(content(), ">>FFC########");
    buffer.message._set_chan('c');
    EXPECT_EQ(content(), ">>FFCc#######");
    buffer.message._set_data(bytes_of("xyz"), 3);
    EXPECT_EQ(content(), ">>FFCcxyz####");
    buffer.message._set_checksum(3);
    EXPECT_EQ(content().substr(0, 9), ">>FFCcxyz");
    EXPECT_NE(content()[9], '#');
    EXPECT_EQ(content().substr(11), "##");
}

TEST(AIM_message_test, view_of_a_received_frame_shares_its_bytes) {
    Frame frame(build_frame(">>",
                            "\xFF"
                            "abc",
                            Checksum::text));
    auto received = frame.as<Vesk_message>();
    EXPECT_TRUE(received.validate(AIM_message::identifier));
    const AIM_message view(received);
    EXPECT_EQ(view.get_ptr(), received.get_ptr());
    EXPECT_EQ(view.get_size(), received.get_size());
    EXPECT_EQ(view.get_chan(), 0xFF);
    EXPECT_EQ(view.get_len(), 3U);
    EXPECT_EQ(view.get_data(), received.get_ptr() + 6);
}

TEST(AIM_message_test, length_is_read_in_either_case) {
    Frame frame(">>0aF1" + std::string(200, 'x'));
    auto received = frame.as<Vesk_message>();
    EXPECT_EQ(AIM_message(received).get_len(), 0xAFU - 3);
}

TEST(AIM_message_test, length_below_the_channel_and_checksum_means_no_payload) {
    for (const char* header : {">>000", ">>002", ">>0G4", ">>"}) {
        Frame frame(header);
        auto received = frame.as<Vesk_message>();
        EXPECT_EQ(AIM_message(received).get_len(), 0U) << header;
        EXPECT_EQ(AIM_message(received).get_chan(), 0) << header;
    }
}

} // namespace
