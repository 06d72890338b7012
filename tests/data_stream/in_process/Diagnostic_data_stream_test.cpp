#include <glue/data_stream/Diagnostic_data_stream.h>

#include <support/builders/Random.h>
#include <support/builders/Stream_bytes.h>
#include <support/fakes/Captured_debug.h>
#include <support/fakes/Scripted_stream.h>

#include <gtest/gtest.h>

namespace {

class Diagnostic : public testing::Test {
  protected:
    Captured_debug debug;
    Scripted_stream target;
    unsigned char buffer[4] = {};
    Diagnostic_data_stream tap{"tap", target, buffer, sizeof buffer};
};

TEST_F(Diagnostic, built_from_a_target_alone_only_forwards_writes) {
    Diagnostic_data_stream silent(target);
    EXPECT_EQ(write_bytes(silent, "abc"), 3);
    silent.print_debug();
    silent.print_debug(bytes_of("abc"), 3);
    EXPECT_EQ(target.written, "abc");
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Diagnostic, without_a_name_the_buffer_is_left_unchanged) {
    Diagnostic_data_stream silent(nullptr, target, buffer, sizeof buffer);
    EXPECT_EQ(write_bytes(silent, "abcdefgh"), 8);
    silent.print_debug();
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(target.written, "abcdefgh");
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Diagnostic, without_a_buffer_every_write_is_printed_at_once) {
    Diagnostic_data_stream direct("tap", target, nullptr, 100);
    EXPECT_EQ(write_bytes(direct, "VER\r\n"), 5);
    EXPECT_EQ(write_bytes(direct, "\x01\\z"), 3);
    EXPECT_EQ(debug.text_without_times(), "<time> tap [VER\\r\\n]\n<time> tap [\\x01\\\\z]\n");
    EXPECT_EQ(target.writes, (std::vector<std::string>{"VER\r\n", "\x01\\z"}));
}

TEST_F(Diagnostic, a_buffer_of_size_0_is_none) {
    Diagnostic_data_stream direct("tap", target, buffer, 0);
    EXPECT_EQ(write_bytes(direct, "abc"), 3);
    EXPECT_EQ(debug.text_without_times(), "<time> tap [abc]\n");
    EXPECT_EQ(buffer[0], 0);
}

TEST_F(Diagnostic, bytes_are_printed_before_they_are_forwarded) {
    Diagnostic_data_stream direct("tap", target, nullptr, 0);
    std::string printed_before;
    target.on_write = [&](const unsigned char*, unsigned int len) {
        printed_before = debug.text_without_times();
        return static_cast<int>(len);
    };
    write_bytes(direct, "abc");
    EXPECT_EQ(printed_before, "<time> tap [abc]\n");
}

TEST_F(Diagnostic, result_is_that_of_the_target) {
    Diagnostic_data_stream silent(target);
    for (const int result : {-1, 0, 2}) {
        target.on_write = [result](const unsigned char*, unsigned int) { return result; };
        EXPECT_EQ(write_bytes(tap, "abc"), result);
        EXPECT_EQ(write_bytes(silent, "abc"), result);
    }
}

TEST_F(Diagnostic, writes_pass_through_the_target_s_write_guard) {
    Diagnostic_data_stream silent(target);
    int nested = 99;
    target.on_write = [&](const unsigned char*, unsigned int len) {
        nested = silent._write(bytes_of("again"), 5);
        return static_cast<int>(len);
    };
    EXPECT_EQ(write_bytes(silent, "abc"), 3);
    EXPECT_EQ(nested, 0);
    EXPECT_EQ(target.written, "abc");
}

TEST_F(Diagnostic, buffer_collects_without_printing_until_it_was_full) {
    write_bytes(tap, "ab");
    write_bytes(tap, "cd"); // exactly full: still nothing printed
    EXPECT_EQ(debug.text(), "");
    EXPECT_EQ(std::string(buffer, buffer + 4), "abcd");
    write_bytes(tap, "e");
    EXPECT_EQ(debug.text_without_times(), "<time> tap [abcd]\n");
    EXPECT_EQ(buffer[0], 'e');
    EXPECT_EQ(target.writes, (std::vector<std::string>{"ab", "cd", "e"}));
}

TEST_F(Diagnostic, print_debug_prints_and_empties_the_buffer) {
    write_bytes(tap, "ab");
    tap.print_debug();
    tap.print_debug();
    write_bytes(tap, "cdef");
    tap.print_debug();
    EXPECT_EQ(debug.text_without_times(), "<time> tap [ab]\n<time> tap []\n<time> tap [cdef]\n");
}

TEST_F(Diagnostic, print_debug_of_given_bytes_leaves_the_buffer_unchanged) {
    write_bytes(tap, "ab");
    tap.print_debug(bytes_of("xyz"), 3);
    tap.print_debug();
    EXPECT_EQ(debug.text_without_times(), "<time> tap [xyz]\n<time> tap [ab]\n");
}

// On purpose: of a write that exceeds the buffer, the beginning is printed again instead of the rest.
TEST_F(Diagnostic, every_piece_is_copied_from_the_start_of_the_write) {
    write_bytes(tap, "ABCDEF");
    EXPECT_EQ(debug.text_without_times(), "<time> tap [ABCD]\n");
    tap.print_debug();
    EXPECT_EQ(debug.text_without_times(), "<time> tap [ABCD]\n<time> tap [AB]\n");
    EXPECT_EQ(target.written, "ABCDEF");
}

TEST_F(Diagnostic, piece_that_fills_a_partly_filled_buffer_is_copied_from_the_start_too) {
    write_bytes(tap, "xyz");
    write_bytes(tap, "ABCDEF"); // A fills the buffer, then ABCD of the remaining five, then A
    EXPECT_EQ(debug.text_without_times(), "<time> tap [xyzA]\n<time> tap [ABCD]\n");
    tap.print_debug();
    EXPECT_EQ(debug.text_without_times(), "<time> tap [xyzA]\n<time> tap [ABCD]\n<time> tap [A]\n");
}

TEST_F(Diagnostic, empty_write_prints_a_full_buffer) {
    write_bytes(tap, "abcd");
    EXPECT_EQ(tap._write(bytes_of(""), 0), 0);
    EXPECT_EQ(debug.text_without_times(), "<time> tap [abcd]\n");
}

TEST_F(Diagnostic, destruction_prints_nothing) {
    {
        Diagnostic_data_stream short_lived("tap", target, buffer, sizeof buffer);
        write_bytes(short_lived, "ab");
    }
    EXPECT_EQ(debug.text(), "");
}

TEST_F(Diagnostic, only_a_fetch_of_nothing_succeeds) {
    target.will_arrive("abc");
    EXPECT_EQ(tap._get_data(0), 1);
    EXPECT_EQ(tap._get_data(1), 0);
    EXPECT_EQ(tap._get_data(-1), 0);
    EXPECT_EQ(tap.bytes_avail(), 0U);
    EXPECT_TRUE(target.fetches.empty());
}

TEST_F(Diagnostic, has_the_plain_description) {
    EXPECT_EQ(tap.get_description(), plain_description(tap));
}

TEST_F(Diagnostic, prints_each_write_of_the_buffer_s_size_whole) {
    Random random;
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        const std::string bytes(4, static_cast<char>('a' + random.between(0, 25)));
        write_bytes(tap, bytes);
        expected += "<time> tap [" + bytes + "]\n";
    }
    tap.print_debug();
    EXPECT_EQ(debug.text_without_times(), expected);
}

} // namespace
