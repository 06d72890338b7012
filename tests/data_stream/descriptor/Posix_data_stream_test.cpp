// Description, opening, closing, line commands. Reading and writing: Posix_data_stream_transfer_test.cpp.

#include <glue/data_stream/Posix_data_stream.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/Vtable_slot.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/faults/Replaced_calls.h>
#include <support/files/Temporary_folder.h>
#include <support/files/descriptors.h>
#include <support/terminals/Pty_pair.h>

#include <cstdarg>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

/// A text, cut to the size of a description.
__attribute__((format(printf, 1, 2))) std::string description_of(const char* format, ...) {
    char text[32];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string name_alone(const char* prefix, Posix_data_stream& stream) {
    return description_of("%s(%p)", prefix, static_cast<void*>(&stream));
}

int flags_of(int fd) {
    return fcntl(fd, F_GETFL);
}

struct Posix_data_stream_test : testing::Test {
    Temporary_folder folder;
    Posix_data_stream stream{"X"}; // short, so that a part of the path fits the description
};

using Posix_data_stream_naming = Posix_data_stream_test;
using Posix_data_stream_opening = Posix_data_stream_test;
using Posix_data_stream_replacing = Posix_data_stream_test;
using Posix_data_stream_closing = Posix_data_stream_test;
using Posix_data_stream_line_commands = Posix_data_stream_test;

// ---- The order of the virtual operations ----

TEST(Posix_data_stream_slots, opening_has_the_first_ones_and_closing_has_none) {
    EXPECT_EQ(vtable_slot(&Posix_data_stream::open), 2U);
    EXPECT_EQ(vtable_slot(&Posix_data_stream::open_read), 3U);
    EXPECT_EQ(vtable_slot(&Posix_data_stream::open_write), 4U);
    EXPECT_EQ(vtable_slot(&Posix_data_stream::close), not_virtual);
    EXPECT_EQ(vtable_slot(&Posix_data_stream::close_read), not_virtual);
    EXPECT_EQ(vtable_slot(&Posix_data_stream::close_write), not_virtual);
    EXPECT_EQ(vtable_slot(&Posix_data_stream::init_commander), not_virtual);
}

// ---- Naming ----

TEST_F(Posix_data_stream_naming, adopting_stream_has_the_class_word_DSPosix_and_its_address) {
    Posix_data_stream adopting(-1, -1);
    EXPECT_EQ(adopting.get_description(), name_alone("DSPosix", adopting));
}

TEST_F(Posix_data_stream_naming, closed_stream_has_the_given_class_word_and_no_descriptors) {
    Posix_data_stream closed("PCDS");
    EXPECT_EQ(closed.get_description(), name_alone("PCDS", closed));
    EXPECT_EQ(closed.get_read_fd(), -1);
    EXPECT_EQ(closed.get_write_fd(), -1);
}

TEST_F(Posix_data_stream_naming, address_is_that_of_the_descriptor_stream_inside_a_larger_object) {
    struct Front {
        virtual ~Front() = default;
        int something = 0;
    };
    struct Larger : Front, Posix_data_stream {
        Larger() : Posix_data_stream("L") {}
    } larger;
    ASSERT_NE(static_cast<void*>(&larger), static_cast<void*>(static_cast<Posix_data_stream*>(&larger)));
    EXPECT_EQ(larger.get_description(), name_alone("L", larger));
}

TEST_F(Posix_data_stream_naming, each_kind_of_opening_shows_path_and_direction_cut_to_31_characters) {
    // With an address of twelve digits and the direction, only two characters of a path fit.
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    folder.make_file("f", "");
    void* const self = &stream;
    ASSERT_TRUE(stream.open_read("f", true));
    EXPECT_EQ(stream.get_description(), description_of("X(%p, f, r)", self));
    ASSERT_TRUE(stream.open_write("f", false, true, false));
    EXPECT_EQ(stream.get_description(), description_of("X(%p, f, w)", self));
    ASSERT_TRUE(stream.open("f", false, true, false));
    EXPECT_EQ(stream.get_description(), description_of("X(%p, f, rw)", self));
    const std::string long_path = folder.path("f");
    ASSERT_TRUE(stream.open_read(long_path.c_str(), true));
    EXPECT_EQ(stream.get_description(), description_of("X(%p, %s, r)", self, long_path.c_str()));
    EXPECT_EQ(std::string(stream.get_description()).size(), 31U);
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(Posix_data_stream_naming, every_closing_removes_the_path_even_when_it_closes_nothing) {
    const std::string path = folder.make_file("f", "");
    for (bool (Posix_data_stream::*closing)() :
         {&Posix_data_stream::close, &Posix_data_stream::close_read, &Posix_data_stream::close_write}) {
        ASSERT_TRUE(stream.set_description("something else"));
        (stream.*closing)();
        EXPECT_EQ(stream.get_description(), name_alone("X", stream));
    }
    ASSERT_TRUE(stream.open(path.c_str(), false, true, false));
    EXPECT_FALSE(stream.close_read());
    EXPECT_EQ(stream.get_description(), name_alone("X", stream));
}

// ---- Opening ----

TEST_F(Posix_data_stream_opening, for_reading_makes_a_read_only_descriptor_and_leaves_writing_closed) {
    const std::string path = folder.make_file("f", "content");
    ASSERT_TRUE(stream.open_read(path.c_str(), true));
    EXPECT_EQ(flags_of(stream.get_read_fd()) & (O_ACCMODE | O_NONBLOCK | O_APPEND), O_RDONLY);
    EXPECT_EQ(stream.get_write_fd(), -1);
    EXPECT_TRUE(stream.get_data(7));
    EXPECT_EQ(buffered(stream), "content");
}

TEST_F(Posix_data_stream_opening, for_writing_makes_a_write_only_descriptor_and_leaves_reading_closed) {
    const std::string path = folder.make_file("f", "old and longer");
    ASSERT_TRUE(stream.open_write(path.c_str(), false, true, false));
    EXPECT_EQ(flags_of(stream.get_write_fd()) & (O_ACCMODE | O_NONBLOCK | O_APPEND), O_WRONLY);
    EXPECT_EQ(stream.get_read_fd(), -1);
    EXPECT_EQ(write_text(stream, "new"), 3);
    EXPECT_EQ(folder.content_of("f"), "new and longer"); // not cut
}

TEST_F(Posix_data_stream_opening, for_both_shares_one_descriptor) {
    const std::string path = folder.make_file("f", "abcdef");
    ASSERT_TRUE(stream.open(path.c_str(), false, true, false));
    EXPECT_EQ(stream.get_read_fd(), stream.get_write_fd());
    EXPECT_EQ(flags_of(stream.get_read_fd()) & (O_ACCMODE | O_NONBLOCK | O_APPEND), O_RDWR);
    EXPECT_TRUE(stream.get_data(2));
    EXPECT_EQ(write_text(stream, "XY"), 2);
    EXPECT_EQ(folder.content_of("f"), "abXYef");
}

TEST_F(Posix_data_stream_opening, is_non_blocking_unless_blocking_is_requested) {
    const std::string path = folder.make_file("f", "");
    ASSERT_TRUE(stream.open_read(path.c_str(), false));
    EXPECT_TRUE(flags_of(stream.get_read_fd()) & O_NONBLOCK);
    ASSERT_TRUE(stream.open_write(path.c_str(), false, false, false));
    EXPECT_TRUE(flags_of(stream.get_write_fd()) & O_NONBLOCK);
    ASSERT_TRUE(stream.open(path.c_str(), false, false, false));
    EXPECT_TRUE(flags_of(stream.get_write_fd()) & O_NONBLOCK);
}

TEST_F(Posix_data_stream_opening, with_append_writes_at_the_end) {
    const std::string path = folder.make_file("f", "one ");
    ASSERT_TRUE(stream.open_write(path.c_str(), false, true, true));
    EXPECT_EQ(write_text(stream, "two "), 4);
    ASSERT_TRUE(stream.open(path.c_str(), false, true, true));
    EXPECT_TRUE(flags_of(stream.get_write_fd()) & O_APPEND);
    EXPECT_EQ(write_text(stream, "three"), 5);
    EXPECT_EQ(folder.content_of("f"), "one two three");
}

/// On purpose: the flags' own number serves as permissions.
TEST_F(Posix_data_stream_opening, creates_files_with_the_flags_except_append_as_permissions) {
    constexpr mode_t all_bits = 07777;
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}})
        for (const bool blocking : {false, true})
            for (const bool append : {false, true})
                for (const bool both : {false, true}) {
                    const std::string path = folder.path("created");
                    const mode_t before = umask(mask);
                    const bool opened = both ? stream.open(path.c_str(), true, blocking, append)
                                             : stream.open_write(path.c_str(), true, blocking, append);
                    umask(before);
                    ASSERT_TRUE(opened);
                    struct stat found {};
                    ASSERT_EQ(stat(path.c_str(), &found), 0);
                    const int flags = (both ? O_RDWR : O_WRONLY | O_NOCTTY) | O_CREAT | (blocking ? 0 : O_NONBLOCK);
                    EXPECT_EQ(found.st_mode & all_bits, static_cast<mode_t>(flags) & all_bits & ~mask)
                        << (both ? "open" : "open_write") << " blocking " << blocking << " append " << append;
                    ASSERT_EQ(unlink(path.c_str()), 0);
                }
}

