#include <glue/data_stream/Debug_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Scripted_stream.h>

#include <gtest/gtest.h>

namespace {

TEST(Debug_data_stream, prints_written_bytes_unchanged) {
    Captured_debug debug;
    Debug_data_stream stream(false);
    EXPECT_EQ(stream.__write(bytes_of("a\t\x01\xFF\\\n"), 6), 6);
    EXPECT_EQ(debug.text(), "a\t\x01\xFF\\\n");
}

TEST(Debug_data_stream, waits_for_the_end_of_the_line) {
    Captured_debug debug;
    Debug_data_stream stream(false);
    EXPECT_EQ(stream.__write(bytes_of("half "), 5), 5);
    EXPECT_EQ(debug.text(), "");
    EXPECT_EQ(stream.__write(bytes_of("a line\n"), 7), 7);
    EXPECT_EQ(debug.text(), "half a line\n");
}

TEST(Debug_data_stream, prints_at_once_on_request) {
    Captured_debug debug;
    Debug_data_stream stream(true);
    EXPECT_EQ(stream.__write(bytes_of("half "), 5), 5);
    EXPECT_EQ(debug.text(), "half ");
}

TEST(Debug_data_stream, formatted_output_reaches_the_printer) {
    Captured_debug debug;
    Debug_data_stream stream(false);
    EXPECT_TRUE(stream.printf("%d sats\n", 12));
    EXPECT_EQ(debug.text(), "12 sats\n");
}

TEST(Debug_data_stream, nothing_can_be_read) {
    Debug_data_stream stream(false);
    for (const int n : {-1, 0, 1, 4200})
        EXPECT_EQ(stream._get_data(n), 0) << n;
    EXPECT_EQ(stream.bytes_avail(), 0U);
    EXPECT_FALSE(stream.bytes_avail(1));
    EXPECT_EQ(stream[0], 0);
}

TEST(Debug_data_stream, has_the_plain_description) {
    Debug_data_stream stream(false);
    EXPECT_EQ(stream.get_description(), plain_description(stream));
}

} // namespace
