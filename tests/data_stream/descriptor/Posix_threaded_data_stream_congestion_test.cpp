// Which commands wait for free space in the transmit ring, and which are dropped. How they wait:
// Posix_threaded_data_stream_writing_test.cpp.

#include <glue/data_stream/Posix_threaded_data_stream.h>

#include <support/builders/Stream_bytes.h>

#include <gtest/gtest.h>

namespace {

bool waits(const std::string& rest) {
    return Posix_threaded_data_stream::waits_when_congested(bytes_of(rest), static_cast<unsigned>(rest.size()));
}

TEST(Posix_threaded_data_stream_congestion, up_to_three_bytes_wait) {
    for (const char* rest : {"a", "$", "$G", "$GP", "RE0"})
        EXPECT_TRUE(waits(rest)) << rest;
}

TEST(Posix_threaded_data_stream_congestion, four_bytes_are_no_frame) {
    EXPECT_FALSE(waits("$GPG"));
    EXPECT_TRUE(waits("PG00"));
}

TEST(Posix_threaded_data_stream_congestion, a_whole_frame_is_dropped_unless_it_is_a_reply) {
    EXPECT_FALSE(waits("PG003abc"));
    EXPECT_TRUE(waits("RE003abc"));
    EXPECT_TRUE(waits("ER003abc"));
    EXPECT_FALSE(waits("EE003abc"));
    EXPECT_FALSE(waits("PG000"));
    EXPECT_TRUE(waits("RE000"));
}

TEST(Posix_threaded_data_stream_congestion, line_ends_and_nuls_may_follow_a_frame) {
    EXPECT_FALSE(waits("PG003abc\r\n"));
    EXPECT_FALSE(waits(std::string("PG003abc\n\0\r\0", 12)));
    EXPECT_TRUE(waits("PG003abc\n."));
    EXPECT_TRUE(waits("PG003abc\r\nPG000"));
    EXPECT_TRUE(waits("PG003abcd")); // directly after the body
}

TEST(Posix_threaded_data_stream_congestion, an_incomplete_frame_is_no_frame) {
    EXPECT_TRUE(waits("PG003ab"));
    EXPECT_TRUE(waits("PGFFF"));
}

TEST(Posix_threaded_data_stream_congestion, the_length_is_hexadecimal_in_either_case) {
    EXPECT_FALSE(waits("PG00A" + std::string(10, 'x')));
    EXPECT_FALSE(waits("PG00f" + std::string(15, 'x')));
    EXPECT_FALSE(waits("PG1aF" + std::string(0x1AF, 'x')));
    EXPECT_FALSE(waits("PG020" + std::string(32, 'x')));
    for (const char* length : {"00G", "0 0", "+00", "0x0", "00@", "00`", "00/", "00:", "00g"})
        EXPECT_TRUE(waits(std::string("PG") + length)) << length;
}

TEST(Posix_threaded_data_stream_congestion, a_sentence_of_up_to_100_bytes_is_dropped) {
    EXPECT_FALSE(waits("$" + std::string(99, 'x')));
    EXPECT_TRUE(waits("$" + std::string(100, 'x')));
}

TEST(Posix_threaded_data_stream_congestion, a_frame_that_begins_with_a_dollar_is_a_frame) {
    EXPECT_FALSE(waits("$P0C8" + std::string(200, 'x')));
}

TEST(Posix_threaded_data_stream_congestion, anything_else_waits) {
    EXPECT_TRUE(waits("hello"));
    EXPECT_TRUE(waits(std::string(5000, 'x')));
}

} // namespace