TEST_F(Posix_data_stream_opening, without_create_makes_no_file) {
    const std::string path = folder.path("missing");
    const Captured_descriptor standard_error(2);
    EXPECT_FALSE(stream.open_write(path.c_str(), false, true, false));
    EXPECT_FALSE(stream.open(path.c_str(), false, true, false));
    EXPECT_FALSE(folder.has("missing"));
}

TEST_F(Posix_data_stream_opening, that_fails_reports_path_and_reason_and_leaves_the_stream_closed) {
    const std::string path = folder.path("missing");
    const std::string message = "Error opening '" + path + "': No such file or directory\n";
    const Captured_descriptor standard_error(2);
    EXPECT_FALSE(stream.open_read(path.c_str(), true));
    EXPECT_EQ(standard_error.text(), message);
    EXPECT_FALSE(stream.open_write(path.c_str(), false, true, false));
    EXPECT_EQ(standard_error.text(), message + message);
    EXPECT_FALSE(stream.open(path.c_str(), false, true, false));
    EXPECT_EQ(standard_error.text(), message + message + message);
    EXPECT_EQ(stream.get_read_fd(), -1);
    EXPECT_EQ(stream.get_write_fd(), -1);
    EXPECT_EQ(stream.get_description(), name_alone("X", stream));
}

TEST_F(Posix_data_stream_opening, a_fifo_without_a_reader_for_non_blocking_writing_fails) {
    const std::string path = folder.make_fifo("fifo");
    const Captured_descriptor standard_error(2);
    EXPECT_FALSE(stream.open_write(path.c_str(), false, false, false));
    EXPECT_EQ(standard_error.text(), "Error opening '" + path + "': No such device or address\n");
}

TEST_F(Posix_data_stream_opening, one_fifo_from_both_sides_transfers_bytes) {
    const std::string path = folder.make_fifo("fifo");
    ASSERT_TRUE(stream.open_read(path.c_str(), false)); // a blocking one would wait for the writer
    ASSERT_TRUE(stream.open_write(path.c_str(), false, true, false));
    EXPECT_NE(stream.get_read_fd(), stream.get_write_fd());
    EXPECT_EQ(write_text(stream, "through"), 7);
    EXPECT_TRUE(stream.get_data(7));
    EXPECT_EQ(buffered(stream), "through");
}

/// Exits with 1 when opening a terminal, in a process without a controlling one, made it the controlling terminal.
template <typename Open>
[[noreturn]] void exit_with_whether_it_controls(Open open) {
    Pty_pair terminal;
    if (setsid() < 0)
        _exit(2);
    Posix_data_stream stream("X");
    if (!open(stream, terminal.path().c_str()))
        _exit(3);
    _exit(::open("/dev/tty", O_RDWR) >= 0 ? 1 : 0);
}

TEST_F(Posix_data_stream_opening, for_writing_never_makes_a_controlling_terminal) {
    EXPECT_EXIT(exit_with_whether_it_controls(
                    [](Posix_data_stream& s, const char* path) { return s.open_write(path, false, true, false); }),
                testing::ExitedWithCode(0), "");
}

TEST_F(Posix_data_stream_opening, for_reading_or_both_may_make_a_controlling_terminal) {
    EXPECT_EXIT(exit_with_whether_it_controls(
                    [](Posix_data_stream& s, const char* path) { return s.open(path, false, true, false); }),
                testing::ExitedWithCode(1), "");
    EXPECT_EXIT(
        exit_with_whether_it_controls([](Posix_data_stream& s, const char* path) { return s.open_read(path, true); }),
        testing::ExitedWithCode(1), "");
}

TEST_F(Posix_data_stream_opening, in_a_process_without_standard_input_does_not_use_its_number) {
    const std::string path = folder.make_file("f", "content");
    const auto open_it = [&] {
        close(0);
        if (!stream.open_read(path.c_str(), true) || stream.get_read_fd() < 3 || is_open(0))
            _exit(1);
        const bool readable = stream.get_data(7) != 0;
        _exit(readable && stream.close_read() ? 0 : 2);
    };
    EXPECT_EXIT(open_it(), testing::ExitedWithCode(0), "");
}

// ---- Opening while open ----

TEST_F(Posix_data_stream_replacing, a_shared_descriptor_by_another_closes_the_first) {
    const std::string path = folder.make_file("f", "");
    const int before = open_descriptors();
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(stream.open(path.c_str(), false, true, false));
    EXPECT_EQ(open_descriptors(), before + 1);
}

TEST_F(Posix_data_stream_replacing, one_direction_closes_only_its_descriptor) {
    const std::string path = folder.make_file("f", "");
    const int before = open_descriptors();
    ASSERT_TRUE(stream.open_read(path.c_str(), true));
    ASSERT_TRUE(stream.open_write(path.c_str(), false, true, false));
    const int reading = stream.get_read_fd();
    ASSERT_TRUE(stream.open_write(path.c_str(), false, true, false));
    EXPECT_EQ(stream.get_read_fd(), reading);
    EXPECT_TRUE(is_open(reading));
    ASSERT_TRUE(stream.open_read(path.c_str(), true));
    EXPECT_EQ(open_descriptors(), before + 2);
}

TEST_F(Posix_data_stream_replacing, a_pair_by_a_shared_descriptor_closes_both) {
    const std::string path = folder.make_file("f", "");
    const int before = open_descriptors();
    ASSERT_TRUE(stream.open_read(path.c_str(), true));
    ASSERT_TRUE(stream.open_write(path.c_str(), false, true, false));
    ASSERT_TRUE(stream.open(path.c_str(), false, true, false));
    EXPECT_EQ(open_descriptors(), before + 1);
}

TEST_F(Posix_data_stream_replacing, one_direction_of_a_shared_descriptor_leaves_it_to_the_other) {
    const std::string shared_path = folder.make_file("shared", "");
    const std::string path = folder.make_file("f", "");
    const int before = open_descriptors();
    ASSERT_TRUE(stream.open(shared_path.c_str(), false, true, false));
    const int shared = stream.get_write_fd();
    ASSERT_TRUE(stream.open_read(path.c_str(), true));
    EXPECT_EQ(stream.get_write_fd(), shared);
    EXPECT_EQ(write_text(stream, "still"), 5);
    EXPECT_EQ(folder.content_of("shared"), "still");
    EXPECT_EQ(open_descriptors(), before + 2);
    EXPECT_TRUE(stream.close_read());
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(open_descriptors(), before);

    ASSERT_TRUE(stream.open(shared_path.c_str(), false, true, false));
    ASSERT_TRUE(stream.open_write(path.c_str(), false, true, false));
    EXPECT_TRUE(stream.get_data(5));
    EXPECT_EQ(buffered(stream), "still");
    EXPECT_TRUE(stream.close_read());
    EXPECT_TRUE(stream.close_write());
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Posix_data_stream_replacing, standard_descriptors_leaves_them_open) {
    const std::string path = folder.make_file("f", "");
    Posix_data_stream standard(0, 1);
    ASSERT_TRUE(standard.open_read(path.c_str(), true));
    EXPECT_GT(standard.get_read_fd(), 2);
    EXPECT_EQ(standard.get_write_fd(), 1);
    ASSERT_TRUE(standard.open(path.c_str(), false, true, false));
    EXPECT_EQ(standard.get_read_fd(), standard.get_write_fd());
    EXPECT_TRUE(is_open(0));
    EXPECT_TRUE(is_open(1));
}

TEST_F(Posix_data_stream_replacing, by_a_path_that_cannot_be_opened_leaves_that_direction_closed) {
    const std::string path = folder.make_file("f", "");
    const std::string missing = folder.path("missing");
    const Captured_descriptor standard_error(2);
    const int before = open_descriptors();
    ASSERT_TRUE(stream.open(path.c_str(), false, true, false));
    EXPECT_FALSE(stream.open_read(missing.c_str(), true));
    EXPECT_EQ(stream.get_read_fd(), -1);
    EXPECT_GT(stream.get_write_fd(), 2);
    EXPECT_EQ(stream.get_description(), name_alone("X", stream));
    EXPECT_FALSE(stream.open(missing.c_str(), false, true, false));
    EXPECT_EQ(stream.get_write_fd(), -1);
    EXPECT_EQ(open_descriptors(), before);

    ASSERT_TRUE(stream.open(path.c_str(), false, true, false));
    EXPECT_FALSE(stream.open_write(missing.c_str(), false, true, false));
    EXPECT_EQ(stream.get_write_fd(), -1);
    EXPECT_GT(stream.get_read_fd(), 2);
}

// ---- Closing ----

TEST_F(Posix_data_stream_closing, of_separate_descriptors_is_done_for_each_direction) {
    Pipe pipe;
    const int reading = pipe.take_reading();
    const int writing = pipe.take_writing();
    Posix_data_stream pair(reading, writing);
    EXPECT_FALSE(pair.close());
    EXPECT_TRUE(is_open(reading));
    EXPECT_TRUE(is_open(writing));
    EXPECT_TRUE(pair.close_read());
    EXPECT_FALSE(is_open(reading));
    EXPECT_EQ(pair.get_read_fd(), -1);
    EXPECT_TRUE(is_open(writing));
    EXPECT_TRUE(pair.close_write());
    EXPECT_FALSE(is_open(writing));
    EXPECT_EQ(pair.get_write_fd(), -1);
}

TEST_F(Posix_data_stream_closing, of_a_shared_descriptor_needs_close) {
    const std::string path = folder.make_file("f", "");
    ASSERT_TRUE(stream.open(path.c_str(), false, true, false));
    const int shared = stream.get_read_fd();
    EXPECT_FALSE(stream.close_read());
    EXPECT_FALSE(stream.close_write());
    EXPECT_EQ(stream.get_read_fd(), shared);
    EXPECT_EQ(stream.get_write_fd(), shared);
    EXPECT_TRUE(is_open(shared));
    EXPECT_TRUE(stream.close());
    EXPECT_FALSE(is_open(shared));
    EXPECT_EQ(stream.get_read_fd(), -1);
    EXPECT_EQ(stream.get_write_fd(), -1);
}

TEST_F(Posix_data_stream_closing, what_is_closed_already_fails) {
    EXPECT_FALSE(stream.close());
    EXPECT_FALSE(stream.close_read());
    EXPECT_FALSE(stream.close_write());
}

TEST_F(Posix_data_stream_closing, standard_descriptors_fails) {
    for (int fd = 0; fd < 3; ++fd) {
        Posix_data_stream shared(fd, fd);
        EXPECT_FALSE(shared.close());
        Posix_data_stream reading(fd, -1);
        EXPECT_FALSE(reading.close_read());
        EXPECT_EQ(reading.get_read_fd(), fd);
        Posix_data_stream writing(-1, fd);
        EXPECT_FALSE(writing.close_write());
        EXPECT_EQ(writing.get_write_fd(), fd);
        EXPECT_TRUE(is_open(fd));
    }
}

TEST_F(Posix_data_stream_closing, happens_on_destruction_except_for_standard_descriptors) {
    const std::string path = folder.make_file("f", "");
    const int before = open_descriptors();
    {
        Pipe pipe;
        const Posix_data_stream pair(pipe.take_reading(), pipe.take_writing());
        Posix_data_stream shared("S");
        ASSERT_TRUE(shared.open(path.c_str(), false, true, false));
        const Posix_data_stream standard(0, 1);
        EXPECT_EQ(open_descriptors(), before + 3);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(is_open(0));
    EXPECT_TRUE(is_open(1));
}

// ---- Line commands ----

TEST_F(Posix_data_stream_line_commands, need_an_open_writing_side) {
    const std::string path = folder.make_file("f", "");
    Posix_data_stream::Commander commander;
    EXPECT_FALSE(stream.init_commander(commander));
    ASSERT_TRUE(stream.open_read(path.c_str(), true));
    EXPECT_FALSE(stream.init_commander(commander));
    EXPECT_FALSE(commander.send_break(0));
}

TEST_F(Posix_data_stream_line_commands, send_a_break_through_a_terminal_whatever_its_duration) {
    const Pty_pair terminal;
    ASSERT_TRUE(stream.open(terminal.path().c_str(), false, false, false));
    Posix_data_stream::Commander commander;
    ASSERT_TRUE(stream.init_commander(commander));
    Data_stream::Commander& any_commander = commander;
    EXPECT_TRUE(any_commander.send_break(0));
    EXPECT_TRUE(any_commander.send_break(1000000));
}

TEST_F(Posix_data_stream_line_commands, send_a_break_of_the_default_duration_on_the_writing_descriptor) {
    Pipe pipe;
    Posix_data_stream writer(-1, pipe.take_writing());
    Posix_data_stream::Commander commander;
    ASSERT_TRUE(writer.init_commander(commander));
    std::vector<std::pair<int, int>> breaks;
    Replaced_calls calls;
    calls.send_break = [&](int fd, int duration) { return breaks.emplace_back(fd, duration), 0; };
    EXPECT_TRUE(commander.send_break(250));
    EXPECT_EQ(breaks, (std::vector<std::pair<int, int>>{{writer.get_write_fd(), 0}}));
}

TEST_F(Posix_data_stream_line_commands, cannot_send_a_break_through_a_pipe) {
    Pipe pipe;
    Posix_data_stream writer(-1, pipe.take_writing());
    Posix_data_stream::Commander commander;
    ASSERT_TRUE(writer.init_commander(commander));
    EXPECT_FALSE(commander.send_break(0));
}

TEST_F(Posix_data_stream_line_commands, leave_the_descriptor_to_the_stream) {
    const Pty_pair terminal;
    ASSERT_TRUE(stream.open(terminal.path().c_str(), false, false, false));
    {
        Posix_data_stream::Commander commander;
        ASSERT_TRUE(stream.init_commander(commander));
    }
    EXPECT_TRUE(is_open(stream.get_write_fd()));
}

} // namespace
